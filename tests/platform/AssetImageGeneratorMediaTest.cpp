// The picture of a movie at a time: the frame chosen and its pixels agree with what a reader
// asked for BGRA gives for the same time, whatever layout the generator reads the frames in.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/AVAsset.h"
#include "platform/AVAssetImageGenerator.h"
#include "platform/AVAssetReader.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/CVPixelBuffer.h"
#include "platform/MediaTestSupport.h"

using media_test::makeMovie;
using platform::Bitmap;
using platform::PlistDictionary;
using platform::PlistValue;
using testing_support::TestHome;

namespace {

struct Reference {
    CMTime time = kCMTimeInvalid;
    std::size_t width = 0, height = 0;
    std::vector<std::uint8_t> rgb;  // 3 bytes a pixel
};

// Every frame decoded as BGRA by the reader, the first at or after `requested` kept (the last
// when none is): the frame and pixels a picture at that time must show.
Reference referenceFrame(const std::string& path, CMTime requested) {
    Reference out;
    auto asset = AVAsset::assetWithURL(path);
    auto tracks = asset->loadTracksWithMediaType(AVMediaTypeVideo);
    if (!tracks || tracks.value().empty()) return out;
    platform::ErrorRef error;
    auto reader = AVAssetReader::assetReaderWithAsset(asset, &error);
    PlistDictionary settings;
    settings[kCVPixelBufferPixelFormatTypeKey] =
        PlistValue(static_cast<std::int64_t>(kCVPixelFormatType_32BGRA));
    auto output =
        AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(tracks.value().front(), settings);
    reader->addOutput(output);
    if (!reader->startReading()) return out;
    CMSampleBufferRef chosen;
    while (auto sample = output->copyNextSampleBuffer()) {
        chosen = sample;
        if (!CMTIME_IS_NUMERIC(requested) ||
            CMTimeCompare(CMSampleBufferGetPresentationTimeStamp(sample), requested) >= 0)
            break;
    }
    reader->cancelReading();
    if (!chosen) return out;
    out.time = CMSampleBufferGetPresentationTimeStamp(chosen);
    const CVPixelBufferRef buffer = CMSampleBufferGetImageBuffer(chosen);
    out.width = buffer->width();
    out.height = buffer->height();
    for (std::size_t y = 0; y < out.height; ++y) {
        const auto* row =
            static_cast<const std::uint8_t*>(buffer->baseAddress()) + y * buffer->bytesPerRow();
        for (std::size_t x = 0; x < out.width; ++x) {
            out.rgb.push_back(row[4 * x + 2]);
            out.rgb.push_back(row[4 * x + 1]);
            out.rgb.push_back(row[4 * x]);
        }
    }
    return out;
}

// The largest difference of a sample between the picture and the reference.
int largestDifference(const Bitmap& image, const Reference& reference) {
    int largest = 0;
    for (std::size_t y = 0; y < reference.height; ++y) {
        const std::uint8_t* row = image.row(y);
        for (std::size_t x = 0; x < reference.width; ++x) {
            for (std::size_t c = 0; c < 3; ++c) {
                const int d = std::abs(int(row[4 * x + c]) -
                                       int(reference.rgb[(y * reference.width + x) * 3 + c]));
                largest = std::max(largest, d);
            }
        }
    }
    return largest;
}

TEST(AssetImageGeneratorMedia, PictureIsTheFrameAndPixelsOfABGRAReader) {
    TestHome home;
    const std::string moving =
        "-f lavfi -i testsrc2=size=192x108:rate=10:duration=2 -vf "
        "\"drawbox=x='mod(t*400,160)':y=20:w=30:h=30:c=yellow:t=fill\" ";
    struct Row {
        const char* what;
        const char* name;
        std::string arguments;
        int tolerance;  // in 8-bit steps
    } rows[] = {
        {"8-bit video range, BT.709", "h264.mp4",
         moving + "-pix_fmt yuv420p -colorspace bt709 -c:v libx264 -bf 2", 0},
        {"8-bit full range", "full.mp4", moving + "-pix_fmt yuvj420p -color_range pc -c:v libx264",
         0},
        {"8-bit BT.601", "601.mp4", moving + "-pix_fmt yuv420p -colorspace bt470bg -c:v libx264",
         0},
        {"untagged odd size", "odd.mp4",
         "-f lavfi -i testsrc2=size=191x107:rate=10:duration=2 -pix_fmt yuv420p -c:v libx264", 0},
        // The reader delivers 10-bit frames with the samples in the high bits: the same values.
        {"10-bit HEVC", "hevc.mp4",
         moving + "-pix_fmt yuv420p10le -c:v libx265 -x265-params log-level=error", 1},
        // No 4:2:0 layout: the reader converts to BGRA itself, as before.
        {"4:2:2 ProRes", "prores.mov", moving + "-pix_fmt yuv422p10le -c:v prores_ks", 0},
    };
    const CMTime times[] = {CMTimeMakeWithSeconds(0.55, 600), CMTimeMakeWithSeconds(1.0, 600),
                            CMTimeMakeWithSeconds(60, 600), kCMTimeInvalid};
    for (const Row& row : rows) {
        const std::string path = makeMovie(home, row.name, row.arguments);
        ASSERT_FALSE(path.empty()) << row.what;
        auto generator =
            AVAssetImageGenerator::assetImageGeneratorWithAsset(AVAsset::assetWithURL(path));
        for (const CMTime& time : times) {
            SCOPED_TRACE(std::string(row.what) + " at " +
                         std::to_string(CMTIME_IS_NUMERIC(time) ? CMTimeGetSeconds(time) : -1));
            const Reference reference = referenceFrame(path, time);
            ASSERT_TRUE(CMTIME_IS_NUMERIC(reference.time));
            CMTime actual = kCMTimeInvalid;
            platform::ErrorRef error;
            auto image = generator->copyCGImageAtTime(time, &actual, &error);
            ASSERT_TRUE(image.has_value());
            EXPECT_EQ(CMTimeCompare(actual, reference.time), 0);
            ASSERT_EQ(image->width(), reference.width);
            ASSERT_EQ(image->height(), reference.height);
            EXPECT_LE(largestDifference(*image, reference), row.tolerance);
        }
    }
}

// With a tolerance window the picture is the first sync frame shown inside it, decoded alone,
// with the pixels a reader gives for that frame; with no sync frame in the window it is the
// exact frame. Sync frames every second, reordered frames between them.
TEST(AssetImageGeneratorMedia, AWindowTakesTheFirstSyncFrameInIt) {
    TestHome home;
    const std::string path = makeMovie(
        home, "gop.mp4",
        "-f lavfi -i testsrc2=size=96x64:rate=10:duration=3 -pix_fmt yuv420p -c:v libx264 "
        "-bf 2 -g 10 -sc_threshold 0");
    ASSERT_FALSE(path.empty());
    const CMTime forever = kCMTimePositiveInfinity;
    struct Row {
        double requested;
        CMTime before, after;
        double expected;
    } rows[] = {
        {0.35, kCMTimeZero, forever, 1.0},
        {1.0, kCMTimeZero, forever, 1.0},
        {0.35, kCMTimeZero, CMTimeMake(1, 2), 0.4},  // no sync frame up to 0.85 s
        {0.35, CMTimeMake(1, 2), kCMTimeZero, 0.0},  // the first frame lies inside
        {1.35, CMTimeMake(1, 2), CMTimeMake(1, 2), 1.0},
        {2.35, kCMTimeZero, forever, 2.4},  // none after the last sync frame
        {0.35, kCMTimeZero, kCMTimeZero, 0.4},
        {60, kCMTimeZero, forever, 2.9},  // beyond the end: the last frame
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("at " + std::to_string(row.requested) + " expecting " +
                     std::to_string(row.expected));
        auto generator =
            AVAssetImageGenerator::assetImageGeneratorWithAsset(AVAsset::assetWithURL(path));
        generator->setRequestedTimeToleranceBefore(row.before);
        generator->setRequestedTimeToleranceAfter(row.after);
        CMTime actual = kCMTimeInvalid;
        auto image = generator->copyCGImageAtTime(CMTimeMakeWithSeconds(row.requested, 600),
                                                  &actual, nullptr);
        ASSERT_TRUE(image.has_value());
        EXPECT_NEAR(CMTimeGetSeconds(actual), row.expected, 1e-6);
        const Reference reference = referenceFrame(path, actual);
        ASSERT_EQ(CMTimeCompare(reference.time, actual), 0);
        EXPECT_EQ(largestDifference(*image, reference), 0);
    }
}

}  // namespace
