#include "core/VRError.h"

#include <gtest/gtest.h>

using platform::Error;

TEST(VRError, DescriptionWithAndWithoutWrappedErrors) {
    auto plain = VRError::errorWithCode(VRErrorCode::saveFailed);
    EXPECT_EQ(plain->domain(), "_vrErrorDomain");
    EXPECT_EQ(plain->code(), 2);
    EXPECT_EQ(plain->description(), plain->platform::Error::description());

    // An empty list of wrapped errors shows the base description.
    auto empty = VRError::errorWithCodeUnderlyingErrors(VRErrorCode::readerSetupFailed, {});
    EXPECT_EQ(empty->description(), empty->platform::Error::description());

    auto reader = Error::errorWithDomain("AVFoundationErrorDomain", -11800);
    auto writer = Error::errorWithDomain("NSOSStatusErrorDomain", -12900);
    auto wrapped =
        VRError::errorWithCodeUnderlyingErrors(VRErrorCode::startFailed, {reader, writer});
    EXPECT_EQ(wrapped->description(), "Error Domain=_vrErrorDomain Code=12 UnderlyingErrors=[" +
                                          reader->description() + "]; [" + writer->description() +
                                          "]");
    auto withMissing =
        VRError::errorWithCodeUnderlyingErrors(VRErrorCode::mixFailed, {nullptr, reader});
    EXPECT_EQ(withMissing->description(),
              "Error Domain=_vrErrorDomain Code=13 UnderlyingErrors=[None]; [" +
                  reader->description() + "]");
}

TEST(VRError, MatchesDomainAndCodeAtAnyDepth) {
    auto disk = Error::errorWithDomain("AVFoundationErrorDomain", -11807);
    auto setup = VRError::errorWithCodeUnderlyingErrors(VRErrorCode::readerSetupFailed,
                                                        {Error::errorWithDomain("Other", 1), disk});
    auto job = VRError::errorWithCodeUnderlyingErrors(VRErrorCode::encodeFailed, {setup});

    struct Case {
        const char* domain;
        std::int64_t code;
        bool expected;
    } cases[] = {
        {"_vrErrorDomain", 3, true},                // itself
        {"_vrErrorDomain", 7, true},                // one level down
        {"AVFoundationErrorDomain", -11807, true},  // two levels down, a platform error
        {"Other", 1, true},
        {"AVFoundationErrorDomain", -11800, false},
        {"_vrErrorDomain", 12, false},
        {"Other", 3, false},  // code of one error, domain of another
    };
    for (const auto& c : cases) {
        EXPECT_EQ(job->matchesDomain(c.domain, c.code), c.expected) << c.domain << " " << c.code;
    }
}

// The batch run acts on the code of the error itself: a limit failure wrapped in another error
// is no offer of a correction, and a 5 of another domain is no limit failure.
TEST(VRError, HasCodeLooksAtTheErrorItselfAndItsDomain) {
    auto limit = VRError::errorWithCode(VRErrorCode::sizeLimitExceeded);
    auto wrapped = VRError::errorWithCodeUnderlyingErrors(VRErrorCode::encodeFailed, {limit});
    VRError foreign("Elsewhere", 5);
    struct Case {
        const char* what;
        const VRError& error;
        VRErrorCode code;
        bool expected;
    } cases[] = {
        {"its own code", *limit, VRErrorCode::sizeLimitExceeded, true},
        {"another code", *limit, VRErrorCode::saveFailed, false},
        {"a wrapped error's code", *wrapped, VRErrorCode::sizeLimitExceeded, false},
        {"the wrapper's code", *wrapped, VRErrorCode::encodeFailed, true},
        {"the same number in another domain", foreign, VRErrorCode::sizeLimitExceeded, false},
    };
    for (const auto& c : cases) EXPECT_EQ(c.error.hasCode(c.code), c.expected) << c.what;
    // The numbers are what reports and logs show.
    EXPECT_EQ(limit->code(), 5);
    EXPECT_EQ(VRError::errorWithCode(VRErrorCode::diskFull)->code(), 17);
}
