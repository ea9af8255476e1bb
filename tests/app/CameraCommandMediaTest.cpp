// `unwarp camera` run as the command, with lavfi's test source as the camera: what it prints,
// the file it leaves, the cameraDevice setting, and its errors.
#include <gtest/gtest.h>

#include "app/CommandSupport.h"

using command_test::unwarp;
using testing_support::runCommand;
using testing_support::TestHome;

namespace {

std::string probeDuration(const std::string& path) {
    std::string out;
    runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + path + "'", &out);
    return out;
}

TEST(CameraCommand, PrintsTheCaptureItLeavesInTheAssetsFolder) {
    TestHome home;
    const std::string assets = home.path("documents/user/assets");
    auto photo = unwarp(home, "camera --photo --device 'lavfi:testsrc=size=200x100:rate=5'");
    ASSERT_EQ(photo.exitCode, 0) << photo.err;
    EXPECT_EQ(photo.out, assets + "/camera.jpg\nsize: 200x100\n");

    // The setting names the camera when --device doesn't.
    ASSERT_EQ(
        unwarp(home, "settings set cameraDevice 'lavfi:testsrc=size=160x120:rate=20'").exitCode, 0);
    auto movie = unwarp(home, "camera --movie 0.5");
    ASSERT_EQ(movie.exitCode, 0) << movie.err;
    EXPECT_EQ(movie.out, assets + "/camera.mov\nsize: 160x120\nduration: 0.500 s\n");
    EXPECT_NEAR(std::atof(probeDuration(assets + "/camera.mov").c_str()), 0.5, 0.05);
    EXPECT_EQ(command_test::filesIn(assets), std::vector<std::string>{"camera.mov"});
}

TEST(CameraCommand, RefusesBadRequestsAndMissingCameras) {
    TestHome home;
    struct Case {
        std::string arguments;
        int exitCode;
        std::string words;
    };
    const Case cases[] = {
        {"camera", 2, "Exactly 1 option from [--photo,--movie] is required"},
        {"camera --photo --movie 1 --device lavfi:testsrc", 2, "Exactly 1 option"},
        {"camera --movie 0 --device lavfi:testsrc", 2, "--movie"},
        {"camera --movie 3601 --device lavfi:testsrc", 2, "--movie"},
        {"camera --photo --device " + home.path("video5"), 1,
         "unwarp: nothing was captured: No camera at " + home.path("video5")},
        {"camera --movie 1 --device " + home.path("video5"), 1,
         "unwarp: nothing was captured: No camera at " + home.path("video5")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        auto outcome = unwarp(home, c.arguments);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_NE(outcome.err.find(c.words), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
    std::string left;
    runCommand("find '" + home.root() + "' -name '*camera*'", &left);
    EXPECT_EQ(left, "");
}

}  // namespace
