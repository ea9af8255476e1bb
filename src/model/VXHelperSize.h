// Size arithmetic that is not tied to one size entry: ratio and frame, rounding, the shape
// rules of Smart size, zero removal, limits, the ratio names and size arrays. Pure; callable
// from any thread. The pipelines, editing views and template lists use it.
#pragma once

#include <cstdint>

#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"

namespace VXHelper {

// The result of shapeForSize: 0 portrait, 1 square (never returned), 2 landscape.
enum Shape : std::uint64_t { ShapePortrait = 0, ShapeSquare = 1, ShapeLandscape = 2 };

// |w / h|, and 0 when either side is 0.
double ratio(double width, double height);
double ratio(CGSize size);
// The size with ratio r inside (inner) or around (outer) w x h. r 0 gives (w, h); h 0 gives
// (0, 0). On equal ratios inner keeps the width and outer the height: both give (w, h).
CGSize frame(double width, double height, double r, bool inner);
CGSize frame(CGSize size, double r, bool inner);
CGSize rotated(CGSize size);
// Each side to the nearest integer, halves away from zero.
CGSize rounded(CGSize size);
double rounded(double value);
// As rounded for n 0 or 1; otherwise to the nearest multiple of n, halves away from zero.
CGSize roundedTo(std::uint64_t n, CGSize size);
double roundedTo(std::uint64_t n, double value);
// v forced between the smaller and the larger of a and b.
double clamp(double v, double a, double b);

// 0 when width < height, else 2: a square counts as landscape.
Shape shapeForSize(CGSize size);
// With Smart: (shape is portrait) xor (target-portrait present); otherwise false.
bool isSizeRotationRequiredForTargetSize(CGSize size, const VRSizeOptions& options);
// Smart and a square shape, which shapeForSize never gives: always false in practice.
bool isSizeSquareRequiredForTargetSize(CGSize size, const VRSizeOptions& options);

// Removes zeros: both zero gives the target; one zero side takes the target's side with
// `stretch`, else follows the target's proportions, rounded. A target with a zero side gives
// infinity there, left to the limit check.
CGSize safeSizeWithSize(CGSize size, CGSize targetSize, bool stretch);
// Unchanged when both sides are within the larger side of maxSize (even outside its own
// rectangle); otherwise maxSize framed inside to the size's ratio, not rounded.
CGSize limitedSize(CGSize size, CGSize maxSize);

// The ratio pair naming a size's shape: the first table entry within 0.005 of the ratio
// rounded to hundredths; else (r, 1) floating, or (round(r x 100), 100) falling back to the
// size's own sides when that exceeds them. Portrait sizes give the rotated pair.
CGSize ratioSizeWithSize(CGSize size, bool floating);
CGSize ratioSizeWithSize(CGSize size);

// The editing views' resolution: pixels as they stand (zeros kept for safeSizeWithSize),
// percent of the target, ratio framed around (2) or inside (3); then roundedTo(rounding).
CGSize absoluteSizeWithSizeEntry(const VRSizeEntry& entry, CGSize targetSize,
                                 std::uint64_t rounding);

// Two boxed doubles, and back; fewer than 2 elements give (0, 0).
platform::PlistArray sizeArrayWithSize(CGSize size);
CGSize sizeWithSizeArray(const platform::PlistArray& array);
// Pixel width and height of an image-properties dictionary ("PixelWidth", "PixelHeight"),
// exchanged when "Orientation" is 5, 6, 7 or 8; a missing side is 0.
CGSize imageSizeWithImageProperties(const platform::PlistDictionary& properties);

}  // namespace VXHelper
