#include "platform/AVOutputSettingsAssistant.h"

#include <algorithm>
#include <cmath>

#include "platform/AVVideoSettings.h"

using platform::PlistDictionary;

std::vector<std::string> AVOutputSettingsAssistant::availableOutputSettingsPresets() {
    std::vector<std::string> names;
    for (const OutputSettingsPreset& preset : outputSettingsPresets()) names.push_back(preset.name);
    return names;
}

std::shared_ptr<AVOutputSettingsAssistant>
AVOutputSettingsAssistant::outputSettingsAssistantWithPreset(const std::string& presetName) {
    const OutputSettingsPreset* preset = outputSettingsPresetNamed(presetName);
    if (!preset) return nullptr;
    return std::shared_ptr<AVOutputSettingsAssistant>(new AVOutputSettingsAssistant(*preset));
}

namespace {

// Frames per second from a frame duration; 0 when the duration says nothing.
double rateOf(CMTime duration) {
    double seconds = CMTimeGetSeconds(duration);
    if (!std::isfinite(seconds) || seconds <= 0) return 0;
    return 1.0 / seconds;
}

// The preset's box fitted to the source's aspect, even sides of at least 2.
std::pair<int, int> fittedSize(int boxW, int boxH, const CMFormatDescriptionRef& format) {
    if (!format || format->dimensions.width <= 0 || format->dimensions.height <= 0) {
        return {boxW, boxH};
    }
    double sw = format->dimensions.width, sh = format->dimensions.height;
    if ((sw >= sh) != (boxW >= boxH)) std::swap(boxW, boxH);
    double scale = std::min(boxW / sw, boxH / sh);
    auto even = [](double v) { return std::max(2, static_cast<int>(std::lround(v / 2.0)) * 2); };
    return {even(sw * scale), even(sh * scale)};
}

}  // namespace

std::optional<PlistDictionary> AVOutputSettingsAssistant::videoSettings() const {
    PlistDictionary settings;
    settings[AVVideoCodecKey] = videoCodecInfo(_preset.codec).type;
    auto [width, height] = fittedSize(_preset.width, _preset.height, _format);
    settings[AVVideoWidthKey] = width;
    settings[AVVideoHeightKey] = height;

    PlistDictionary color;
    if (_format && _format->colorPrimaries && _format->transferFunction && _format->yCbCrMatrix) {
        color[AVVideoColorPrimariesKey] = *_format->colorPrimaries;
        color[AVVideoTransferFunctionKey] = *_format->transferFunction;
        color[AVVideoYCbCrMatrixKey] = *_format->yCbCrMatrix;
    } else {
        color[AVVideoColorPrimariesKey] = AVVideoColorPrimaries_ITU_R_709_2;
        color[AVVideoTransferFunctionKey] = AVVideoTransferFunction_ITU_R_709_2;
        color[AVVideoYCbCrMatrixKey] = AVVideoYCbCrMatrix_ITU_R_709_2;
    }
    settings[AVVideoColorPropertiesKey] = color;

    double fps = rateOf(_averageFrameDuration);
    if (fps <= 0) fps = rateOf(_minFrameDuration);
    PlistDictionary compression;
    if (_preset.averageBitRate > 0) {
        double factor = fps > 0 ? std::clamp(fps / 30.0, 0.5, 2.0) : 1.0;
        compression[AVVideoAverageBitRateKey] = std::round(_preset.averageBitRate * factor);
    }
    bool highBitDepth = _format && _format->bitsPerComponent > 8;
    const char* profile = highBitDepth ? _preset.profileHighBitDepth : _preset.profile8Bit;
    if (*profile) compression[AVVideoProfileLevelKey] = profile;
    if (fps > 0) compression[AVVideoExpectedSourceFrameRateKey] = fps;
    double keyInterval = std::round((fps > 0 ? fps : 30.0) * _preset.keyFrameIntervalSeconds);
    compression[AVVideoMaxKeyFrameIntervalKey] =
        static_cast<std::int64_t>(std::max(1.0, keyInterval));
    if (*_preset.encoderSpeedPreset) {
        compression[UWVideoEncoderSpeedPresetKey] = _preset.encoderSpeedPreset;
    }
    if (*_preset.encoderParameters) {
        compression[UWVideoEncoderParametersKey] = _preset.encoderParameters;
    }
    settings[AVVideoCompressionPropertiesKey] = compression;
    return settings;
}
