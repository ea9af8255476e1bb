#include "model/VRSizeEntry.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

namespace {

VRSizeEntry entry(double w, double h, VRSizeEntryType type, CGSize target,
                  VRZeroSizeBehavior zero = VRZeroSizeKeep, std::uint8_t rounding = 0) {
    VRSizeEntry e = VRSizeEntry::sizeEntryWithWidth(w, h, type);
    e.setTargetSize(target);
    e.setZeroSizeBehavior(zero);
    e.setOutputRounding(rounding);
    return e;
}

}  // namespace

TEST(VRSizeEntry, NewEntryResolvesToTheDefaultTarget) {
    VRSizeEntry e;
    EXPECT_EQ(e.size(), (CGSize{0, 0}));
    EXPECT_TRUE(e.isSquare());
    EXPECT_FALSE(e.isPortrait());
    EXPECT_EQ(e.outputSize(), (CGSize{100, 100}));
    EXPECT_EQ(e.targetSize(), (CGSize{100, 100}));
    // A target with one usable side still reads as the default.
    e.setTargetSize({0, 50});
    EXPECT_EQ(e.targetSize(), (CGSize{100, 100}));
    e.setTargetSize({-5, 50});
    EXPECT_EQ(std::as_const(e).targetSize(), (CGSize{100, 100}));
}

TEST(VRSizeEntry, OutputSizeByTypeAutoRuleAndRounding) {
    const CGSize t1000x500{1000, 500};
    struct Case {
        const char* what;
        VRSizeEntry entry;
        CGSize expected;
    } cases[] = {
        {"2400 x Auto, keep", entry(2400, 0, VRSizeTypePixels, t1000x500), {2400, 500}},
        {"2400 x Auto, proportional",
         entry(2400, 0, VRSizeTypePixels, t1000x500, VRZeroSizeProportional),
         {2400, 1200}},
        {"Auto x 600, keep", entry(0, 600, VRSizeTypePixels, t1000x500), {1000, 600}},
        {"Auto x 600, proportional",
         entry(0, 600, VRSizeTypePixels, t1000x500, VRZeroSizeProportional),
         {1200, 600}},
        {"both Auto, proportional",
         entry(0, 0, VRSizeTypePixels, t1000x500, VRZeroSizeProportional),
         {1000, 500}},
        {"pixels rounded", entry(10.5, 10.49, VRSizeTypePixels, t1000x500), {11, 10}},
        {"percent 50 x 25 of 1001 x 401",
         entry(50, 25, VRSizeTypePercent, {1001, 401}),
         {501, 100}},
        {"percent 0 stays 0", entry(0, 100, VRSizeTypePercent, t1000x500), {0, 500}},
        {"percent 133 x 100", entry(133, 100, VRSizeTypePercent, {4032, 3024}), {5363, 3024}},
        {"rounding 2 of 1001",
         entry(1001, 1003, VRSizeTypePixels, t1000x500, VRZeroSizeKeep, 2),
         {1002, 1004}},
        {"rounding 2 of 1000.9",
         entry(1000.9, 999, VRSizeTypePixels, t1000x500, VRZeroSizeKeep, 2),
         {1000, 1000}},
        {"rounding 16",
         entry(1000, 1016, VRSizeTypePixels, t1000x500, VRZeroSizeKeep, 16),
         {1008, 1024}},
        {"ratio up 1:1", entry(1, 1, VRSizeTypeRatioUp, {1200, 800}), {1200, 1200}},
        {"ratio down 1:1", entry(1, 1, VRSizeTypeRatioDown, {1200, 800}), {800, 800}},
        {"ratio up 16:9 on portrait", entry(16, 9, VRSizeTypeRatioUp, {900, 1600}), {2844, 1600}},
        {"ratio down 16:9 on portrait", entry(16, 9, VRSizeTypeRatioDown, {900, 1600}), {900, 506}},
        {"ratio with a zero side", entry(16, 0, VRSizeTypeRatioUp, {1200, 800}), {1200, 800}},
        {"type 4", entry(1, 1, static_cast<VRSizeEntryType>(4), {1200, 800}), {0, 0}},
        {"percent against the default target", entry(50, 50, VRSizeTypePercent, {0, 0}), {50, 50}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.entry.outputSize(), c.expected) << c.what;
    }
}

