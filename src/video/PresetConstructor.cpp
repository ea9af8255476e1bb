#include "video/PresetConstructor.h"

#include <algorithm>
#include <cmath>

#include "platform/AVAssetWriter.h"
#include "platform/AVOutputSettingsAssistant.h"
#include "platform/AVVideoCodecs.h"
#include "platform/AVVideoSettings.h"
#include "platform/OutputSettingsPresets.h"
#include "video/ColorManager.h"

using platform::PlistDictionary;
using platform::PlistValue;

namespace {

struct Tier {
    double above;
    const char* alpha;
    const char* hevc;
    const char* plain;
};

constexpr Tier kTiers[] = {
    {2400, AVOutputSettingsPresetHEVC3840x2160WithAlpha, AVOutputSettingsPresetHEVC3840x2160,
     AVOutputSettingsPreset3840x2160},
    {1600, AVOutputSettingsPresetHEVC1920x1080WithAlpha, AVOutputSettingsPresetHEVC1920x1080,
     AVOutputSettingsPreset1920x1080},
    {1000, AVOutputSettingsPresetHEVC1920x1080WithAlpha, AVOutputSettingsPresetHEVC1920x1080,
     AVOutputSettingsPreset1280x720},
    {800, AVOutputSettingsPresetHEVC1920x1080WithAlpha, AVOutputSettingsPresetHEVC1920x1080,
     AVOutputSettingsPreset960x540},
    {-INFINITY, AVOutputSettingsPresetHEVC1920x1080WithAlpha, AVOutputSettingsPresetHEVC1920x1080,
     AVOutputSettingsPreset640x480},
};

// The least a computed rate gives each output pixel of each frame. Rescaling a source's rate
// by the change in pixel count can leave a very static, very low-rate source with a few
// kilobits per second, and the encoder then sends a grey picture. 0.05 bits is about the rate
// at which H.264 and HEVC still hold a moving picture at small sizes (360p at 30 frames per
// second gets 346 kbit/s), and a still picture gets a clean key frame from it.
constexpr double kMinimumBitsPerPixel = 0.05;

const std::vector<std::string>& platformPresets() {
    static const std::vector<std::string> presets =
        AVOutputSettingsAssistant::availableOutputSettingsPresets();
    return presets;
}

}  // namespace

bool PresetConstructor::isCodecHevc(VRCodecType codecType,
                                    const CMFormatDescriptionRef& sourceFormat) {
    if (codecType == VRCodecTypeH264) return false;
    if (codecType == VRCodecTypeHEVC) return true;
    return sourceFormat && sourceFormat->mediaSubType == kCMVideoCodecType_HEVC;
}

std::string PresetConstructor::presetName(double maxSide, bool containsAlpha, bool codecHevc,
                                          const std::vector<std::string>& available) {
    auto isAvailable = [&](const char* name) {
        return std::find(available.begin(), available.end(), name) != available.end();
    };
    for (const Tier& tier : kTiers) {
        if (!(maxSide > tier.above)) continue;
        if (containsAlpha && isAvailable(tier.alpha)) return tier.alpha;
        if (codecHevc && isAvailable(tier.hevc)) return tier.hevc;
        if (isAvailable(tier.plain)) return tier.plain;
    }
    return AVOutputSettingsPreset640x480;
}

std::vector<std::string> PresetConstructor::presetsForFileType(const std::string& fileType) {
    std::vector<std::string> accepted;
    for (const std::string& name : platformPresets()) {
        const OutputSettingsPreset* preset = outputSettingsPresetNamed(name);
        if (fileType.empty() ||
            (preset && AVAssetWriter::fileTypeAcceptsVideoCodec(fileType, preset->codec))) {
            accepted.push_back(name);
        }
    }
    return accepted;
}

std::string PresetConstructor::presetName() const {
    return presetName(std::max(_size.width, _size.height), _containsAlpha, _codecHevc,
                      presetsForFileType(_fileType));
}

