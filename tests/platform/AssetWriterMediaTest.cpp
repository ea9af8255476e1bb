#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/AVAsset.h"
#include "platform/AVAssetReader.h"
#include "platform/AVAssetWriter.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/MediaTestSupport.h"
#include "platform/PlaneScaling.h"

namespace {

using media_test::framemd5;
using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using platform::PlistDictionary;

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

PlistDictionary videoSettings(const char* codec, int width, int height, const char* primaries,
                              const char* transfer, const char* matrix, double bitRate = 400000) {
    PlistDictionary color;
    color[AVVideoColorPrimariesKey] = primaries;
    color[AVVideoTransferFunctionKey] = transfer;
    color[AVVideoYCbCrMatrixKey] = matrix;
    PlistDictionary aspect;
    aspect[AVVideoPixelAspectRatioHorizontalSpacingKey] = 1;
    aspect[AVVideoPixelAspectRatioVerticalSpacingKey] = 1;
    PlistDictionary compression;
    compression[AVVideoAverageBitRateKey] = bitRate;
    compression[AVVideoPixelAspectRatioKey] = aspect;
    compression[AVVideoExpectedSourceFrameRateKey] = 25;
    compression[UWVideoEncoderSpeedPresetKey] = "ultrafast";
    PlistDictionary settings;
    settings[AVVideoCodecKey] = codec;
    settings[AVVideoWidthKey] = width;
    settings[AVVideoHeightKey] = height;
    settings[AVVideoColorPropertiesKey] = color;
    settings[AVVideoCompressionPropertiesKey] = compression;
    return settings;
}

PlistDictionary adaptorAttributes(OSType format, int width, int height) {
    PlistDictionary a;
    a[kCVPixelBufferPixelFormatTypeKey] = static_cast<std::int64_t>(format);
    a[kCVPixelBufferWidthKey] = width;
    a[kCVPixelBufferHeightKey] = height;
    return a;
}

// Finishes and waits for the completion handler.
void finish(const AVAssetWriterRef& writer) {
    std::mutex m;
    std::condition_variable cv;
    bool done = false;
    writer->finishWritingWithCompletionHandler([&] {
        std::lock_guard<std::mutex> lock(m);
        done = true;
        cv.notify_all();
    });
    std::unique_lock<std::mutex> lock(m);
    ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(60), [&] { return done; }));
}

// Appends `count` frames of the adaptor's format, each filled by `paint`.
void appendFrames(const std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>& adaptor, int count,
                  const std::function<void(const CVPixelBufferRef&)>& paint) {
    for (int i = 0; i < count; ++i) {
        CVPixelBufferRef buffer;
        ASSERT_EQ(CVPixelBufferPoolCreatePixelBuffer(adaptor->pixelBufferPool(), &buffer),
                  kCVReturnSuccess);
        paint(buffer);
        ASSERT_TRUE(adaptor->appendPixelBuffer(buffer, CMTimeMake(i, 25))) << "frame " << i;
    }
}

