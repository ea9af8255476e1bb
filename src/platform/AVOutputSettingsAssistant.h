// Video output settings for a preset name, adjusted to the source: its format description
// (colour tags, bit depth) and its frame durations. The video track provider's preset
// constructor asks it for a settings dictionary that it then completes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/CMFormatDescription.h"
#include "platform/CMTime.h"
#include "platform/OutputSettingsPresets.h"
#include "platform/PlistValue.h"

class AVOutputSettingsAssistant {
  public:
    // Names of every preset, in the table's order.
    static std::vector<std::string> availableOutputSettingsPresets();
    // Null for an unknown name.
    static std::shared_ptr<AVOutputSettingsAssistant> outputSettingsAssistantWithPreset(
        const std::string& presetName);

    void setSourceVideoFormat(CMFormatDescriptionRef format) { _format = std::move(format); }
    void setSourceVideoAverageFrameDuration(CMTime duration) { _averageFrameDuration = duration; }
    void setSourceVideoMinFrameDuration(CMTime duration) { _minFrameDuration = duration; }
    const CMFormatDescriptionRef& sourceVideoFormat() const { return _format; }

    // AVVideoCodecKey, AVVideoWidthKey and AVVideoHeightKey (the preset's box, turned for a
    // portrait source, fitted to the source's aspect, even sides), AVVideoColorPropertiesKey (the
    // source's three tags when it has all three, else ITU-R 709-2), and
    // AVVideoCompressionPropertiesKey with AverageBitRate (scaled by the source's frame rate over
    // 30, between 0.5 and 2 times), ProfileLevel (Main 10 / High 10 class for sources above 8
    // bits), ExpectedFrameRate (from the average frame duration, else the minimum one),
    // MaxKeyFrameInterval and the encoder's preset and parameters.
    std::optional<platform::PlistDictionary> videoSettings() const;

  private:
    explicit AVOutputSettingsAssistant(const OutputSettingsPreset& preset) : _preset(preset) {}
    const OutputSettingsPreset& _preset;
    CMFormatDescriptionRef _format;
    CMTime _averageFrameDuration = kCMTimeInvalid;
    CMTime _minFrameDuration = kCMTimeInvalid;
};
