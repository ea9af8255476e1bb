// Error codes of "AVFoundationErrorDomain" that the media services report, and the one way to
// make such an error. Used by the asset, reader and writer and checked by the video logic.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Error.h"

inline constexpr std::int64_t AVErrorUnknown = -11800;
inline constexpr std::int64_t AVErrorDiskFull = -11807;
inline constexpr std::int64_t AVErrorDecodeFailed = -11821;
inline constexpr std::int64_t AVErrorFileAlreadyExists = -11823;
inline constexpr std::int64_t AVErrorFileFormatNotRecognized = -11828;
inline constexpr std::int64_t AVErrorFileFailedToParse = -11829;
inline constexpr std::int64_t AVErrorDecoderNotFound = -11833;
inline constexpr std::int64_t AVErrorEncoderNotFound = -11834;
inline constexpr std::int64_t AVErrorOperationNotAllowed = -11838;
inline constexpr std::int64_t AVErrorNoSourceTrack = -11869;

namespace platform {

// An error in AVFoundationErrorDomain with the description, and the underlying error if any.
ErrorRef avError(std::int64_t code, const std::string& description, ErrorRef underlying = nullptr);

}  // namespace platform
