// What the movies of the video resizer hold, read back by ffprobe and ffmpeg: codecs the
// container can take, exact odd sizes, a bit rate that keeps the picture, and tracks
// interleaved in time order.
#include <gtest/gtest.h>


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

VRVideoResizeOptions optionsOf(VRFormatType type, CGSize size, std::int64_t codecType) {
    VRVideoResizeOptions options;
    options.fileFormat = VRFormat::formatWithType(type);
    options.imageFrame = {{0, 0}, size};
    options.codecType = codecType;
    return options;
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

    for (std::int64_t codecType : {VRCodecTypeH264, VRCodecTypeHEVC}) {
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

}  // namespace
