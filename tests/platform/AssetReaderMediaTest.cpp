#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "platform/AVAsset.h"
#include "platform/AVAssetReader.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/MediaTestSupport.h"

namespace {

using media_test::makeMovie;
using platform::PlistArray;
using platform::PlistDictionary;

PlistDictionary allSixFormats() {
    PlistArray codes;
    for (OSType c : {kCVPixelFormatType_32BGRA, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
                     kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                     kCVPixelFormatType_420YpCbCr10BiPlanarFullRange,
                     kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, kCVPixelFormatType_64ARGB}) {
        codes.emplace_back(static_cast<std::int64_t>(c));
    }
    PlistDictionary settings;
    settings[kCVPixelBufferPixelFormatTypeKey] = codes;
    settings[kCVPixelBufferIOSurfacePropertiesKey] = PlistDictionary();
    settings[AVVideoAllowWideColorKey] = true;
    return settings;
}

struct ReadResult {
    int frames = 0;
    OSType format = 0;
    std::size_t width = 0, height = 0;
    std::vector<double> times;
    int lumaCentre = -1;  // first frame, plane 0 (or the B of BGRA), centre pixel
    int alphaCentre = -1;
    AVAssetReaderStatus status = AVAssetReaderStatusUnknown;
};

ReadResult readAll(const std::string& path, std::optional<PlistDictionary> settings) {
    ReadResult r;
    AVAssetRef asset = AVAsset::assetWithURL(path);
    platform::ErrorRef error;
    AVAssetReaderRef reader = AVAssetReader::assetReaderWithAsset(asset, &error);
    EXPECT_TRUE(reader) << (error ? error->description() : "");
    if (!reader) return r;
    AVAssetTrackRef track = asset->loadTracksWithMediaType(AVMediaTypeVideo).value().at(0);
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(track, settings);
    EXPECT_TRUE(reader->canAddOutput(output));
    reader->addOutput(output);
    EXPECT_TRUE(reader->startReading());
    while (CMSampleBufferRef sample = output->copyNextSampleBuffer()) {
        CVPixelBufferRef image = CMSampleBufferGetImageBuffer(sample);
        EXPECT_TRUE(image);
        if (!image) break;
        if (r.frames == 0) {
            r.format = image->pixelFormatType();
            r.width = image->width();
            r.height = image->height();
            const auto& p = image->plane(0);
            const std::uint8_t* row = p.data + (p.height / 2) * p.rowBytes;
            switch (r.format) {
                case kCVPixelFormatType_32BGRA:
                    r.lumaCentre = row[(p.width / 2) * 4];
                    r.alphaCentre = row[(p.width / 2) * 4 + 3];
                    break;
                case kCVPixelFormatType_64ARGB:
                    r.alphaCentre = reinterpret_cast<const std::uint16_t*>(row)[(p.width / 2) * 4];
                    break;
                case kCVPixelFormatType_420YpCbCr10BiPlanarFullRange:
                case kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange:
                    r.lumaCentre = reinterpret_cast<const std::uint16_t*>(row)[p.width / 2];
                    break;
                default:
                    r.lumaCentre = row[p.width / 2];
            }
        }
        r.times.push_back(CMTimeGetSeconds(sample->presentationTimeStamp()));
        ++r.frames;
    }
    r.status = reader->status();
    return r;
}

// Frames come in the source's own format where it is one of the six, converted to the best
// listed one where it is not, at the source's size, every frame once, in order.
TEST(AssetReaderMediaTest, FramesInNativeFormatAndCount) {
    testing_support::TestHome home;
    struct Case {
        const char* name;
        const char* arguments;
        OSType format;
        int luma;  // expected centre value of the first frame; -1: not checked
        int alpha;
    };
    const Case cases[] = {
        {"white8.mp4",
         "-f lavfi -i color=c=white:size=96x64:rate=25 -t 0.4 -c:v libx264 "
         "-pix_fmt yuv420p -color_range tv",
         kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 235, -1},
        {"white8full.mp4",
         "-f lavfi -i color=c=white:size=96x64:rate=25 -t 0.4 -c:v libx264 "
         "-pix_fmt yuvj420p",
         kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, 255, -1},
        {"white10.mov",
         "-f lavfi -i color=c=white:size=96x64:rate=25 -t 0.4 -c:v libx265 "
         "-x265-params log-level=none -pix_fmt yuv420p10le",
         kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, 940 << 6, -1},
        {"white444.mov",
         "-f lavfi -i color=c=white:size=96x64:rate=25 -t 0.4 -c:v libx264 "
         "-pix_fmt yuv444p",
         kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 235, -1},
        {"alpha.mov",
         "-f lavfi -i color=c=blue@0.5:size=96x64:rate=25,format=rgba -t 0.4 "
         "-c:v png",
         kCVPixelFormatType_32BGRA, 255, 128},
        {"alpha16.mov",
         "-f lavfi -i color=c=blue@0.5:size=96x64:rate=25,format=rgba -t 0.4 "
         "-c:v prores_ks -profile:v 4444 -pix_fmt yuva444p10le",
         kCVPixelFormatType_64ARGB, -1, 32656},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = makeMovie(home, c.name, c.arguments);
        ASSERT_FALSE(path.empty());
        ReadResult r = readAll(path, allSixFormats());
        EXPECT_EQ(r.frames, 10);
        EXPECT_EQ(NSStringFromFourCharCode(r.format), NSStringFromFourCharCode(c.format));
        EXPECT_EQ(r.width, 96u);
        EXPECT_EQ(r.height, 64u);
        if (c.luma >= 0) {
            EXPECT_NEAR(r.lumaCentre, c.luma, c.luma > 1023 ? 64 * 2 : 2);
        }
        if (c.alpha >= 0) {
            EXPECT_NEAR(r.alphaCentre, c.alpha, c.alpha > 255 ? 300 : 2);
        }
        for (std::size_t i = 1; i < r.times.size(); ++i)
            EXPECT_NEAR(r.times[i] - r.times[i - 1], 0.04, 1e-6);
        EXPECT_EQ(r.status, AVAssetReaderStatusCompleted);
    }
    // A single code asked for is what is delivered, converted if need be.
    std::string path = home.path("white8.mp4");
    PlistDictionary bgra{
        {kCVPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(kCVPixelFormatType_32BGRA)}};
    ReadResult r = readAll(path, bgra);
    EXPECT_EQ(r.format, kCVPixelFormatType_32BGRA);
    EXPECT_NEAR(r.lumaCentre, 255, 2);
    EXPECT_EQ(r.frames, 10);
}

// Compressed output gives the file's own samples: as many, as large and in the order that
// ffprobe lists them.
TEST(AssetReaderMediaTest, CompressedSamplesAreTheFilesOwn) {
    testing_support::TestHome home;
    std::string path =
        makeMovie(home, "s.mov", "-f lavfi -i sine=sample_rate=48000 -t 0.5 -c:a aac -b:a 64k");
    ASSERT_FALSE(path.empty());
    std::string sizes = media_test::probe(path, "-select_streams a:0 -show_entries packet=size");
    AVAssetRef asset = AVAsset::assetWithURL(path);
    AVAssetReaderRef reader = AVAssetReader::assetReaderWithAsset(asset, nullptr);
    ASSERT_TRUE(reader);
    auto track = asset->loadTracksWithMediaType(AVMediaTypeAudio).value().at(0);
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(track, std::nullopt);
    reader->addOutput(output);
    ASSERT_TRUE(reader->startReading());
    std::string ours;
    while (CMSampleBufferRef sample = output->copyNextSampleBuffer()) {
        EXPECT_FALSE(sample->imageBuffer());
        EXPECT_EQ(sample->formatDescription()->mediaSubType, kAudioFormatMPEG4AAC);
        ours += "size=" + std::to_string(sample->dataLength()) + "\n";
    }
    EXPECT_EQ(ours, sizes);
    EXPECT_GT(ours.size(), 20u);
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCompleted);
}

