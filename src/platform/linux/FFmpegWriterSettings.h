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
#include "platform/AVVideoCodecs.h"
#include "platform/AVVideoEncoderSettings.h"
#include "platform/CMTime.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace ffmpeg_writer {

// Frames waiting for the encoder thread. One is enough to keep drawing and encoding overlapped
// (the next frame is drawn while this one is encoded); each more is a whole frame of memory
// (4 MB at 2554 x 1080, 6 MB for 10-bit 1080p) that the encoder's own lookahead does not need.
inline constexpr std::size_t kEncoderQueue = 1;
// Seconds an input may run ahead of the slowest input that is being fed, so that the tracks
// reach the muxer (which writes in time order) close together and the file is interleaved.
inline constexpr double kInterleaveWindow = 0.5;
inline constexpr int kMaxSide = 16384;

// The FFmpeg side of a row of the container table: the muxer that writes the file type.
struct Container {
    AVMovieContainer container;
    const char* muxer;

    const AVMovieContainerInfo& info() const { return movieContainerInfo(container); }
};

// Null for a file type that is not written.
const Container* containerFor(const std::string& fileType);

// The FFmpeg side of a row of the codec table: the encoder and the pixel formats it is fed.
struct Encoding {
    AVVideoCodec codec;
    // Null where no encoder exists here.
    const char* encoder;
    // Even sides: 8-bit planar or packed input, 8-bit biplanar input, deeper input.
    AVPixelFormat even8, evenBiplanar8, evenDeep;
    // Odd sides, which a 4:2:0 stream cannot have (its header crops in steps of two).
    AVPixelFormat odd8, oddDeep;
    // Whether the samples take the full range of values whatever the input.
    bool fullRange;
};

const Encoding& encodingOf(AVVideoCodec codec);

bool isTenBit(OSType code);
bool isBiplanar(OSType code);
bool isFullRange(OSType code);
// The encoder's pixel format for frames of `input`: deeper than 8 bits only for input of
// 10 bits and a codec that keeps them.
AVPixelFormat encoderFormatFor(AVVideoCodec codec, OSType input, bool oddSide);
// A write error, as the disk-full error where it is one.
platform::ErrorRef writeError(int averror, const std::string& what);
// The time in the time base, rounded to the nearest; AV_NOPTS_VALUE for a time that is no number.
int64_t toTimeBase(CMTime t, AVRational tb);

}  // namespace ffmpeg_writer
