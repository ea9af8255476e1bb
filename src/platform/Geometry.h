// Plain geometry values shared by the logic and the platform: sizes, points, rectangles and
// affine transforms in pixels, as doubles. No rounding happens here.
#pragma once

#include <string>

struct CGSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const CGSize&, const CGSize&) = default;
};

struct CGPoint {
    double x = 0;
    double y = 0;
    friend bool operator==(const CGPoint&, const CGPoint&) = default;
};

struct CGRect {
    CGPoint origin;
    CGSize size;
    friend bool operator==(const CGRect&, const CGRect&) = default;
};

// The six-number affine transform [a b c d tx ty]: x' = a*x + c*y + tx, y' = b*x + d*y + ty.
struct CGAffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
    friend bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

inline constexpr CGSize CGSizeZero{0, 0};
inline constexpr CGPoint CGPointZero{0, 0};
inline constexpr CGAffineTransform CGAffineTransformIdentity{};

// "{w, h}", "{x, y}" and "{{x, y}, {w, h}}" with the shortest form of each number ("%g"-like,
// up to 17 significant digits), as the platform's NSStringFrom... functions write them.
std::string NSStringFromCGSize(CGSize size);
std::string NSStringFromCGPoint(CGPoint point);
std::string NSStringFromCGRect(CGRect rect);
// Parses the forms above; anything unreadable gives zeros, as the platform does.
CGSize CGSizeFromString(const std::string& text);
