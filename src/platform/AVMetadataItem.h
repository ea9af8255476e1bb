// One metadata item of a movie or track: a key in a key space and a value. The asset reports
// them, the video metadata logic rewrites copies of them, the writer stores them.
// AVMutableMetadataItem is the same value type: copying is the platform's mutableCopy.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PlistValue.h"

// Key spaces. 3GP user-data keys live in the ISO user-data key space.
inline constexpr const char* AVMetadataKeySpaceCommon = "comn";
inline constexpr const char* AVMetadataKeySpaceQuickTimeUserData = "udta";
inline constexpr const char* AVMetadataKeySpaceISOUserData = "uiso";
inline constexpr const char* AVMetadataKeySpaceQuickTimeMetadata = "mdta";
inline constexpr const char* AVMetadataKeySpaceiTunes = "itsk";
inline constexpr const char* AVMetadataKeySpaceID3 = "org.id3";

// Common keys.
inline constexpr const char* AVMetadataCommonKeyTitle = "title";
inline constexpr const char* AVMetadataCommonKeyCreator = "creator";
inline constexpr const char* AVMetadataCommonKeyDescription = "description";
inline constexpr const char* AVMetadataCommonKeyCopyrights = "copyrights";
inline constexpr const char* AVMetadataCommonKeyCreationDate = "creationDate";
inline constexpr const char* AVMetadataCommonKeyLastModifiedDate = "lastModifiedDate";
inline constexpr const char* AVMetadataCommonKeySoftware = "software";
inline constexpr const char* AVMetadataCommonKeyLocation = "location";
inline constexpr const char* AVMetadataCommonKeyMake = "make";
inline constexpr const char* AVMetadataCommonKeyModel = "model";

// QuickTime metadata keys.
inline constexpr const char* AVMetadataQuickTimeMetadataKeyCreationDate =
    "com.apple.quicktime.creationdate";
inline constexpr const char* AVMetadataQuickTimeMetadataKeySoftware =
    "com.apple.quicktime.software";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyMake = "com.apple.quicktime.make";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyModel = "com.apple.quicktime.model";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationISO6709 =
    "com.apple.quicktime.location.ISO6709";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationBody =
    "com.apple.quicktime.location.body";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationDate =
    "com.apple.quicktime.location.date";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationName =
    "com.apple.quicktime.location.name";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationNote =
    "com.apple.quicktime.location.note";
inline constexpr const char* AVMetadataQuickTimeMetadataKeyLocationRole =
    "com.apple.quicktime.location.role";

// QuickTime user-data keys ("@" stands for the copyright sign 0xA9 of the atom names).
inline constexpr const char* AVMetadataQuickTimeUserDataKeyCreationDate = "@day";
inline constexpr const char* AVMetadataQuickTimeUserDataKeySoftware = "@swr";
inline constexpr const char* AVMetadataQuickTimeUserDataKeyLocationISO6709 = "@xyz";
inline constexpr const char* AVMetadataQuickTimeUserDataKeyFullName = "@nam";
inline constexpr const char* AVMetadataQuickTimeUserDataKeyEncoder = "@enc";

// 3GP user-data keys.
inline constexpr const char* AVMetadata3GPUserDataKeyLocation = "loci";
inline constexpr const char* AVMetadata3GPUserDataKeyTitle = "titl";
inline constexpr const char* AVMetadata3GPUserDataKeyRecordingYear = "yrrc";

// ID3 keys.
inline constexpr const char* AVMetadataID3MetadataKeyDate = "TDAT";
inline constexpr const char* AVMetadataID3MetadataKeyTime = "TIME";
inline constexpr const char* AVMetadataID3MetadataKeyRecordingDates = "TRDA";
inline constexpr const char* AVMetadataID3MetadataKeyYear = "TYER";
inline constexpr const char* AVMetadataID3MetadataKeyRecordingTime = "TDRC";
inline constexpr const char* AVMetadataID3MetadataKeyEncodedWith = "TSSE";

class AVMetadataItem {
  public:
    AVMetadataItem() = default;
    AVMetadataItem(std::string keySpace, platform::PlistValue key, platform::PlistValue value)
        : _keySpace(std::move(keySpace)), _key(std::move(key)), _value(std::move(value)) {}

    // Empty when the item has no key space.
    const std::string& keySpace() const { return _keySpace; }
    void setKeySpace(std::string keySpace) { _keySpace = std::move(keySpace); }
    // A string, or an integer for the numeric keys of user-data atoms (0xA9646179 for "@day").
    const platform::PlistValue& key() const { return _key; }
    void setKey(platform::PlistValue key) { _key = std::move(key); }
    const platform::PlistValue& value() const { return _value; }
    void setValue(platform::PlistValue value) { _value = std::move(value); }

    // The key as a string when it is one.
    std::optional<std::string> stringKey() const;
    // The key as a number when it is one.
    std::optional<std::int64_t> numberKey() const;
    // "<key space>/<key>", as the platform's identifier.
    std::string identifier() const;
    std::optional<std::string> stringValue() const;
    // A date value, or a string value in ISO 8601 ("2024-05-01T10:20:30Z", with a fraction
    // and a "+hh:mm"/"+hhmm" zone if present, or a bare "2024-05-01"); otherwise absent.
    std::optional<platform::PlistDate> dateValue() const;

    AVMetadataItem mutableCopy() const { return *this; }
    friend bool operator==(const AVMetadataItem&, const AVMetadataItem&) = default;

  private:
    std::string _keySpace;
    platform::PlistValue _key;
    platform::PlistValue _value;
};

using AVMutableMetadataItem = AVMetadataItem;

// ISO 8601 with UTC zone and milliseconds, "2024-05-01T10:20:30.000Z"; what the writer stores.
std::string AVMetadataISO8601String(platform::PlistDate date);
std::optional<platform::PlistDate> AVMetadataParseISO8601(const std::string& text);
