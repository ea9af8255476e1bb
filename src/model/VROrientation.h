// How an image is turned (clockwise quarter turns) and mirrored. Made from an image's own
// orientation or a movie track's transform, combined with the user's turns in the adjust
// screen, and read by the pipelines to place the picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>

#include "platform/Geometry.h"

class VROrientation {
  public:
    // The platform's image orientations (UIImageOrientation numbers).
    enum ImageOrientation : std::int64_t {
        up = 0,
        down = 1,
        left = 2,
        right = 3,
        upMirrored = 4,
        downMirrored = 5,
        leftMirrored = 6,
        rightMirrored = 7,
    };

    VROrientation() = default;
    static VROrientation defaultOrientation() { return {}; }
    static VROrientation orientationWithImageOrientation(std::int64_t imageOrientation);
    static VROrientation orientationWithFlipedX(bool flippedX, bool flippedY,
                                                std::int64_t rotation);
    static VROrientation orientationWithTransform(const CGAffineTransform& transform);

    bool flippedX() const { return _flippedX; }
    void setFlippedX(bool v) { _flippedX = v; }
    bool flippedY() const { return _flippedY; }
    void setFlippedY(bool v) { _flippedY = v; }
    // Any integer; only simplify() brings it into 0...3.
    std::int64_t rotation() const { return _rotation; }
    void setRotation(std::int64_t v) { _rotation = v; }

    // rotation x pi/2, in radians.
    double rotationAngle() const;
    // Odd rotation (the lowest bit, so -1 is rotated).
    bool isRotated() const { return (_rotation & 1) != 0; }
    // A mirror on both axes is no mirror.
    bool isFlipped() const { return _flippedX != _flippedY; }
    // (-1 when flippedX else 1, -1 when flippedY else 1).
    CGSize flipScale() const;

    // Sets flippedX and rotation by the orientation table, leaving flippedY alone; a number
    // outside 1...7 counts as up.
    void setImageOrientation(std::int64_t imageOrientation);
    ImageOrientation imageOrientation() const;
    // 1...8, by imageOrientation().
    std::int64_t exifOrientation() const;

    // A rotation by rotationAngle, then a scale by flipScale.
    CGAffineTransform transform() const;
    // The angle is atan2(b, d), so a horizontal mirror leaves it intact; the flips are read
    // from the transform turned back by that angle.
    void setTransform(const CGAffineTransform& transform);

    // Combines `other` into this one; on a rotated receiver the other's axes are exchanged.
    void appendOrientation(const VROrientation& other);
    // Toggles flippedX when `vertically` equals isRotated(), otherwise flippedY.
    void flipVertically(bool vertically);
    void rotateClockwise(bool clockwise);
    VROrientation inverseOrientation() const;
    // Moves a Y mirror into an X mirror plus a half turn and brings rotation into 0...3.
    void simplify();

    // Field by field as they stand: an orientation and its simplified form may differ.
    bool isEqualToOrientation(const VROrientation& other) const { return *this == other; }
    friend bool operator==(const VROrientation&, const VROrientation&) = default;
    std::size_t hash() const;

  private:
    bool _flippedX = false;
    bool _flippedY = false;
    std::int64_t _rotation = 0;
};

std::ostream& operator<<(std::ostream& out, const VROrientation& orientation);

// Turns the displacement as the pipelines do for a (simplified) orientation: x negated when
// flipped, then turned about the origin by rotationAngle and rounded, halves away from zero,
// when the rotation is not zero.
CGPoint displacementForOrientation(CGPoint displacement, const VROrientation& simplified);
// The other way: a displacement given in the directions of the turned and mirrored output as
// the user sees it (x right, y down) becomes the displacement of the adjust state, in the
// frame of the item as it is stored, so that it survives later turns and flips. Any
// orientation, simplified here; the point is turned back by rotationAngle, x negated when
// flipped, and both rounded, halves away from zero. displacementForOrientation of the result
// gives the screen displacement back.
CGPoint displacementFromScreenDisplacement(CGPoint screen, const VROrientation& orientation);
