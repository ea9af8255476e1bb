#include "model/VXHelperSize.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "model/SizeGeometry.h"

namespace VXHelper {

double ratio(double width, double height) {
    if (width == 0 || height == 0) return 0.0;
    return std::fabs(width / height);
}

double ratio(CGSize size) {
    return ratio(size.width, size.height);
}

CGSize frame(double width, double height, double r, bool inner) {
    if (r == 0) return {width, height};
    if (height == 0) return {0, 0};
    const double a = width / height;
    if ((a > r) == inner) return {height * r, height};
    return {width, width / r};
}

CGSize frame(CGSize size, double r, bool inner) {
    return frame(size.width, size.height, r, inner);
}

CGSize rotated(CGSize size) {
    return {size.height, size.width};
}

double rounded(double value) {
    return std::round(value);
}

CGSize rounded(CGSize size) {
    return {rounded(size.width), rounded(size.height)};
}

double roundedTo(std::uint64_t n, double value) {
    if (n <= 1) return rounded(value);
    const double q = static_cast<double>(n);
    return std::round(value / q) * q;
}

CGSize roundedTo(std::uint64_t n, CGSize size) {
    return {roundedTo(n, size.width), roundedTo(n, size.height)};
}

double clamp(double v, double a, double b) {
    return std::min(std::max(v, std::min(a, b)), std::max(a, b));
}

Shape shapeForSize(CGSize size) {
    return size.width < size.height ? ShapePortrait : ShapeLandscape;
}

bool isSizeRotationRequiredForTargetSize(CGSize size, const VRSizeOptions& options) {
    const Shape shape = shapeForSize(size);
    if (shape == ShapeSquare) return false;
    if (!containsOption(options, VRSizeOptionSmart)) return false;
    return (shape == ShapePortrait) != containsOption(options, VRSizeOptionTargetPortrait);
}

bool isSizeSquareRequiredForTargetSize(CGSize size, const VRSizeOptions& options) {
    return containsOption(options, VRSizeOptionSmart) && shapeForSize(size) == ShapeSquare;
}

CGSize safeSizeWithSize(CGSize size, CGSize targetSize, bool stretch) {
    const double w = size.width, h = size.height;
    if (w == 0 && h == 0) return targetSize;
    if (w != 0 && h != 0) return size;
    const double r = ratio(targetSize);
    if (h == 0) return {w, stretch ? targetSize.height : rounded(w / r)};
    return {stretch ? targetSize.width : rounded(h * r), h};
}

CGSize limitedSize(CGSize size, CGSize maxSize) {
    const double m = std::max(maxSize.width, maxSize.height);
    if (size.width <= m && size.height <= m) return size;
    return frame(maxSize.width, maxSize.height, ratio(size), true);
}

namespace {

constexpr std::array<std::array<double, 2>, 21> kRatioTable{{
    {21, 9}, {19, 16}, {17, 9}, {16, 11}, {16, 10}, {16, 9}, {14, 11},
    {14, 9}, {11, 8},  {10, 7}, {7, 5},   {7, 4},   {6, 5},  {5, 4},
    {5, 3},  {5, 2},   {4, 3},  {3, 2},   {3, 1},   {2, 1},  {1, 1},
}};

}  // namespace

CGSize ratioSizeWithSize(CGSize size, bool floating) {
    const bool portrait = size.height > size.width;
    const CGSize working = portrait ? rotated(size) : size;
    const double r = std::round(ratio(working) * 100) / 100;
    std::optional<CGSize> answer;
    for (const auto& entry : kRatioTable) {
        if (std::fabs(ratio(entry[0], entry[1]) - r) < 0.005) {
            answer = CGSize{entry[0], entry[1]};
            break;
        }
    }
    if (!answer) {
        if (floating) {
            answer = CGSize{r, 1.0};
        } else {
            answer = CGSize{std::round(r * 100), 100};
            if (::maxSize(*answer) > ::maxSize(size)) answer = landscapeSize(size);
        }
    }
    return portrait ? rotated(*answer) : *answer;
}

CGSize ratioSizeWithSize(CGSize size) {
    return ratioSizeWithSize(size, false);
}

CGSize absoluteSizeWithSizeEntry(const VRSizeEntry& entry, CGSize targetSize,
                                 std::uint64_t rounding) {
    CGSize result;
    switch (entry.type()) {
        case VRSizeTypePixels:
            result = entry.size();
            break;
        case VRSizeTypePercent:
            result = {targetSize.width * entry.width() / 100.0,
                      targetSize.height * entry.height() / 100.0};
            break;
        case VRSizeTypeRatioUp:
            result = frame(targetSize, ratio(entry.size()), false);
            break;
        case VRSizeTypeRatioDown:
            result = frame(targetSize, ratio(entry.size()), true);
            break;
        default:
            result = CGSizeZero;
            break;
    }
    return roundedTo(rounding, result);
}

platform::PlistArray sizeArrayWithSize(CGSize size) {
    return {platform::PlistValue(size.width), platform::PlistValue(size.height)};
}

CGSize sizeWithSizeArray(const platform::PlistArray& array) {
    if (array.size() < 2) return CGSizeZero;
    return {array[0].doubleValue(), array[1].doubleValue()};
}

CGSize imageSizeWithImageProperties(const platform::PlistDictionary& properties) {
    auto side = [&](const char* key) {
        auto it = properties.find(key);
        return it == properties.end() ? 0.0 : it->second.doubleValue();
    };
    // EXIF orientations 5 to 8 turn the picture by a quarter.
    const double orientation = side("Orientation");
    const bool turned = orientation >= 5 && orientation <= 8;
    return turned ? CGSize{side("PixelHeight"), side("PixelWidth")}
                  : CGSize{side("PixelWidth"), side("PixelHeight")};
}

}  // namespace VXHelper
