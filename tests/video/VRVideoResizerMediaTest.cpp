#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "model/VRSizeResolver.h"
#include "model/VXHelperDevice.h"
#include "platform/AVError.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"
#include "video/VideoJobSupport.h"

namespace {

using media_test::framemd5;
using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using platform::FileManager;
using video_test::describe;
using video_test::JobResult;
using video_test::runJob;

// This process's own folder of temporary videos.
std::string tempVideoDirectory() {
    return VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
}

std::vector<std::string> leftovers() {
    return FileManager::contentsOfDirectoryAtPath(tempVideoDirectory())
        .value_or(std::vector<std::string>{});
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
        {"uw-133",
         VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent),
         {VRSizeOptionStretch, VRSizeOptionSmart},
         {200, 84}},
        {"square clip",
         VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioDown),
         {VRSizeOptionRatioClip, VRSizeOptionNormal},
         {84, 84}},
        {"px fit",
         VRSizeEntry::sizeEntryWithWidth(101, 0, VRSizeTypePixels),
         {VRSizeOptionRatioFit, VRSizeOptionNormal},
         {102, 56}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VRResolveRequest request;
        request.mediaType = VRFormatMediaTypeVideo;
        request.sizeEntry = c.entry;
        request.options = c.options;
        request.format =
            VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypeVideo);
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

// A movie without video ends trackNotFound with no error, and leaves nothing behind, not even
// its own folder; an earlier file of the same name is no job's output and stays.
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
    EXPECT_EQ(leftovers(), std::vector<std::string>{"sound.mov"});
}

