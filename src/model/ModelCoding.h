// Keyed-archive coding of the model's value records (size entry, format, orientation,
// position), kept apart from the values. The template archive embeds these objects.
#pragma once

#include <optional>

#include "model/VRFormat.h"
#include "model/VROrientation.h"
#include "model/VRPosition.h"
#include "model/VRSizeEntry.h"
#include "platform/KeyedArchive.h"

inline constexpr const char* VRSizeEntryWidthKey = "VRSizeEntryWidthKey";
inline constexpr const char* VRSizeEntryHeightKey = "VRSizeEntryHeightKey";
inline constexpr const char* VRSizeEntryTypeKey = "VRSizeEntryTypeKey";
inline constexpr const char* VRSizeEntryRoundingKey = "VRSizeEntryRoundingKey";
inline constexpr const char* VRSizeEntryTargetSizeKey = "VRSizeEntryTargetSizeKey";
inline constexpr const char* VRSizeEntryZeroSizeBehaviorKey = "VRSizeEntryZeroSizeBehaviorKey";

inline constexpr const char* VRFormatTypeKey = "VRFormatTypeKey";
inline constexpr const char* VRFormatMediaTypeKey = "VRFormatMediaTypeKey";
inline constexpr const char* VRFormatCompressionKey = "VRFormatCompressionKey";

inline constexpr const char* VROrientationFlippedXKey = "_VROrientationFlippedX";
inline constexpr const char* VROrientationFlippedYKey = "_VROrientationFlippedY";
inline constexpr const char* VROrientationRotationKey = "_VROrientationRotation";

inline constexpr const char* VRPositionXKey = "x";
inline constexpr const char* VRPositionYKey = "y";

namespace ModelCoding {

// Makes the record classes known to the unarchiver; call once before decoding.
void registerArchiveClasses();

// Instances of class "VRSizeEntry" with the fields in archive order. The target is written
// as its getter returns it.
platform::ArchiveObject encodeSizeEntry(const VRSizeEntry& entry);
// Absent keys read as 0 (the target then reads as 100 x 100); the rounding keeps its low 8
// bits. No entry when the object is not a VRSizeEntry instance.
std::optional<VRSizeEntry> decodeSizeEntry(const platform::ArchiveObject& object);

// As the system writes it: the type is stored under the compression key, so a format reads
// back with compression 0.0 for Auto and 1.0 for every other type.
platform::ArchiveObject encodeFormat(const VRFormat& format);
std::optional<VRFormat> decodeFormat(const platform::ArchiveObject& object);

platform::ArchiveObject encodeOrientation(const VROrientation& orientation);
std::optional<VROrientation> decodeOrientation(const platform::ArchiveObject& object);

platform::ArchiveObject encodePosition(const VRPosition& position);
std::optional<VRPosition> decodePosition(const platform::ArchiveObject& object);

}  // namespace ModelCoding
