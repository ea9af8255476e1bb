// Reading and writing property lists in the XML and binary forms.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

enum PropertyListFormat : std::uint32_t {
    NSPropertyListOpenStepFormat = 1,
    NSPropertyListXMLFormat_v1_0 = 100,
    NSPropertyListBinaryFormat_v1_0 = 200,
};

class PropertyListSerialization {
  public:
    // Input larger than this is refused before parsing.
    static constexpr std::size_t kMaxInputBytes = 64u << 20;
    // Containers nested deeper than this are refused.
    static constexpr int kMaxDepth = 512;
    // Values in a read tree, an object that the binary form shares counted once per use; the
    // strings and data of a read tree may not exceed kMaxInputBytes either. Writing refuses
    // what reading would refuse.
    static constexpr std::size_t kMaxObjects = 2'000'000;

    // Writes XML (100) or binary (200); the OpenStep form is read-only on the platform too.
    // A Null anywhere in the value, or a UID outside an archive (a root dictionary holding
    // "$archiver"), is a write error (NSCocoaErrorDomain, NSPropertyListWriteInvalidError), and
    // so are strings that are not UTF-8 or hold a NUL, and dates before 1933 or after 2069.
    // Options are ignored (0).
    static std::optional<PlistData> dataWithPropertyList(const PlistValue& value,
                                                         PropertyListFormat format,
                                                         std::uint32_t options,
                                                         ErrorRef* error = nullptr);

    // Reads either form, telling which one through `format` when given. Malformed, truncated,
    // oversized or too deeply nested input gives NSCocoaErrorDomain /
    // NSPropertyListReadCorruptError, never a crash.
    static std::optional<PlistValue> propertyListWithData(const PlistData& data,
                                                          PropertyListFormat* format = nullptr,
                                                          ErrorRef* error = nullptr);
};

}  // namespace platform