// The whole road of one movie: frames read, scaled into the adaptor's pool and encoded through
// request loops, sound and timecode copied, the display matrix and metadata written. ffprobe
// reads back the exact size, square pixels, the colour tags, the matrix, the frame count and
// sound packets identical to the source's.
TEST(AssetWriterMediaTest, TranscodeKeepsTracksMatrixAndTags) {
    testing_support::TestHome home;
    std::string plain =
        makeMovie(home, "plain.mov",
                  "-f lavfi -i testsrc2=size=160x120:rate=25 -f lavfi -i "
                  "sine=frequency=440:sample_rate=48000 "
                  "-t 1 -c:v libx264 -pix_fmt yuv420p -c:a aac -b:a 96k -timecode 01:00:00:00");
    ASSERT_FALSE(plain.empty());
    std::string source = makeMovie(home, "source.mov",
                                   "-i '" + plain + "' -map 0 -c copy -metadata:s:v:0 rotate=90");
    ASSERT_FALSE(source.empty());
    AVAssetRef asset = AVAsset::assetWithURL(source);
    auto tracks = asset->loadTracks().value();
    ASSERT_EQ(tracks.size(), 3u);

    platform::ErrorRef error;
    AVAssetReaderRef reader = AVAssetReader::assetReaderWithAsset(asset, &error);
    std::string out = home.path("out.mov");
    AVAssetWriterRef writer =
        AVAssetWriter::assetWriterWithURL(out, AVFileTypeQuickTimeMovie, &error);
    ASSERT_TRUE(reader && writer);

    PlistDictionary pixels;
    pixels[kCVPixelBufferPixelFormatTypeKey] =
        static_cast<std::int64_t>(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    auto videoOut = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(tracks[0], pixels);
    reader->addOutput(videoOut);
    auto videoIn = AVAssetWriterInput::assetWriterInputWithMediaType(
        AVMediaTypeVideo,
        videoSettings(AVVideoCodecTypeH264, 200, 120, AVVideoColorPrimaries_ITU_R_709_2,
                      AVVideoTransferFunction_ITU_R_709_2, AVVideoYCbCrMatrix_ITU_R_709_2));
    videoIn->setTransform(tracks[0]->loadPreferredTransform().value());
    ASSERT_TRUE(writer->canAddInput(videoIn));
    writer->addInput(videoIn);
    auto adaptor = AVAssetWriterInputPixelBufferAdaptor::
        assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
            videoIn, adaptorAttributes(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 200, 120));

    std::vector<std::pair<AVAssetReaderOutputRef, AVAssetWriterInputRef>> copies;
    for (std::size_t i = 1; i < tracks.size(); ++i) {
        auto output =
            AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(tracks[i], std::nullopt);
        auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
            tracks[i]->mediaType(), std::nullopt,
            tracks[i]->loadFormatDescriptions().value().at(0));
        ASSERT_TRUE(reader->canAddOutput(output));
        ASSERT_TRUE(writer->canAddInput(input)) << tracks[i]->mediaType();
        reader->addOutput(output);
        writer->addInput(input);
        copies.emplace_back(output, input);
    }
    std::vector<AVMetadataItem> items = {
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate,
         platform::PlistDate::fromTimeIntervalSince1970(1577934245)},
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeySoftware, "Unwarp 1.0"},
        {AVMetadataKeySpaceQuickTimeMetadata, AVMetadataQuickTimeMetadataKeySoftware, "Unwarp 1.0"},
        {AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyRecordingTime, "2020"},
    };
    writer->setMetadata(items);

    ASSERT_TRUE(reader->startReading());
    ASSERT_TRUE(writer->startWriting());
    writer->startSessionAtSourceTime(kCMTimeZero);
    media_test::TestQueue queue;

    // One track after the other, as the video job runs them.
    auto runTrack = [&](const AVAssetWriterInputRef& input, std::function<bool()> moveSome) {
        std::mutex m;
        std::condition_variable cv;
        bool done = false;
        input->requestMediaDataWhenReadyOnQueue(
            std::shared_ptr<platform::DispatchQueue>(&queue, [](platform::DispatchQueue*) {}), [&] {
                if (done) return;
                if (!moveSome()) return;
                input->markAsFinished();
                std::lock_guard<std::mutex> lock(m);
                done = true;
                cv.notify_all();
            });
        std::unique_lock<std::mutex> lock(m);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(60), [&] { return done; }));
    };
    int frames = 0;
    runTrack(videoIn, [&] {
        while (videoIn->isReadyForMoreMediaData()) {
            CMSampleBufferRef sample = videoOut->copyNextSampleBuffer();
            if (!sample) return true;
            CVPixelBufferRef src = sample->imageBuffer();
            CVPixelBufferRef dst;
            EXPECT_EQ(CVPixelBufferPoolCreatePixelBuffer(adaptor->pixelBufferPool(), &dst), 0);
            // The decoder's and the pool's chroma both come as two planes (Cb, Cr).
            EXPECT_EQ(src->planeCount(), dst->planeCount());
            if (src->planeCount() != dst->planeCount()) return true;
            for (std::size_t p = 0; p < src->planeCount(); ++p) {
                vImage_Buffer s{src->baseAddressOfPlane(p), src->heightOfPlane(p),
                                src->widthOfPlane(p), src->bytesPerRowOfPlane(p)};
                vImage_Buffer d{dst->baseAddressOfPlane(p), dst->heightOfPlane(p),
                                dst->widthOfPlane(p), dst->bytesPerRowOfPlane(p)};
                auto scale =
                    p == 0 || src->hasSeparateChroma() ? vImageScale_Planar8 : vImageScale_CbCr8;
                EXPECT_EQ(scale(&s, &d, nullptr, kvImageHighQualityResampling), kvImageNoError);
            }
            if (!adaptor->appendPixelBuffer(dst, sample->presentationTimeStamp())) return true;
            ++frames;
        }
        return false;
    });
    for (auto& [output, input] : copies) {
        runTrack(input, [&, output = output, input = input] {
            while (input->isReadyForMoreMediaData()) {
                CMSampleBufferRef sample = output->copyNextSampleBuffer();
                if (!sample || !input->appendSampleBuffer(sample)) return true;
            }
            return false;
        });
    }
    finish(writer);
    ASSERT_EQ(writer->status(), AVAssetWriterStatusCompleted)
        << (writer->error() ? writer->error()->description() : "");
    EXPECT_EQ(frames, 25);

    std::string video = probe(out, "-select_streams v:0 -count_frames -show_streams");
    EXPECT_TRUE(has(video, "codec_name=h264")) << video;
    EXPECT_TRUE(has(video, "width=200\nheight=120")) << video;
    EXPECT_TRUE(has(video, "sample_aspect_ratio=1:1")) << video;
    EXPECT_TRUE(has(video, "color_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709"))
        << video;
    EXPECT_TRUE(has(video, "nb_read_frames=25")) << video;
    std::string side = probe(out, "-select_streams v:0 -show_entries stream_side_data");
    EXPECT_TRUE(has(side, "rotation=90")) << side;
    std::string streams = probe(out, "-show_entries stream=codec_type,codec_tag_string");
    EXPECT_TRUE(has(streams, "codec_tag_string=tmcd")) << streams;
    EXPECT_TRUE(has(streams, "codec_type=audio")) << streams;
    std::string sourceSound = framemd5(source, "a");
    EXPECT_GT(sourceSound.size(), 200u);
    EXPECT_EQ(framemd5(out, "a"), sourceSound);
    std::string tags = probe(out, "-show_entries format_tags");
    EXPECT_TRUE(has(tags, "creation_time=2020-01-02T03:04:05")) << tags;
    EXPECT_TRUE(has(tags, "com.apple.quicktime.software=Unwarp 1.0")) << tags;
    EXPECT_TRUE(has(tags, "encoder=Unwarp 1.0")) << tags;
}

