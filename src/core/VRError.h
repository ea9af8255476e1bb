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

// The codes of "_vrErrorDomain". Their numbers go into reports and logs, so they never change;
// 7 to 18 stay inside the video stage as the causes of a 3 or a 17.
enum class VRErrorCode : std::int64_t {
    loadFailed = 1,         // asset data or movie not obtained; video job cancelled
    saveFailed = 2,         // image write failed; result store refused; no file to store
    encodeFailed = 3,       // video encode failed; with the job's details
    unwarpFailed = 4,       // no producer; shown like 3
    sizeLimitExceeded = 5,  // target size beyond the limit; with the three size keys
    readerSetupFailed = 7,
    writerSetupFailed = 8,
    readerOutputNotAdded = 9,
    writerInputNotAdded = 10,
    trackNotFound = 11,
    startFailed = 12,
    mixFailed = 13,
    trackRebuildFailed = 14,
    mixStepFailed = 15,
    tracksFailed = 16,  // with the "tracks" key
    diskFull = 17,      // encode failed for a full disk; with the job's details
    otherTracksRebuildFailed = 18,
};

class VRError;
using VRErrorRef = std::shared_ptr<const VRError>;

class VRError : public platform::Error {
  public:
    using platform::Error::Error;

    static VRErrorRef errorWithCode(VRErrorCode code, platform::PlistDictionary userInfo = {});
    // The one user-information key "_vrUnderlyingErrors" holding `errors`.
    static VRErrorRef errorWithCodeUnderlyingErrors(VRErrorCode code,
                                                    std::vector<platform::ErrorRef> errors);

    // True for that code of "_vrErrorDomain" (not of a wrapped error).
    bool hasCode(VRErrorCode wanted) const {
        return domain() == VRErrorDomain && code() == static_cast<std::int64_t>(wanted);
    }

    const std::vector<platform::ErrorRef>& underlyingErrors() const {
        return errorsForKey(VRErrorUnderlyingErrorsKey);
    }

    // With wrapped errors: "Error Domain=%@ Code=%d UnderlyingErrors=[%@]", the wrapped
    // descriptions joined by "]; [" ("None" for a missing one). Otherwise the base form.
    std::string description() const override;

    // True when this error, or any error it wraps at any depth, has that domain and code.
    bool matchesDomain(const std::string& domain, std::int64_t code) const;
};
