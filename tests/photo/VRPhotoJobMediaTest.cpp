// The photo stage on its own, with a host standing in for the processor: what it asks of the
// host, where it stops, and that it writes with the settings it was handed.
#include "photo/VRPhotoJob.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "photo/PhotoSupport.h"

using namespace photo_test;
using testing_support::TestHome;

namespace {

// Answers "stale" from its `staleFrom`-th question on (0: never).
class FakeHost final : public VRPhotoStageHost {
  public:
    int staleFrom = 0;
    mutable int questions = 0;
    mutable double askedStartTime = 0;
    mutable std::string namedAsset;

    bool _isProcessingStartTimeInvalid(double startTime) const override {
        askedStartTime = startTime;
        ++questions;
        return staleFrom > 0 && questions >= staleFrom;
    }
    std::string _filenameOfAsset(const VRAsset& asset) const override {
        namedAsset = asset.originalFilename();
        return "job-result";
    }
};

struct Outcome {
    int calls = 0;
    std::optional<std::string> url;
    std::optional<CGSize> size;
    VRErrorRef error;
};

std::vector<std::uint8_t> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

TEST(VRPhotoJobMedia, AsksItsHostAndStopsWhereTheRunBecameStale) {
    TestHome home;
    const std::string source = quadrants(home, "IMG_7.jpg", 80, 60);
    struct Case {
        const char* what;
        bool withBytes;
        int staleFrom;
        int questions;      // checkpoints reached
        std::int64_t code;  // 0: no error
        bool written;
    } cases[] = {
        {"no bytes: code 1 before any checkpoint", false, 0, 0, 1, false},
        {"stale before drawing", true, 1, 1, 0, false},
        {"stale before writing", true, 2, 2, 0, false},
        {"current throughout", true, 0, 2, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FakeHost host;
        host.staleFrom = c.staleFrom;
        Outcome outcome;
        VRPhotoJob job;
        job.host = &host;
        job.asset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(source));
        job.tpl = makeTemplate(50, 50, VRSizeTypePercent, {VRSizeOptionNormal, VRSizeOptionStretch},
                               VRFormatTypeJPEG);
        job.adjustState = std::make_shared<VRAdjustAssetState>();
        job.startTime = 42.5;
        job.settings.metadata.software = "Handed In 3.1";
        job.completion = [&outcome](std::optional<std::string> url, VRFormatMediaType type,
                                    std::optional<CGSize> size, VRErrorRef error) {
            ++outcome.calls;
            EXPECT_EQ(type, VRFormatMediaTypePhoto);
            outcome.url = std::move(url);
            outcome.size = size;
            outcome.error = std::move(error);
        };
        job.processImageData(c.withBytes ? std::optional(bytesOf(source)) : std::nullopt,
                             "public.jpeg");

        EXPECT_EQ(outcome.calls, 1);
        EXPECT_EQ(host.namedAsset, "IMG_7.jpg");
        EXPECT_EQ(host.questions, c.questions);
        if (c.questions > 0) {
            EXPECT_EQ(host.askedStartTime, 42.5);
        }
        EXPECT_EQ(outcome.error ? outcome.error->code() : 0, c.code);
        EXPECT_EQ(outcome.url.has_value(), c.written);
        if (!c.written) {
            EXPECT_TRUE(documents(home).empty());
            continue;
        }
        ASSERT_TRUE(outcome.url);
        EXPECT_EQ(std::filesystem::path(*outcome.url).filename(), "job-result.jpg");
        EXPECT_EQ(outcome.size, (CGSize{40, 30}));
        EXPECT_EQ(vipsSize(*outcome.url), "40x30");
        // The metadata rewrite takes the handed settings, not the stored ones.
        EXPECT_EQ(exif(*outcome.url)["IFD0:Software"], "Handed In 3.1");
        std::filesystem::remove(*outcome.url);
    }
}