// 10-bit frames go to HEVC Main 10 with their HLG tags; alpha frames to ProRes 4444.
TEST(AssetWriterMediaTest, HighBitDepthAndAlphaCodecs) {
    testing_support::TestHome home;
    struct Case {
        const char* name;
        const char* fileType;
        const char* codec;
        OSType format;
        const char* primaries;
        const char* transfer;
        const char* matrix;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {"hlg.mp4",
         AVFileTypeMPEG4,
         AVVideoCodecTypeHEVC,
         kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange,
         AVVideoColorPrimaries_ITU_R_2020,
         AVVideoTransferFunction_ITU_R_2100_HLG,
         AVVideoYCbCrMatrix_ITU_R_2020,
         {"codec_name=hevc", "profile=Main 10", "codec_tag_string=hvc1", "pix_fmt=yuv420p10le",
          "color_space=bt2020nc", "color_transfer=arib-std-b67", "color_primaries=bt2020",
          "width=128\nheight=72", "nb_read_frames=6", "r_frame_rate=25/1"}},
        {"h264full.mp4",
         AVFileTypeMPEG4,
         AVVideoCodecTypeH264,
         kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
         AVVideoColorPrimaries_ITU_R_709_2,
         AVVideoTransferFunction_ITU_R_709_2,
         AVVideoYCbCrMatrix_ITU_R_709_2,
         {"codec_name=h264", "color_range=pc", "pix_fmt=yuvj420p", "nb_read_frames=6"}},
        {"alpha.mov",
         AVFileTypeQuickTimeMovie,
         AVVideoCodecTypeAppleProRes4444,
         kCVPixelFormatType_32BGRA,
         AVVideoColorPrimaries_ITU_R_709_2,
         AVVideoTransferFunction_ITU_R_709_2,
         AVVideoYCbCrMatrix_ITU_R_709_2,
         {"codec_name=prores", "profile=4444", "codec_tag_string=ap4h", "nb_read_frames=6"}},
        {"alpha16.mov",
         AVFileTypeQuickTimeMovie,
         AVVideoCodecTypeAppleProRes4444,
         kCVPixelFormatType_64ARGB,
         AVVideoColorPrimaries_ITU_R_709_2,
         AVVideoTransferFunction_ITU_R_709_2,
         AVVideoYCbCrMatrix_ITU_R_709_2,
         {"codec_name=prores", "profile=4444", "width=128\nheight=72"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = home.path(c.name);
        auto writer = AVAssetWriter::assetWriterWithURL(path, c.fileType, nullptr);
        ASSERT_TRUE(writer);
        auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
            AVMediaTypeVideo, videoSettings(c.codec, 128, 72, c.primaries, c.transfer, c.matrix));
        ASSERT_TRUE(writer->canAddInput(input));
        writer->addInput(input);
        auto adaptor = AVAssetWriterInputPixelBufferAdaptor::
            assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
                input, adaptorAttributes(c.format, 128, 72));
        EXPECT_FALSE(adaptor->pixelBufferPool()) << "no pool before writing";
        ASSERT_TRUE(writer->startWriting());
        writer->startSessionAtSourceTime(kCMTimeZero);
        appendFrames(adaptor, 6, [](const CVPixelBufferRef& b) {
            for (std::size_t p = 0; p < std::max<std::size_t>(1, b->planeCount()); ++p) {
                std::memset(b->baseAddressOfPlane(p), p == 0 ? 0x80 : 0x70,
                            b->bytesPerRowOfPlane(p) * b->heightOfPlane(p));
            }
        });
        finish(writer);
        ASSERT_EQ(writer->status(), AVAssetWriterStatusCompleted)
            << (writer->error() ? writer->error()->description() : "");
        std::string info = probe(path, "-select_streams v:0 -count_frames -show_streams");
        for (const std::string& e : c.expected) EXPECT_TRUE(has(info, e)) << e << "\n" << info;
    }
}

