// Pixel buffers for decoders and drawing contexts: zeroed memory that a photo-sized bitmap
// gets in huge pages, and the pool a context drawing strip after strip takes its buffers from.
// Internal to the Linux platform layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

// `size` zeroed bytes. From 8 MiB up the kernel is asked for 2 MiB pages: such a buffer is
// written whole at once, and faulting it in 4 KiB at a time costs more than the writing.
std::vector<std::uint8_t> pixelMemory(std::size_t size);

// Buffers that come back when their last holder lets go of them, for the next strip: a strip
// is handed on to an encoder and let go there, and allocating (and zeroing) a new buffer for
// every strip costs as much as drawing into it. Thread-safe; holders may outlive the pool's
// owner.
class PixelBufferPool : public std::enable_shared_from_this<PixelBufferPool> {
  public:
    // Keeps at most `keep` buffers that came back; more are freed.
    static std::shared_ptr<PixelBufferPool> make(std::size_t keep = 2);

    // A buffer of `size` bytes. A buffer that came back holds what its last holder left in it
    // (`fresh` false); a new one is zeroed (`fresh` true).
    std::shared_ptr<std::vector<std::uint8_t>> take(std::size_t size, bool& fresh);

  private:
    explicit PixelBufferPool(std::size_t keep) : _keep(keep) {}
    void giveBack(std::vector<std::uint8_t>* buffer);

    std::mutex _mutex;
    std::vector<std::unique_ptr<std::vector<std::uint8_t>>> _parked;
    std::size_t _keep;
};

}  // namespace platform
