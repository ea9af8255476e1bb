#include "model/VROrientation.h"

#include <cmath>
#include <numbers>

namespace {

struct ImageOrientationRow {
    bool flippedX;
    std::int64_t rotation;
    std::int64_t exif;
};

// Indexed by the platform's image orientation number.
constexpr ImageOrientationRow kImageOrientations[] = {
    {false, 0, 1},  // up
    {false, 2, 3},  // down
    {false, 3, 8},  // left
    {false, 1, 6},  // right
    {true, 0, 2},   // up mirrored
    {true, 2, 4},   // down mirrored
    {true, 3, 5},   // left mirrored
    {true, 1, 7},   // right mirrored
};

CGAffineTransform rotationTransform(double angle) {
    const double c = std::cos(angle), s = std::sin(angle);
    return {c, s, -s, c, 0, 0};
}

// t1 then t2.
CGAffineTransform concat(const CGAffineTransform& t1, const CGAffineTransform& t2) {
    return {t1.a * t2.a + t1.b * t2.c,           t1.a * t2.b + t1.b * t2.d,
            t1.c * t2.a + t1.d * t2.c,           t1.c * t2.b + t1.d * t2.d,
            t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

}  // namespace

VROrientation VROrientation::orientationWithImageOrientation(std::int64_t imageOrientation) {
    VROrientation orientation;
    orientation.setImageOrientation(imageOrientation);
    return orientation;
}

VROrientation VROrientation::orientationWithFlipedX(bool flippedX, bool flippedY,
                                                    std::int64_t rotation) {
    VROrientation orientation;
    orientation._flippedX = flippedX;
    orientation._flippedY = flippedY;
    orientation._rotation = rotation;
    return orientation;
}

VROrientation VROrientation::orientationWithTransform(const CGAffineTransform& transform) {
    VROrientation orientation;
    orientation.setTransform(transform);
    return orientation;
}

double VROrientation::rotationAngle() const {
    return static_cast<double>(_rotation) * std::numbers::pi / 2;
}

CGSize VROrientation::flipScale() const {
    return {_flippedX ? -1.0 : 1.0, _flippedY ? -1.0 : 1.0};
}

void VROrientation::setImageOrientation(std::int64_t imageOrientation) {
    if (imageOrientation < 1 || imageOrientation > 7) imageOrientation = up;
    _flippedX = kImageOrientations[imageOrientation].flippedX;
    _rotation = kImageOrientations[imageOrientation].rotation;
}

VROrientation::ImageOrientation VROrientation::imageOrientation() const {
    const bool flipped = _flippedX != _flippedY;
    const std::int64_t quarter = (_rotation + (_flippedY ? 2 : 0)) & 3;
    for (std::int64_t i = 0; i < 8; ++i) {
        if (kImageOrientations[i].flippedX == flipped && kImageOrientations[i].rotation == quarter)
            return static_cast<ImageOrientation>(i);
    }
    return up;
}

std::int64_t VROrientation::exifOrientation() const {
    return kImageOrientations[imageOrientation()].exif;
}

CGAffineTransform VROrientation::transform() const {
    const CGSize scale = flipScale();
    return concat({scale.width, 0, 0, scale.height, 0, 0}, rotationTransform(rotationAngle()));
}

void VROrientation::setTransform(const CGAffineTransform& transform) {
    const double angle = std::atan2(transform.b, transform.d);
    _rotation = static_cast<std::int64_t>(std::round(angle / (std::numbers::pi / 2)));
    const CGAffineTransform unturned = concat(transform, rotationTransform(-angle));
    _flippedX = unturned.a < 0;
    _flippedY = unturned.d < 0;
}

void VROrientation::appendOrientation(const VROrientation& other) {
    if (isRotated()) {
        _flippedX ^= other._flippedY;
        _flippedY ^= other._flippedX;
    } else {
        _flippedX ^= other._flippedX;
        _flippedY ^= other._flippedY;
    }
    _rotation += other._rotation;
}

void VROrientation::flipVertically(bool vertically) {
    if (vertically == isRotated()) {
        _flippedX = !_flippedX;
    } else {
        _flippedY = !_flippedY;
    }
}

void VROrientation::rotateClockwise(bool clockwise) {
    _rotation += clockwise ? 1 : -1;
}

VROrientation VROrientation::inverseOrientation() const {
    VROrientation inverse;
    inverse._flippedX = isRotated() ? _flippedY : _flippedX;
    inverse._flippedY = isRotated() ? _flippedX : _flippedY;
    inverse._rotation = -_rotation;
    return inverse;
}

void VROrientation::simplify() {
    if (_flippedY) {
        _flippedY = false;
        _flippedX = !_flippedX;
        _rotation += 2;
    }
    _rotation &= 3;
}

std::size_t VROrientation::hash() const {
    std::size_t result = 1;
    result = 31 * result + (_flippedX ? 1231 : 1237);
    result = 31 * result + (_flippedY ? 1231 : 1237);
    result = 31 * result + static_cast<std::size_t>(_rotation);
    return result;
}

std::ostream& operator<<(std::ostream& out, const VROrientation& o) {
    return out << "VROrientation(flippedX " << o.flippedX() << ", flippedY " << o.flippedY()
               << ", rotation " << o.rotation() << ")";
}

CGPoint displacementForOrientation(CGPoint displacement, const VROrientation& simplified) {
    CGPoint p = displacement;
    if (simplified.isFlipped()) p.x = -p.x;
    if (simplified.rotation() != 0) {
        const double a = simplified.rotationAngle();
        const double c = std::cos(a), s = std::sin(a);
        p = {std::round(p.x * c - p.y * s), std::round(p.x * s + p.y * c)};
    }
    return p;
}

CGPoint displacementFromScreenDisplacement(CGPoint screen, const VROrientation& orientation) {
    VROrientation simplified = orientation;
    simplified.simplify();
    CGPoint p = screen;
    if (simplified.rotation() != 0) {
        const double a = -simplified.rotationAngle();
        const double c = std::cos(a), s = std::sin(a);
        p = {p.x * c - p.y * s, p.x * s + p.y * c};
    }
    if (simplified.isFlipped()) p.x = -p.x;
    return {std::round(p.x), std::round(p.y)};
}
