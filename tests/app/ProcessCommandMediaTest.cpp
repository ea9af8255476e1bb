#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"

using command_test::filesIn;
using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;
using photo_test::quadrants;
using photo_test::run;
using photo_test::vipsSize;
using testing_support::TestHome;

namespace {

TEST(ProcessCommandMedia, ResultsGoToTheOutputFolderWithOneJsonObjectALine) {
    TestHome home;
    const std::string a = quadrants(home, "a.jpg", 120, 90);
    const std::string b = quadrants(home, "b.png", 90, 120);
    std::filesystem::create_directory(home.path("out"));
    Outcome o = unwarp(home, "process --template ig-square --json --out '" + home.path("out") +
                                 "' '" + a + "' '" + b + "'");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    auto objects = command_test::jsonLines(o.out);
    ASSERT_EQ(objects.size(), 2u) << o.out;
    EXPECT_EQ(objects[0]["source"], a);
    EXPECT_EQ(objects[0]["output"], home.path("out/a.jpg"));
    EXPECT_EQ(objects[0]["mediaType"], 1);
    EXPECT_EQ(objects[0]["width"], 1080);
    EXPECT_EQ(objects[0]["height"], 1080);
    EXPECT_EQ(objects[0]["format"], "JPEG");
    EXPECT_EQ(objects[1]["output"], home.path("out/b.jpg"));
    EXPECT_EQ(filesIn(home.path("out")), (std::vector<std::string>{"a.jpg", "b.jpg"}));
    EXPECT_EQ(vipsSize(home.path("out/b.jpg")), "1080x1080");
    // Nothing is left beside the result store, which keeps the results.
    EXPECT_EQ(filesIn(home.path("documents")), std::vector<std::string>{"results"});
    EXPECT_NE(o.err.find("[2/2]"), std::string::npos) << o.err;
}

TEST(ProcessCommandMedia, AdjustmentsReachThePixels) {
    TestHome home;
    const std::string a = quadrants(home, "a.png", 100, 50);
    std::filesystem::create_directory(home.path("out"));
    struct Case {
        std::string flags;
        std::string corners;
        std::string size;
    };
    const std::vector<Case> cases = {
        {"", "RGBW", "100x50"},
        {"--flip-h", "GRWB", "100x50"},
        {"--flip-v", "BWRG", "100x50"},
        {"--rotate 90", "BRWG", "50x100"},
        {"--rotate -90", "GWRB", "50x100"},
        {"--rotate 180 --flip-h", "BWRG", "100x50"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.flags);
        Outcome o = unwarp(home, "process --template uw-133 --out '" + home.path("out") + "' " +
                                     c.flags + " '" + a + "'");
        ASSERT_EQ(o.exitCode, 0) << o.err;
        const std::string out = home.path("out/a.png");
        auto pixels = photo_test::decode(out);
        ASSERT_TRUE(pixels);
        EXPECT_EQ(photo_test::corners(*pixels), c.corners);
        // uw-133 widens by 1.33 whatever the turn (Smart size follows the shape).
        EXPECT_EQ(vipsSize(out), c.size == "100x50" ? "133x50" : "50x133");
        // The next result would not replace this one.
        std::filesystem::remove(out);
    }
    // A fill colour shows in the margins of a fit template.
    Outcome o = unwarp(home, "process --template ig-square-fit --fill '#0000FF' --out '" +
                                 home.path("out") + "' '" + a + "'");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    auto fit = photo_test::decode(home.path("out/a.jpg"));
    ASSERT_TRUE(fit);
    EXPECT_EQ(photo_test::colourAt(*fit, 540, 40), 'B');
    EXPECT_EQ(photo_test::colourAt(*fit, 540, 1040), 'B');
}

TEST(ProcessCommandMedia, TheLimitIsRefusedWithTheQuestionOrTakenWithYes) {
    TestHome home;
    const std::string wide = home.path("wide.png");
    run("convert -size 7000x10 xc:gray '" + wide + "'");
    const std::string out = home.path("out");
    std::filesystem::create_directory(out);
    const std::string result = home.path("out/wide.png");
    const std::string command = "process --template uw-133 --out '" + out + "' ";
    // uw-133 makes 9310 x 10, above 8192 on a side.
    Outcome refused = unwarp(home, command + "'" + wide + "'");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("Target size 9310 x 10 px exceeds maximum supported size. Would "
                               "you like to proceed using smaller size 8192 x 9 px?"),
              std::string::npos)
        << refused.err;
    EXPECT_FALSE(std::filesystem::exists(result));

