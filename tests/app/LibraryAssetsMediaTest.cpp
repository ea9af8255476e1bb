// `unwarp library add|show|thumbnail` and the libraryPath setting, run as the command.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "app/CommandSupport.h"
#include "support/TestHome.h"

using command_test::contentsOf;
using command_test::jsonLines;
using command_test::unwarp;
using testing_support::runCommand;
using testing_support::TestHome;

namespace {

void makePicture(const TestHome& home, const std::string& name, const std::string& size) {
    std::filesystem::create_directories(home.path("in"));
    ASSERT_EQ(runCommand("convert -size " + size + " xc:green '" + home.path("in/" + name) + "'"),
              0);
}

void makeMovie(const TestHome& home, const std::string& name) {
    std::filesystem::create_directories(home.path("in"));
    ASSERT_EQ(
        runCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc=size=64x48:rate=10 -t 0.3 '" +
                   home.path("in/" + name) + "'"),
        0);
}

ino_t inodeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// "PNG 100x50" as ImageMagick reads the file back.
std::string formatAndSize(const std::string& path) {
    std::string out;
    runCommand("identify -format '%m %wx%h' '" + path + "'", &out);
    return out;
}

// The quoted path of an input file.
std::string in(const TestHome& home, const std::string& name) {
    return "'" + home.path("in/" + name) + "'";
}

// The identifier of the one asset `add` saved from `file`.
std::string added(const TestHome& home, const std::string& arguments) {
    auto outcome = unwarp(home, "library add --json " + arguments);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    auto lines = jsonLines(outcome.out);
    return lines.size() == 1 ? lines[0]["id"].get<std::string>() : "";
}

}  // namespace