// What a container cannot hold is refused when the input is added, not later.
TEST(AssetWriterMediaTest, InputsTheContainerCannotTakeAreRefused) {
    testing_support::TestHome home;
    std::string source =
        makeMovie(home, "src.mov",
                  "-f lavfi -i testsrc2=size=64x48:rate=25 -f lavfi -i sine -t 0.5 -c:v libx264 "
                  "-c:a pcm_s16le -timecode 00:00:10:00");
    ASSERT_FALSE(source.empty());
    auto tracks = AVAsset::assetWithURL(source)->loadTracks().value();
    ASSERT_EQ(tracks.size(), 3u);
    auto hint = [&](std::size_t i) { return tracks[i]->loadFormatDescriptions().value().at(0); };
    auto passthrough = [&](std::size_t i, CMFormatDescriptionRef h) {
        return AVAssetWriterInput::assetWriterInputWithMediaType(tracks[i]->mediaType(),
                                                                 std::nullopt, h);
    };
    auto video = [&](const char* codec, int w, int h) {
        return AVAssetWriterInput::assetWriterInputWithMediaType(
            AVMediaTypeVideo,
            videoSettings(codec, w, h, AVVideoColorPrimaries_ITU_R_709_2,
                          AVVideoTransferFunction_ITU_R_709_2, AVVideoYCbCrMatrix_ITU_R_709_2));
    };
    struct Case {
        const char* name;
        const char* fileType;
        AVAssetWriterInputRef input;
        bool accepted;
    };
    const Case cases[] = {
        {"ProRes in MOV", AVFileTypeQuickTimeMovie, video(AVVideoCodecTypeAppleProRes4444, 64, 48),
         true},
        {"ProRes in MP4", AVFileTypeMPEG4, video(AVVideoCodecTypeAppleProRes4444, 64, 48), false},
        {"H.264 in 3GP", AVFileType3GPP, video(AVVideoCodecTypeH264, 64, 48), true},
        {"odd H.264 size, encoded in 4:4:4", AVFileTypeMPEG4, video(AVVideoCodecTypeH264, 63, 47),
         true},
        {"odd JPEG size", AVFileTypeQuickTimeMovie, video(AVVideoCodecTypeJPEG, 63, 48), false},
        {"HEVC in 3GP", AVFileType3GPP, video(AVVideoCodecTypeHEVC, 64, 48), false},
        {"unknown codec", AVFileTypeMPEG4, video("xxxx", 64, 48), false},
        {"timecode in MOV", AVFileTypeQuickTimeMovie, passthrough(2, hint(2)), true},
        {"timecode in MP4", AVFileTypeMPEG4, passthrough(2, hint(2)), false},
        {"PCM in MOV", AVFileTypeQuickTimeMovie, passthrough(1, hint(1)), true},
        {"PCM in MP4", AVFileTypeMPEG4, passthrough(1, hint(1)), false},
        {"no format hint", AVFileTypeQuickTimeMovie, passthrough(1, nullptr), false},
        {"H.264 copied into M4V", AVFileTypeAppleM4V, passthrough(0, hint(0)), true},
    };
    int n = 0;
    for (const Case& c : cases) {
        auto writer = AVAssetWriter::assetWriterWithURL(home.path("o" + std::to_string(n++)),
                                                        c.fileType, nullptr);
        ASSERT_TRUE(writer);
        EXPECT_EQ(writer->canAddInput(c.input), c.accepted) << c.name;
    }
    platform::ErrorRef error;
    EXPECT_FALSE(AVAssetWriter::assetWriterWithURL(source, AVFileTypeQuickTimeMovie, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), AVErrorFileAlreadyExists);
    EXPECT_FALSE(AVAssetWriter::assetWriterWithURL(home.path("x.avi"), "public.avi", nullptr));
}