std::optional<PlistDictionary> PresetConstructor::presetSettings(
    const AVAssetTrack& track, const CMFormatDescriptionRef& sourceFormat) const {
    auto assistant = AVOutputSettingsAssistant::outputSettingsAssistantWithPreset(presetName());
    if (!assistant) return std::nullopt;
    if (sourceFormat) assistant->setSourceVideoFormat(sourceFormat);
    auto minDuration = track.loadMinFrameDuration();
    if (minDuration && CMTIME_IS_VALID(minDuration.value())) {
        assistant->setSourceVideoMinFrameDuration(minDuration.value());
    }
    auto rate = track.loadNominalFrameRate();
    if (rate && rate.value() > 0.0001f) {
        const double f = rate.value();
        const CMTime duration =
            f < 1 ? CMTimeMake(static_cast<CMTimeValue>(std::round(1.0 / f)), 1)
                  : CMTimeMake(1, static_cast<CMTimeScale>(std::min(std::round(f), 2147483647.0)));
        if (CMTIME_IS_VALID(duration)) assistant->setSourceVideoAverageFrameDuration(duration);
    }
    return assistant->videoSettings();
}

float PresetConstructor::bitrate(std::int64_t requested, const PlistDictionary& compression,
                                 const AVAssetTrack& track, CGSize outputSize) {
    const float b = static_cast<float>(requested);
    if (b > 1) return b;

    float preset = 0;
    if (auto it = compression.find(AVVideoAverageBitRateKey);
        it != compression.end() && (it->second.isInteger() || it->second.isReal())) {
        preset = static_cast<float>(it->second.doubleValue());
    }
    auto rate = track.loadNominalFrameRate();
    const float cap = rate && rate.value() > 35 ? 55000000.0f : 40000000.0f;
    const double outputArea = outputSize.width * outputSize.height;

    float candidate = preset;
    auto estimated = track.loadEstimatedDataRate();
    if (estimated && estimated.value() > 1) {
        const float e = estimated.value();
        candidate = e;
        auto natural = track.loadNaturalSize();
        if (natural) {
            const double sourceArea = natural.value().width * natural.value().height;
            if (sourceArea > 1 && outputArea > 1) {
                candidate = static_cast<float>(e * (outputArea / sourceArea));
            }
        }
    }
    float chosen = candidate > 1 ? candidate : static_cast<float>(outputArea * 5.0);
    const float fps = rate && rate.value() > 0 ? std::min(rate.value(), 240.0f) : 30.0f;
    chosen = std::max(chosen, static_cast<float>(outputArea * fps * kMinimumBitsPerPixel));
    return std::min(chosen, cap);
}

PlistDictionary PresetConstructor::encoderSettings(
    const VRVideoResizeOptions& options, const AVAssetTrack& track,
    const CMFormatDescriptionRef& sourceFormat) const {
    PlistDictionary settings = presetSettings(track, sourceFormat).value_or(PlistDictionary{});
    PlistDictionary compression;
    if (const PlistDictionary* given = settings[AVVideoCompressionPropertiesKey].dictionary()) {
        compression = *given;
    }
    if (const std::string* codec = settings[AVVideoCodecKey].string()) {
        if (!ColorManager::areColorPropertiesAccepted(settings[AVVideoColorPropertiesKey],
                                                      *codec)) {
            settings[AVVideoColorPropertiesKey] = ColorManager::defaultColorProperties();
        }
        const AVVideoCodecInfo* info = videoCodecWithType(*codec);
        if (info && info->codec == AVVideoCodec::jpeg) {
            compression[AVVideoQualityKey] = static_cast<double>(options.jpegCompression);
        }
    } else {
        settings[AVVideoCodecKey] = AVVideoCodecTypeH264;
        settings[AVVideoColorPropertiesKey] = ColorManager::defaultColorProperties();
    }
    compression[AVVideoAverageBitRateKey] =
        static_cast<double>(bitrate(options.bitrate, compression, track, _size));
    compression[AVVideoPixelAspectRatioKey] = PlistDictionary{
        {AVVideoPixelAspectRatioHorizontalSpacingKey, 1},
        {AVVideoPixelAspectRatioVerticalSpacingKey, 1},
    };
    settings[AVVideoWidthKey] = static_cast<std::int64_t>(_size.width);
    settings[AVVideoHeightKey] = static_cast<std::int64_t>(_size.height);
    settings[AVVideoCompressionPropertiesKey] = compression;
    return settings;
}
