// What a video writer input's output settings dictionary asks of the encoder, read once when
// the input is made. Every key must be one the writer knows and hold a value of its type: a
// misspelt key or a bit rate given as text is an error, never a silent default.
#pragma once

#include <optional>
#include <string>

#include "platform/AVVideoCodecs.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

struct AVVideoEncoderSettings {
    AVVideoCodec codec = AVVideoCodec::h264;
    int width = 0, height = 0;
    // 0 where the settings give none.
    double bitRate = 0;
    double frameRate = 0;
    int keyFrameInterval = 0;
    bool allowReordering = true;
    int sarNum = 1, sarDen = 1;
    // 0 to 1 for JPEG; -1 where the settings give none.
    double quality = -1;
    std::string speedPreset, parameters, profile;
    std::optional<std::string> primaries, transfer, matrix;

    // AVVideoCodecKey, AVVideoWidthKey and AVVideoHeightKey are required; the colour and
    // compression properties are optional dictionaries of their own keys (AVVideoSettings.h).
    // Null, with an AVFoundationErrorDomain error that names the key, for a missing or
    // ill-typed value, an unknown key or codec, or a size or count beyond an int.
    static std::optional<AVVideoEncoderSettings> settingsWithDictionary(
        const platform::PlistDictionary& settings, platform::ErrorRef* error);
};
