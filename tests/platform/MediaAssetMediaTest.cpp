#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "platform/AVAsset.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/MediaTestSupport.h"

namespace {

using media_test::makeMovie;

AVAssetTrackRef onlyTrack(const AVAssetRef& asset, const char* mediaType) {
    auto tracks = asset->loadTracksWithMediaType(mediaType);
    EXPECT_TRUE(tracks.ok());
    if (!tracks.ok() || tracks.value().size() != 1) {
        ADD_FAILURE() << "expected one " << mediaType << " track";
        return nullptr;
    }
    return tracks.value()[0];
}

// A QuickTime movie with a turned H.264 picture, AAC sound, a timecode track and metadata of
// three kinds reads back with every track's type and properties.
TEST(MediaAssetMediaTest, TracksOfARotatedMovieWithSoundAndTimecode) {
    testing_support::TestHome home;
    std::string plain =
        makeMovie(home, "plain.mov",
                  "-f lavfi -i testsrc2=size=160x120:rate=25 -f lavfi -i "
                  "sine=frequency=440:sample_rate=48000 "
                  "-t 1 -c:v libx264 -pix_fmt yuv420p -c:a aac -b:a 96k -timecode 01:00:00:00");
    ASSERT_FALSE(plain.empty());
    // The display matrix is written when the stream is copied.
    std::string path =
        makeMovie(home, "a.mov",
                  "-i '" + plain +
                      "' -map 0 -c copy -metadata:s:v:0 rotate=90 "
                      "-metadata creation_time=2020-01-02T03:04:05Z -metadata date=2019 "
                      "-movflags use_metadata_tags "
                      "-metadata com.apple.quicktime.software=Tester");
    ASSERT_FALSE(path.empty());
    AVAssetRef asset = AVAsset::assetWithURL(path);
    auto tracks = asset->loadTracks();
    ASSERT_TRUE(tracks.ok());
    std::vector<std::string> types;
    for (const auto& t : tracks.value()) types.push_back(t->mediaType());
    EXPECT_EQ(types,
              (std::vector<std::string>{AVMediaTypeVideo, AVMediaTypeAudio, AVMediaTypeTimecode}));

    AVAssetTrackRef video = onlyTrack(asset, AVMediaTypeVideo);
    ASSERT_TRUE(video);
    EXPECT_EQ(video->loadNaturalSize().value(), (CGSize{160, 120}));
    CGAffineTransform t = video->loadPreferredTransform().value();
    // ffprobe reads this file's matrix as rows (0 -65536 0) (65536 0 0) (0 0 1<<30).
    EXPECT_EQ(t, (CGAffineTransform{0, -1, 1, 0, 0, 0}));
    EXPECT_FLOAT_EQ(video->loadNominalFrameRate().value(), 25.0f);
    EXPECT_NEAR(CMTimeGetSeconds(video->loadMinFrameDuration().value()), 0.04, 1e-9);
    EXPECT_NEAR(CMTimeGetSeconds(video->loadTimeRange().value().duration), 1.0, 0.05);
    EXPECT_GT(video->loadEstimatedDataRate().value(), 1000.0f);
    EXPECT_GT(video->loadNaturalTimeScale().value(), 0);
    auto formats = video->loadFormatDescriptions().value();
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0]->mediaSubType, kCMVideoCodecType_H264);
    EXPECT_EQ(formats[0]->pixelFormat, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    EXPECT_EQ(formats[0]->bitsPerComponent, 8);
    EXPECT_FALSE(formats[0]->fullRangeVideo);
    EXPECT_FALSE(video->hasMediaCharacteristic(AVMediaCharacteristicContainsHDRVideo));

    AVAssetTrackRef audio = onlyTrack(asset, AVMediaTypeAudio);
    ASSERT_TRUE(audio);
    auto audioFormat = audio->loadFormatDescriptions().value().at(0);
    EXPECT_EQ(audioFormat->mediaSubType, kAudioFormatMPEG4AAC);
    EXPECT_EQ(audioFormat->sampleRate, 48000);
    EXPECT_EQ(audio->loadPreferredTransform().value(), CGAffineTransformIdentity);
    EXPECT_TRUE(audio->hasMediaCharacteristic(AVMediaCharacteristicAudible));

    auto metadata = asset->loadMetadata();
    ASSERT_TRUE(metadata.ok());
    bool creation = false, software = false, userDate = false;
    for (const AVMetadataItem& item : metadata.value()) {
        if (item.keySpace() == AVMetadataKeySpaceCommon &&
            item.stringKey() == std::string(AVMetadataCommonKeyCreationDate)) {
            ASSERT_TRUE(item.dateValue());
            EXPECT_DOUBLE_EQ(item.dateValue()->timeIntervalSince1970(), 1577934245.0);
            creation = true;
        }
        if (item.keySpace() == AVMetadataKeySpaceQuickTimeMetadata &&
            item.stringKey() == std::string(AVMetadataQuickTimeMetadataKeySoftware)) {
            EXPECT_EQ(item.stringValue(), "Tester");
            software = true;
        }
        if (item.stringKey() == std::string(AVMetadataQuickTimeUserDataKeyCreationDate) ||
            item.stringKey() == std::string("date")) {
            userDate = true;
        }
    }
    EXPECT_TRUE(creation);
    EXPECT_TRUE(software);
    EXPECT_TRUE(userDate);
    EXPECT_NEAR(CMTimeGetSeconds(asset->loadDuration().value()), 1.0, 0.1);
}

