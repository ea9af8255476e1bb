#include <gtest/gtest.h>

#include "core/VRProcessor.h"
#include "platform/AVError.h"

namespace {

// How a video job's ending reaches the asset: a full disk at any depth is code 17, any other
// failure code 3, both with the details; a movie without video code 1 without them; a cancel
// or a success no error.
TEST(VideoStage, JobEndingsBecomeCodes) {
    const auto diskFull = platform::avError(AVErrorDiskFull, "full");
    const auto wrapped = VRError::errorWithCodeUnderlyingErrors(
        VRErrorCode::startFailed,
        {VRError::errorWithCodeUnderlyingErrors(VRErrorCode::readerSetupFailed, {diskFull})});
    const auto other = platform::avError(AVErrorDecodeFailed, "bad");
    const auto sameCodeOtherDomain = platform::Error::errorWithDomain("Elsewhere", AVErrorDiskFull);
    struct Case {
        const char* name;
        VRVideoResizeStatus state;
        platform::ErrorRef error;
        std::optional<std::int64_t> code;
        bool details;
    };
    const Case cases[] = {
        {"full disk", VRVideoResizeStatus::failed, diskFull, 17, true},
        {"full disk two levels down", VRVideoResizeStatus::failed, wrapped, 17, true},
        {"other failure", VRVideoResizeStatus::failed, other, 3, true},
        {"same code, other domain", VRVideoResizeStatus::failed, sameCodeOtherDomain, 3, true},
        {"failure without error", VRVideoResizeStatus::failed, nullptr, 3, true},
        {"no video track", VRVideoResizeStatus::trackNotFound, nullptr, 1, false},
        {"cancelled", VRVideoResizeStatus::cancelled, nullptr, std::nullopt, false},
        {"finished", VRVideoResizeStatus::finished, nullptr, std::nullopt, false},
    };
    for (const Case& c : cases) {
        int asked = 0;
        VRErrorRef error = VRProcessor::_videoJobError(c.state, c.error, [&] {
            ++asked;
            return platform::PlistDictionary{{"Operation", "Encode"}};
        });
        ASSERT_EQ(error != nullptr, c.code.has_value()) << c.name;
        if (!error) continue;
        EXPECT_EQ(error->domain(), VRErrorDomain) << c.name;
        EXPECT_EQ(error->code(), *c.code) << c.name;
        EXPECT_EQ(error->userInfo().count("Operation") == 1, c.details) << c.name;
        EXPECT_EQ(asked, c.details ? 1 : 0) << c.name;
    }
}

}  // namespace
