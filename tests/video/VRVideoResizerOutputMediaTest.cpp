// What the movies of the video resizer hold, read back by ffprobe and ffmpeg: codecs the
// container can take, exact odd sizes, a bit rate that keeps the picture, and tracks
// interleaved in time order.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "model/VRSizeResolver.h"
#include "model/VXHelperDevice.h"
#include "video/VideoJobSupport.h"

namespace {

using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using video_test::describe;
using video_test::JobResult;
using video_test::runJob;

VRVideoResizeOptions optionsOf(VRFormatType type, CGSize size, VRCodecType codecType) {
    VRVideoResizeOptions options;
    options.fileFormat = VRFormat::formatWithType(type);
    options.imageFrame = {{0, 0}, size};
    options.codecType = codecType;
    return options;
}

// A source with alpha goes to a codec the container takes: ProRes 4444 (with its alpha) only
// into a QuickTime movie, HEVC where it was asked for and the container holds it, else H.264.
TEST(VRVideoResizerOutputMedia, AlphaSourceGetsACodecTheContainerHolds) {
    testing_support::TestHome home;
    const std::string qtrle =
        makeMovie(home, "alpha.mov",
                  "-f lavfi -i testsrc2=size=96x64:rate=25 -t 0.2 -vf format=argb -c:v qtrle");
    const std::string prores = makeMovie(home, "alpha4444.mov",
                                         "-f lavfi -i testsrc2=size=96x64:rate=25 -t 0.2 -vf "
                                         "format=yuva444p10le -c:v prores_ks -profile:v 4444");
    ASSERT_FALSE(qtrle.empty());
    ASSERT_FALSE(prores.empty());
    struct Case {
        const std::string* source;
        VRFormatType type;
        VRCodecType codecType;
        const char* codec;
    };
    const Case cases[] = {
        {&qtrle, VRFormatTypeMP4, VRCodecTypeSource, "codec_name=h264\n"},
        {&prores, VRFormatTypeMP4, VRCodecTypeSource, "codec_name=h264\n"},
        {&qtrle, VRFormatTypeMP4, VRCodecTypeHEVC, "codec_name=hevc\n"},
        {&prores, VRFormatTypeM4V, VRCodecTypeH264, "codec_name=h264\n"},
        {&qtrle, VRFormatType3GP, VRCodecTypeHEVC, "codec_name=h264\n"},
        {&qtrle, VRFormatType3G2, VRCodecTypeSource, "codec_name=h264\n"},
        {&qtrle, VRFormatTypeMOV, VRCodecTypeSource, "codec_name=prores\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(*c.source + " " + std::to_string(c.type) + " " + std::to_string(c.codecType));
        JobResult r = runJob(*c.source, "alpha", optionsOf(c.type, {96, 64}, c.codecType));
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::string video = probe(*r.url, "-select_streams v:0 -show_streams");
        EXPECT_TRUE(has(video, c.codec)) << video;
        EXPECT_TRUE(has(video, "width=96\nheight=64")) << video;
    }
}

// A template of 8 x 6 pixels gives a video of 21 x 16, whole but not even pixels; the movie
// holds exactly that size, in both codecs.
TEST(VRVideoResizerOutputMedia, OddResolvedSizeIsTheSizeOfTheMovie) {
    testing_support::TestHome home;
    const std::string source = makeMovie(home, "clip.mp4",
                                         "-f lavfi -i testsrc2=size=160x90:rate=25 -t 0.3 "
                                         "-c:v libx264 -pix_fmt yuv420p");
    ASSERT_FALSE(source.empty());
    VRResolveRequest request;
    request.mediaType = VRFormatMediaTypeVideo;
    request.sizeEntry = VRSizeEntry::sizeEntryWithWidth(8, 6, VRSizeTypePixels);
    request.options = {VRSizeOptionStretch, VRSizeOptionNormal};
    request.format = VRFormat::formatWithType(VRFormatTypeMP4);
    request.sourceSize = {160, 90};
    request.sourcePath = source;
    request.limits = VRDeviceLimits::currentDevice();
    const VRResolvedOutput resolved = VXHelper::resolveOutput(request);
    ASSERT_EQ(resolved.outputSize, (CGSize{21, 16}));

    for (VRCodecType codecType : {VRCodecTypeH264, VRCodecTypeHEVC}) {
        SCOPED_TRACE(codecType);
        VRVideoResizeOptions options = optionsOf(VRFormatTypeMP4, {21, 16}, codecType);
        options.imageFrame = resolved.imageFrame;
        options.imageArrangement = resolved.arrangement;
        JobResult r = runJob(source, "tiny", options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::string video = probe(*r.url, "-select_streams v:0 -show_streams");
        EXPECT_TRUE(has(video, "width=21\nheight=16")) << video;
        EXPECT_TRUE(has(video, "sample_aspect_ratio=1:1")) << video;
    }
}

// ffmpeg's PSNR of the output against the source scaled to the output's size.
double psnrAgainstSource(const std::string& output, const std::string& source, CGSize size) {
    const std::string scale =
        std::to_string(int(size.width)) + ":" + std::to_string(int(size.height));
    std::string text;
    testing_support::runCommand("ffmpeg -nostdin -hide_banner -i '" + output + "' -i '" + source +
                                    "' -lavfi '[1:v]scale=" + scale +
                                    "[ref];[0:v][ref]psnr' -f null - 2>&1",
                                &text);
    const auto at = text.find("average:");
    if (at == std::string::npos) {
        ADD_FAILURE() << text;
        return 0;
    }
    return std::atof(text.c_str() + at + 8);
}

// A still picture at 15 kbit/s, halved on each side: the rate rescaled by the pixel count
// alone would be under 4 kbit/s and give a grey picture; the floor keeps it.
TEST(VRVideoResizerOutputMedia, StaticLowRateSourceKeepsItsPicture) {
    testing_support::TestHome home;
    const std::string source =
        makeMovie(home, "still.mov",
                  "-f lavfi -i 'testsrc2=s=320x240:r=25:d=0.04,loop=loop=49:size=1:start=0,"
                  "setpts=N/(25*TB)' -c:v libx264 -b:v 20k -pix_fmt yuv420p");
    ASSERT_FALSE(source.empty());
    ASSERT_TRUE(has(probe(source, "-show_entries stream=bit_rate"), "bit_rate=1"));
    JobResult r = runJob(source, "still", optionsOf(VRFormatTypeMP4, {160, 120}, VRCodecTypeH264));
    ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
    EXPECT_GT(psnrAgainstSource(*r.url, source, {160, 120}), 30.0);
}

struct Packet {
    int stream;
    double time;
};

// The packets of the file in file order, with their decode times.
std::vector<Packet> packetsInFileOrder(const std::string& path) {
    std::string text;
    testing_support::runCommand(
        "ffprobe -v error -show_entries packet=stream_index,dts_time,pos "
        "-of csv=p=0 '" +
            path + "'",
        &text);
    std::map<long long, Packet> byPosition;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        int stream = 0;
        double time = 0;
        long long pos = 0;
        if (std::sscanf(line.c_str(), "%d,%lf,%lld", &stream, &time, &pos) == 3) {
            byPosition[pos] = {stream, time};
        }
    }
    std::vector<Packet> packets;
    for (const auto& [pos, packet] : byPosition) packets.push_back(packet);
    return packets;
}

// The largest lead in seconds of a track over a packet of another track that comes later in
// the file.
double largestLead(const std::vector<Packet>& packets) {
    std::map<int, double> latest;
    double lead = 0;
    for (const Packet& p : packets) {
        for (const auto& [stream, time] : latest) {
            if (stream != p.stream) lead = std::max(lead, time - p.time);
        }
        latest[p.stream] = std::max(latest.count(p.stream) ? latest[p.stream] : p.time, p.time);
    }
    return lead;
}

// Pictures and sound lie side by side in the file, in time order, as in the source: longer
// than the muxer's own ten seconds of reordering, so that a track written whole before the
// other shows.
TEST(VRVideoResizerOutputMedia, TracksAreInterleavedInTimeOrder) {
    testing_support::TestHome home;
    const std::string source =
        makeMovie(home, "long.mov",
                  "-f lavfi -i testsrc2=size=64x36:rate=10 -f lavfi -i sine=sample_rate=16000 "
                  "-t 25 -c:v libx264 -pix_fmt yuv420p -c:a aac -b:a 32k");
    ASSERT_FALSE(source.empty());
    for (VRFormatType type : {VRFormatTypeMOV, VRFormatTypeMP4}) {
        SCOPED_TRACE(type);
        JobResult r = runJob(source, "long", optionsOf(type, {96, 36}, VRCodecTypeSource));
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        const std::vector<Packet> packets = packetsInFileOrder(*r.url);
        ASSERT_GT(packets.size(), 600u);
        EXPECT_LE(largestLead(packets), 1.0);
    }
}

}  // namespace

namespace {

// Red on 8-bit video range with the 709 matrix: Y 63, Cb 102, Cr 240.
struct Bars {
    int y, cb, cr;
};

Bars barsOf(const std::vector<std::uint8_t>& frame, int w, int h) {
    const int cw = w / 2, ch = h / 2;
    return {frame[1 * w + 1], frame[w * h + cw / 2], frame[w * h + cw * ch + cw / 2]};
}

}  // namespace

// The decoder's chroma comes as two planes (yuv420p) or in pairs (nv12): both are drawn to the
// same picture, bars of the fill colour included, Cb and Cr each in its place.
TEST(VRVideoResizerOutputMedia, EitherChromaLayoutGivesTheSamePicture) {
    testing_support::TestHome home;
    std::vector<std::vector<std::uint8_t>> frames;
    for (const char* layout : {"yuv420p", "nv12"}) {
        SCOPED_TRACE(layout);
        const std::string source = makeMovie(
            home, std::string(layout) + ".mkv",
            std::string("-f lavfi -i testsrc2=size=160x90:rate=25 -t 0.2 -c:v rawvideo ") +
                "-color_range tv -colorspace bt709 -pix_fmt " + layout);
        ASSERT_FALSE(source.empty());
        VRVideoResizeOptions options;
        options.fileFormat = VRFormat::formatWithType(VRFormatTypeMP4);
        options.imageFrame = {{6, 0}, {96, 96}};
        options.imageArrangement = VRImageArrangement::fit;
        options.fillColor = VRColor{1, 0, 0, 1};
        options.bitrate = 20'000'000;
        JobResult r = runJob(source, layout, options);
        ASSERT_EQ(r.status, VRVideoResizeStatus::finished) << describe(r);
        frames.push_back(video_test::rawFrame(*r.url, "yuv420p", 2));
        ASSERT_EQ(frames.back().size(), 96u * 96 * 3 / 2);
        const Bars bars = barsOf(frames.back(), 96, 96);
        EXPECT_NEAR(bars.y, 63, 2);
        EXPECT_NEAR(bars.cb, 102, 2);
        EXPECT_NEAR(bars.cr, 240, 2);
    }
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_TRUE(frames[0] == frames[1]) << "the two layouts drew different pictures";
}
