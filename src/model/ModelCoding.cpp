#include "model/ModelCoding.h"

using platform::ArchiveObject;

namespace ModelCoding {

namespace {

constexpr const char* kSizeEntryClass = "VRSizeEntry";
constexpr const char* kFormatClass = "VRFormat";
constexpr const char* kOrientationClass = "VROrientation";
constexpr const char* kPositionClass = "VRPosition";

bool isInstanceOf(const ArchiveObject& object, const char* className) {
    return object.kind() == ArchiveObject::Kind::Instance && object.className() == className;
}

}  // namespace

void registerArchiveClasses() {
    for (const char* name : {kSizeEntryClass, kFormatClass, kOrientationClass, kPositionClass})
        platform::KeyedUnarchiver::registerClassName(name);
}

ArchiveObject encodeSizeEntry(const VRSizeEntry& entry) {
    ArchiveObject object = ArchiveObject::instance(kSizeEntryClass);
    object.encodeDouble(VRSizeEntryWidthKey, entry.width());
    object.encodeDouble(VRSizeEntryHeightKey, entry.height());
    object.encodeInteger(VRSizeEntryTypeKey, static_cast<std::int64_t>(entry.type()));
    object.encodeInteger(VRSizeEntryRoundingKey, entry.outputRounding());
    object.encodeObject(VRSizeEntryTargetSizeKey, ArchiveObject::sizeValue(entry.targetSize()));
    object.encodeInteger(VRSizeEntryZeroSizeBehaviorKey,
                         static_cast<std::int64_t>(entry.zeroSizeBehavior()));
    return object;
}

std::optional<VRSizeEntry> decodeSizeEntry(const ArchiveObject& object) {
    if (!isInstanceOf(object, kSizeEntryClass)) return std::nullopt;
    VRSizeEntry entry;
    entry.setWidth(object.decodeDoubleForKey(VRSizeEntryWidthKey));
    entry.setHeight(object.decodeDoubleForKey(VRSizeEntryHeightKey));
    entry.setType(static_cast<VRSizeEntryType>(object.decodeIntegerForKey(VRSizeEntryTypeKey)));
    entry.setOutputRounding(
        static_cast<std::uint8_t>(object.decodeIntegerForKey(VRSizeEntryRoundingKey) & 0xFF));
    const ArchiveObject* target = object.decodeObjectForKey(VRSizeEntryTargetSizeKey);
    entry.setTargetSize(target && target->kind() == ArchiveObject::Kind::SizeValue ? target->size()
                                                                                   : CGSizeZero);
    entry.setZeroSizeBehavior(static_cast<VRZeroSizeBehavior>(
        object.decodeIntegerForKey(VRSizeEntryZeroSizeBehaviorKey)));
    return entry;
}

ArchiveObject encodeFormat(const VRFormat& format) {
    ArchiveObject object = ArchiveObject::instance(kFormatClass);
    object.encodeInteger(VRFormatTypeKey, static_cast<std::int64_t>(format.rawType()));
    object.encodeInteger(VRFormatMediaTypeKey, static_cast<std::int64_t>(format.mediaType()));
    // Written as the system writes it: the type, as a float, under the compression key.
    object.encodeDouble(VRFormatCompressionKey,
                        static_cast<double>(static_cast<float>(format.rawType())));
    return object;
}

std::optional<VRFormat> decodeFormat(const ArchiveObject& object) {
    if (!isInstanceOf(object, kFormatClass)) return std::nullopt;
    const auto type = static_cast<std::uint64_t>(object.decodeIntegerForKey(VRFormatTypeKey));
    const auto mediaType =
        static_cast<std::uint64_t>(object.decodeIntegerForKey(VRFormatMediaTypeKey));
    const auto compression = static_cast<float>(object.decodeDoubleForKey(VRFormatCompressionKey));
    return VRFormat(type, mediaType, compression);
}

ArchiveObject encodeOrientation(const VROrientation& orientation) {
    ArchiveObject object = ArchiveObject::instance(kOrientationClass);
    object.encodeBool(VROrientationFlippedXKey, orientation.flippedX());
    object.encodeBool(VROrientationFlippedYKey, orientation.flippedY());
    object.encodeInteger(VROrientationRotationKey, orientation.rotation());
    return object;
}

std::optional<VROrientation> decodeOrientation(const ArchiveObject& object) {
    if (!isInstanceOf(object, kOrientationClass)) return std::nullopt;
    return VROrientation::orientationWithFlipedX(
        object.decodeBoolForKey(VROrientationFlippedXKey),
        object.decodeBoolForKey(VROrientationFlippedYKey),
        object.decodeIntegerForKey(VROrientationRotationKey));
}

ArchiveObject encodePosition(const VRPosition& position) {
    ArchiveObject object = ArchiveObject::instance(kPositionClass);
    object.encodeInteger(VRPositionXKey, static_cast<std::int64_t>(position.x()));
    object.encodeInteger(VRPositionYKey, static_cast<std::int64_t>(position.y()));
    return object;
}

std::optional<VRPosition> decodePosition(const ArchiveObject& object) {
    if (!isInstanceOf(object, kPositionClass)) return std::nullopt;
    return VRPosition(static_cast<std::uint64_t>(object.decodeIntegerForKey(VRPositionXKey)),
                      static_cast<std::uint64_t>(object.decodeIntegerForKey(VRPositionYKey)));
}

}  // namespace ModelCoding
