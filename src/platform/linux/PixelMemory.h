// Pixel buffers for decoders and drawing contexts: zeroed memory that a photo-sized bitmap
// gets in huge pages. Internal to the Linux platform layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// `size` zeroed bytes. From 8 MiB up the kernel is asked for 2 MiB pages: such a buffer is
// written whole at once, and faulting it in 4 KiB at a time costs more than the writing.
std::vector<std::uint8_t> pixelMemory(std::size_t size);

}  // namespace platform
