#include <gtest/gtest.h>

#include "model/VRSizeResolver.h"
#include "platform/FileManager.h"
#include "storage/VXHelperFiles.h"
#include "video/VideoJobSupport.h"

namespace {

using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using platform::FileManager;
using video_test::describe;
using video_test::JobResult;
using video_test::runJob;

std::string tempVideoDirectory() {
    return FileManager::stringByAppendingPathComponent(VXHelper::documentDirectory(),
                                                       "_vrtempvideodir");
}

std::vector<std::string> leftovers() {
    return FileManager::contentsOfDirectoryAtPath(tempVideoDirectory()).value_or(
        std::vector<std::string>{});
}

std::string framemd5(const std::string& path, const char* stream) {
    std::string out;
    testing_support::runCommand("ffmpeg -v error -i '" + path + "' -map 0:" + stream +
                                    " -c copy -f framemd5 - 2>&1 | grep -v '^#'",
                                &out);
    return out;
}

VRVideoResizeOptions optionsFor(const VRResolvedOutput& resolved) {
    VRVideoResizeOptions options;
    options.fileFormat = resolved.format;
    options.imageFrame = resolved.imageFrame;
    options.imageArrangement = resolved.arrangement;
    options.fillColor = resolved.fillColor;
    return options;
}

// Typical templates resolved for one anamorphic clip with sound and timecode: the movie comes
// out at exactly the resolved size, always even, with square pixels, the sound packets
// identical to the source's and the timecode track kept.
TEST(VRVideoResizerMedia, CatalogueSizesAreExactEvenAndSquareWithTracksCopied) {
    testing_support::TestHome home;
    const std::string source = makeMovie(
        home, "clip.mov",
        "-f lavfi -i testsrc2=size=150x84:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 "
        "-t 0.4 -c:v libx264 -pix_fmt yuv420p -vf setsar=4/3 -c:a aac -b:a 64k "
        "-timecode 01:00:00:00");
    ASSERT_FALSE(source.empty());
    const std::string sourceSound = framemd5(source, "a");
    ASSERT_GT(sourceSound.size(), 100u);

    struct Case {
        const char* name;
        VRSizeEntry entry;
        VRSizeOptions options;
        CGSize expected;
    };
    const Case cases[] = {
        {"uw-133", VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent),
         {VRSizeOptionStretch, VRSizeOptionSmart}, {200, 84}},
        {"uw-200", VRSizeEntry::sizeEntryWithWidth(200, 100, VRSizeTypePercent),
         {VRSizeOptionStretch, VRSizeOptionSmart}, {300, 84}},
        {"square clip", VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioDown),
         {VRSizeOptionRatioClip, VRSizeOptionNormal}, {84, 84}},
        {"px fit", VRSizeEntry::sizeEntryWithWidth(101, 0, VRSizeTypePixels),
         {VRSizeOptionRatioFit, VRSizeOptionNormal}, {102, 56}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VRResolveRequest request;
        request.mediaType = VRFormatMediaTypeVideo;
        request.sizeEntry = c.entry;
        request.options = c.options;
        request.format = VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypeVideo);
        request.sourceSize = {150, 84};
        request.sourcePath = source;
        request.limits = VRDeviceLimits::currentDevice();
        const VRResolvedOutput resolved = VXHelper::resolveOutput(request);
        ASSERT_FALSE(resolved.limitExceeded);
        EXPECT_EQ(resolved.outputSize, c.expected);

        JobResult r = runJob(source, c.name, optionsFor(resolved));
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        ASSERT_TRUE(r.url);
        EXPECT_EQ(FileManager::pathExtension(*r.url), "mov");
        EXPECT_EQ(r.completions, 1);
        const std::string video = probe(*r.url, "-select_streams v:0 -show_streams");
        const std::string size = "width=" + std::to_string(int(c.expected.width)) +
                                 "\nheight=" + std::to_string(int(c.expected.height));
        EXPECT_TRUE(has(video, size)) << video;
        EXPECT_TRUE(has(video, "sample_aspect_ratio=1:1")) << video;
        EXPECT_EQ(framemd5(*r.url, "a"), sourceSound);
        const std::string streams = probe(*r.url, "-show_entries stream=codec_tag_string");
        EXPECT_TRUE(has(streams, "codec_tag_string=tmcd")) << streams;
        ASSERT_FALSE(r.fractions.empty());
        for (double f : r.fractions) EXPECT_LE(f, 1.0);
        EXPECT_DOUBLE_EQ(r.fractions.back(), 1.0);
    }
}

// A movie without video ends trackNotFound with no error, and leaves nothing behind, also not
// the earlier file of the same name that it replaced.
TEST(VRVideoResizerMedia, AudioOnlyEndsTrackNotFoundWithNothingLeft) {
    testing_support::TestHome home;
    const std::string source =
        makeMovie(home, "sound.m4a", "-f lavfi -i sine=sample_rate=48000 -t 0.3 -c:a aac");
    ASSERT_FALSE(source.empty());
    ASSERT_TRUE(FileManager::createDirectoryAtPath(tempVideoDirectory(), true));
    ASSERT_TRUE(FileManager::writeDataAtomically(platform::PlistData(10, 'x'),
                                                 tempVideoDirectory() + "/sound.mov", nullptr));
    JobResult r = runJob(source, "sound", VRVideoResizeOptions{});
    EXPECT_EQ(r.status, VRVideoResizeStatus::trackNotFound) << describe(r);
    EXPECT_FALSE(r.error);
    EXPECT_FALSE(r.url);
    EXPECT_EQ(r.completions, 1);
    EXPECT_TRUE(leftovers().empty());
}

}  // namespace
