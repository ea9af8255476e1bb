#include "video/VRVideoMixer.h"

#include <gtest/gtest.h>

#include "core/VRError.h"
#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/MediaTestSupport.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

namespace {

using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using platform::FileManager;

struct MixResult {
    std::optional<std::string> url;
    std::optional<VRVideoResizeStatus> status;
    platform::ErrorRef error;
    int completions = 0;
    bool onMainThread = false;
};

MixResult mix(const std::shared_ptr<VRVideoMixer>& mixer) {
    MixResult result;
    mixer->mixWithCompletion([&](const std::optional<std::string>& url, VRVideoResizeStatus status,
                                 const platform::ErrorRef& e) {
        result.url = url;
        result.status = status;
        result.error = e;
        result.onMainThread = platform::MainRunLoop::isMainThread();
        ++result.completions;
    });
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return result.completions > 0; },
                                                std::chrono::seconds(60)));
    platform::MainRunLoop::runUntil([] { return false; }, std::chrono::milliseconds(200));
    return result;
}

std::string packets(const std::string& path, const char* stream) {
    std::string out;
    testing_support::runCommand("ffmpeg -v error -i '" + path + "' -map 0:" + stream +
                                    " -c copy -f framemd5 - 2>&1 | grep -v '^#'",
                                &out);
    return out;
}

std::vector<std::string> temporaryVideos() {
    return FileManager::contentsOfDirectoryAtPath(
               VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory()))
        .value_or(std::vector<std::string>{});
}

class VRVideoMixerMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        source = makeMovie(home, "live.mov",
                           "-f lavfi -i testsrc2=size=64x36:rate=25 -f lavfi -i "
                           "sine=sample_rate=48000 -t 0.4 -c:v libx264 -pix_fmt yuv420p -c:a aac "
                           "-metadata encoder=Other -timecode 01:00:00:00");
        ASSERT_FALSE(source.empty());
    }
    testing_support::TestHome home;
    std::string source;
};

// Without a processed video, or with one whose file has gone, the result is a passthrough copy
// of the source (every packet identical) with the rebuilt metadata, named after the video URL
// without "-vid" or after the identifier.
TEST_F(VRVideoMixerMedia, PassthroughCopyWithRebuiltMetadata) {
    struct Case {
        std::optional<std::string> videoURL;
        const char* name;
    };
    const Case cases[] = {{std::nullopt, "IMG_7.mov"}, {home.path("IMG_8-vid.mov"), "IMG_8.mov"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto mixer =
            VRVideoMixer::mixerWithAVAsset(AVAsset::assetWithURL(source), c.videoURL, "IMG_7");
        MixResult r = mix(mixer);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished)
            << (r.error ? r.error->description() : "");
        EXPECT_EQ(r.completions, 1);
        EXPECT_TRUE(r.onMainThread);
        EXPECT_FALSE(r.error);
        ASSERT_TRUE(r.url);
        EXPECT_EQ(FileManager::lastPathComponent(*r.url), c.name);
        for (const char* stream : {"v", "a"})
            EXPECT_EQ(packets(*r.url, stream), packets(source, stream));
        EXPECT_TRUE(has(probe(*r.url, "-show_entries stream=codec_tag_string"), "tmcd"));
        EXPECT_TRUE(
            has(probe(*r.url, "-show_entries format_tags"), "encoder=" + VXHelper::appFullName()));
    }
}

// A processed video file gives the video, the source the rest.
TEST_F(VRVideoMixerMedia, ProcessedVideoReplacesTheSourcesVideo) {
    const std::string processed =
        makeMovie(home, "IMG_9-vid.mov",
                  "-f lavfi -i testsrc2=size=96x36:rate=25 -t 0.4 -c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(processed.empty());
    auto mixer = VRVideoMixer::mixerWithAVAsset(AVAsset::assetWithURL(source), processed, "x");
    MixResult r = mix(mixer);
    ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << (r.error ? r.error->description() : "");
    EXPECT_EQ(packets(*r.url, "v"), packets(processed, "v"));
    EXPECT_EQ(packets(*r.url, "a"), packets(source, "a"));
    EXPECT_TRUE(has(probe(*r.url, "-show_entries stream=width"), "width=96"));
}

// A track the output format refuses (timecode in MP4) fails the mix; the repair of the
// non-video tracks runs once, fails the same way, and the two errors come back joined with
// nothing left behind.
TEST_F(VRVideoMixerMedia, FailedMixRepairsOnceAndJoinsTheErrors) {
    auto mixer = VRVideoMixer::mixerWithAVAsset(AVAsset::assetWithURL(source), std::nullopt, "y");
    mixer->setOutputFormat(VRFormat::formatWithType(VRFormatTypeMP4));
    MixResult r = mix(mixer);
    EXPECT_EQ(r.status, VRVideoResizeStatus::failed);
    EXPECT_EQ(r.completions, 1);
    EXPECT_FALSE(r.url);
    auto error = std::dynamic_pointer_cast<const VRError>(r.error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 14);
    ASSERT_EQ(error->underlyingErrors().size(), 2u) << error->description();
    EXPECT_EQ(error->underlyingErrors()[0]->code(), 13);
    EXPECT_EQ(error->underlyingErrors()[1]->code(), 18);
    EXPECT_FALSE(mixer->fixedURL());
    EXPECT_TRUE(temporaryVideos().empty());
}

}  // namespace
