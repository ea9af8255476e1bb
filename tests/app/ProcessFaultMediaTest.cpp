// Faults of the `process` command around its temporary files: two runs on one home at once,
// kill -9 in the middle of a photo or a movie followed by a start, termination and hang-up.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"
#include "platform/MediaTestSupport.h"

using command_test::allFilesUnder;
using command_test::filesIn;
using command_test::finish;
using command_test::Outcome;
using command_test::start;
using command_test::unwarp;
using command_test::waitUntil;
using testing_support::TestHome;

namespace {

namespace fs = std::filesystem;

// A file of this name somewhere under `folder`.
bool hasFileEndingIn(const std::string& folder, const std::string& ending) {
    for (const auto& name : allFilesUnder(folder))
        if (name.size() >= ending.size() &&
            name.compare(name.size() - ending.size(), ending.size(), ending) == 0)
            return true;
    return false;
}

// What a start must leave: nothing of the program's temporaries, and no owner's lock. The
// template lists and the stored results are the user's and stay.
void expectNoTemporaries(const TestHome& home) {
    std::vector<std::string> left;
    for (const auto& name : allFilesUnder(home.path("documents")))
        if (name.rfind("templates/", 0) != 0 && name.rfind("_cs-templates/", 0) != 0 &&
            name.rfind("results/", 0) != 0)
            left.push_back(name);
    EXPECT_EQ(left, std::vector<std::string>{});
    EXPECT_EQ(allFilesUnder(home.path("tmp")), std::vector<std::string>{});
}

std::string widthOf(const std::string& movie) {
    return media_test::probe(movie, "-select_streams v -show_entries stream=width");
}

// Two runs on one home at once, on two different movies and two different photos of the same
// name: each reports its own result, at its own size.
TEST(ProcessFaultMedia, TwoRunsOnOneHomeEachGetTheirOwnResult) {
    TestHome home;
    fs::create_directories(home.path("a"));
    fs::create_directories(home.path("b"));
    const std::string narrow = media_test::makeMovie(
        home, "a/clip.mov", "-f lavfi -i testsrc2=size=160x90:rate=25 -t 2 -c:v libx264");
    const std::string wide = media_test::makeMovie(
        home, "b/clip.mov", "-f lavfi -i testsrc2=size=240x90:rate=25 -t 2 -c:v libx264");
    ASSERT_FALSE(narrow.empty() || wide.empty());
    photo_test::quadrants(home, "a/IMG_1.png", 400, 300);
    photo_test::quadrants(home, "b/IMG_1.png", 300, 300);
    auto first = start(home,
                       {"process", "--template", "uw-133", "--json", "--out", home.path("outA"),
                        narrow, home.path("a/IMG_1.png")},
                       "first");
    auto second = start(home,
                        {"process", "--template", "uw-133", "--json", "--out", home.path("outB"),
                         wide, home.path("b/IMG_1.png")},
                        "second");
    Outcome a = finish(first);
    Outcome b = finish(second);
    ASSERT_EQ(a.exitCode, 0) << a.err;
    ASSERT_EQ(b.exitCode, 0) << b.err;
    EXPECT_TRUE(media_test::has(widthOf(home.path("outA/clip.mov")), "width=212"));
    EXPECT_TRUE(media_test::has(widthOf(home.path("outB/clip.mov")), "width=320"));
    EXPECT_EQ(photo_test::vipsSize(home.path("outA/IMG_1.png")), "532x300");
    EXPECT_EQ(photo_test::vipsSize(home.path("outB/IMG_1.png")), "399x300");
    expectNoTemporaries(home);
}

// kill -9 while a photo is being written leaves its temporaries; the next start of any command
// removes them.
TEST(ProcessFaultMedia, KillNineMidPhotoLeavesNothingAfterTheNextStart) {
    TestHome home;
    const std::string source = home.path("big.png");
    photo_test::run("convert -size 4000x4000 xc:gray -seed 1 +noise Random '" + source + "'");
    auto running = start(
        home, {"process", "--template", "uw-200", "--out", home.path("out"), source}, "photo");
    // The encoder's partial file marks the moment.
    const bool writing =
        waitUntil(home, [&] { return hasFileEndingIn(home.path("documents"), ".part"); });
    kill(running.pid, SIGKILL);
    EXPECT_EQ(finish(running).exitCode, 128 + SIGKILL);
    ASSERT_TRUE(writing) << "no partial file appeared";
    EXPECT_FALSE(allFilesUnder(home.path("documents")).empty());

    ASSERT_EQ(unwarp(home, "templates").exitCode, 0);
    expectNoTemporaries(home);
    EXPECT_TRUE(filesIn(home.path("out")).empty());
}

// The same in the middle of a Live Photo's movie: the movie's temporary output and the link to
// the source movie both go at the next start.
TEST(ProcessFaultMedia, KillNineMidLivePhotoMovieLeavesNothingAfterTheNextStart) {
    TestHome home;
    const std::string movie = media_test::makeMovie(
        home, "IMG_2.mov",
        "-f lavfi -i testsrc2=size=640x360:rate=25 -t 20 -c:v libx264 -preset ultrafast");
    ASSERT_FALSE(movie.empty());
    const std::string still = photo_test::quadrants(home, "IMG_2.jpg", 640, 360);
    ASSERT_EQ(unwarp(home, "settings set livePhotoEnabled true").exitCode, 0);
    ASSERT_EQ(unwarp(home, "settings set isAutoSaveEnabled true").exitCode, 0);
    auto running = start(
        home,
        {"process", "--template", "uw-133", "--out", home.path("out"), "--live", still, movie},
        "live");
    const bool encoding = waitUntil(
        home, [&] { return !allFilesUnder(home.path("documents/_vrtempvideodir")).empty(); });
    kill(running.pid, SIGKILL);
    finish(running);
    ASSERT_TRUE(encoding) << "no temporary movie appeared";
    EXPECT_TRUE(hasFileEndingIn(home.path("tmp"), "IMG_2-livePhotoVideo.mov"));

    ASSERT_EQ(unwarp(home, "templates").exitCode, 0);
    expectNoTemporaries(home);
}

// Another start while a movie is encoded keeps that process's temporaries; a termination then
// ends the run with 143 and removes them, and a hang-up does the same with 129.
TEST(ProcessFaultMedia, RunningTemporariesSurviveAStartAndGoWithTheSignal) {
    TestHome home;
    const std::string movie = media_test::makeMovie(
        home, "long.mov",
        "-f lavfi -i testsrc2=size=640x360:rate=25 -t 20 -c:v libx264 -preset ultrafast");
    ASSERT_FALSE(movie.empty());
    const std::string videos = home.path("documents/_vrtempvideodir");
    for (int signal : {SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        auto running = start(
            home, {"process", "--template", "uw-133", "--out", home.path("out"), movie}, "long");
        ASSERT_TRUE(waitUntil(home, [&] { return !allFilesUnder(videos).empty(); }));
        const auto before = allFilesUnder(videos);
        ASSERT_EQ(unwarp(home, "templates").exitCode, 0);
        EXPECT_EQ(allFilesUnder(videos), before);
        kill(running.pid, signal);
        Outcome ended = finish(running);
        EXPECT_EQ(ended.exitCode, 128 + signal) << ended.err;
        expectNoTemporaries(home);
        EXPECT_TRUE(filesIn(home.path("out")).empty());
    }
}

}  // namespace
