// The size the user asked for: two numbers, their unit, the rule for a side left at zero
// ("Auto") and the source size they resolve against. Templates hold one per media type; the
// pipelines and editing views resolve a working copy to output pixels with outputSize().
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>

#include "platform/Geometry.h"
#include "platform/PlistValue.h"

// Stored in archives and settings; the numbers are kept exactly. Any other stored value
// resolves to a (0, 0) output size.
enum VRSizeEntryType : std::uint64_t {
    VRSizeTypePixels = 0,
    VRSizeTypePercent = 1,
    VRSizeTypeRatioUp = 2,    // the frame grows from the target until it has the ratio
    VRSizeTypeRatioDown = 3,  // the frame shrinks inside the target until it has the ratio
};

enum VRZeroSizeBehavior : std::uint64_t {
    VRZeroSizeKeep = 0,          // an Auto side takes the target's side unchanged (Stretch)
    VRZeroSizeProportional = 1,  // an Auto side follows the target's proportions (clip, fit)
};

class VRSizeEntry {
  public:
    // All fields zero; the target reads as (100, 100).
    VRSizeEntry() = default;

    static VRSizeEntry sizeEntryWithWidth(double width, double height, VRSizeEntryType type);
    static VRSizeEntry sizeEntryWithSize(CGSize size, VRSizeEntryType type);
    // Fewer than 2 elements gives no entry. Exactly 3 elements: the third is the type; with 2,
    // or with 4 or more, the type is pixels.
    static std::optional<VRSizeEntry> sizeEntryWithSizeArray(const platform::PlistArray& array);

    std::uint8_t outputRounding() const { return _outputRounding; }
    void setOutputRounding(std::uint8_t rounding) { _outputRounding = rounding; }
    double width() const { return _width; }
    void setWidth(double width) { _width = width; }
    double height() const { return _height; }
    void setHeight(double height) { _height = height; }
    VRSizeEntryType type() const { return _type; }
    void setType(VRSizeEntryType type) { _type = type; }
    VRZeroSizeBehavior zeroSizeBehavior() const { return _zeroSizeBehavior; }
    void setZeroSizeBehavior(VRZeroSizeBehavior behavior) { _zeroSizeBehavior = behavior; }

    // The target against which percent, ratio and Auto resolve. A stored side that is not
    // greater than 0 reads as (100, 100). This getter WRITES: it stores the default it returns,
    // as the system's getter does; the const overload answers the same without storing.
    CGSize targetSize();
    CGSize targetSize() const;
    void setTargetSize(CGSize size) { _targetSize = size; }

    CGSize size() const { return {_width, _height}; }
    // Width, height (doubles) and type (unsigned integer).
    platform::PlistArray sizeArray() const;
    // Two Auto sides count as square.
    bool isSquare() const { return _width == _height; }
    bool isPortrait() const { return _width < _height; }

    // Width and height exchanged; the target is deliberately kept.
    VRSizeEntry sizeEntryRotated() const;
    // Width and height exchanged, and the target's sides too.
    VRSizeEntry sizeEntryRotatedWithTargetSize() const;
    // Both sides the larger of width and height; type, rounding, target and Auto rule kept.
    VRSizeEntry sizeEntryOuterSquare() const;
    VRSizeEntry sizeEntryWithTargetSize(CGSize targetSize, std::uint8_t rounding) const;
    VRSizeEntry sizeEntryWithTargetSize(CGSize targetSize) const;

    // The resolved size: pixels (Auto sides by the zero-size rule), percent of the target per
    // side (0 stays 0), or the target framed to the ratio; then rounded to whole pixels,
    // halves away from zero, or to the nearest multiple of outputRounding when it exceeds 1.
    CGSize outputSize() const;

    // Equality of every field, the targets compared as their getters read them.
    friend bool operator==(const VRSizeEntry& a, const VRSizeEntry& b);

  private:
    double _zeroWidthWithTargetSize(CGSize target) const;
    double _zeroHeightWithTargetSize(CGSize target) const;

    std::uint8_t _outputRounding = 0;
    double _width = 0;
    double _height = 0;
    VRSizeEntryType _type = VRSizeTypePixels;
    VRZeroSizeBehavior _zeroSizeBehavior = VRZeroSizeKeep;
    CGSize _targetSize;
};

std::ostream& operator<<(std::ostream& out, const VRSizeEntry& entry);