// Cancelling removes the partial file; finishing without a single sample fails and leaves
// nothing; a place that cannot be written fails at startWriting.
TEST(AssetWriterMediaTest, CancelAndEmptyMoviesLeaveNoFile) {
    testing_support::TestHome home;
    auto start = [&](const std::string& name) {
        auto writer = AVAssetWriter::assetWriterWithURL(home.path(name), AVFileTypeMPEG4, nullptr);
        auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
            AVMediaTypeVideo,
            videoSettings(AVVideoCodecTypeH264, 64, 48, AVVideoColorPrimaries_ITU_R_709_2,
                          AVVideoTransferFunction_ITU_R_709_2, AVVideoYCbCrMatrix_ITU_R_709_2));
        writer->addInput(input);
        auto adaptor = AVAssetWriterInputPixelBufferAdaptor::
            assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
                input, adaptorAttributes(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 64, 48));
        EXPECT_TRUE(writer->startWriting());
        return std::make_pair(writer, adaptor);
    };
    auto [cancelled, adaptor] = start("cancel.mp4");
    appendFrames(adaptor, 10, [](const CVPixelBufferRef&) {});
    EXPECT_TRUE(exists(home.path("cancel.mp4")));
    cancelled->cancelWriting();
    EXPECT_EQ(cancelled->status(), AVAssetWriterStatusCancelled);
    EXPECT_FALSE(exists(home.path("cancel.mp4")));
    EXPECT_FALSE(adaptor->appendPixelBuffer(nullptr, kCMTimeZero));

    auto [empty, unused] = start("empty.mp4");
    finish(empty);
    EXPECT_EQ(empty->status(), AVAssetWriterStatusFailed);
    ASSERT_TRUE(empty->error());
    EXPECT_EQ(empty->error()->domain(), platform::AVFoundationErrorDomain);
    EXPECT_FALSE(exists(home.path("empty.mp4")));

    auto nowhere =
        AVAssetWriter::assetWriterWithURL(home.path("no/such/dir.mp4"), AVFileTypeMPEG4, nullptr);
    ASSERT_TRUE(nowhere);
    EXPECT_FALSE(nowhere->startWriting());
    EXPECT_EQ(nowhere->status(), AVAssetWriterStatusFailed);
    EXPECT_TRUE(nowhere->error());
}

