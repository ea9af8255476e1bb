// zimg alone resizing whole planes held in memory, with no conversion around it: the floor
// that the drawing benchmark holds the bitmap context's draw against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

class PlaneResizeFloor {
  public:
    struct Job {
        std::size_t srcWidth = 0, srcHeight = 0;
        std::size_t dstWidth = 0, dstHeight = 0;
        // The part of the source that maps onto the whole output, in source pixels.
        double left = 0, top = 0, width = 0, height = 0;
        int planes = 3;  // 3 colour planes, plus alpha when `alpha`
        bool alpha = false;
        bool deep = false;  // 16-bit samples; 8-bit otherwise
    };

    // Allocates the input planes (filled with a pattern) and the output planes, and builds the
    // Lanczos-3 graph; null with `why` set when zimg refuses the job.
    static std::unique_ptr<PlaneResizeFloor> make(const Job& job, std::string& why);
    // One resize of every plane; false when zimg reports an error.
    bool run();
    // A sample of the last output, so that the work cannot be optimised away.
    std::uint32_t probe() const;

    ~PlaneResizeFloor();

  private:
    struct Impl;
    PlaneResizeFloor() = default;
    std::unique_ptr<Impl> _impl;
};

}  // namespace bench
