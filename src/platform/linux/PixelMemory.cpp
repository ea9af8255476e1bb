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

std::shared_ptr<PixelBufferPool> PixelBufferPool::make(std::size_t keep) {
    return std::shared_ptr<PixelBufferPool>(new PixelBufferPool(keep));
}

std::shared_ptr<std::vector<std::uint8_t>> PixelBufferPool::take(std::size_t size, bool& fresh) {
    std::unique_ptr<std::vector<std::uint8_t>> buffer;
    {
        std::lock_guard lock(_mutex);
        if (!_parked.empty()) {
            buffer = std::move(_parked.back());
            _parked.pop_back();
        }
    }
    fresh = !buffer;
    if (buffer) {
        // A shorter last strip shrinks it without writing; a longer one zeroes only the rest.
        buffer->resize(size);
    } else {
        buffer = std::make_unique<std::vector<std::uint8_t>>(pixelMemory(size));
    }
    // The holder that lets go last hands the buffer back under the pool's lock, which orders
    // its last reads before the next strip's writes.
    return std::shared_ptr<std::vector<std::uint8_t>>(
        buffer.release(),
        [pool = shared_from_this()](std::vector<std::uint8_t>* b) { pool->giveBack(b); });
}

void PixelBufferPool::giveBack(std::vector<std::uint8_t>* buffer) {
    std::unique_ptr<std::vector<std::uint8_t>> owned(buffer);
    std::lock_guard lock(_mutex);
    if (_parked.size() < _keep) _parked.push_back(std::move(owned));
}

}  // namespace platform
