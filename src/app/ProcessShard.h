// `process --shard I/N`: which of N slices of a run's inputs one process takes, so that an
// array job on a cluster (Slurm, a Kubernetes Indexed Job) splits one batch over its tasks.
// An input's slice follows from a stable hash of its key alone, so a rerun on any machine,
// with any build, gives every input the same slice.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace app {

// Slice `index` (counted from 0) of `count`.
struct Shard {
    std::uint64_t index = 0;
    std::uint64_t count = 1;
};

// The most slices a run is split into: above what Slurm arrays and Kubernetes Indexed Jobs
// allow.
inline constexpr std::uint64_t kMostShards = 1000000;

// "I/N" in decimal digits with 0 <= I < N <= kMostShards; absent, with the reason, otherwise.
std::optional<Shard> parseShard(const std::string& text, std::string* problem);

// The slice of `key` among `count` (at least 1): the 64-bit FNV-1a hash of its bytes, mixed by
// MurmurHash3's 64-bit finalizer, modulo `count`. The mixing matters: FNV-1a's low bits depend
// on few bits of the input (its lowest bit is the parity of the bytes' lowest bits), and a
// modulo of a small count reads only those.
std::uint64_t shardOfKey(std::string_view key, std::uint64_t count);

}  // namespace app
