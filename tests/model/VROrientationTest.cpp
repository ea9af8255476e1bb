#include "model/VROrientation.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

#include <cmath>
#include <numbers>

#include "model/VRPosition.h"

namespace {

VROrientation make(bool fx, bool fy, std::int64_t rotation) {
    return VROrientation::orientationWithFlipedX(fx, fy, rotation);
}

VROrientation simplified(VROrientation o) {
    o.simplify();
    return o;
}

}  // namespace

TEST(VROrientation, ImageOrientationTableRoundTrips) {
    struct Row {
        std::int64_t number;
        bool flippedX;
        std::int64_t rotation;
        std::int64_t exif;
    } rows[] = {{0, false, 0, 1}, {1, false, 2, 3}, {2, false, 3, 8}, {3, false, 1, 6},
                {4, true, 0, 2},  {5, true, 2, 4},  {6, true, 3, 5},  {7, true, 1, 7}};
    for (const auto& r : rows) {
        const VROrientation o = VROrientation::orientationWithImageOrientation(r.number);
        EXPECT_EQ(o.flippedX(), r.flippedX) << r.number;
        EXPECT_FALSE(o.flippedY());
        EXPECT_EQ(o.rotation(), r.rotation) << r.number;
        EXPECT_EQ(o.imageOrientation(), r.number);
        EXPECT_EQ(o.exifOrientation(), r.exif) << r.number;
    }
    EXPECT_EQ(VROrientation::orientationWithImageOrientation(8), VROrientation());
    EXPECT_EQ(VROrientation::orientationWithImageOrientation(-3), VROrientation());

    // setImageOrientation leaves flippedY alone.
    VROrientation o = make(false, true, 0);
    o.setImageOrientation(VROrientation::right);
    EXPECT_EQ(o, make(false, true, 1));
}

TEST(VROrientation, DerivedValuesAndSimplify) {
    struct Case {
        VROrientation o;
        VROrientation::ImageOrientation image;
        bool flipped, rotated;
        VROrientation simple;
    } cases[] = {
        {make(true, true, 0), VROrientation::down, false, false, make(false, false, 2)},
        {make(false, false, -1), VROrientation::left, false, true, make(false, false, 3)},
        {make(false, false, 5), VROrientation::right, false, true, make(false, false, 1)},
        {make(false, true, 0), VROrientation::downMirrored, true, false, make(true, false, 2)},
        {make(false, true, 1), VROrientation::leftMirrored, true, true, make(true, false, 3)},
        {make(true, false, -6), VROrientation::downMirrored, true, false, make(true, false, 2)},
        {make(true, true, 3), VROrientation::right, false, true, make(false, false, 1)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.o.imageOrientation(), c.image) << c.o;
        EXPECT_EQ(c.o.isFlipped(), c.flipped) << c.o;
        EXPECT_EQ(c.o.isRotated(), c.rotated) << c.o;
        EXPECT_EQ(simplified(c.o), c.simple) << c.o;
        // The simplified form names the same image orientation but compares unequal when
        // the fields differ.
        EXPECT_EQ(simplified(c.o).imageOrientation(), c.image) << c.o;
        EXPECT_EQ(c.o == c.simple, c.o.flippedX() == c.simple.flippedX() &&
                                       c.o.flippedY() == c.simple.flippedY() &&
                                       c.o.rotation() == c.simple.rotation());
    }
    EXPECT_DOUBLE_EQ(make(false, false, 5).rotationAngle(), 5 * std::numbers::pi / 2);
    EXPECT_EQ(make(true, false, 0).flipScale(), (CGSize{-1, 1}));
    EXPECT_EQ(make(false, true, 0).flipScale(), (CGSize{1, -1}));
}

TEST(VROrientation, AppendInverseFlipAndRotate) {
    VROrientation turned = make(false, false, 1);
    turned.appendOrientation(make(true, false, 0));
    EXPECT_EQ(turned, make(false, true, 1));

    VROrientation plain = make(false, false, 2);
    plain.appendOrientation(make(true, false, 1));
    EXPECT_EQ(plain, make(true, false, 3));

    EXPECT_EQ(make(true, false, 1).inverseOrientation(), make(false, true, -1));
    EXPECT_EQ(make(true, false, 2).inverseOrientation(), make(true, false, -2));

    // Appending the inverse undoes any orientation.
    for (int fx = 0; fx < 2; ++fx)
        for (int fy = 0; fy < 2; ++fy)
            for (int r = -2; r < 6; ++r) {
                VROrientation o = make(fx, fy, r);
                o.appendOrientation(o.inverseOrientation());
                EXPECT_EQ(simplified(o), VROrientation()) << fx << fy << r;
            }

    VROrientation flip = make(false, false, 0);
    flip.flipVertically(false);  // not rotated, vertical false: X toggles
    EXPECT_EQ(flip, make(true, false, 0));
    flip.flipVertically(true);
    EXPECT_EQ(flip, make(true, true, 0));
    VROrientation flipRotated = make(false, false, 1);
    flipRotated.flipVertically(true);
    EXPECT_EQ(flipRotated, make(true, false, 1));

    VROrientation r = make(false, false, 0);
    r.rotateClockwise(true);
    r.rotateClockwise(true);
    r.rotateClockwise(false);
    EXPECT_EQ(r.rotation(), 1);
}

