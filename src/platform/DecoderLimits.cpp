#include "platform/DecoderLimits.h"

#include <atomic>

namespace platform {
namespace {

std::atomic<bool> gSingleThreaded{false};
std::atomic<std::uint32_t> gHeifMaxSide{DecoderLimits{}.heifMaxSide};

}  // namespace

void setDecoderLimits(const DecoderLimits& limits) {
    gSingleThreaded = limits.singleThreaded;
    gHeifMaxSide = limits.heifMaxSide;
}

DecoderLimits decoderLimits() {
    return {gSingleThreaded.load(), gHeifMaxSide.load()};
}

}  // namespace platform
