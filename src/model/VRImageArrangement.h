// How a picture fills its output frame: the method number of video jobs and editing views,
// and the bit set of the photo drawing routine.
#pragma once

#include <cstdint>

// 0 stretch, 1 fill by cropping the source (Ratio clip), 2 fit inside bars of the fill
// colour (Ratio fit).
enum class VRImageArrangement : std::int64_t {
    stretch = 0,
    fill = 1,
    fit = 2,
};

// The drawing routine's bit set of the same name. With neither Fit nor Fill each side is
// scaled on its own (stretch).
enum VRImageArrangementBits : std::uint32_t {
    VRImageArrangementFit = 1,
    VRImageArrangementFill = 2,
    VRImageArrangementIntegral = 4,
    VRImageArrangementOriented = 8,
    VRImageArrangementSourceColorSpace = 16,
    VRImageArrangementNoScale = 32,
};

// A union of bits stays a set of bits, so that a plain number can't be passed for one.
constexpr VRImageArrangementBits operator|(VRImageArrangementBits a, VRImageArrangementBits b) {
    return static_cast<VRImageArrangementBits>(static_cast<std::uint32_t>(a) |
                                               static_cast<std::uint32_t>(b));
}
