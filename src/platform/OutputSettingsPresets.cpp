#include "platform/OutputSettingsPresets.h"

#include "platform/AVVideoSettings.h"

// Bit rates are for 30 frames per second and are rescaled by the assistant. H.264 outputs of
// 1600 pixels or more on the long side (the 1080p and 4K rows) encode at "veryfast" with the
// diamond motion search: an 8-second 2554 x 1080 clip with grain at 18 Mbit/s keeps an SSIM
// within 0.0005 of "medium" at the same bit rate (0.9766 to 0.9769 against 0.9771) for about a
// third of its encoder time, and the diamond search takes 5 to 15 percent off plain "veryfast"
// (0.9758) at no loss. Cheaper still fails the quality: "superfast" 0.9694, with the
// macroblock tree back 0.9735, "veryfast" at subme 1 0.9738 or with a lookahead of 5 0.9735. The
// smaller rows stay at libx264's default "medium": at their lower bit rates the slower search pays
// more, and they are fast enough already. HEVC uses "faster": on 1080p 10-bit frames with grain
// at 7.5 Mbit/s its SSIM is within 0.0006 of "fast" and "medium" (0.6925 against 0.6930 and 0.6929)
// for 17 and 37 percent less encoder time, while "superfast" and "ultrafast" lose 0.013 to 0.016;
// libx265 at its default is several times slower than libx264 for a similar result at these rates.
const std::vector<OutputSettingsPreset>& outputSettingsPresets() {
    static const std::vector<OutputSettingsPreset> presets = {
        {AVOutputSettingsPreset640x480, AVVideoCodec::h264, AVVideoProfileLevelH264HighAutoLevel,
         AVVideoProfileLevelH264HighAutoLevel, 640, 480, 1'500'000, "medium", "", 2.0},
        {AVOutputSettingsPreset960x540, AVVideoCodec::h264, AVVideoProfileLevelH264HighAutoLevel,
         AVVideoProfileLevelH264HighAutoLevel, 960, 540, 3'000'000, "medium", "", 2.0},
        {AVOutputSettingsPreset1280x720, AVVideoCodec::h264, AVVideoProfileLevelH264HighAutoLevel,
         AVVideoProfileLevelH264HighAutoLevel, 1280, 720, 5'000'000, "medium", "", 2.0},
        {AVOutputSettingsPreset1920x1080, AVVideoCodec::h264, AVVideoProfileLevelH264HighAutoLevel,
         AVVideoProfileLevelH264HighAutoLevel, 1920, 1080, 10'000'000, "veryfast", "me=dia", 2.0},
        {AVOutputSettingsPreset3840x2160, AVVideoCodec::h264, AVVideoProfileLevelH264HighAutoLevel,
         AVVideoProfileLevelH264HighAutoLevel, 3840, 2160, 35'000'000, "veryfast", "me=dia", 2.0},
        {AVOutputSettingsPresetHEVC1920x1080, AVVideoCodec::hevc,
         kVTProfileLevel_HEVC_Main_AutoLevel, kVTProfileLevel_HEVC_Main10_AutoLevel, 1920, 1080,
         6'000'000, "faster", "", 2.0},
        {AVOutputSettingsPresetHEVC3840x2160, AVVideoCodec::hevc,
         kVTProfileLevel_HEVC_Main_AutoLevel, kVTProfileLevel_HEVC_Main10_AutoLevel, 3840, 2160,
         20'000'000, "faster", "", 2.0},
        {AVOutputSettingsPresetHEVC1920x1080WithAlpha, AVVideoCodec::proRes4444, "", "", 1920, 1080,
         0, "", "", 1.0},
        {AVOutputSettingsPresetHEVC3840x2160WithAlpha, AVVideoCodec::proRes4444, "", "", 3840, 2160,
         0, "", "", 1.0},
    };
    return presets;
}

const OutputSettingsPreset* outputSettingsPresetNamed(const std::string& name) {
    for (const OutputSettingsPreset& preset : outputSettingsPresets()) {
        if (name == preset.name) return &preset;
    }
    return nullptr;
}
