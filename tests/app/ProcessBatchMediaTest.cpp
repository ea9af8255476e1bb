// `unwarp process` as one batch run: folders in name order, Live Photo pairs found in a folder,
// a failure in the middle (stopping the run, or recorded with --keep-going), custom names in
// --out, and the limit question answered by flag over several items.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "support/FakeMailProgram.h"

using command_test::contentsOf;
using command_test::filesIn;
using command_test::inQuotes;
using command_test::jsonLines;
using command_test::Outcome;
using command_test::unwarp;
using photo_test::quadrants;
using testing_support::TestHome;

namespace {

namespace fs = std::filesystem;

std::vector<std::string> sourcesOf(const Outcome& o) {
    std::vector<std::string> names;
    for (const auto& line : jsonLines(o.out))
        if (line.contains("output")) names.push_back(line.value("source", "?"));
    return names;
}

// What a folder gives: its photos and movies in name order, hidden and other files left out,
// a subfolder's files at its place only with --recursive.
TEST(ProcessBatchMedia, FoldersGiveTheirMediaInNameOrder) {
    TestHome home;
    fs::create_directories(home.path("in/m/n"));
    for (const char* name :
         {"in/b.png", "in/a.jpg", "in/m/x.png", "in/m/n/y.png", "in/z.png", "in/.hidden.png"})
        quadrants(home, name, 40, 30);
    std::ofstream(home.path("in/notes.txt")) << "not media";
    const std::string in = home.path("in");
    struct Row {
        std::string flags;
        std::vector<std::string> sources;
    } rows[] = {
        {"", {in + "/a.jpg", in + "/b.png", in + "/z.png"}},
        {"--recursive",
         {in + "/a.jpg", in + "/b.png", in + "/m/n/y.png", in + "/m/x.png", in + "/z.png"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        Outcome o =
            unwarp(home, "process --template uw-133 --json " + row.flags + " " + inQuotes(in));
        ASSERT_EQ(o.exitCode, 0) << o.err;
        EXPECT_EQ(sourcesOf(o), row.sources);
        EXPECT_NE(o.err.find("[" + std::to_string(row.sources.size()) + "/" +
                             std::to_string(row.sources.size()) + "]"),
                  std::string::npos)
            << o.err;
    }
    // A folder with nothing to process is a usage slip.
    fs::create_directories(home.path("empty"));
    EXPECT_EQ(unwarp(home, "process --template uw-133 " + inQuotes(home.path("empty"))).exitCode,
              2);
}

// A still and a movie of one stem that carry the same pairing key are one Live Photo asset
// when Live Photos are on; a same-stem movie without the key stays an asset of its own.
TEST(ProcessBatchMedia, AFoldersLivePhotoPairIsOneAsset) {
    TestHome home;
    using photolibrary_test::makeJpeg;
    using photolibrary_test::makeMovie;
    makeJpeg(home.path("in/IMG_1.jpg"), 60, 40);
    photolibrary_test::tagStillContentIdentifier(home.path("in/IMG_1.jpg"), "K1");
    makeMovie(home.path("in/IMG_1.mov"),
              "-metadata com.apple.quicktime.content.identifier=K1 -movflags use_metadata_tags");
    makeJpeg(home.path("in/IMG_2.jpg"), 60, 40);
    makeMovie(home.path("in/IMG_2.mov"));
    const std::string in = home.path("in");
    ASSERT_EQ(unwarp(home, "settings set isAutoSaveEnabled true").exitCode, 0);
    struct Row {
        const char* livePhotos;
        std::vector<std::string> sources;
    } rows[] = {
        {"true", {in + "/IMG_1.jpg", in + "/IMG_2.jpg", in + "/IMG_2.mov"}},
        {"false", {in + "/IMG_1.jpg", in + "/IMG_1.mov", in + "/IMG_2.jpg", in + "/IMG_2.mov"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.livePhotos);
        ASSERT_EQ(
            unwarp(home, std::string("settings set livePhotoEnabled ") + row.livePhotos).exitCode,
            0);
        Outcome o = unwarp(home, "process --template uw-133 --json " + inQuotes(in));
        ASSERT_EQ(o.exitCode, 0) << o.err;
        EXPECT_EQ(sourcesOf(o), row.sources);
    }
}

// A corrupt file in the middle stops the run there with its words and exit code 1: the item
// before it is delivered, the one after it is not made, and nothing partial is left. With
// --keep-going the others finish and the summary counts the failure.
TEST(ProcessBatchMedia, AFailureStopsTheRunUnlessItKeepsGoing) {
    TestHome home;
    fs::create_directories(home.path("in"));
    quadrants(home, "in/a.png", 40, 30);
    std::ofstream(home.path("in/b.jpg")) << "not a picture";
    quadrants(home, "in/c.png", 40, 30);
    struct Row {
        std::string flags;
        std::vector<std::string> delivered;
        std::string summary;
    } rows[] = {
        {"", {"a.png"}, "Stopped: 1 result, 1 failure, 1 not processed"},
        {"--keep-going", {"a.png", "c.png"}, "Done: 2 results, 1 failure in"},
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        const std::string out = home.path("out" + std::to_string(n++));
        Outcome o = unwarp(home, "process --template uw-133 " + row.flags + " --out " +
                                     inQuotes(out) + " " + inQuotes(home.path("in")));
        EXPECT_EQ(o.exitCode, 1);
        EXPECT_NE(o.err.find("b.jpg: Unable to save media to photo library. A problem may occur "
                             "when not enough free space or format is not supported."),
                  std::string::npos)
            << o.err;
        EXPECT_NE(o.err.find(row.summary), std::string::npos) << o.err;
        EXPECT_EQ(filesIn(out), row.delivered);
        EXPECT_EQ(command_test::allFilesUnder(home.path("tmp")), std::vector<std::string>{});
    }
}

// --name BASE: one file takes the plain base name, two are numbered from 1, eleven with two
// digits; a name already taken in --out is left alone and the result takes the next one.
TEST(ProcessBatchMedia, CustomNamesInTheOutputFolder) {
    TestHome home;
    fs::create_directories(home.path("in"));
    std::vector<std::string> sources;
    for (int i = 0; i < 11; ++i)
        sources.push_back(quadrants(home, "in/p" + std::to_string(i + 10) + ".png", 20, 16));
    auto run = [&](std::size_t count, const std::string& out) {
        std::string arguments;
        for (std::size_t i = 0; i < count; ++i) arguments += " " + inQuotes(sources[i]);
        return unwarp(
            home, "process --template uw-133 --json --name a --out " + inQuotes(out) + arguments);
    };
    Outcome one = run(1, home.path("one"));
    ASSERT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(filesIn(home.path("one")), std::vector<std::string>{"a.png"});

    fs::create_directories(home.path("two"));
    std::ofstream(home.path("two/a1.png")) << "the user's own";
    Outcome two = run(2, home.path("two"));
    ASSERT_EQ(two.exitCode, 0) << two.err;
    EXPECT_EQ(filesIn(home.path("two")),
              (std::vector<std::string>{"a1-1.png", "a1.png", "a2.png"}));
    EXPECT_EQ(contentsOf(home.path("two/a1.png")), "the user's own");
    auto lines = jsonLines(two.out);
    ASSERT_EQ(lines.size(), 2u) << two.out;
    EXPECT_EQ(lines[0]["output"], home.path("two/a1-1.png"));
    EXPECT_EQ(lines[1]["source"], sources[1]);

    Outcome eleven = run(11, home.path("eleven"));
    ASSERT_EQ(eleven.exitCode, 0) << eleven.err;
    std::vector<std::string> expected;
    for (int i = 1; i <= 11; ++i)
        expected.push_back((i < 10 ? "a0" : "a") + std::to_string(i) + ".png");
    EXPECT_EQ(filesIn(home.path("eleven")), expected);
    EXPECT_EQ(photo_test::vipsSize(home.path("eleven/a11.png")), "27x16");

    EXPECT_EQ(unwarp(home, "process --template uw-133 --name a " + inQuotes(sources[0])).exitCode,
              2);
}

// Over several items the limit question is answered by the flags: --yes takes the smaller size
// for each item over the limit; without it each refusal is a failure, and --keep-going goes on
// past them to the items within the limit.
TEST(ProcessBatchMedia, TheLimitQuestionIsAnsweredByFlagForEveryItem) {
    TestHome home;
    const std::string small = quadrants(home, "small.png", 40, 30);
    const std::string wide = home.path("wide.png");
    const std::string wider = home.path("wider.png");
    photo_test::run("convert -size 7000x10 xc:gray " + inQuotes(wide));
    photo_test::run("convert -size 7500x10 xc:gray " + inQuotes(wider));
    const std::string files = inQuotes(wide) + " " + inQuotes(small) + " " + inQuotes(wider);
    struct Row {
        std::string flags;
        int exitCode;
        std::vector<std::string> results;
        std::string summary;
    } rows[] = {
        {"--yes", 0, {wide, small, wider}, "3 results, 0 failures"},
        {"", 1, {}, "Stopped: 0 results, 1 failure, 2 not processed"},
        {"--keep-going", 1, {small}, "1 result, 2 failures"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        Outcome o = unwarp(home, "process --template uw-133 --json " + row.flags + " " + files);
        EXPECT_EQ(o.exitCode, row.exitCode) << o.err;
        EXPECT_EQ(sourcesOf(o), row.results);
        EXPECT_NE(o.err.find(row.summary), std::string::npos) << o.err;
        std::size_t limitErrors = 0;
        for (const auto& line : jsonLines(o.out))
            limitErrors += line.contains("error") && line["error"]["code"] == 5;
        EXPECT_EQ(limitErrors, row.exitCode == 0 ? 0u : (row.flags.empty() ? 1u : 2u));
    }
}

// Ctrl-Z pauses the run before the process stops; fg (SIGCONT) brings it back with the
// "Processing Restrictions" words, and the paused item is done again from its start.
TEST(ProcessBatchMedia, StopAndContinuePauseAndResumeTheRun) {
    TestHome home;
    const std::string source = home.path("big.png");
    photo_test::run("convert -size 3000x3000 xc:gray -seed 1 +noise Random " + inQuotes(source));
    auto running = command_test::start(
        home, {"process", "--template", "uw-200", "--out", home.path("out"), source}, "stopped");
    ASSERT_TRUE(command_test::waitUntil(
        home, [&] { return contentsOf(running.errPath).find("[1/1]") != std::string::npos; }));
    ASSERT_EQ(kill(running.pid, SIGTSTP), 0);
    int status = 0;
    ASSERT_EQ(waitpid(running.pid, &status, WUNTRACED), running.pid);
    EXPECT_TRUE(WIFSTOPPED(status));
    ASSERT_EQ(kill(running.pid, SIGCONT), 0);
    Outcome o = command_test::finish(running);
    EXPECT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NE(o.err.find("Processing Restrictions: Unwarp could not process media while "
                         "inactive"),
              std::string::npos)
        << o.err;
    EXPECT_NE(o.err.find("1 result, 0 failures"), std::string::npos) << o.err;
    EXPECT_EQ(photo_test::vipsSize(home.path("out/big.png")), "6000x3000");
}

}  // namespace

TEST(ProcessBatchMedia, ResultsAreListedAfterTheRun) {
    TestHome home;
    fs::create_directories(home.path("in"));
    quadrants(home, "in/a.png", 40, 30);
    quadrants(home, "in/b.png", 40, 30);
    Outcome run = unwarp(home, "process --template uw-133 " + inQuotes(home.path("in")));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Outcome listed = unwarp(home, "results list --json");
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_EQ(jsonLines(listed.out).size(), 2u) << listed.out;
}

// "Contact us" on a failed item (--report-errors off a terminal) hands the report to the mail
// program before the process ends; without one the Warning names the report folder.
TEST(ProcessBatchMedia, ContactUsSendsTheReportBeforeTheRunEnds) {
    TestHome home;
    std::ofstream(home.path("bad.jpg")) << "not a picture";
    const std::string run =
        "process --template uw-133 --report-errors " + inQuotes(home.path("bad.jpg"));
    {
        fs::create_directories(home.path("mail"));
        testing_support::FakeMailProgram mail(home.path("mail"));
        Outcome o = unwarp(home, run);
        EXPECT_EQ(o.exitCode, 1) << o.err;
        EXPECT_EQ(mail.value("--subject"), std::optional<std::string>("App error"));
        EXPECT_NE(mail.value("--body").value_or("").find("Free disk space"), std::string::npos);
        EXPECT_NE(o.err.find("The report went to the mail program."), std::string::npos) << o.err;
    }
    {
        fs::create_directories(home.path("nomail"));
        testing_support::FakeMailProgram none(home.path("nomail"), false);
        Outcome o = unwarp(home, run);
        EXPECT_EQ(o.exitCode, 1);
        const auto at = o.err.find("The report: ");
        ASSERT_NE(at, std::string::npos) << o.err;
        EXPECT_NE(o.err.find("Warning: You must configure your email client"), std::string::npos)
            << o.err;
        std::string folder = o.err.substr(at + 12);
        folder = folder.substr(0, folder.find('\n'));
        EXPECT_NE(contentsOf(folder + "/mail.txt").find("Error message: "), std::string::npos)
            << folder;
        // A picture that can't be read has no details to attach.
        EXPECT_FALSE(fs::exists(folder + "/format.plist")) << folder;
    }
}