TEST(LibraryAssets, AddCopiesIntoAlbumsPairsLivePhotosAndGoesOnPastBadFiles) {
    TestHome home;
    makePicture(home, "a.jpg", "40x30");
    makeMovie(home, "a.mov");
    makePicture(home, "b.png", "20x10");
    auto first =
        unwarp(home, "library add --json " + in(home, "missing.jpg") + " " + in(home, "a.jpg") +
                         " " + in(home, "b.png") + " " + in(home, "a.mov") + " --album Trip");
    EXPECT_EQ(first.exitCode, 1);
    EXPECT_NE(first.err.find("in/missing.jpg can't be read: No such file"), std::string::npos)
        << first.err;
    auto saved = jsonLines(first.out);
    ASSERT_EQ(saved.size(), 2u) << first.out;
    EXPECT_TRUE(saved[0]["livePhoto"]);
    ASSERT_EQ(saved[0]["resources"].size(), 2u);
    EXPECT_EQ(saved[0]["resources"][1]["path"], home.path("Pictures/Trip/a.mov"));
    EXPECT_EQ(saved[1]["resources"][0]["path"], home.path("Pictures/Trip/b.png"));
    // Copies: the originals stay, with their own inodes and the same bytes.
    for (const char* name : {"a.jpg", "a.mov", "b.png"}) {
        const std::string copy = home.path(std::string("Pictures/Trip/") + name);
        EXPECT_EQ(contentsOf(copy), contentsOf(home.path(std::string("in/") + name))) << name;
        EXPECT_NE(inodeOf(copy), inodeOf(home.path(std::string("in/") + name))) << name;
    }

    // Without an album a file goes to the library's folder itself; a taken name is never
    // replaced; a file of no media kind is refused and nothing of it is left.
    ASSERT_EQ(runCommand("echo text > '" + home.path("in/notes.txt") + "'"), 0);
    struct Row {
        std::string arguments;
        int exitCode;
        std::string savedAs;  // relative to the home; empty when nothing is saved
    } rows[] = {
        {in(home, "b.png"), 0, "Pictures/b.png"},
        {in(home, "b.png"), 0, "Pictures/b 2.png"},
        {in(home, "b.png") + " --album Trip", 0, "Pictures/Trip/b 2.png"},
        {in(home, "notes.txt") + " --album Notes", 1, ""},
    };
    for (const auto& row : rows) {
        auto outcome = unwarp(home, "library add " + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.arguments << "\n" << outcome.err;
        if (row.savedAs.empty()) {
            EXPECT_EQ(outcome.out, "") << row.arguments;
            continue;
        }
        EXPECT_NE(outcome.out.find("\t" + home.path(row.savedAs) + "\n"), std::string::npos)
            << row.arguments << "\n"
            << outcome.out;
    }
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures/Notes")));
    EXPECT_EQ(command_test::allFilesUnder(home.path("Pictures")),
              (std::vector<std::string>{"Trip/a.jpg", "Trip/a.mov", "Trip/b 2.png", "Trip/b.png",
                                        "b 2.png", "b.png"}));
    auto listed = unwarp(home, "library list --album Trip --json");
    EXPECT_EQ(jsonLines(listed.out).size(), 3u) << listed.out;
}

TEST(LibraryAssets, ShowsOneAssetUntilItsFileIsGone) {
    TestHome home;
    makePicture(home, "a.jpg", "40x30");
    const std::string id = added(home, in(home, "a.jpg") + " --album Trip");
    ASSERT_FALSE(id.empty());

    auto shown = unwarp(home, "library show '" + id + "' --json");
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    auto facts = jsonLines(shown.out).at(0);
    EXPECT_EQ(facts["id"], id);
    EXPECT_EQ(facts["width"], 40);
    EXPECT_EQ(facts["albums"], (std::vector<std::string>{"Trip"}));
    EXPECT_EQ(facts["resources"][0]["path"], home.path("Pictures/Trip/a.jpg"));
    auto text = unwarp(home, "library show '" + id + "'");
    EXPECT_NE(text.out.find("albums:       Trip\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("photo:        " + home.path("Pictures/Trip/a.jpg")), std::string::npos)
        << text.out;

    std::filesystem::remove(home.path("Pictures/Trip/a.jpg"));
    for (const std::string& asked : {id, std::string("NO-SUCH-ID/L0/001")}) {
        auto gone = unwarp(home, "library show '" + asked + "'");
        EXPECT_EQ(gone.exitCode, 1) << asked;
        EXPECT_EQ(gone.out, "") << asked;
        EXPECT_NE(gone.err.find("no asset \"" + asked + "\""), std::string::npos) << gone.err;
    }
}

TEST(LibraryAssets, ThumbnailsFitTheBoxAndNeverReplaceAFile) {
    TestHome home;
    makePicture(home, "wide.jpg", "400x200");
    makeMovie(home, "clip.mp4");
    const std::string photo = added(home, in(home, "wide.jpg"));
    const std::string movie = added(home, in(home, "clip.mp4"));
    ASSERT_FALSE(photo.empty());
    ASSERT_FALSE(movie.empty());
    std::filesystem::create_directories(home.path("out"));
    ASSERT_EQ(runCommand("echo mine > '" + home.path("out/taken.png") + "'"), 0);

    struct Row {
        std::string size;
        std::string out;      // under out/
        std::string written;  // under out/
        std::string read;     // as read back
    } rows[] = {
        {"100x100", "t.png", "t.png", "PNG 100x50"},
        {"100x100", "t.png", "t-1.png", "PNG 100x50"},
        {"64x20", "t.JPG", "t.JPG", "JPEG 40x20"},
        {"1000x1000", "big.jpeg", "big.jpeg", "JPEG 400x200"},  // never enlarged
        {"50x60", "taken.png", "taken-1.png", "PNG 50x25"},
    };
    for (const auto& row : rows) {
        auto outcome = unwarp(home, "library thumbnail '" + photo + "' --size " + row.size +
                                        " --out '" + home.path("out/" + row.out) + "'");
        ASSERT_EQ(outcome.exitCode, 0) << row.out << "\n" << outcome.err;
        EXPECT_EQ(outcome.out, home.path("out/" + row.written) + "\n");
        EXPECT_EQ(formatAndSize(home.path("out/" + row.written)), row.read) << row.written;
    }
    EXPECT_EQ(contentsOf(home.path("out/taken.png")), "mine\n");
    // A movie's thumbnail is one of its frames.
    auto clip = unwarp(home, "library thumbnail '" + movie + "' --size 32x32 --out '" +
                                 home.path("out/m.png") + "'");
    ASSERT_EQ(clip.exitCode, 0) << clip.err;
    EXPECT_EQ(formatAndSize(home.path("out/m.png")), "PNG 32x24");

    struct Refusal {
        std::string arguments;
        std::string message;
    } refusals[] = {
        {"'" + photo + "' --size 0x64 --out '" + home.path("out") + "/z.png'",
         "--size takes WIDTHxHEIGHT"},
        {"'" + photo + "' --size 64x64 --out '" + home.path("out") + "/z.gif'",
         "as .png, .jpg or .jpeg"},
        {"GONE/L0/001 --size 64x64 --out '" + home.path("out") + "/z.png'",
         "no asset \"GONE/L0/001\""},
    };
    for (const auto& refusal : refusals) {
        auto outcome = unwarp(home, "library thumbnail " + refusal.arguments);
        EXPECT_EQ(outcome.exitCode, 1) << refusal.arguments;
        EXPECT_NE(outcome.err.find(refusal.message), std::string::npos) << outcome.err;
    }
    // Nothing else was left behind, no scratch folder either.
    EXPECT_EQ(command_test::filesIn(home.path("out")),
              (std::vector<std::string>{"big.jpeg", "m.png", "t-1.png", "t.JPG", "t.png",
                                        "taken-1.png", "taken.png"}));
}

TEST(LibraryAssets, LibraryPathSettingChoosesTheRootUnlessLibraryIsGiven) {
    TestHome home;
    std::filesystem::create_directories(home.path("elsewhere/Holiday"));
    std::filesystem::create_directories(home.path("given"));
    auto root = [&](const std::string& options) {
        auto info = unwarp(home, "library info --json" + options);
        EXPECT_EQ(info.exitCode, 0) << info.err;
        return jsonLines(info.out).at(0)["root"].get<std::string>();
    };
    EXPECT_EQ(unwarp(home, "settings get libraryPath").out.substr(0, 15), "libraryPath =  ");
    EXPECT_EQ(root(""), home.path("Pictures"));
    ASSERT_EQ(unwarp(home, "settings set libraryPath '" + home.path("elsewhere") + "'").exitCode,
              0);
    EXPECT_EQ(root(""), home.path("elsewhere"));
    EXPECT_EQ(unwarp(home, "library albums").out, "Holiday\t0\n");
    EXPECT_EQ(root(" --library '" + home.path("given") + "'"), home.path("given"));
    ASSERT_EQ(unwarp(home, "settings set libraryPath ''").exitCode, 0);
    EXPECT_EQ(root(""), home.path("Pictures"));
}
