// Reads the binary property-list form ("bplist00") for PropertyListSerialization, trusting no
// count, offset or reference in it. Objects the file shares are measured before they are copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/PlistValue.h"

namespace platform {

class BinaryPropertyListReader {
  public:
    struct Limits {
        std::size_t maxObjects;       // values in the decoded tree, shared ones counted per use
        std::size_t maxPayloadBytes;  // bytes of strings and data in the decoded tree
        int maxDepth;                 // nesting of arrays and dictionaries
    };

    static bool looksBinary(const std::uint8_t* bytes, std::size_t size);

    // The decoded value, or nothing with `failure` saying what was wrong.
    static std::optional<PlistValue> read(const std::uint8_t* bytes, std::size_t size,
                                          const Limits& limits, std::string* failure);
};

}  // namespace platform
