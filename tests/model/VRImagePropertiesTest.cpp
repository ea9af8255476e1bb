#include "model/VRImageProperties.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

using platform::PlistDictionary;
using platform::PlistValue;

namespace {

PlistDictionary pixels(double width, double height) {
    return {{"PixelWidth", PlistValue(width)}, {"PixelHeight", PlistValue(height)}};
}

PlistDictionary with(PlistDictionary d, const std::string& key, PlistValue value) {
    d[key] = std::move(value);
    return d;
}

}  // namespace

// Where the size and the orientation are found, and the size as shown that the assets report.
TEST(VRImageProperties, SizeOrientationAndDisplayedSize) {
    const PlistDictionary exifOnly = {
        {"{Exif}", PlistDictionary{{"PixelXDimension", PlistValue(30)},
                                   {"PixelYDimension", PlistValue(20)}}}};
    const PlistDictionary tiffTurned =
        with(pixels(400, 300), "{TIFF}", PlistDictionary{{"Orientation", PlistValue(6)}});
    struct Case {
        const char* what;
        PlistDictionary properties;
        std::optional<CGSize> size;
        std::optional<std::int64_t> orientation;
        CGSize displayed;
    } cases[] = {
        {"pixel keys", pixels(400, 300), CGSize{400, 300}, std::nullopt, {400, 300}},
        {"width/height when a pixel key is no number",
         {{"PixelWidth", PlistValue("x")},
          {"PixelHeight", PlistValue(2)},
          {"Width", PlistValue(50)},
          {"Height", PlistValue(60)}},
         CGSize{50, 60},
         std::nullopt,
         {50, 60}},
        {"width/height when the pixel keys are missing",
         {{"Width", PlistValue(50)}, {"Height", PlistValue(60)}},
         CGSize{50, 60},
         std::nullopt,
         {50, 60}},
        {"EXIF dimensions last", exifOnly, CGSize{30, 20}, std::nullopt, {30, 20}},
        {"EXIF 6 turns a quarter (right): sides swap",
         with(pixels(400, 300), "Orientation", 6),
         CGSize{400, 300},
         3,
         {300, 400}},
        {"EXIF 8 turns a quarter the other way",
         with(pixels(400, 300), "Orientation", 8),
         CGSize{400, 300},
         2,
         {300, 400}},
        {"EXIF 3 turns half: sides stay",
         with(pixels(400, 300), "Orientation", 3),
         CGSize{400, 300},
         1,
         {400, 300}},
        {"EXIF 2 mirrors only",
         with(pixels(400, 300), "Orientation", 2),
         CGSize{400, 300},
         4,
         {400, 300}},
        {"the TIFF family's orientation when the top has none",
         tiffTurned,
         CGSize{400, 300},
         3,
         {300, 400}},
        {"a number outside 1...8 reads as up",
         with(pixels(400, 300), "Orientation", 9),
         CGSize{400, 300},
         0,
         {400, 300}},
        {"no orientation that is a number",
         with(pixels(400, 300), "Orientation", "6"),
         CGSize{400, 300},
         std::nullopt,
         {400, 300}},
        {"nothing at all", {}, std::nullopt, std::nullopt, {0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        VRImageProperties properties(c.properties);
        EXPECT_EQ(properties.size(), c.size);
        EXPECT_EQ(properties.orientation(), c.orientation);
        EXPECT_EQ(properties.displayedSize(), c.displayed);
    }
}