// Outputs the platform cannot serve are refused before reading; a cancel ends delivery; a
// truncated movie ends without a crash.
TEST(AssetReaderMediaTest, RefusalsCancelAndDamagedInput) {
    testing_support::TestHome home;
    std::string path = makeMovie(home, "v.mov",
                                 "-f lavfi -i testsrc2=size=64x48:rate=25 -f lavfi -i "
                                 "sine -t 2 -c:v libx264 -c:a aac -movflags faststart");
    ASSERT_FALSE(path.empty());
    AVAssetRef asset = AVAsset::assetWithURL(path);
    auto video = asset->loadTracksWithMediaType(AVMediaTypeVideo).value().at(0);
    auto audio = asset->loadTracksWithMediaType(AVMediaTypeAudio).value().at(0);
    AVAssetReaderRef reader = AVAssetReader::assetReaderWithAsset(asset, nullptr);
    ASSERT_TRUE(reader);
    struct Case {
        const char* name;
        AVAssetReaderOutputRef output;
    };
    PlistDictionary unknownFormat, noFormat;
    unknownFormat[kCVPixelBufferPixelFormatTypeKey] = 0x79757673;
    noFormat[AVVideoAllowWideColorKey] = true;
    const Case refused[] = {
        {"unknown pixel format",
         AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(video, unknownFormat)},
        {"pixels from sound",
         AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(audio, allSixFormats())},
        {"no format key",
         AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(video, noFormat)},
    };
    for (const Case& c : refused) EXPECT_FALSE(reader->canAddOutput(c.output)) << c.name;

    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(video, allSixFormats());
    reader->addOutput(output);
    EXPECT_FALSE(reader->canAddOutput(output)) << "added twice";
    ASSERT_TRUE(reader->startReading());
    EXPECT_FALSE(reader->startReading());
    EXPECT_FALSE(reader->canAddOutput(
        AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(audio, std::nullopt)));
    ASSERT_TRUE(output->copyNextSampleBuffer());
    reader->cancelReading();
    EXPECT_EQ(reader->status(), AVAssetReaderStatusCancelled);
    EXPECT_FALSE(output->copyNextSampleBuffer());

    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    std::string cut = home.path("cut.mov");
    std::ofstream(cut, std::ios::binary) << bytes.substr(0, bytes.size() * 2 / 3);
    ReadResult r = readAll(cut, allSixFormats());
    EXPECT_GT(r.frames, 0);
    EXPECT_LT(r.frames, 50);
    EXPECT_TRUE(r.status == AVAssetReaderStatusCompleted || r.status == AVAssetReaderStatusFailed);
}

}  // namespace

