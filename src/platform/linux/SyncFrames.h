// Where a movie track's sync frames lie, from the container's index and without decoding: the
// image generator starts reading at one when its tolerance allows it. The lookup lives in the
// media module (libavformat); the program's definition calls it through the module's table.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/CMTime.h"

namespace platform::media {

// The presentation time of the track's first sync frame shown between `from` and `to`
// seconds; nothing when there is none or the container keeps no index of them.
std::optional<CMTime> firstSyncFrameBetween(const std::string& path, std::int32_t trackID,
                                            double from, double to);

}  // namespace platform::media
