// How a video job ended, as VRVideoResizer2 reports it to its client (through LegacyManager)
// and as the remux stage reports its exports.
#pragma once

#include <cstdint>
#include <ostream>

enum class VRVideoResizeStatus : std::int64_t {
    // Only the remux stage: its export ended neither completed, failed nor cancelled.
    unknown = 0,
    failed = 1,
    cancelled = 2,
    finished = 3,
    trackNotFound = 4,
};

inline std::ostream& operator<<(std::ostream& out, VRVideoResizeStatus status) {
    switch (status) {
        case VRVideoResizeStatus::unknown:
            return out << "unknown";
        case VRVideoResizeStatus::failed:
            return out << "failed";
        case VRVideoResizeStatus::cancelled:
            return out << "cancelled";
        case VRVideoResizeStatus::finished:
            return out << "finished";
        case VRVideoResizeStatus::trackNotFound:
            return out << "trackNotFound";
    }
    return out << "VRVideoResizeStatus(" << static_cast<std::int64_t>(status) << ")";
}
