// Readable gtest output for the geometry values the model tests compare.
#pragma once

#include <ostream>

#include "platform/Geometry.h"

inline void PrintTo(const CGSize& size, std::ostream* out) {
    *out << NSStringFromCGSize(size);
}
inline void PrintTo(const CGPoint& point, std::ostream* out) {
    *out << NSStringFromCGPoint(point);
}
inline void PrintTo(const CGRect& rect, std::ostream* out) {
    *out << NSStringFromCGRect(rect);
}
