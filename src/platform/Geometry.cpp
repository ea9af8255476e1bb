#include "platform/Geometry.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

// Shortest text that reads back to the same double, as "%.17g" trimmed to what is needed.
std::string number(double v) {
    if (v == 0) return "0";  // also folds -0
    char buffer[32];
    for (int precision = 6; precision <= 17; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*g", precision, v);
        if (std::strtod(buffer, nullptr) == v) break;
    }
    return buffer;
}

}  // namespace

std::string NSStringFromCGSize(CGSize size) {
    return "{" + number(size.width) + ", " + number(size.height) + "}";
}

std::string NSStringFromCGPoint(CGPoint point) {
    return "{" + number(point.x) + ", " + number(point.y) + "}";
}

std::string NSStringFromCGRect(CGRect rect) {
    return "{" + NSStringFromCGPoint(rect.origin) + ", " + NSStringFromCGSize(rect.size) + "}";
}

CGSize CGSizeFromString(const std::string& text) {
    double w = 0, h = 0;
    if (std::sscanf(text.c_str(), " { %lf , %lf }", &w, &h) != 2) return CGSizeZero;
    if (!std::isfinite(w) || !std::isfinite(h)) return CGSizeZero;
    return {w, h};
}
