#include "platform/linux/PixelMemory.h"

#include <sys/mman.h>

namespace platform {

std::vector<std::uint8_t> pixelMemory(std::size_t size) {
    constexpr std::size_t kHugePage = 2u << 20;
    std::vector<std::uint8_t> pixels;
    pixels.reserve(size);
    if (size >= 4 * kHugePage) {
        // Only the whole huge pages inside the block; a refusal just leaves small pages.
        auto start = reinterpret_cast<std::uintptr_t>(pixels.data());
        std::uintptr_t first = (start + kHugePage - 1) / kHugePage * kHugePage;
        std::uintptr_t last = (start + size) / kHugePage * kHugePage;
        if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
    pixels.resize(size);
    return pixels;
}

}  // namespace platform
