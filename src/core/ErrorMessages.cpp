#include "core/ErrorMessages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/VRError.h"
#include "model/VXHelperText.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"

VRErrorMessage VRErrorMessageForCode(std::int64_t code) {
    switch (static_cast<VRErrorCode>(code)) {
        case VRErrorCode::loadFailed:
            return {std::nullopt,
                    "Unable to load media for processing. A problem may occur when it is being "
                    "used by another app or has been deleted.",
                    false};
        case VRErrorCode::saveFailed:
            return {"Saving problem",
                    "Unable to save media to photo library. A problem may occur when not enough "
                    "free space or format is not supported.",
                    false};
        case VRErrorCode::encodeFailed:
        case VRErrorCode::unwarpFailed:
            return {std::nullopt,
                    "Unable to unwarp media. A problem may occur when unsupported format used. "
                    "Try to use another format and/or update encoding parameters.",
                    true};
        case VRErrorCode::diskFull:
            return {"Not enough disk space",
                    "There is not enough available space to continue the file writing. Make room "
                    "by deleting existing videos or photos.",
                    true};
        default:
            return {std::nullopt, "An unexpected error has occurred.", false};
    }
}

std::string VRExceedingMaxSizeMessage(CGSize exceedingSize, CGSize correctingSize) {
    return "Target size " + VXHelper::stringFromSize(exceedingSize) +
           " px exceeds\nmaximum supported size.\nWould you like to proceed using\nsmaller size " +
           VXHelper::stringFromSize(correctingSize) + " px?";
}

namespace {

using platform::Error;
using platform::FileManager;

const std::string* stringFor(const platform::PlistDictionary& info, const char* key) {
    auto it = info.find(key);
    return it == info.end() ? nullptr : it->second.string();
}

template <typename Visit>
void eachError(const Error& error, const Visit& visit, int depth = 0) {
    visit(error);
    if (depth > 8) return;
    for (const auto& [key, errors] : error.errorInfo())
        for (const auto& inner : errors)
            if (inner) eachError(*inner, visit, depth + 1);
}

}  // namespace

std::optional<std::string> VRSourceProblem(const std::string& path, bool isPhoto) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        const int errnum = errno;
        if (errnum == ENOENT) return "There is no file " + path + ".";
        return path + ": " + std::strerror(errnum) + ".";
    }
    if (S_ISDIR(info.st_mode)) return path + " is a folder, not a file.";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return path + ": " + std::strerror(errno) + ".";
    ::close(fd);
    if (!isPhoto) return std::nullopt;
    platform::ErrorRef readError;
    auto bytes =
        FileManager::contentsAtPath(path, &readError, platform::ImageSourceLimits{}.maxBytes);
    if (!bytes)
        return path + ": " + (readError ? readError->localizedDescription() : "unreadable") + ".";
    platform::ErrorRef decodeError;
    auto source = platform::ImageSource::createWithData(std::move(*bytes), &decodeError);
    if (!source) {
        return path + " is not a picture that can be read" +
               (decodeError ? ": " + decodeError->localizedDescription() : std::string("."));
    }
    if (!source->createImageAtIndex(0, &decodeError)) {
        return path + " holds truncated or damaged picture data" +
               (decodeError ? ": " + decodeError->localizedDescription() : std::string("."));
    }
    return std::nullopt;
}

std::optional<std::string> VRErrorReason(const platform::Error& error) {
    std::optional<std::string> reason;
    std::optional<std::string> jobError;
    eachError(error, [&](const Error& e) {
        if (reason) return;
        if (const auto* set = stringFor(e.userInfo(), VRErrorUserInfoReasonKey)) {
            reason = *set;
        } else if (e.domain() == platform::NSPOSIXErrorDomain) {
            reason = e.localizedDescription();
        } else if (e.domain() == platform::NSCocoaErrorDomain) {
            // A file error's own words, unless a POSIX error beneath says it more plainly.
            bool posixBeneath = false;
            for (const auto& inner : e.errorsForKey(platform::NSUnderlyingErrorKey))
                posixBeneath =
                    posixBeneath || (inner && inner->domain() == platform::NSPOSIXErrorDomain);
            if (!posixBeneath) reason = e.localizedDescription();
        } else if (const auto* text = stringFor(e.userInfo(), "Error")) {
            if (*text != "None" && !jobError) jobError = *text;
        }
    });
    return reason ? reason : jobError;
}

bool VRErrorIsOutOfSpace(const platform::Error& error) {
    bool full = false;
    eachError(error, [&](const Error& e) {
        full = full ||
               (e.domain() == platform::NSCocoaErrorDomain &&
                e.code() == platform::NSFileWriteOutOfSpaceError) ||
               (e.domain() == platform::NSPOSIXErrorDomain &&
                (e.code() == ENOSPC || e.code() == EDQUOT));
    });
    return full;
}