// A time range: decoded frames begin at the first one shown at or after its start and end
// before its end; compressed samples begin at the sync sample before the start. The movie has
// a sync frame every second and reordered frames, so the start lies between sync frames.
TEST(AssetReaderMediaTest, TimeRangeStartsAndEndsTheFrames) {
    testing_support::TestHome home;
    const std::string path = makeMovie(home, "gop.mp4",
                                       "-f lavfi -i testsrc2=size=96x64:rate=10:duration=3 "
                                       "-pix_fmt yuv420p -c:v libx264 -bf 2 -g 10 -sc_threshold 0");
    ASSERT_FALSE(path.empty());
    AVAssetRef asset = AVAsset::assetWithURL(path);
    auto track = asset->loadTracksWithMediaType(AVMediaTypeVideo).value().at(0);
    struct Case {
        const char* what;
        bool decoded;
        CMTimeRange range;
        double first, last;
        std::size_t count;
    } cases[] = {
        {"whole", true, {kCMTimeZero, kCMTimePositiveInfinity}, 0.0, 2.9, 30},
        {"from 1.5 s", true, {CMTimeMake(3, 2), kCMTimePositiveInfinity}, 1.5, 2.9, 15},
        {"1.5 s to 2 s", true, {CMTimeMake(3, 2), CMTimeMake(1, 2)}, 1.5, 1.9, 5},
        {"the first half second", true, {kCMTimeZero, CMTimeMake(1, 2)}, 0.0, 0.4, 5},
        {"beyond the end", true, {CMTimeMake(10, 1), kCMTimePositiveInfinity}, 0, 0, 0},
        {"compressed from 1.5 s", false, {CMTimeMake(3, 2), kCMTimePositiveInfinity}, 1.0, 2.9, 20},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        AVAssetReaderRef reader = AVAssetReader::assetReaderWithAsset(asset, nullptr);
        ASSERT_TRUE(reader);
        auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(
            track, c.decoded ? std::optional(allSixFormats()) : std::nullopt);
        reader->addOutput(output);
        reader->setTimeRange(c.range);
        ASSERT_TRUE(reader->startReading());
        // Set once reading has started, a range changes nothing.
        reader->setTimeRange({CMTimeMake(1, 1), CMTimeMake(1, 1)});
        EXPECT_EQ(CMTimeCompare(reader->timeRange().start, c.range.start), 0);
        std::vector<double> shown;
        bool firstIsSync = false;
        while (CMSampleBufferRef sample = output->copyNextSampleBuffer()) {
            if (shown.empty()) firstIsSync = sample->isSync();
            shown.push_back(CMTimeGetSeconds(CMSampleBufferGetPresentationTimeStamp(sample)));
        }
        std::sort(shown.begin(), shown.end());
        ASSERT_EQ(shown.size(), c.count);
        if (c.count == 0) continue;
        EXPECT_NEAR(shown.front(), c.first, 1e-6);
        EXPECT_NEAR(shown.back(), c.last, 1e-6);
        if (!c.decoded) {
            EXPECT_TRUE(firstIsSync);
        }
    }
}
