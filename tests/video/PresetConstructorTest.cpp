#include "video/PresetConstructor.h"

#include <gtest/gtest.h>

#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/OutputSettingsPresets.h"
#include "video/ColorManager.h"
#include "video/FakeTrack.h"

namespace {

using platform::PlistDictionary;
using platform::PlistValue;
using video_test::FakeTrack;
using video_test::videoFormat;

std::vector<std::string> allPresets() {
    std::vector<std::string> names;
    for (const auto& p : outputSettingsPresets()) names.push_back(p.name);
    return names;
}

// The tiers' strict bounds, the shared 1920x1080 HEVC presets below 1600 and the order alpha,
// HEVC, plain within a tier.
TEST(PresetConstructor, PresetTiers) {
    const auto all = allPresets();
    const std::vector<std::string> noAlpha = {
        AVOutputSettingsPreset640x480,   AVOutputSettingsPreset960x540,
        AVOutputSettingsPreset1280x720,  AVOutputSettingsPreset1920x1080,
        AVOutputSettingsPreset3840x2160, AVOutputSettingsPresetHEVC1920x1080};
    struct Case {
        double maxSide;
        bool alpha, hevc;
        const std::vector<std::string>* available;
        const char* expected;
    };
    const Case cases[] = {
        {3000, true, false, &all, AVOutputSettingsPresetHEVC3840x2160WithAlpha},
        {3000, false, true, &all, AVOutputSettingsPresetHEVC3840x2160},
        {3000, false, false, &all, AVOutputSettingsPreset3840x2160},
        {2401, false, false, &all, AVOutputSettingsPreset3840x2160},
        {2400, false, false, &all, AVOutputSettingsPreset1920x1080},
        {1601, false, true, &all, AVOutputSettingsPresetHEVC1920x1080},
        {1600, false, false, &all, AVOutputSettingsPreset1280x720},
        {1600, false, true, &all, AVOutputSettingsPresetHEVC1920x1080},
        {1600, true, true, &all, AVOutputSettingsPresetHEVC1920x1080WithAlpha},
        {1001, false, false, &all, AVOutputSettingsPreset1280x720},
        {1000, false, false, &all, AVOutputSettingsPreset960x540},
        {801, false, false, &all, AVOutputSettingsPreset960x540},
        {800, false, false, &all, AVOutputSettingsPreset640x480},
        {16, false, true, &all, AVOutputSettingsPresetHEVC1920x1080},
        // No HEVC 3840x2160 offered: the plain preset of the top tier.
        {3000, true, true, &noAlpha, AVOutputSettingsPreset3840x2160},
        {700, true, true, &noAlpha, AVOutputSettingsPresetHEVC1920x1080},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PresetConstructor::presetName(c.maxSide, c.alpha, c.hevc, *c.available),
                  c.expected)
            << c.maxSide << " alpha " << c.alpha << " hevc " << c.hevc;
    }
    EXPECT_EQ(PresetConstructor::presetName(3000, true, true, {}), AVOutputSettingsPreset640x480);
    EXPECT_EQ(PresetConstructor({3000, 2000}, false, false).presetName(),
              AVOutputSettingsPreset3840x2160);
}

// Only presets whose codec the file type holds are chosen: alpha (ProRes 4444) only in a
// QuickTime movie, HEVC not in M4V, 3GP and 3GPP2; H.264 is the last resort everywhere.
TEST(PresetConstructor, PresetsTheFileTypeHolds) {
    struct Case {
        const char* fileType;
        double maxSide;
        bool alpha, hevc;
        const char* expected;
    };
    const Case cases[] = {
        {AVFileTypeQuickTimeMovie, 700, true, false, AVOutputSettingsPresetHEVC1920x1080WithAlpha},
        {AVFileTypeMPEG4, 700, true, false, AVOutputSettingsPreset640x480},
        {AVFileTypeMPEG4, 700, true, true, AVOutputSettingsPresetHEVC1920x1080},
        {AVFileTypeAppleM4V, 3000, true, true, AVOutputSettingsPreset3840x2160},
        {AVFileTypeMPEG4, 3000, true, true, AVOutputSettingsPresetHEVC3840x2160},
        {AVFileType3GPP, 700, false, true, AVOutputSettingsPreset640x480},
        {AVFileType3GPP2, 3000, true, true, AVOutputSettingsPreset3840x2160},
        {"", 3000, true, false, AVOutputSettingsPresetHEVC3840x2160WithAlpha},
    };
    for (const Case& c : cases) {
        const PresetConstructor presets({c.maxSide, c.maxSide / 2}, c.hevc, c.alpha, c.fileType);
        EXPECT_EQ(presets.presetName(), c.expected)
            << c.fileType << " " << c.maxSide << " alpha " << c.alpha << " hevc " << c.hevc;
    }
}

