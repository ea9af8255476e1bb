// Small operations on sizes that the logic takes for granted (larger side, landscape,
// scaling, rounding to a quantum). Pure; callable from any thread.
#pragma once

#include "platform/Geometry.h"

// How a value is rounded to a quantum.
enum class RoundingRule {
    toNearestOrAwayFromZero,
    toNearestOrEven,
    up,
    down,
    towardZero,
    awayFromZero,
};

double roundValue(double value, RoundingRule rule);
// value / quantum rounded by the rule, times quantum; a quantum of 0 rounds to whole units.
double roundValue(double value, double quantum, RoundingRule rule);

// The larger and the smaller side.
double maxSize(CGSize size);
double minSize(CGSize size);
// Width not less than height.
bool landscape(CGSize size);
// The larger side first.
CGSize landscapeSize(CGSize size);
// Sides exchanged when `rotate` is true.
CGSize rotate(CGSize size, bool rotate);
// (width, width / ratio).
CGSize CGSizeWithRatio(double width, double ratio);
CGSize CGSizeSquare(double side);
CGSize CGSizeWithWidth(double width);
CGSize CGSizeWithHeight(double height);
CGSize roundSize(CGSize size, double quantum, RoundingRule rule);
// Rounding to the pixel grid of a screen of the given scale (points x scale, rounded, / scale).
double pixelRound(double value, double scale, RoundingRule rule);
CGSize pixelRound(CGSize size, double scale, RoundingRule rule);
CGRect pixelRound(CGRect rect, double scale, RoundingRule rule);
// A rectangle at the origin with that size.
CGRect bounds(CGSize size);

inline CGSize operator*(CGSize size, double factor) {
    return {size.width * factor, size.height * factor};
}
inline CGSize operator/(CGSize size, double divisor) {
    return {size.width / divisor, size.height / divisor};
}