// Run in a child process under a file size limit (see the test below): writes a movie far
// larger than the limit and prints what the writer reports.
TEST(AssetWriterMediaTest, DiskFullChild) {
    const char* out = std::getenv("UNWARP_DISK_FULL_OUTPUT");
    if (!out) GTEST_SKIP() << "runs only as the child of DiskFullIsReportedAndLeavesNoFile";
    auto writer = AVAssetWriter::assetWriterWithURL(out, AVFileTypeQuickTimeMovie, nullptr);
    ASSERT_TRUE(writer);
    auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
        AVMediaTypeVideo,
        videoSettings(AVVideoCodecTypeH264, 320, 240, AVVideoColorPrimaries_ITU_R_709_2,
                      AVVideoTransferFunction_ITU_R_709_2, AVVideoYCbCrMatrix_ITU_R_709_2,
                      20'000'000));
    writer->addInput(input);
    auto adaptor = AVAssetWriterInputPixelBufferAdaptor::
        assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
            input, adaptorAttributes(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 320, 240));
    ASSERT_TRUE(writer->startWriting());
    unsigned seed = 1;
    for (int i = 0; i < 100; ++i) {
        CVPixelBufferRef b;
        ASSERT_EQ(CVPixelBufferPoolCreatePixelBuffer(adaptor->pixelBufferPool(), &b), 0);
        for (std::size_t p = 0; p < 2; ++p) {
            auto* d = static_cast<std::uint8_t*>(b->baseAddressOfPlane(p));
            for (std::size_t k = 0; k < b->bytesPerRowOfPlane(p) * b->heightOfPlane(p); ++k) {
                seed = seed * 1103515245 + 12345;
                d[k] = static_cast<std::uint8_t>(seed >> 16);
            }
        }
        if (!adaptor->appendPixelBuffer(b, CMTimeMake(i, 25))) break;
    }
    finish(writer);
    auto error = writer->error();
    std::printf("RESULT status=%d domain=%s code=%lld\n", static_cast<int>(writer->status()),
                error ? error->domain().c_str() : "-",
                error ? static_cast<long long>(error->code()) : 0LL);
}

// A file size limit stands in for a full disk: the writer fails with -11807 in
// "AVFoundationErrorDomain" and removes what it had written.
TEST(AssetWriterMediaTest, DiskFullIsReportedAndLeavesNoFile) {
    testing_support::TestHome home;
    std::string out = home.path("full.mov");
    const std::string output = media_test::runUnderFileSizeLimit(
        "UNWARP_DISK_FULL_OUTPUT='" + out + "'", "AssetWriterMediaTest.DiskFullChild");
    EXPECT_TRUE(has(output, "RESULT status=3 domain=AVFoundationErrorDomain code=-11807"))
        << output;
    EXPECT_FALSE(exists(out));
}

}  // namespace
