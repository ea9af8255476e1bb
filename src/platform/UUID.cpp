#include "platform/UUID.h"

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <random>

namespace platform {

std::string UUIDString() {
    static std::mutex mutex;
    static std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t hi, lo;
    {
        std::lock_guard<std::mutex> lock(mutex);
        hi = generator();
        lo = generator();
    }
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
