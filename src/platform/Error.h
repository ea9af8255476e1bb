// The error object passed through completions: a domain, a code and user information.
// Errors reported by libraries are turned into these at the platform boundary.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/PlistValue.h"

namespace platform {

class Error;
using ErrorRef = std::shared_ptr<const Error>;

// Domains the platform layer reports in.
inline constexpr const char* NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr const char* AVFoundationErrorDomain = "AVFoundationErrorDomain";

// Codes of NSCocoaErrorDomain that the platform layer uses.
inline constexpr std::int64_t NSFileNoSuchFileError = 4;
inline constexpr std::int64_t NSFileReadUnknownError = 256;
inline constexpr std::int64_t NSFileReadCorruptFileError = 259;
inline constexpr std::int64_t NSFileWriteUnknownError = 512;
inline constexpr std::int64_t NSFileWriteOutOfSpaceError = 640;
inline constexpr std::int64_t NSPropertyListReadCorruptError = 3840;
inline constexpr std::int64_t NSPropertyListWriteInvalidError = 3852;
inline constexpr std::int64_t NSCoderReadCorruptError = 4864;
inline constexpr std::int64_t NSCoderValueNotFoundError = 4865;

// Well-known user-information keys.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* NSDebugDescriptionErrorKey = "NSDebugDescription";
inline constexpr const char* NSFilePathErrorKey = "NSFilePath";
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";

class Error {
  public:
    Error(std::string domain, std::int64_t code, PlistDictionary userInfo = {},
          std::map<std::string, std::vector<ErrorRef>> errorInfo = {})
        : _domain(std::move(domain)),
          _code(code),
          _userInfo(std::move(userInfo)),
          _errorInfo(std::move(errorInfo)) {}
    virtual ~Error() = default;

    static ErrorRef errorWithDomain(std::string domain, std::int64_t code,
                                    PlistDictionary userInfo = {});
    // A POSIX error from errno, with the path and the failed operation in the user info.
    static ErrorRef posixError(int errnum, const std::string& operation,
                               const std::string& path = {});

    const std::string& domain() const { return _domain; }
    std::int64_t code() const { return _code; }
    // User information that is property-list data.
    const PlistDictionary& userInfo() const { return _userInfo; }
    // User information whose values are errors (an underlying error, a list of them).
    const std::map<std::string, std::vector<ErrorRef>>& errorInfo() const { return _errorInfo; }
    const std::vector<ErrorRef>& errorsForKey(const std::string& key) const;

    // NSLocalizedDescription when set, else "The operation couldn't be completed.
    // (<domain> error <code>.)".
    std::string localizedDescription() const;
    // "Error Domain=<domain> Code=<code> \"<localized description>\" UserInfo={...}".
    virtual std::string description() const;

  private:
    std::string _domain;
    std::int64_t _code;
    PlistDictionary _userInfo;
    std::map<std::string, std::vector<ErrorRef>> _errorInfo;
};

}  // namespace platform
