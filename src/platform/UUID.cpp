#include "platform/UUID.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <random>

namespace platform {

namespace {

// Sixteen bytes from the kernel in one call. std::random_device would do too, but each one
// probes the processor with cpuid first, which a virtual machine traps: at a hundred template
// sections a start, that was a fifth of `unwarp templates`.
void kernelRandom(std::uint64_t (&words)[2]) {
    auto* bytes = reinterpret_cast<unsigned char*>(words);
    std::size_t filled = 0;
    while (filled < sizeof words) {
        const ssize_t got = getrandom(bytes + filled, sizeof words - filled, 0);
        if (got > 0) {
            filled += static_cast<std::size_t>(got);
        } else if (got < 0 && errno != EINTR) {
            // No getrandom (a very old kernel or a seccomp filter): the device still reads
            // the kernel's source.
            std::random_device device;
            for (auto& word : words) word = (static_cast<std::uint64_t>(device()) << 32) | device();
            return;
        }
    }
}

}  // namespace

// Every draw asks the kernel: a generator seeded once would hand the same identifiers to
// processes forked from one parent, and the stores they share would then mix their records.
std::string UUIDString() {
    std::uint64_t words[2];
    kernelRandom(words);
    std::uint64_t hi = words[0];
    std::uint64_t lo = words[1];
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