// 10-bit HLG stays 10-bit HEVC with its three tags when the codec follows the source; with
// H.264 the BT.2020 matrix fails the colour test and all three tags fall back to BT.709, and
// the picture becomes 8-bit 4:2:0 High profile, which every player decodes (not High 10).
TEST(VRVideoResizerMedia, HighBitDepthKeepsTagsWhereTheCodecAllows) {
    testing_support::TestHome home;
    const std::string source = makeMovie(
        home, "hlg.mov",
        "-f lavfi -i testsrc2=size=64x36:rate=25 -t 0.2 -c:v libx265 -x265-params log-level=none "
        "-pix_fmt yuv420p10le -color_primaries bt2020 -color_trc arib-std-b67 -colorspace bt2020nc "
        "-tag:v hvc1");
    ASSERT_FALSE(source.empty());
    struct Case {
        VRCodecType codecType;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {VRCodecTypeSource,
         {"codec_name=hevc\n", "pix_fmt=yuv420p10le\n",
          "color_space=bt2020nc\ncolor_transfer=arib-std-b67\ncolor_primaries=bt2020"}},
        {VRCodecTypeH264,
         {"codec_name=h264\n", "profile=High\n", "pix_fmt=yuv420p\n",
          "color_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.codecType);
        VRVideoResizeOptions options;
        options.imageFrame = {{0, 0}, {96, 36}};
        options.codecType = c.codecType;
        JobResult r = runJob(source, "hlg", options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::string video = probe(*r.url, "-select_streams v:0 -show_streams");
        for (const std::string& part : c.expected) EXPECT_TRUE(has(video, part)) << part << video;
        EXPECT_TRUE(has(video, "width=96\nheight=36")) << video;
    }
}

// The source's display matrix and the user's turns add up in the output's matrix, the frame
// keeping its stored orientation. The source is turned a quarter counterclockwise (ffprobe's
// rotation 90, as ffmpeg's own autorotation shows it); the user's turns are clockwise.
TEST(VRVideoResizerMedia, RotatedSourceCombinesItsMatrixWithTheUsersTurn) {
    testing_support::TestHome home;
    const std::string plain = makeMovie(home, "plain.mov",
                                        "-f lavfi -i testsrc2=size=64x36:rate=25 -t 0.2 "
                                        "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(plain.empty());
    const std::string source =
        makeMovie(home, "turned.mov", "-i '" + plain + "' -c copy -metadata:s:v:0 rotate=90");
    ASSERT_FALSE(source.empty());
    ASSERT_TRUE(has(probe(source, "-show_entries stream_side_data"), "rotation=90"));

    struct Case {
        std::int64_t userTurns;
        const char* rotation;  // ffprobe's, counterclockwise; empty for no matrix
    };
    for (const Case c : {Case{1, ""}, Case{3, "rotation=180"}}) {
        SCOPED_TRACE(c.userTurns);
        VRVideoResizeOptions options;
        options.imageFrame = {{0, 0}, {64, 36}};
        options.orientation = VROrientation::orientationWithFlipedX(false, false, c.userTurns);
        JobResult r = runJob(source, "turned", options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::string side = probe(*r.url, "-show_entries stream_side_data");
        if (*c.rotation) {
            EXPECT_TRUE(has(side, c.rotation) ||
                        (std::string(c.rotation) == "rotation=180" && has(side, "rotation=-180")))
                << side;
        } else {
            EXPECT_FALSE(has(side, "rotation")) << side;
        }
        EXPECT_TRUE(has(probe(*r.url, "-show_entries stream=width,height"), "width=64\nheight=36"));
    }
}

// Fit bars carry the fill colour's computed Y, Cb and Cr (white on 8-bit video range: Y 235),
// and the picture sits between them on the 2-pixel grid.
TEST(VRVideoResizerMedia, FitBarsHaveTheFillColour) {
    testing_support::TestHome home;
    const std::string source = makeMovie(home, "black.mov",
                                         "-f lavfi -i color=c=black:size=160x90:rate=25 -t 0.2 "
                                         "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(source.empty());
    VRVideoResizeOptions options;
    options.imageFrame = {{0, 0}, {96, 96}};
    options.imageArrangement = VRImageArrangement::fit;
    options.fillColor = VRColor::whiteColor();
    options.bitrate = 20'000'000;
    JobResult r = runJob(source, "bars", options);
    ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
    const auto frame = video_test::rawFrame(*r.url, "yuv420p");
    ASSERT_EQ(frame.size(), 96u * 96 * 3 / 2);
    auto luma = [&](int x, int y) { return int(frame[y * 96 + x]); };
    auto cb = [&](int x, int y) { return int(frame[96 * 96 + y * 48 + x]); };
    auto cr = [&](int x, int y) { return int(frame[96 * 96 + 48 * 48 + y * 48 + x]); };
    // The picture is 96 x 52 at row 22: bars of 22 rows above and below.
    for (int y : {0, 8, 15, 80, 88, 95}) {
        for (int x : {0, 47, 95}) EXPECT_NEAR(luma(x, y), 235, 1) << x << "," << y;
    }
    for (int y : {30, 48, 64}) EXPECT_NEAR(luma(48, y), 16, 1) << y;
    EXPECT_GT(luma(48, 20), 200);
    EXPECT_LT(luma(48, 23), 50);
    EXPECT_LT(luma(48, 72), 50);
    EXPECT_GT(luma(48, 75), 200);
    EXPECT_NEAR(cb(24, 2), 128, 1);
    EXPECT_NEAR(cr(24, 2), 128, 1);
}

// With arrangement fill a shift of the picture to the right moves the crop window to the left
// in the source: the edge between a black left half and a white right half moves right.
TEST(VRVideoResizerMedia, ShiftMovesTheCropWindowTheRightWay) {
    testing_support::TestHome home;
    const std::string source =
        makeMovie(home, "halves.mov",
                  "-f lavfi -i color=c=black:size=200x100:rate=25 -t 0.2 -vf "
                  "drawbox=x=100:y=0:w=100:h=100:color=white:t=fill -c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(source.empty());
    struct Case {
        double shift;
        int edge;
    };
    for (const Case c : {Case{0, 50}, Case{20, 70}, Case{500, 100}}) {
        SCOPED_TRACE(c.shift);
        VRVideoResizeOptions options;
        options.imageFrame = {{c.shift, 0}, {100, 100}};
        options.imageArrangement = VRImageArrangement::fill;
        JobResult r = runJob(source, "shift", options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const auto frame = video_test::rawFrame(*r.url, "gray");
        ASSERT_EQ(frame.size(), 100u * 100);
        if (c.edge >= 4) {
            EXPECT_LT(frame[50 * 100 + c.edge - 4], 60);
        }
        if (c.edge <= 96) {
            EXPECT_GT(frame[50 * 100 + c.edge + 3], 190);
        }
    }
}

// A cancel while the frames are running ends the job cancelled, once, with the partial file
// removed.
TEST(VRVideoResizerMedia, CancelMidTrackRemovesThePartialFileAndReportsOnce) {
    testing_support::TestHome home;
    const std::string source = makeMovie(home, "long.mov",
                                         "-f lavfi -i testsrc2=size=320x180:rate=25 -t 3 "
                                         "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(source.empty());
    VRVideoResizeOptions options;
    options.imageFrame = {{0, 0}, {320, 180}};
    auto resizer =
        VRVideoResizer2::resizerWithAsset(AVAsset::assetWithURL(source), "long", options);
    video_test::JobWaiter waiter;
    std::atomic<int> frames{0};
    resizer->resize(
        [&](double) {
            if (++frames == 3) resizer->cancel();
        },
        waiter.completion());
    waiter.wait();
    JobResult r = waiter.settle();
    EXPECT_EQ(r.status, VRVideoResizeStatus::cancelled) << describe(r);
    EXPECT_EQ(r.completions, 1);
    EXPECT_FALSE(r.error);
    EXPECT_LT(frames.load(), 75);
    EXPECT_TRUE(leftovers().empty());
}

// The movie's metadata after the rules: the capture date kept, the program stamped as the
// software, and every location item gone when the video's location is not to be copied.
TEST(VRVideoResizerMedia, MetadataRulesReadBack) {
    testing_support::TestHome home;
    const std::string source =
        makeMovie(home, "tagged.mov",
                  "-f lavfi -i testsrc2=size=64x36:rate=25 -t 0.2 -c:v libx264 -pix_fmt yuv420p "
                  "-movflags use_metadata_tags -metadata creation_time=2020-01-02T03:04:05Z "
                  "-metadata com.apple.quicktime.location.ISO6709=+48.8577+002.2950/ "
                  "-metadata com.apple.quicktime.software=Other -metadata title=Holiday");
    ASSERT_FALSE(source.empty());
    ASSERT_TRUE(has(probe(source, "-show_entries format_tags"), "location.ISO6709"));
    for (bool copy : {false, true}) {
        SCOPED_TRACE(copy);
        VRVideoResizeOptions options;
        options.imageFrame = {{0, 0}, {64, 36}};
        options.metadataOptions = VRVideoMetadataOptions{copy};
        JobResult r = runJob(source, "tagged", options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::string tags = probe(*r.url, "-show_entries format_tags");
        EXPECT_TRUE(has(tags, "creation_time=2020-01-02T03:04:05")) << tags;
        EXPECT_TRUE(has(tags, "com.apple.quicktime.software=" + VXHelper::appFullName())) << tags;
        EXPECT_TRUE(has(tags, "encoder=" + VXHelper::appFullName())) << tags;
        EXPECT_TRUE(has(tags, "title=Holiday")) << tags;
        EXPECT_EQ(has(tags, "location"), copy) << tags;
    }
}

// Damaged and unusual sources end in a status, never a crash: a truncated file and a track
// with no frames fail, a file without video ends trackNotFound, an odd-sized 4:4:4 source is
// converted and finishes at the exact size. Nothing is left behind by any that fails.
TEST(VRVideoResizerMedia, BadInputsEndInAStatus) {
    testing_support::TestHome home;
    const std::string good = makeMovie(home, "good.mov",
                                       "-f lavfi -i testsrc2=size=64x36:rate=25 -t 0.4 "
                                       "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(good.empty());
    std::ifstream in(good, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string truncated = home.path("truncated.mov");
    std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);

    // One frame, then its sample tables emptied: a video track with no frames.
    const std::string one = makeMovie(home, "one.mov",
                                      "-f lavfi -i testsrc2=size=64x36:rate=25 -frames:v 1 "
                                      "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(one.empty());
    std::ifstream oneIn(one, std::ios::binary);
    std::string oneBytes((std::istreambuf_iterator<char>(oneIn)), std::istreambuf_iterator<char>());
    for (const char* atom : {"stsz", "stts"}) {
        const std::size_t at = oneBytes.find(atom);
        ASSERT_NE(at, std::string::npos);
        const std::size_t count = at + (std::strcmp(atom, "stsz") == 0 ? 12 : 8);
        std::memset(oneBytes.data() + count, 0, 4);
    }
    const std::string empty = home.path("empty.mov");
    std::ofstream(empty, std::ios::binary) << oneBytes;

    const std::string odd = makeMovie(home, "odd.mov",
                                      "-f lavfi -i testsrc2=size=76x42:rate=25 -t 0.2 "
                                      "-vf scale=75:41 -c:v libx264 -pix_fmt yuv444p");
    ASSERT_FALSE(odd.empty());
    const std::string sound =
        makeMovie(home, "sound.mov", "-f lavfi -i sine=sample_rate=48000 -t 0.3 -c:a aac");
    ASSERT_FALSE(sound.empty());

    struct Case {
        const char* name;
        std::string path;
        VRVideoResizeStatus status;
    };
    const Case cases[] = {
        {"truncated", truncated, VRVideoResizeStatus::failed},
        {"no frames", empty, VRVideoResizeStatus::failed},
        {"no video", sound, VRVideoResizeStatus::trackNotFound},
        {"odd 4:4:4", odd, VRVideoResizeStatus::finished},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VRVideoResizeOptions options;
        options.imageFrame = {{0, 0}, {100, 54}};
        options.imageArrangement = VRImageArrangement::fit;
        JobResult r = runJob(c.path, "bad", options);
        EXPECT_EQ(r.status, c.status) << describe(r);
        EXPECT_EQ(r.completions, 1);
        if (c.status == VRVideoResizeStatus::finished) {
            EXPECT_TRUE(has(probe(*r.url, "-show_entries stream=width,height,pix_fmt"),
                            "width=100\nheight=54\npix_fmt=yuv420p"));
        } else {
            EXPECT_TRUE(leftovers().empty());
        }
    }
}

// Run in a child process under a file size limit (see the test below).
TEST(VRVideoResizerMedia, DiskFullChild) {
    const char* home = std::getenv("UNWARP_DISK_FULL_HOME");
    const char* source = std::getenv("UNWARP_DISK_FULL_SOURCE");
    if (!home || !source) GTEST_SKIP() << "runs only as the child of DiskFullFailsWithNoFileLeft";
    platform::Environment::setHomeRoot(std::string(home));
    VRVideoResizeOptions options;
    options.imageFrame = {{0, 0}, {320, 240}};
    options.bitrate = 20'000'000;
    JobResult r = runJob(source, "full", options);
    std::printf("RESULT status=%d domain=%s code=%lld left=%zu\n", static_cast<int>(r.status),
                r.error ? r.error->domain().c_str() : "-",
                r.error ? static_cast<long long>(r.error->code()) : 0LL, leftovers().size());
}

// A full disk while encoding (a file size limit stands in for it) fails the job with the
// writer's out-of-space error and removes the partial file.
TEST(VRVideoResizerMedia, DiskFullFailsWithNoFileLeft) {
    testing_support::TestHome home;
    const std::string source = media_test::makeNoiseMovie(home);
    ASSERT_FALSE(source.empty());
    const std::string output = media_test::runUnderFileSizeLimit(
        "UNWARP_DISK_FULL_HOME='" + home.root() + "' UNWARP_DISK_FULL_SOURCE='" + source + "'",
        "VRVideoResizerMedia.DiskFullChild");
    EXPECT_TRUE(has(output, "RESULT status=1 domain=AVFoundationErrorDomain code=-11807 left=0"))
        << output;
}

}  // namespace
