#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "platform/MediaTestSupport.h"

using command_test::filesIn;
using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;
using testing_support::TestHome;

namespace {

// A movie through "Unwarp 1.33x" and a Live Photo pair: every result in the output folder at
// its exact size, the Live Photo's movie beside its still, nothing left in the program's own
// folders.
TEST(ProcessVideoCommandMedia, MoviesAndLivePhotos) {
    TestHome home;
    const std::string clip = media_test::makeMovie(
        home, "clip.mov",
        "-f lavfi -i testsrc2=size=160x90:rate=25 -f lavfi -i sine=sample_rate=48000 -t 0.4 "
        "-c:v libx264 -pix_fmt yuv420p -c:a aac");
    ASSERT_FALSE(clip.empty());
    const std::string still = home.path("still.jpg");
    ASSERT_EQ(
        testing_support::runCommand("convert -size 400x300 gradient:red-blue '" + still + "'"), 0);
    std::filesystem::create_directory(home.path("out"));
    const std::string out = home.path("out");

    Outcome movie =
        unwarp(home, "process --template uw-133 --json --out '" + out + "' '" + clip + "'");
    ASSERT_EQ(movie.exitCode, 0) << movie.err;
    json line = json::parse(movie.out, nullptr, false);
    EXPECT_EQ(line["output"], home.path("out/clip.mov"));
    EXPECT_EQ(line["mediaType"], 2);
    EXPECT_EQ(line["width"], 212);
    EXPECT_EQ(line["height"], 90);
    EXPECT_TRUE(media_test::has(
        media_test::probe(home.path("out/clip.mov"), "-select_streams v -show_streams"),
        "width=212\nheight=90"));

    ASSERT_EQ(unwarp(home, "settings set livePhotoEnabled true").exitCode, 0);
    ASSERT_EQ(unwarp(home, "settings set isAutoSaveEnabled true").exitCode, 0);
    Outcome live = unwarp(home, "process --template uw-133 --json --out '" + out + "' --live '" +
                                    still + "' '" + clip + "'");
    ASSERT_EQ(live.exitCode, 0) << live.err;
    line = json::parse(live.out, nullptr, false);
    EXPECT_EQ(line["output"], home.path("out/still.jpg"));
    // Shared by the export rules, a Live Photo leaves as its still; its movie stays with the
    // result.
    EXPECT_EQ(filesIn(out), (std::vector<std::string>{"clip.mov", "still.jpg"}));
    EXPECT_TRUE(filesIn(home.path("documents/_vrtempvideodir")).empty());

    EXPECT_EQ(
        unwarp(home, "process --template uw-133 --live '" + clip + "' '" + still + "'").exitCode,
        2);
    EXPECT_EQ(unwarp(home, "process --template uw-133").exitCode, 2);
}

// Ctrl-C while a movie is being encoded cancels the job: exit code 130 and no partial file.
TEST(ProcessVideoCommandMedia, InterruptCancelsTheJobAndLeavesNoFile) {
    TestHome home;
    const std::string clip = media_test::makeMovie(
        home, "long.mov",
        "-f lavfi -i testsrc2=size=640x360:rate=25 -t 20 -c:v libx264 -preset ultrafast");
    ASSERT_FALSE(clip.empty());
    std::filesystem::create_directory(home.path("out"));
    const std::string out = home.path("out");
    EXPECT_EQ(
        command_test::interruptedProcess(home, "uw-133", out, clip, command_test::showsProgress),
        130);
    EXPECT_TRUE(filesIn(out).empty());
    EXPECT_TRUE(filesIn(home.path("documents/_vrtempvideodir")).empty());
}

}  // namespace