// 10-bit HLG HEVC reports its codec, its 10-bit pixel format, its three colour tags and HDR.
TEST(MediaAssetMediaTest, TenBitHLGSourceIsHDR) {
    testing_support::TestHome home;
    std::string path = makeMovie(
        home, "hlg.mp4",
        "-f lavfi -i testsrc2=size=128x72:rate=30 -t 0.3 -c:v libx265 -x265-params log-level=none "
        "-pix_fmt yuv420p10le -color_primaries bt2020 -color_trc arib-std-b67 -colorspace bt2020nc "
        "-tag:v hvc1");
    ASSERT_FALSE(path.empty());
    AVAssetRef asset = AVAsset::assetWithURL(path);
    AVAssetTrackRef video = onlyTrack(asset, AVMediaTypeVideo);
    ASSERT_TRUE(video);
    auto format = video->loadFormatDescriptions().value().at(0);
    EXPECT_EQ(format->mediaSubType, kCMVideoCodecType_HEVC);
    EXPECT_EQ(format->pixelFormat, kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange);
    EXPECT_EQ(format->bitsPerComponent, 10);
    EXPECT_EQ(format->colorPrimaries, std::optional<std::string>(AVVideoColorPrimaries_ITU_R_2020));
    EXPECT_EQ(format->transferFunction,
              std::optional<std::string>(AVVideoTransferFunction_ITU_R_2100_HLG));
    EXPECT_EQ(format->yCbCrMatrix, std::optional<std::string>(AVVideoYCbCrMatrix_ITU_R_2020));
    EXPECT_TRUE(video->hasMediaCharacteristic(AVMediaCharacteristicContainsHDRVideo));
}

// Files that are no movie fail every load with an error that says so; a movie without
// pictures has no video track.
TEST(MediaAssetMediaTest, BadFilesFailEveryLoad) {
    testing_support::TestHome home;
    std::string good =
        makeMovie(home, "good.mov", "-f lavfi -i testsrc2=size=64x48:rate=10 -t 1 -c:v libx264");
    ASSERT_FALSE(good.empty());
    std::string truncated = home.path("truncated.mov");
    {
        std::ifstream in(good, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), {});
        std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
        std::ofstream(home.path("random.mov"), std::ios::binary)
            << std::string(4096, '\x5a') + bytes.substr(100, 300);
        std::ofstream(home.path("empty.mov"), std::ios::binary);
    }
    struct Case {
        std::string path;
        std::string domain;
    };
    const Case cases[] = {
        {home.path("missing.mov"), platform::NSPOSIXErrorDomain},
        {truncated, platform::AVFoundationErrorDomain},
        {home.path("random.mov"), platform::AVFoundationErrorDomain},
        {home.path("empty.mov"), platform::AVFoundationErrorDomain},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        AVAssetRef asset = AVAsset::assetWithURL(c.path);
        auto tracks = asset->loadTracks();
        ASSERT_FALSE(tracks.ok());
        ASSERT_TRUE(tracks.error());
        EXPECT_EQ(tracks.error()->domain(), c.domain);
        EXPECT_FALSE(asset->loadMetadata().ok());
        EXPECT_FALSE(asset->loadDuration().ok());
    }
    std::string sound =
        makeMovie(home, "sound.m4a", "-f lavfi -i sine=sample_rate=44100 -t 0.5 -c:a aac");
    AVAssetRef audioOnly = AVAsset::assetWithURL(sound);
    auto videos = audioOnly->loadTracksWithMediaType(AVMediaTypeVideo);
    ASSERT_TRUE(videos.ok());
    EXPECT_TRUE(videos.value().empty());
}

}  // namespace
