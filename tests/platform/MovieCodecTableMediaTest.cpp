#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/AVAssetWriter.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoCodecs.h"
#include "platform/AVVideoSettings.h"
#include "platform/MediaTestSupport.h"

namespace {

using media_test::has;
using media_test::probe;
using platform::PlistDictionary;

PlistDictionary settingsFor(const char* codec, int width, int height) {
    PlistDictionary compression = {{AVVideoAverageBitRateKey, 200000},
                                   {UWVideoEncoderSpeedPresetKey, "ultrafast"}};
    return {{AVVideoCodecKey, codec},
            {AVVideoWidthKey, width},
            {AVVideoHeightKey, height},
            {AVVideoCompressionPropertiesKey, compression}};
}

// Writes two grey frames; the writer's status at the end.
AVAssetWriterStatus writeTwoFrames(const AVAssetWriterRef& writer,
                                   const AVAssetWriterInputRef& input) {
    auto adaptor = AVAssetWriterInputPixelBufferAdaptor::
        assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
            input, PlistDictionary{{kCVPixelBufferPixelFormatTypeKey,
                                    static_cast<std::int64_t>(kCVPixelFormatType_32BGRA)}});
    if (!writer->startWriting()) return writer->status();
    writer->startSessionAtSourceTime(kCMTimeZero);
    for (int i = 0; i < 2; ++i) {
        CVPixelBufferRef buffer;
        if (CVPixelBufferPoolCreatePixelBuffer(adaptor->pixelBufferPool(), &buffer) !=
            kCVReturnSuccess) {
            return writer->status();
        }
        std::memset(buffer->baseAddress(), 0x80, buffer->bytesPerRow() * buffer->height());
        adaptor->appendPixelBuffer(buffer, CMTimeMake(i, 25));
    }
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    writer->finishWritingWithCompletionHandler([&] {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        cv.notify_all();
    });
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(cv.wait_for(lock, std::chrono::seconds(60), [&] { return done; }));
    return writer->status();
}

// Every codec and file type pair the tables accept is written, and ffprobe finds the codec in
// the file; every pair they refuse is refused when the input is added. A row that promises
// what the muxer cannot write fails here.
TEST(MovieCodecTableMedia, EveryAcceptedPairIsWrittenAndEveryOtherRefused) {
    testing_support::TestHome home;
    const std::map<AVVideoCodec, std::string> probed = {{AVVideoCodec::h264, "h264"},
                                                        {AVVideoCodec::hevc, "hevc"},
                                                        {AVVideoCodec::proRes4444, "prores"},
                                                        {AVVideoCodec::jpeg, "mjpeg"}};
    int written = 0;
    for (const AVMovieContainerInfo& container : movieContainers()) {
        for (const AVVideoCodecInfo& codec : videoCodecs()) {
            const std::string name = std::string(codec.name) + " in " + container.fileType;
            SCOPED_TRACE(name);
            const bool accepted =
                AVAssetWriter::fileTypeAcceptsVideoCodec(container.fileType, codec.type);
            EXPECT_EQ(accepted,
                      AVAssetWriter::fileTypeAcceptsVideoCodec(container.fileType, codec.codec));
            const std::string path = home.path(std::to_string(written + 100) + ".movie");
            auto writer = AVAssetWriter::assetWriterWithURL(path, container.fileType, nullptr);
            ASSERT_TRUE(writer);
            auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
                AVMediaTypeVideo, settingsFor(codec.type, 64, 48));
            ASSERT_EQ(writer->canAddInput(input), accepted);
            if (!accepted) continue;
            writer->addInput(input);
            ASSERT_EQ(writeTwoFrames(writer, input), AVAssetWriterStatusCompleted)
                << (writer->error() ? writer->error()->description() : "");
            EXPECT_TRUE(has(probe(path, "-select_streams v:0 -show_streams"),
                            "codec_name=" + probed.at(codec.codec)));
            ++written;
        }
    }
    // MOV takes four codecs, MP4 three, M4V, 3GP and 3GPP2 H.264 alone.
    EXPECT_EQ(written, 10);
    EXPECT_FALSE(
        AVAssetWriter::fileTypeAcceptsVideoCodec(AVFileTypeMPEG4, AVVideoCodecTypeAppleProRes4444));
    EXPECT_FALSE(AVAssetWriter::fileTypeAcceptsVideoCodec("public.avi", AVVideoCodecTypeH264));
}

// A faulty settings dictionary is refused with an error that names the fault, where a misspelt
// key used to be dropped and its default encoded.
TEST(MovieCodecTableMedia, FaultySettingsAreRefusedWithTheirError) {
    testing_support::TestHome home;
    PlistDictionary misspelt = settingsFor(AVVideoCodecTypeH264, 64, 48);
    misspelt[AVVideoCompressionPropertiesKey] = PlistDictionary{{"AverageBitrate", 200000}};
    PlistDictionary noCodec = settingsFor(AVVideoCodecTypeH264, 64, 48);
    noCodec.erase(AVVideoCodecKey);
    const struct {
        const char* name;
        PlistDictionary settings;
        const char* words;
    } cases[] = {
        {"misspelt key", misspelt, "unknown key AverageBitrate"},
        {"no codec", noCodec, "lack AVVideoCodecKey"},
        {"unknown codec", settingsFor("xxxx", 64, 48), "No video codec is called \"xxxx\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto writer =
            AVAssetWriter::assetWriterWithURL(home.path("faulty.mp4"), AVFileTypeMPEG4, nullptr);
        ASSERT_TRUE(writer);
        auto input =
            AVAssetWriterInput::assetWriterInputWithMediaType(AVMediaTypeVideo, c.settings);
        EXPECT_FALSE(writer->canAddInput(input));
        ASSERT_TRUE(input->outputSettingsError());
        EXPECT_TRUE(has(input->outputSettingsError()->description(), c.words))
            << input->outputSettingsError()->description();
    }
    auto good = AVAssetWriterInput::assetWriterInputWithMediaType(
        AVMediaTypeVideo, settingsFor(AVVideoCodecTypeH264, 64, 48));
    EXPECT_FALSE(good->outputSettingsError());
}

}  // namespace