TEST(PresetConstructor, CodecChoice) {
    const auto hevc = videoFormat(kCMVideoCodecType_HEVC, 8);
    const auto avc = videoFormat(kCMVideoCodecType_H264, 8);
    struct Case {
        VRCodecType codecType;
        CMFormatDescriptionRef source;
        bool expected;
    };
    const Case cases[] = {
        {VRCodecTypeH264, hevc, false},
        {VRCodecTypeHEVC, avc, true},
        {VRCodecTypeHEVC, nullptr, true},
        {VRCodecTypeSource, hevc, true},
        {VRCodecTypeSource, avc, false},
        {VRCodecTypeSource, nullptr, false},
        {static_cast<VRCodecType>(7), hevc, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PresetConstructor::isCodecHevc(c.codecType, c.source), c.expected) << c.codecType;
    }
}

// Requested, rescaled, capped and fallback rates.
TEST(PresetConstructor, Bitrate) {
    struct Case {
        const char* name;
        std::int64_t requested;
        std::optional<float> fps;
        std::optional<float> estimated;
        std::optional<CGSize> natural;
        double presetRate;  // 0: absent
        CGSize output;
        float expected;
    };
    const Case cases[] = {
        {"requested 2 as it is", 2, 30, 20e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 2},
        {"requested above the cap", 90'000'000, 30, 0, CGSize{1920, 1080}, 0, {1920, 1080}, 90e6f},
        {"1 is computed", 1, 30, 20e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 20e6f},
        {"30 fps capped", 0, 30, 60e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 40e6f},
        {"60 fps capped higher", 0, 60, 60e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 55e6f},
        {"35 fps is not above", 0, 35, 60e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 40e6f},
        {"frame rate unknown", 0, std::nullopt, 60e6f, CGSize{1920, 1080}, 0, {1920, 1080}, 40e6f},
        {"half each side", 0, 30, 20e6f, CGSize{1920, 1080}, 0, {960, 540}, 5e6f},
        {"natural size unknown", 0, 30, 20e6f, std::nullopt, 0, {960, 540}, 20e6f},
        {"no data rate: the preset's", 0, 30, 1, CGSize{1920, 1080}, 6e6, {960, 540}, 6e6f},
        {"data rate unknown", 0, 30, std::nullopt, CGSize{1920, 1080}, 6e6, {960, 540}, 6e6f},
        {"nothing: five bits a pixel", 0, 30, 0, CGSize{1920, 1080}, 0, {640, 360}, 1'152'000},
        // 0.05 bits per output pixel and frame at least, the cap still above it.
        {"static source: the floor", 0, 30, 20e3f, CGSize{640, 360}, 0, {640, 360}, 345'600},
        {"floor at 60 fps", 0, 60, 20e3f, CGSize{640, 360}, 0, {640, 360}, 691'200},
        {"floor without a rate at 30",
         0,
         std::nullopt,
         20e3f,
         CGSize{640, 360},
         0,
         {640, 360},
         345'600},
        {"floor above the cap", 0, 60, 20e3f, CGSize{7680, 4320}, 0, {7680, 4320}, 55e6f},
    };
    for (const Case& c : cases) {
        FakeTrack track;
        track.nominalFrameRate = c.fps;
        track.estimatedDataRate = c.estimated;
        track.naturalSize = c.natural;
        PlistDictionary compression;
        if (c.presetRate > 0) compression[AVVideoAverageBitRateKey] = c.presetRate;
        EXPECT_FLOAT_EQ(PresetConstructor::bitrate(c.requested, compression, track, c.output),
                        c.expected)
            << c.name;
    }
    // A rate of another type counts as none.
    FakeTrack track;
    track.estimatedDataRate = 0;
    PlistDictionary text = {{AVVideoAverageBitRateKey, "6000000"}};
    EXPECT_FLOAT_EQ(PresetConstructor::bitrate(0, text, track, {100, 100}), 50'000);
}

TEST(ColorManager, AcceptedTags) {
    auto tags = [](PlistValue p, PlistValue t, PlistValue m) {
        PlistDictionary d;
        if (!p.isNull()) d[AVVideoColorPrimariesKey] = p;
        if (!t.isNull()) d[AVVideoTransferFunctionKey] = t;
        if (!m.isNull()) d[AVVideoYCbCrMatrixKey] = m;
        return PlistValue(d);
    };
    struct Case {
        PlistValue properties;
        const char* codec;
        bool expected;
    };
    const Case cases[] = {
        {tags("ITU_R_709_2", "ITU_R_709_2", "ITU_R_709_2"), AVVideoCodecTypeH264, true},
        {tags("ITU_R_2020", "ITU_R_2100_HLG", "ITU_R_2020"), AVVideoCodecTypeHEVC, true},
        {tags("ITU_R_2020", "ITU_R_2100_HLG", "ITU_R_2020"), AVVideoCodecTypeH264, false},
        {tags("ITU_R_2020", "SMPTE_ST_2084_PQ", "ITU_R_709_2"), AVVideoCodecTypeH264, true},
        {tags("P3_D65", "ITU_R_709_2", "ITU_R_601_4"), AVVideoCodecTypeH264, true},
        {tags("SMPTE_C", "ITU_R_709_2", "ITU_R_601_4"), AVVideoCodecTypeAppleProRes4444, true},
        {tags("EBU_3213", "ITU_R_709_2", "ITU_R_709_2"), AVVideoCodecTypeHEVC, false},
        {tags("ITU_R_709_2", "Linear", "ITU_R_709_2"), AVVideoCodecTypeHEVC, false},
        {tags("ITU_R_709_2", "ITU_R_709_2", "SMPTE_240M_1995"), AVVideoCodecTypeHEVC, false},
        {tags("ITU_R_709_2", "ITU_R_709_2", PlistValue()), AVVideoCodecTypeHEVC, false},
        {tags("ITU_R_709_2", 1, "ITU_R_709_2"), AVVideoCodecTypeHEVC, false},
        {PlistValue(), AVVideoCodecTypeHEVC, false},
        {PlistValue("ITU_R_709_2"), AVVideoCodecTypeHEVC, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(ColorManager::areColorPropertiesAccepted(cases[i].properties, cases[i].codec),
                  cases[i].expected)
            << "case " << i << ": " << cases[i].properties.debugDescription();
    }
}

// The writer input's settings: the source's HDR tags where the codec takes them, all three
// replaced otherwise, the exact size, square pixels, the bit rate as a real number, and the
// source's frame rate reaching the assistant (0.5 frames a second as 2-second frames).
TEST(PresetConstructor, EncoderSettings) {
    const auto hlg =
        videoFormat(kCMVideoCodecType_HEVC, 10, AVVideoColorPrimaries_ITU_R_2020,
                    AVVideoTransferFunction_ITU_R_2100_HLG, AVVideoYCbCrMatrix_ITU_R_2020);
    struct Case {
        VRCodecType codecType;
        const char* codec;
        const char* matrix;
        const char* transfer;
    };
    const Case cases[] = {
        {VRCodecTypeSource, AVVideoCodecTypeHEVC, AVVideoYCbCrMatrix_ITU_R_2020,
         AVVideoTransferFunction_ITU_R_2100_HLG},
        {VRCodecTypeH264, AVVideoCodecTypeH264, AVVideoYCbCrMatrix_ITU_R_709_2,
         AVVideoTransferFunction_ITU_R_709_2},
    };
    for (const Case& c : cases) {
        FakeTrack track;
        track.nominalFrameRate = 0.5f;
        track.minFrameDuration = std::nullopt;
        track.formatDescriptions = std::vector<CMFormatDescriptionRef>{hlg};
        VRVideoResizeOptions options;
        options.codecType = c.codecType;
        options.bitrate = 3'000'000;
        const CGSize size{2554, 1080};
        const PresetConstructor presets(size, PresetConstructor::isCodecHevc(c.codecType, hlg),
                                        false);
        PlistValue settings(presets.encoderSettings(options, track, hlg));
        SCOPED_TRACE(settings.debugDescription());
        EXPECT_EQ(*settings[AVVideoCodecKey].string(), c.codec);
        EXPECT_EQ(settings[AVVideoWidthKey].integerValue(), 2554);
        EXPECT_EQ(settings[AVVideoHeightKey].integerValue(), 1080);
        const PlistValue& color = settings[AVVideoColorPropertiesKey];
        EXPECT_EQ(*color[AVVideoYCbCrMatrixKey].string(), c.matrix);
        EXPECT_EQ(*color[AVVideoTransferFunctionKey].string(), c.transfer);
        const PlistValue& compression = settings[AVVideoCompressionPropertiesKey];
        EXPECT_TRUE(compression[AVVideoAverageBitRateKey].isReal());
        EXPECT_EQ(compression[AVVideoAverageBitRateKey].doubleValue(), 3'000'000);
        const PlistValue& aspect = compression[AVVideoPixelAspectRatioKey];
        EXPECT_EQ(aspect[AVVideoPixelAspectRatioHorizontalSpacingKey].integerValue(), 1);
        EXPECT_EQ(aspect[AVVideoPixelAspectRatioVerticalSpacingKey].integerValue(), 1);
        EXPECT_DOUBLE_EQ(compression[AVVideoExpectedSourceFrameRateKey].doubleValue(), 0.5);
    }
}

}  // namespace
