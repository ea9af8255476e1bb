#include "model/SizeGeometry.h"

#include <algorithm>
#include <cmath>

double roundValue(double value, RoundingRule rule) {
    switch (rule) {
        case RoundingRule::toNearestOrAwayFromZero:
            return std::round(value);
        case RoundingRule::toNearestOrEven:
            return std::nearbyint(value);  // the default floating-point mode rounds to even
        case RoundingRule::up:
            return std::ceil(value);
        case RoundingRule::down:
            return std::floor(value);
        case RoundingRule::towardZero:
            return std::trunc(value);
        case RoundingRule::awayFromZero:
            return value < 0 ? std::floor(value) : std::ceil(value);
    }
    return value;
}

double roundValue(double value, double quantum, RoundingRule rule) {
    if (quantum == 0) return roundValue(value, rule);
    return roundValue(value / quantum, rule) * quantum;
}

double maxSize(CGSize size) {
    return std::max(size.width, size.height);
}
double minSize(CGSize size) {
    return std::min(size.width, size.height);
}
bool landscape(CGSize size) {
    return size.width >= size.height;
}
CGSize landscapeSize(CGSize size) {
    return {maxSize(size), minSize(size)};
}
CGSize rotate(CGSize size, bool rotate) {
    return rotate ? CGSize{size.height, size.width} : size;
}
CGSize CGSizeWithRatio(double width, double ratio) {
    return {width, width / ratio};
}
CGSize CGSizeSquare(double side) {
    return {side, side};
}
CGSize CGSizeWithWidth(double width) {
    return {width, 0};
}
CGSize CGSizeWithHeight(double height) {
    return {0, height};
}

CGSize roundSize(CGSize size, double quantum, RoundingRule rule) {
    return {roundValue(size.width, quantum, rule), roundValue(size.height, quantum, rule)};
}

double pixelRound(double value, double scale, RoundingRule rule) {
    if (scale <= 0) return roundValue(value, rule);
    return roundValue(value * scale, rule) / scale;
}

CGSize pixelRound(CGSize size, double scale, RoundingRule rule) {
    return {pixelRound(size.width, scale, rule), pixelRound(size.height, scale, rule)};
}

CGRect pixelRound(CGRect rect, double scale, RoundingRule rule) {
    return {{pixelRound(rect.origin.x, scale, rule), pixelRound(rect.origin.y, scale, rule)},
            pixelRound(rect.size, scale, rule)};
}

CGRect bounds(CGSize size) {
    return {CGPointZero, size};
}