TEST(VRSizeEntry, RotationsKeepOrExchangeTheTarget) {
    const VRSizeEntry e = entry(1200, 600, VRSizeTypePixels, {10, 20}, VRZeroSizeProportional, 2);
    const VRSizeEntry rotated = e.sizeEntryRotated();
    EXPECT_EQ(rotated.size(), (CGSize{600, 1200}));
    EXPECT_EQ(rotated.targetSize(), (CGSize{10, 20}));
    EXPECT_EQ(rotated.zeroSizeBehavior(), VRZeroSizeProportional);
    EXPECT_EQ(rotated.outputRounding(), 2);
    EXPECT_EQ(e.sizeEntryRotatedWithTargetSize().targetSize(), (CGSize{20, 10}));
    EXPECT_EQ(e.sizeEntryRotatedWithTargetSize().size(), (CGSize{600, 1200}));

    const VRSizeEntry square = e.sizeEntryOuterSquare();
    EXPECT_EQ(square.size(), (CGSize{1200, 1200}));
    EXPECT_EQ(square.targetSize(), (CGSize{10, 20}));
    EXPECT_EQ(square.outputRounding(), 2);
    EXPECT_EQ(square.zeroSizeBehavior(), VRZeroSizeProportional);

    const VRSizeEntry retargeted = e.sizeEntryWithTargetSize({300, 400});
    EXPECT_EQ(retargeted.targetSize(), (CGSize{300, 400}));
    EXPECT_EQ(retargeted.outputRounding(), 1);
    EXPECT_EQ(e.sizeEntryWithTargetSize({300, 400}, 4).outputRounding(), 4);
}

TEST(VRSizeEntry, SizeArraysAndShape) {
    using platform::PlistArray;
    using platform::PlistValue;
    struct Case {
        PlistArray array;
        bool present;
        CGSize size;
        VRSizeEntryType type;
    } cases[] = {
        {{}, false, {}, VRSizeTypePixels},
        {{PlistValue(5.0)}, false, {}, VRSizeTypePixels},
        {{PlistValue(16.0), PlistValue(9.0)}, true, {16, 9}, VRSizeTypePixels},
        {{PlistValue(16.0), PlistValue(9.0), PlistValue(3)}, true, {16, 9}, VRSizeTypeRatioDown},
        {{PlistValue(16), PlistValue(9.5), PlistValue(1), PlistValue(7)},
         true,
         {16, 9.5},
         VRSizeTypePixels},
        {{PlistValue("50"), PlistValue(true), PlistValue(1)}, true, {50, 1}, VRSizeTypePercent},
    };
    for (const auto& c : cases) {
        auto e = VRSizeEntry::sizeEntryWithSizeArray(c.array);
        ASSERT_EQ(e.has_value(), c.present) << c.array.size();
        if (!e) continue;
        EXPECT_EQ(e->size(), c.size);
        EXPECT_EQ(e->type(), c.type);
        auto back = VRSizeEntry::sizeEntryWithSizeArray(e->sizeArray());
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, *e);
    }
    EXPECT_EQ(VRSizeEntry::sizeEntryWithWidth(2, 1, VRSizeTypeRatioUp).sizeArray(),
              (PlistArray{PlistValue(2.0), PlistValue(1.0), PlistValue(2)}));

    EXPECT_TRUE(VRSizeEntry::sizeEntryWithWidth(600, 1200, VRSizeTypePixels).isPortrait());
    EXPECT_FALSE(VRSizeEntry::sizeEntryWithWidth(1200, 600, VRSizeTypePixels).isPortrait());
    EXPECT_TRUE(VRSizeEntry::sizeEntryWithWidth(7, 7, VRSizeTypePercent).isSquare());
    EXPECT_FALSE(VRSizeEntry::sizeEntryWithWidth(0, 7, VRSizeTypePixels).isSquare());
}

TEST(VRSizeEntry, EqualityComparesEveryFieldWithNormalisedTargets) {
    const VRSizeEntry base = entry(4, 3, VRSizeTypeRatioUp, {0, 0});
    VRSizeEntry same = base;
    same.setTargetSize({100, 100});
    EXPECT_EQ(base, same);  // an unset target reads as 100 x 100 on both sides

    auto differing = [&](auto change) {
        VRSizeEntry e = base;
        change(e);
        return e;
    };
    const VRSizeEntry others[] = {
        differing([](VRSizeEntry& e) { e.setWidth(5); }),
        differing([](VRSizeEntry& e) { e.setHeight(5); }),
        differing([](VRSizeEntry& e) { e.setType(VRSizeTypeRatioDown); }),
        differing([](VRSizeEntry& e) { e.setOutputRounding(2); }),
        differing([](VRSizeEntry& e) {
            e.setTargetSize({100, 101});
        }),
        differing([](VRSizeEntry& e) { e.setZeroSizeBehavior(VRZeroSizeProportional); }),
    };
    for (const auto& other : others) EXPECT_NE(base, other) << other;
}
