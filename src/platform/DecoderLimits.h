// Limits on the decoders under the image source and the movie reader, which a fuzzer sets
// once before its first input so that a run over the same inputs takes the same memory and
// time every time: decoder threads interleave their allocations differently on every run, and
// a picture within the source's limits can still hold parts (tiles, an alpha plane) that
// libheif would decode up to its own far larger limit. The program keeps the defaults.
#pragma once

#include <cstdint>

namespace platform {

struct DecoderLimits {
    // No threads of the decoders' own: libheif decodes a grid's tiles on the calling thread
    // and FFmpeg decodes on one thread. libwebp and the other image codecs start none anyway;
    // the HEVC decoder under libheif keeps the one worker that libheif gives it.
    bool singleThreaded = false;
    // The longest side of any picture libheif decodes, tiles and auxiliary pictures included.
    std::uint32_t heifMaxSide = 20000;
};

// Safe from any thread; decoders read the limits when they open their input.
void setDecoderLimits(const DecoderLimits& limits);
DecoderLimits decoderLimits();

}  // namespace platform