TEST(VROrientation, TransformsRoundTrip) {
    // Movie track transforms as recorders write them.
    struct Case {
        CGAffineTransform t;
        VROrientation expected;
    } cases[] = {
        {{1, 0, 0, 1, 0, 0}, make(false, false, 0)},
        {{0, 1, -1, 0, 1080, 0}, make(false, false, 1)},  // portrait phone video
        {{-1, 0, 0, -1, 1920, 1080}, make(false, false, 2)},
        {{0, -1, 1, 0, 0, 1920}, make(false, false, -1)},
        {{-1, 0, 0, 1, 1920, 0}, make(true, false, 0)},  // horizontal mirror keeps angle 0
        {{1, 0, 0, -1, 0, 1080},
         make(true, false, 2)},  // vertical mirror: a half turn and an X mirror
    };
    for (const auto& c : cases) {
        EXPECT_EQ(VROrientation::orientationWithTransform(c.t), c.expected)
            << c.t.a << " " << c.t.b << " " << c.t.c << " " << c.t.d;
    }

    for (int fx = 0; fx < 2; ++fx)
        for (int fy = 0; fy < 2; ++fy)
            for (int rot = -1; rot < 5; ++rot) {
                const VROrientation o = make(fx, fy, rot);
                const CGAffineTransform t = o.transform();
                VROrientation back = VROrientation::orientationWithTransform(t);
                EXPECT_EQ(simplified(back), simplified(o)) << o;
                // The transform maps the unit x vector where the orientation says.
                const double a = o.rotationAngle();
                EXPECT_NEAR(t.a, (fx ? -1 : 1) * std::cos(a), 1e-12);
                EXPECT_NEAR(t.b, (fx ? -1 : 1) * std::sin(a), 1e-12);
            }
}

TEST(VROrientation, DisplacementFollowsTheOrientation) {
    struct Case {
        VROrientation o;
        CGPoint in, out;
    } cases[] = {
        {make(false, false, 0), {10.4, -3.6}, {10.4, -3.6}},  // no turn: left as it is
        {make(true, false, 0), {10, 3}, {-10, 3}},
        {make(false, false, 1), {10, 3}, {-3, 10}},
        {make(false, false, 2), {10, 3}, {-10, -3}},
        {make(false, false, 3), {10, 3}, {3, -10}},
        {make(true, false, 1), {10, 3}, {-3, -10}},
        {make(false, false, 1), {2.5, 0}, {0, 3}},  // rounded, halves away from zero
    };
    for (const auto& c : cases) {
        const CGPoint got = displacementForOrientation(c.in, c.o);
        EXPECT_EQ(got, c.out) << c.o;
    }
}

TEST(VROrientation, ScreenDisplacementBecomesTheStoredOne) {
    // Given as the output shows it (right 10, down 3): stored in the item's own frame, and
    // turned back by the pipelines into the same screen directions.
    struct Case {
        VROrientation o;
        CGPoint stored;
    } cases[] = {
        {make(false, false, 0), {10, 3}},   {make(true, false, 0), {-10, 3}},
        {make(false, true, 0), {10, -3}},   {make(false, false, 1), {3, -10}},
        {make(false, false, 2), {-10, -3}}, {make(false, false, 3), {-3, 10}},
        {make(true, false, 1), {-3, -10}},  {make(false, true, 1), {3, 10}},
        {make(true, true, 0), {-10, -3}},   {make(false, false, -1), {-3, 10}},
        {make(true, false, 6), {10, -3}},
    };
    const CGPoint screen{10, 3};
    for (const auto& c : cases) {
        const CGPoint stored = displacementFromScreenDisplacement(screen, c.o);
        EXPECT_EQ(stored, c.stored) << c.o;
        VROrientation simplified = c.o;
        simplified.simplify();
        EXPECT_EQ(displacementForOrientation(stored, simplified), screen) << c.o;
    }
    EXPECT_EQ(displacementFromScreenDisplacement({2.5, -0.4}, make(false, false, 0)),
              (CGPoint{3, -0}));
}

TEST(VROrientation, EqualityAndHash) {
    EXPECT_EQ(make(true, false, 1), make(true, false, 1));
    EXPECT_NE(make(true, false, 1), make(true, false, 5));
    EXPECT_TRUE(make(true, false, 1).isEqualToOrientation(make(true, false, 1)));
    // ((1 * 31 + 1231) * 31 + 1237) * 31 + 1
    EXPECT_EQ(make(true, false, 1).hash(), std::size_t{((31 + 1231) * 31 + 1237) * 31 + 1});
    EXPECT_NE(make(true, false, 1).hash(), make(false, true, 1).hash());
}

TEST(VRPosition, DistanceHashAndEquality) {
    EXPECT_EQ(VRPosition(1, 1).linearDistanceToPosition(VRPosition(2, 2)), UINT64_MAX - 1);
    EXPECT_EQ(VRPosition(5, 2).linearDistanceToPosition(VRPosition(1, 1)), 5u);
    EXPECT_EQ(VRPosition(6, 3).hash(), 5u);
    EXPECT_EQ(VRPosition::positionWithX(3, 4), VRPosition(3, 4));
    EXPECT_NE(VRPosition(3, 4), VRPosition(4, 3));
}
