#include "model/VRSizeEntry.h"

#include <algorithm>

#include "model/VXHelperSize.h"

namespace {

constexpr CGSize kDefaultTargetSize{100.0, 100.0};

bool isUsableTarget(CGSize size) {
    return size.width > 0 && size.height > 0;
}

}  // namespace

VRSizeEntry VRSizeEntry::sizeEntryWithWidth(double width, double height, VRSizeEntryType type) {
    VRSizeEntry entry;
    entry._width = width;
    entry._height = height;
    entry._type = type;
    return entry;
}

VRSizeEntry VRSizeEntry::sizeEntryWithSize(CGSize size, VRSizeEntryType type) {
    return sizeEntryWithWidth(size.width, size.height, type);
}

std::optional<VRSizeEntry> VRSizeEntry::sizeEntryWithSizeArray(const platform::PlistArray& array) {
    if (array.size() < 2) return std::nullopt;
    const auto type = array.size() == 3
                          ? static_cast<VRSizeEntryType>(array[2].unsignedIntegerValue())
                          : VRSizeTypePixels;
    return sizeEntryWithWidth(array[0].doubleValue(), array[1].doubleValue(), type);
}

CGSize VRSizeEntry::targetSize() {
    if (!isUsableTarget(_targetSize)) _targetSize = kDefaultTargetSize;
    return _targetSize;
}

CGSize VRSizeEntry::targetSize() const {
    return isUsableTarget(_targetSize) ? _targetSize : kDefaultTargetSize;
}

platform::PlistArray VRSizeEntry::sizeArray() const {
    return {platform::PlistValue(_width), platform::PlistValue(_height),
            platform::PlistValue(static_cast<std::uint64_t>(_type))};
}

VRSizeEntry VRSizeEntry::sizeEntryRotated() const {
    VRSizeEntry entry = *this;
    std::swap(entry._width, entry._height);
    return entry;
}

VRSizeEntry VRSizeEntry::sizeEntryRotatedWithTargetSize() const {
    VRSizeEntry entry = sizeEntryRotated();
    const CGSize target = targetSize();
    entry._targetSize = {target.height, target.width};
    return entry;
}

VRSizeEntry VRSizeEntry::sizeEntryOuterSquare() const {
    VRSizeEntry entry = *this;
    entry._width = entry._height = std::max(_width, _height);
    return entry;
}

VRSizeEntry VRSizeEntry::sizeEntryWithTargetSize(CGSize targetSize, std::uint8_t rounding) const {
    VRSizeEntry entry = *this;
    entry._targetSize = targetSize;
    entry._outputRounding = rounding;
    return entry;
}

VRSizeEntry VRSizeEntry::sizeEntryWithTargetSize(CGSize targetSize) const {
    return sizeEntryWithTargetSize(targetSize, 1);
}

double VRSizeEntry::_zeroWidthWithTargetSize(CGSize target) const {
    if (_zeroSizeBehavior != VRZeroSizeProportional || _height == 0) return target.width;
    const double r = VXHelper::ratio(target.width, target.height);
    if (r == 0) return target.width;
    const double v = r * _height;
    return v == 0 ? target.width : v;
}

double VRSizeEntry::_zeroHeightWithTargetSize(CGSize target) const {
    if (_zeroSizeBehavior != VRZeroSizeProportional || _width == 0) return target.height;
    const double r = VXHelper::ratio(target.height, target.width);
    if (r == 0) return target.height;
    const double v = r * _width;
    return v == 0 ? target.height : v;
}

CGSize VRSizeEntry::outputSize() const {
    const CGSize target = targetSize();
    CGSize size;
    switch (_type) {
        case VRSizeTypePixels:
            size = {_width != 0 ? _width : _zeroWidthWithTargetSize(target),
                    _height != 0 ? _height : _zeroHeightWithTargetSize(target)};
            break;
        case VRSizeTypePercent:
            size = {target.width * _width / 100.0, target.height * _height / 100.0};
            break;
        case VRSizeTypeRatioUp:
            size = VXHelper::frame(target, VXHelper::ratio(_width, _height), false);
            break;
        case VRSizeTypeRatioDown:
            size = VXHelper::frame(target, VXHelper::ratio(_width, _height), true);
            break;
        default:
            return CGSizeZero;
    }
    return VXHelper::roundedTo(_outputRounding, size);
}

bool operator==(const VRSizeEntry& a, const VRSizeEntry& b) {
    return a._width == b._width && a._height == b._height && a._type == b._type &&
           a._outputRounding == b._outputRounding && a.targetSize() == b.targetSize() &&
           a._zeroSizeBehavior == b._zeroSizeBehavior;
}

std::ostream& operator<<(std::ostream& out, const VRSizeEntry& entry) {
    const CGSize target = entry.targetSize();
    return out << "VRSizeEntry(" << entry.width() << " x " << entry.height() << ", type "
               << entry.type() << ", rounding " << unsigned(entry.outputRounding()) << ", target "
               << target.width << " x " << target.height << ", zero " << entry.zeroSizeBehavior()
               << ")";
}
