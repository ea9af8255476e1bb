// What the `process` command leaves in --out and what it says: no file is ever replaced, a full
// or read-only folder is reported with its cause, every failure has its JSON line, and the
// command-line details (a missing --out, integer sizes, notes on stderr, backup marks).
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/xattr.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"
#include "platform/MediaTestSupport.h"
#include "support/SmallDisk.h"

using command_test::allFilesUnder;
using command_test::contentsOf;
using command_test::filesIn;
using command_test::inQuotes;
using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;
using photo_test::quadrants;
using photo_test::vipsSize;
using testing_support::TestHome;

namespace {

namespace fs = std::filesystem;

// A result takes the next free name by the incrementing rule when its name is taken, by a file
// that was there or by another result of the same run; nothing is replaced.
TEST(ProcessOutputMedia, ResultsTakeTheNextFreeNameAndReplaceNothing) {
    TestHome home;
    fs::create_directories(home.path("a"));
    fs::create_directories(home.path("b"));
    fs::create_directories(home.path("out"));
    std::ofstream(home.path("out/x.jpg")) << "the user's own";
    const std::vector<std::string> sources = {
        quadrants(home, "a/x.jpg", 40, 30), quadrants(home, "b/x.png", 40, 30),
        quadrants(home, "y.png", 40, 30), quadrants(home, "y.jpg", 40, 30)};
    std::string arguments;
    for (const auto& s : sources) arguments += " " + inQuotes(s);
    Outcome o = unwarp(home, "process --template ig-square --json --out " +
                                 inQuotes(home.path("out")) + arguments);
    ASSERT_EQ(o.exitCode, 0) << o.err;
    auto objects = command_test::jsonLines(o.out);
    ASSERT_EQ(objects.size(), 4u) << o.out;
    const std::vector<std::string> expected = {"x-1.jpg", "x-2.jpg", "y.jpg", "y-1.jpg"};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(objects[i]["output"], home.path("out/" + expected[i]));
    EXPECT_EQ(filesIn(home.path("out")),
              (std::vector<std::string>{"x-1.jpg", "x-2.jpg", "x.jpg", "y-1.jpg", "y.jpg"}));
    EXPECT_EQ(contentsOf(home.path("out/x.jpg")), "the user's own");
    EXPECT_EQ(vipsSize(home.path("out/y-1.jpg")), "1080x1080");

    // A result beside its source takes the next name rather than replacing the source.
    const std::string before = contentsOf(sources[2]);
    Outcome beside = unwarp(home, "process --template uw-133 --out " + inQuotes(home.root()) + " " +
                                      inQuotes(sources[2]));
    ASSERT_EQ(beside.exitCode, 0) << beside.err;
    EXPECT_EQ(contentsOf(sources[2]), before);
    EXPECT_EQ(vipsSize(home.path("y-1.png")), "53x30");
}

// A full --out on another file system: the share into it fails with the sharing words and the
// cause, exit code 1, leaving no partial file there and no temporary behind.
TEST(ProcessOutputMedia, AFullOutputFolderGivesTheSharingWordsAndTheCause) {
    TestHome home;
    testing_support::SmallDisk disk(256);
    UNWARP_REQUIRE_SMALL_DISK(disk);
    const std::string source = home.path("noise.png");
    photo_test::run("convert -size 300x300 xc:gray -seed 2 +noise Random " + inQuotes(source));
    disk.fill();
    Outcome text = unwarp(
        home, "process --template uw-133 --out " + inQuotes(disk.path()) + " " + inQuotes(source));
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_NE(text.err.find("An error occurred while sharing: The device may lack free space"),
              std::string::npos)
        << text.err;
    EXPECT_NE(text.err.find("No space left on device"), std::string::npos) << text.err;
    EXPECT_EQ(filesIn(disk.path()), std::vector<std::string>{".filler"});
    // The results stay in the result store; nothing else is left.
    EXPECT_EQ(filesIn(home.path("documents")), std::vector<std::string>{"results"});
    EXPECT_EQ(allFilesUnder(home.path("tmp")), std::vector<std::string>{});
}

// A read-only --out, and a read-only home, say that the folder is read-only.
TEST(ProcessOutputMedia, ReadOnlyFoldersAreNamedAsTheCause) {
    TestHome home;
    testing_support::SmallDisk out(256);
    testing_support::SmallDisk readOnlyHome(256);
    UNWARP_REQUIRE_SMALL_DISK(out);
    UNWARP_REQUIRE_SMALL_DISK(readOnlyHome);
    const std::string source = quadrants(home, "IMG_1.png", 40, 30);
    // A home that has been used: its folders are there, and can't be written.
    for (const char* folder : {"/documents", "/tmp", "/config"})
        fs::create_directories(readOnlyHome.path() + folder);
    for (const auto* disk : {&out, &readOnlyHome})
        ASSERT_EQ(mount(nullptr, disk->path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
                  0);
    Outcome intoOut = unwarp(
        home, "process --template uw-133 --out " + inQuotes(out.path()) + " " + inQuotes(source));
    EXPECT_EQ(intoOut.exitCode, 1);
    EXPECT_NE(intoOut.err.find("Read-only file system"), std::string::npos) << intoOut.err;
    EXPECT_TRUE(filesIn(out.path()).empty());

    const std::string command = std::string("'") + UNWARP_BINARY + "' --home " +
                                inQuotes(readOnlyHome.path()) +
                                " process --template uw-133 --out " + inQuotes(home.path("out")) +
                                " " + inQuotes(source) + " 2>&1";
    std::string said;
    EXPECT_EQ(testing_support::runCommand(command, &said), 1);
    EXPECT_NE(said.find("Read-only file system"), std::string::npos) << said;
}

// The words of the code stay; the cause follows on the next line, and in the JSON's userInfo.
TEST(ProcessOutputMedia, FailuresNameTheirCause) {
    TestHome home;
    std::ofstream(home.path("text.jpg")) << "not a picture";
    const std::string good = home.path("good.png");
    photo_test::run("convert -size 200x150 xc:gray -seed 3 +noise Random " + inQuotes(good));
    const std::string bytes = contentsOf(good);
    std::ofstream(home.path("half.png"), std::ios::binary) << bytes.substr(0, bytes.size() / 3);
    struct Case {
        std::string file;
        std::string words;
        std::string cause;
    };
    const std::vector<Case> cases = {
        {home.path("gone.jpg"), "Unable to load media for processing.", "There is no file"},
        {home.path("text.jpg"), "Unable to save media to photo library.",
         "is not a picture that can be read"},
        {home.path("half.png"), "Unable to save media to photo library.",
         "truncated or damaged picture data"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        Outcome text = unwarp(home, "process --template uw-133 --out " +
                                        inQuotes(home.path("out")) + " " + inQuotes(c.file));
        EXPECT_EQ(text.exitCode, 1);
        // "unwarp: FILE: words", then the cause on the next line.
        const auto said = text.err.find("unwarp: ");
        ASSERT_NE(said, std::string::npos) << text.err;
        const auto newline = text.err.find('\n', said);
        ASSERT_NE(newline, std::string::npos);
        EXPECT_NE(text.err.substr(said, newline - said).find(c.words), std::string::npos)
            << text.err;
        EXPECT_EQ(text.err.substr(newline, 3), "\n  ") << text.err;
        EXPECT_NE(text.err.substr(newline).find(c.cause), std::string::npos) << text.err;
        Outcome js = unwarp(home, "process --template uw-133 --json --out " +
                                      inQuotes(home.path("out")) + " " + inQuotes(c.file));
        auto objects = command_test::jsonLines(js.out);
        ASSERT_EQ(objects.size(), 1u) << js.out;
        EXPECT_NE(objects[0]["error"]["userInfo"]["reason"].get<std::string>().find(c.cause),
                  std::string::npos)
            << js.out;
    }
}

// --out is made when missing; sizes in JSON are integers; a result in --out carries no backup
// exclusion (the program's own folders do); an animated GIF gets a note and its first frame.
TEST(ProcessOutputMedia, CommandLineDetails) {
    TestHome home;
    const std::string source = quadrants(home, "IMG_3.jpg", 40, 30);
    const std::string out = home.path("results/new/deeper");
    Outcome o = unwarp(
        home, "process --template uw-133 --json --out " + inQuotes(out) + " " + inQuotes(source));
    ASSERT_EQ(o.exitCode, 0) << o.err;
    auto objects = command_test::jsonLines(o.out);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_TRUE(objects[0]["width"].is_number_integer()) << o.out;
    EXPECT_TRUE(objects[0]["height"].is_number_integer()) << o.out;
    EXPECT_EQ(objects[0]["width"], 53);
    const std::string result = out + "/IMG_3.jpg";
    char value[16];
    EXPECT_LT(getxattr(result.c_str(), "user.xdg.robots.backup", value, sizeof value), 0);
    EXPECT_EQ(errno, ENODATA);
    const std::string documents = home.path("documents");
    ASSERT_EQ(getxattr(documents.c_str(), "user.xdg.robots.backup", value, sizeof value), 5);
    EXPECT_EQ(std::string(value, 5), "false");

    std::ofstream(home.path("file")) << "x";
    EXPECT_EQ(unwarp(home, "process --template uw-133 --out " + inQuotes(home.path("file")) + " " +
                               inQuotes(source))
                  .exitCode,
              2);

    const std::string gif = home.path("anim.gif");
    photo_test::run("convert -size 40x30 xc:red xc:blue -loop 0 " + inQuotes(gif));
    Outcome animated =
        unwarp(home, "process --template uw-133 --out " + inQuotes(home.path("gifs")) + " " +
                         inQuotes(gif) + " " + inQuotes(quadrants(home, "still.gif", 40, 30)));
    ASSERT_EQ(animated.exitCode, 0) << animated.err;
    EXPECT_NE(animated.err.find("anim.gif is animated: only its first frame is used"),
              std::string::npos)
        << animated.err;
    EXPECT_EQ(animated.err.find("still.gif is animated"), std::string::npos) << animated.err;
    EXPECT_EQ(filesIn(home.path("gifs")), (std::vector<std::string>{"anim.gif", "still.gif"}));
}

// A movie with a template for photos only is refused before any work, naming the missing size;
// the progress bar is not written when standard error is not a terminal.
TEST(ProcessOutputMedia, MoviesNeedAVideoSizeAndShowNoBarOffATerminal) {
    TestHome home;
    const std::string clip = media_test::makeMovie(
        home, "clip.mov", "-f lavfi -i testsrc2=size=160x90:rate=25 -t 1 -c:v libx264");
    ASSERT_FALSE(clip.empty());
    Outcome made = unwarp(home, "template create --name Stills --size 100x100 --media photo");
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const std::string key = made.out.substr(0, made.out.find('\n'));
    ASSERT_FALSE(key.empty());
    Outcome refused = unwarp(home, "process --template " + key + " --out " +
                                       inQuotes(home.path("out")) + " " + inQuotes(clip));
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.err.find("has no video size"), std::string::npos) << refused.err;
    EXPECT_TRUE(filesIn(home.path("out")).empty());

    Outcome movie = unwarp(home, "process --template uw-133 --out " + inQuotes(home.path("out")) +
                                     " " + inQuotes(clip));
    ASSERT_EQ(movie.exitCode, 0) << movie.err;
    EXPECT_EQ(movie.err.find('\r'), std::string::npos) << movie.err;
    EXPECT_EQ(movie.err.find('%'), std::string::npos) << movie.err;
}

}  // namespace
