#include "platform/UUID.h"

#include <cstdint>
#include <cstdio>
#include <random>

namespace platform {

// Every draw asks the kernel: a generator seeded once would hand the same identifiers to
// processes forked from one parent, and the stores they share would then mix their records.
std::string UUIDString() {
    std::random_device device;  // reads the kernel's source on each call
    auto draw64 = [&device] {
        return (static_cast<std::uint64_t>(device()) << 32) | static_cast<std::uint64_t>(device());
    };
    std::uint64_t hi = draw64();
    std::uint64_t lo = draw64();
    hi = (hi & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;
    lo = (lo & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(hi >> 32),
                  static_cast<unsigned>((hi >> 16) & 0xFFFF), static_cast<unsigned>(hi & 0xFFFF),
                  static_cast<unsigned>(lo >> 48),
                  static_cast<unsigned long long>(lo & 0xFFFFFFFFFFFFull));
    return text;
}

}  // namespace platform
