// How many pictures an image file holds, for the callers that only use the first one and
// should say so (an animated GIF). Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// The number of frames in GIF bytes, counted up to `stopAt` (walking the blocks without
// decoding them); 1 for any other format, 0 for bytes that can't be read as a GIF.
std::size_t imageFrameCount(const std::vector<std::uint8_t>& bytes, std::size_t stopAt = 2);

}  // namespace platform
