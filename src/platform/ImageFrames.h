// How many pictures an image file holds, for the callers that only use the first one and
// should say so (an animated GIF or WebP). Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// The number of frames in GIF or WebP bytes, counted up to `stopAt` without decoding them;
// 1 for any other format, 0 for bytes of those two that can't be read.
std::size_t imageFrameCount(const std::vector<std::uint8_t>& bytes, std::size_t stopAt = 2);

}  // namespace platform
