#include "app/ProcessShard.h"

#include <charconv>

namespace app {
namespace {

std::optional<std::uint64_t> decimal(std::string_view text) {
    std::uint64_t value = 0;
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || at != end) return std::nullopt;
    return value;
}

std::uint64_t fnv1a64(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char byte : bytes) {
        hash ^= byte;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

// MurmurHash3's fmix64: every input bit reaches every output bit.
std::uint64_t fmix64(std::uint64_t k) {
    k ^= k >> 33;
    k *= 0xff51afd7ed558ccdULL;
    k ^= k >> 33;
    k *= 0xc4ceb9fe1a85ec53ULL;
    k ^= k >> 33;
    return k;
}

}  // namespace

std::optional<Shard> parseShard(const std::string& text, std::string* problem) {
    const std::string_view view(text);
    const std::size_t slash = view.find('/');
    auto index = slash == std::string_view::npos ? std::nullopt : decimal(view.substr(0, slash));
    auto count = slash == std::string_view::npos ? std::nullopt : decimal(view.substr(slash + 1));
    if (!index || !count || *index >= *count || *count > kMostShards) {
        if (problem)
            *problem = "--shard " + text +
                       ": --shard expects I/N with 0 <= I < N (I counts from 0, N at most " +
                       std::to_string(kMostShards) + ")";
        return std::nullopt;
    }
    return Shard{*index, *count};
}

std::uint64_t shardOfKey(std::string_view key, std::uint64_t count) {
    return count <= 1 ? 0 : fmix64(fnv1a64(key)) % count;
}

}  // namespace app
