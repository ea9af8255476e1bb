// Our table of output settings presets, standing in for the platform's settings assistant:
// for each preset name the codec, profile, size, bit rate and encoder parameters. Data only;
// AVOutputSettingsAssistant adjusts a row to the source.
#pragma once

#include <string>
#include <vector>

#include "platform/AVVideoCodecs.h"

inline constexpr const char* AVOutputSettingsPreset640x480 = "AVOutputSettingsPreset640x480";
inline constexpr const char* AVOutputSettingsPreset960x540 = "AVOutputSettingsPreset960x540";
inline constexpr const char* AVOutputSettingsPreset1280x720 = "AVOutputSettingsPreset1280x720";
inline constexpr const char* AVOutputSettingsPreset1920x1080 = "AVOutputSettingsPreset1920x1080";
inline constexpr const char* AVOutputSettingsPreset3840x2160 = "AVOutputSettingsPreset3840x2160";
inline constexpr const char* AVOutputSettingsPresetHEVC1920x1080 =
    "AVOutputSettingsPresetHEVC1920x1080";
inline constexpr const char* AVOutputSettingsPresetHEVC3840x2160 =
    "AVOutputSettingsPresetHEVC3840x2160";
inline constexpr const char* AVOutputSettingsPresetHEVC1920x1080WithAlpha =
    "AVOutputSettingsPresetHEVC1920x1080WithAlpha";
inline constexpr const char* AVOutputSettingsPresetHEVC3840x2160WithAlpha =
    "AVOutputSettingsPresetHEVC3840x2160WithAlpha";

struct OutputSettingsPreset {
    const char* name;
    AVVideoCodec codec;
    // Profile for 8-bit sources and for sources of more than 8 bits (AVVideoProfileLevel...);
    // empty when the codec has none to name.
    const char* profile8Bit;
    const char* profileHighBitDepth;
    int width;
    int height;
    // Average bit rate at 30 frames per second; 0 for a codec that takes none (ProRes).
    double averageBitRate;
    // The software encoder's speed preset and extra parameters.
    const char* encoderSpeedPreset;
    const char* encoderParameters;
    // Seconds between key frames.
    double keyFrameIntervalSeconds;
};

// Every preset of this platform. The alpha presets keep their names but encode ProRes 4444,
// the alpha-capable codec here, which only QuickTime movies take.
const std::vector<OutputSettingsPreset>& outputSettingsPresets();
const OutputSettingsPreset* outputSettingsPresetNamed(const std::string& name);