    Outcome json1 = unwarp(home, command + "--json '" + wide + "'");
    EXPECT_EQ(json1.exitCode, 1);
    auto objects = command_test::jsonLines(json1.out);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["error"]["code"], 5);
    EXPECT_EQ(objects[0]["error"]["userInfo"]["VRErrorUserInfoCorrectingSizesKey"],
              json::parse("[[8192, 9]]"));
    EXPECT_TRUE(objects[0]["error"]["userInfo"]["VRErrorUserInfoCorrectingSizesKey"][0][0]
                    .is_number_integer());

    Outcome yes = unwarp(home, command + "--yes '" + wide + "'");
    EXPECT_EQ(yes.exitCode, 0) << yes.err;
    EXPECT_EQ(vipsSize(result), "8192x9");

    // The setting switched off takes the correction too.
    std::filesystem::remove(result);
    ASSERT_EQ(unwarp(home, "settings set isNotifyExceedingMaxSizeEnabled false").exitCode, 0);
    Outcome quiet = unwarp(home, command + "'" + wide + "'");
    EXPECT_EQ(quiet.exitCode, 0) << quiet.err;
    EXPECT_EQ(vipsSize(result), "8192x9");
}

TEST(ProcessCommandMedia, AResultNeverReplacesItsSource) {
    TestHome home;
    const std::string source = quadrants(home, "IMG_1.png", 40, 30);
    const std::string before = photo_test::run("md5sum < '" + source + "'");
    Outcome same =
        unwarp(home, "process --template uw-133 --out '" + home.root() + "' '" + source + "'");
    EXPECT_EQ(same.exitCode, 0) << same.err;
    EXPECT_EQ(vipsSize(home.path("IMG_1-1.png")), "53x30");
    EXPECT_EQ(photo_test::run("md5sum < '" + source + "'"), before);
    EXPECT_EQ(filesIn(home.path("documents")), std::vector<std::string>{"results"});
    // With the suffix on, the result lies beside its source under its own name.
    ASSERT_EQ(unwarp(home, "settings set isOriginalFilenameSuffixEnabled true").exitCode, 0);
    Outcome beside =
        unwarp(home, "process --template uw-133 --out '" + home.root() + "' '" + source + "'");
    EXPECT_EQ(beside.exitCode, 0) << beside.err;
    EXPECT_EQ(vipsSize(home.path("IMG_1-uwrp.png")), "53x30");
    EXPECT_EQ(photo_test::run("md5sum < '" + source + "'"), before);
}

TEST(ProcessCommandMedia, FailuresStopTheRunWithTheirWords) {
    TestHome home;
    const std::string good = quadrants(home, "good.jpg", 40, 30);
    const std::string bad = home.path("bad.jpg");
    std::ofstream(bad) << "not a picture";
    const std::string movie = home.path("clip.mov");
    std::ofstream(movie) << "not a movie either";
    std::filesystem::create_directory(home.path("out"));
    struct Case {
        std::string arguments;
        int exitCode;
        std::string words;
    };
    const std::vector<Case> cases = {
        {"'" + bad + "' '" + good + "'", 1,
         "bad.jpg: Unable to save media to photo library. A problem may occur when not enough "
         "free space or format is not supported."},
        {"'" + home.path("gone.jpg") + "'", 1, "Unable to load media for processing."},
        {"'" + movie + "'", 1, "clip.mov: Unable to unwarp media."},
        {"--rotate 45 '" + good + "'", 2, "--rotate 45"},
        {"--fill red '" + good + "'", 2, "--fill red"},
        {"--shift 3 '" + good + "'", 2, "--shift 3"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        Outcome o =
            unwarp(home, "process --template uw-133 --out '" + home.root() + "' " + c.arguments);
        EXPECT_EQ(o.exitCode, c.exitCode);
        EXPECT_NE(o.err.find(c.words), std::string::npos) << o.err;
        // The run stopped at the failing file: the good one after it was not made.
        EXPECT_TRUE(filesIn(home.path("out")).empty());
    }
    EXPECT_EQ(unwarp(home, "process --template no-such '" + good + "'").exitCode, 2);
    // --out names a file, not a folder.
    EXPECT_EQ(
        unwarp(home, "process --template uw-133 --out '" + good + "' '" + good + "'").exitCode, 2);
}

TEST(ProcessCommandMedia, InterruptCancelsAndLeavesNoFile) {
    TestHome home;
    // uw-200 makes an 8000 x 4000 PNG of noise: long enough to be interrupted at work.
    const std::string source = home.path("big.png");
    run("convert -size 4000x4000 xc:gray -seed 1 +noise Random '" + source + "'");
    std::filesystem::create_directory(home.path("out"));
    const std::string out = home.path("out");
    // The signal comes once the file is opened; its decode, draw and encode take seconds.
    EXPECT_EQ(command_test::interruptedProcess(home, "uw-200", out, source,
                                               command_test::startedFirstFile),
              130);
    EXPECT_TRUE(filesIn(out).empty());
    EXPECT_TRUE(filesIn(home.path("documents")).empty());
}

}  // namespace
