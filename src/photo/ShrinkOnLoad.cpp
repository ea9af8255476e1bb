#include "photo/ShrinkOnLoad.h"

#include <cmath>

std::uint32_t VRShrinkOnLoadDenominator(CGSize stored, CGSize drawn) {
    const bool usable = std::isfinite(stored.width) && std::isfinite(stored.height) &&
                        std::isfinite(drawn.width) && std::isfinite(drawn.height) &&
                        drawn.width > 0 && drawn.height > 0;
    if (!usable) return 1;
    for (std::uint32_t d : {8u, 4u, 2u})
        if (stored.width / d >= 2 * drawn.width && stored.height / d >= 2 * drawn.height) return d;
    return 1;
}
