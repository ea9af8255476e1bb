// The one error type of the processing path: domain "_vrErrorDomain", a small code and user
// information. It can wrap other errors, so a video failure keeps the reader's and writer's
// errors while the batch run acts on the code.
#pragma once

#include <memory>
#include <vector>

#include "platform/Error.h"

inline constexpr const char* VRErrorDomain = "_vrErrorDomain";

// User-information keys.
inline constexpr const char* VRErrorUserInfoRootKey = "VRErrorUserInfoRootKey";
inline constexpr const char* VRErrorUnderlyingErrorsKey = "_vrUnderlyingErrors";
inline constexpr const char* VRErrorUserInfoOriginalSizeKey = "VRErrorUserInfoOriginalSizeKey";
inline constexpr const char* VRErrorUserInfoExceedingSizeKey = "VRErrorUserInfoExceedingSizeKey";
inline constexpr const char* VRErrorUserInfoCorrectingSizesKey =
    "VRErrorUserInfoCorrectingSizesKey";
inline constexpr const char* VRErrorUserInfoTracksKey = "tracks";

class VRError;
using VRErrorRef = std::shared_ptr<const VRError>;

class VRError : public platform::Error {
  public:
    using platform::Error::Error;

    static VRErrorRef errorWithCode(std::int64_t code, platform::PlistDictionary userInfo = {});
    // The one user-information key "_vrUnderlyingErrors" holding `errors`.
    static VRErrorRef errorWithCodeUnderlyingErrors(std::int64_t code,
                                                    std::vector<platform::ErrorRef> errors);

    const std::vector<platform::ErrorRef>& underlyingErrors() const {
        return errorsForKey(VRErrorUnderlyingErrorsKey);
    }

    // With wrapped errors: "Error Domain=%@ Code=%d UnderlyingErrors=[%@]", the wrapped
    // descriptions joined by "]; [" ("None" for a missing one). Otherwise the base form.
    std::string description() const override;

    // True when this error, or any error it wraps at any depth, has that domain and code.
    bool matchesDomain(const std::string& domain, std::int64_t code) const;
};
