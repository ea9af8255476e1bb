// What the FFmpeg movie writer makes of a file type and of a video input's output settings:
// the container, the encoder, its pixel format, and the conversions of errors and times. Used by
// the writer's files only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "platform/AVMediaFormat.h"
#include "platform/CMTime.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace ffmpeg_writer {

inline constexpr std::size_t kEncoderQueue = 2;
// Seconds an input may run ahead of the slowest input that is being fed, so that the tracks
// reach the muxer (which writes in time order) close together and the file is interleaved.
inline constexpr double kInterleaveWindow = 0.5;
inline constexpr int kMaxSide = 16384;

struct Container {
    const char* fileType;
    const char* muxer;
    bool quickTime;  // takes ProRes and timecode tracks
    bool threeGP;
};

const Container* containerFor(const std::string& fileType);

// What a video input's output settings ask for.
struct VideoConfig {
    std::string codec;
    int width = 0, height = 0;
    double bitRate = 0;
    double frameRate = 0;
    int keyFrameInterval = 0;
    bool allowReordering = true;
    int sarNum = 1, sarDen = 1;
    double quality = -1;
    std::string speedPreset, parameters, profile;
    std::optional<std::string> primaries, transfer, matrix;
};

std::optional<VideoConfig> videoConfigOf(const platform::PlistDictionary& settings);

// libx264, libx265, prores_ks or mjpeg; null for another codec.
const char* encoderNameFor(const std::string& codec);
bool isTenBit(OSType code);
bool isBiplanar(OSType code);
bool isFullRange(OSType code);
// H.264 is always 8-bit (High, or High 4:4:4 for odd sides), since most players cannot decode
// High 10; only HEVC keeps more than 8 bits. A 4:2:0 stream can only be cropped to even sides
// (the sequence header crops in steps of two luma samples), so an odd side is encoded in 4:4:4,
// which the encoder pads to whole blocks and crops back to the exact size in the header.
AVPixelFormat encoderFormatFor(const std::string& codec, OSType input, bool oddSide);
// Whether the codec's encoder takes odd widths and heights.
bool takesOddSides(const std::string& codec);
// A write error, as the disk-full error where it is one.
platform::ErrorRef writeError(int averror, const std::string& what);
// The time in the time base, rounded to the nearest; AV_NOPTS_VALUE for a time that is no number.
int64_t toTimeBase(CMTime t, AVRational tb);

}  // namespace ffmpeg_writer
