#include "core/VRError.h"

#include <gtest/gtest.h>

using platform::Error;

TEST(VRError, DescriptionWithAndWithoutWrappedErrors) {
    auto plain = VRError::errorWithCode(2);
    EXPECT_EQ(plain->domain(), "_vrErrorDomain");
    EXPECT_EQ(plain->code(), 2);
    EXPECT_EQ(plain->description(), plain->platform::Error::description());

    // An empty list of wrapped errors shows the base description.
    auto empty = VRError::errorWithCodeUnderlyingErrors(7, {});
    EXPECT_EQ(empty->description(), empty->platform::Error::description());

    auto reader = Error::errorWithDomain("AVFoundationErrorDomain", -11800);
    auto writer = Error::errorWithDomain("NSOSStatusErrorDomain", -12900);
    auto wrapped = VRError::errorWithCodeUnderlyingErrors(12, {reader, writer});
    EXPECT_EQ(wrapped->description(), "Error Domain=_vrErrorDomain Code=12 UnderlyingErrors=[" +
                                          reader->description() + "]; [" + writer->description() +
                                          "]");
    auto withMissing = VRError::errorWithCodeUnderlyingErrors(13, {nullptr, reader});
    EXPECT_EQ(withMissing->description(),
              "Error Domain=_vrErrorDomain Code=13 UnderlyingErrors=[None]; [" +
                  reader->description() + "]");
}

TEST(VRError, MatchesDomainAndCodeAtAnyDepth) {
    auto disk = Error::errorWithDomain("AVFoundationErrorDomain", -11807);
    auto setup =
        VRError::errorWithCodeUnderlyingErrors(7, {Error::errorWithDomain("Other", 1), disk});
    auto job = VRError::errorWithCodeUnderlyingErrors(3, {setup});

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
