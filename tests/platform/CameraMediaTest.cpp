// The camera through FFmpeg's device input, with lavfi's test source standing in for a device:
// stills of the source's size, movies of the asked length as ffprobe reads them, and devices
// that are missing or refuse, leaving no file behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "platform/Camera.h"
#include "platform/MediaTestSupport.h"
#include "support/TestHome.h"

using namespace platform;
using media_test::probe;
using testing_support::namesIn;
using testing_support::TestHome;

namespace {

TEST(CameraMediaTest, StillHasTheSizeAndPicturesOfTheSource) {
    // testsrc2 draws a coloured pattern: a still that comes out black or grey would mean the
    // conversion lost the picture.
    ErrorRef error;
    auto still = Camera("lavfi:testsrc2=size=320x240:rate=10").captureStill(&error);
    ASSERT_TRUE(still) << (error ? error->description() : "");
    EXPECT_EQ(still->image.width(), 320u);
    EXPECT_EQ(still->image.height(), 240u);
    EXPECT_EQ(still->imageOrientation, 0);
    bool coloured = false;
    for (std::size_t x = 0; x < 320 && !coloured; x += 8) {
        const auto p = still->image.pixelAt(x, 120);
        coloured = std::abs(int(p.r) - int(p.g)) > 10000 || std::abs(int(p.g) - int(p.b)) > 10000;
    }
    EXPECT_TRUE(coloured);
}

TEST(CameraMediaTest, MovieLastsTheAskedSecondsInAQuickTimeFile) {
    struct Case {
        const char* device;
        double seconds;
        const char* size;
    };
    const Case cases[] = {
        {"lavfi:testsrc=size=320x240:rate=10", 1.0, "width=320\nheight=240"},
        {"lavfi:testsrc=size=160x120:rate=25", 2.0, "width=160\nheight=120"},
        // Odd sides lose their last row and column for H.264's 4:2:0.
        {"lavfi:testsrc=size=161x121:rate=25", 0.5, "width=160\nheight=120"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.device);
        TestHome home;
        const std::string path = home.path("clip.mov");
        ErrorRef error;
        ASSERT_TRUE(Camera(c.device).recordMovie(c.seconds, path, &error))
            << (error ? error->description() : "");
        const std::string format = probe(path, "-show_entries format=format_name,duration");
        EXPECT_TRUE(media_test::has(format, "format_name=mov,")) << format;
        const auto at = format.find("duration=");
        ASSERT_NE(at, std::string::npos) << format;
        const double duration = std::atof(format.c_str() + at + 9);
        const double frame = c.seconds == 1.0 ? 0.1 : 0.04;
        EXPECT_NEAR(duration, c.seconds, frame) << format;
        const std::string stream =
            probe(path, "-select_streams v -show_entries stream=codec_name,width,height");
        EXPECT_TRUE(media_test::has(stream, "codec_name=h264")) << stream;
        EXPECT_TRUE(media_test::has(stream, c.size)) << stream;
        // The unique name it was written under is gone.
        EXPECT_EQ(namesIn(home.root()), std::vector<std::string>{"clip.mov"});
    }
}

TEST(CameraMediaTest, MissingOrRefusingDevicesGiveAnErrorAndNoFile) {
    struct Case {
        std::string device;
        std::string words;
    };
    TestHome home;
    const Case cases[] = {
        {home.path("video9"), "No camera at " + home.path("video9")},
        {"lavfi:nosuchsource", "The camera lavfi:nosuchsource can't be opened"},
        {"nosuchformat:x", "No camera input \"nosuchformat\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.device);
        ErrorRef stillError, movieError;
        EXPECT_FALSE(Camera(c.device).captureStill(&stillError));
        EXPECT_FALSE(Camera(c.device).recordMovie(1, home.path("clip.mov"), &movieError));
        ASSERT_TRUE(stillError && movieError);
        EXPECT_NE(stillError->localizedDescription().find(c.words), std::string::npos)
            << stillError->localizedDescription();
        EXPECT_EQ(movieError->localizedDescription(), stillError->localizedDescription());
        EXPECT_TRUE(namesIn(home.root()).empty());
    }
    // The missing device is told apart by its code.
    ErrorRef error;
    Camera(home.path("video9")).captureStill(&error);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), AVErrorDeviceNotConnected);
}

TEST(CameraMediaTest, MovieNeverReplacesAFileNorTakesABadLength) {
    TestHome home;
    testing_support::touch(home.path("clip.mov"));
    const Camera camera("lavfi:testsrc=size=64x48:rate=10");
    ErrorRef error;
    EXPECT_FALSE(camera.recordMovie(1, home.path("clip.mov"), &error));
    EXPECT_EQ(probe(home.path("clip.mov"), "-show_entries format=duration").find("duration="),
              std::string::npos);
    for (double seconds : {0.0, -1.0, 3601.0, std::nan("")}) {
        error = nullptr;
        EXPECT_FALSE(camera.recordMovie(seconds, home.path("other.mov"), &error)) << seconds;
        EXPECT_TRUE(error) << seconds;
    }
    // A folder that isn't there is no fault of the camera.
    error = nullptr;
    EXPECT_FALSE(camera.recordMovie(1, home.path("none/clip.mov"), &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(namesIn(home.root()), std::vector<std::string>{"clip.mov"});
}

}  // namespace
