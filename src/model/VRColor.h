// A colour as four components from 0 to 1 (red, green, blue, alpha): the fill colour of an
// adjusted asset and the default fill colours of the settings.
#pragma once

#include <ostream>

struct VRColor {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    static constexpr VRColor whiteColor() { return {1, 1, 1, 1}; }
    static constexpr VRColor blackColor() { return {0, 0, 0, 1}; }
    static constexpr VRColor clearColor() { return {0, 0, 0, 0}; }

    friend bool operator==(const VRColor&, const VRColor&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const VRColor& c) {
    return out << "VRColor(" << c.red << ", " << c.green << ", " << c.blue << ", " << c.alpha
               << ")";
}
