#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "platform/PhotoLibraryTestSupport.h"

using command_test::filesIn;
using command_test::jsonLines;
using command_test::Outcome;
using command_test::unwarp;
using testing_support::TestHome;

namespace {

// A photo (2022), a movie (2020) and a Live Photo pair (2021) in the album "Trip".
// Returns the library's identifiers by file name.
std::map<std::string, std::string> makeLibrary(const TestHome& home) {
    using namespace photolibrary_test;
    makeJpeg(home.path("Pictures/Trip/photo.jpg"), 400, 300,
             "'-DateTimeOriginal=2022:01:01 10:00:00'");
    makeMovie(home.path("Pictures/Trip/clip.mp4"), "-metadata creation_time=2020-01-01T10:00:00Z");
    makeJpeg(home.path("Pictures/Trip/live.jpg"), 60, 40,
             "'-DateTimeOriginal=2021:01:01 10:00:00'");
    tagStillContentIdentifier(home.path("Pictures/Trip/live.jpg"), "L1");
    makeMovie(home.path("Pictures/Trip/live.mov"),
              "-metadata com.apple.quicktime.content.identifier=L1 -movflags use_metadata_tags");
    std::map<std::string, std::string> ids;
    Outcome list = unwarp(home, "library list --json");
    EXPECT_EQ(list.exitCode, 0) << list.err;
    for (const auto& asset : jsonLines(list.out))
        ids[nameOf(asset["resources"][0]["path"].get<std::string>())] = asset["id"];
    return ids;
}

std::vector<std::string> sources(const std::string& out) {
    std::vector<std::string> names;
    for (const auto& line : jsonLines(out)) names.push_back(line.value("source", "?"));
    return names;
}

}  // namespace

// The album runs whole, oldest first, each result at the template's size.
TEST(ProcessLibraryMedia, AnAlbumRunsWithItsLivePhotoAsAPair) {
    TestHome home;
    auto ids = makeLibrary(home);
    ASSERT_EQ(ids.size(), 3u) << "the Live Photo pair should be one asset";
    ASSERT_EQ(unwarp(home, "settings set livePhotoEnabled true").exitCode, 0);
    ASSERT_EQ(unwarp(home, "settings set isAutoSaveEnabled true").exitCode, 0);

    Outcome run = unwarp(
        home, "process --template uw-133 --json --album Trip --out '" + home.path("out") + "'");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    auto lines = jsonLines(run.out);
    ASSERT_EQ(lines.size(), 3u) << run.out;
    EXPECT_EQ(sources(run.out),
              (std::vector<std::string>{ids["clip.mp4"], ids["live.jpg"], ids["photo.jpg"]}));
    EXPECT_EQ(lines[0]["mediaType"], 2);
    EXPECT_EQ(lines[0]["width"], 86);
    // Shared by the export rules, the Live Photo leaves as its still.
    EXPECT_EQ(lines[1]["output"], home.path("out/live.jpg"));
    EXPECT_EQ(lines[1]["width"], 80);
    EXPECT_EQ(lines[2]["width"], 532);
    EXPECT_EQ(lines[2]["height"], 300);
    EXPECT_EQ(filesIn(home.path("out")),
              (std::vector<std::string>{"clip.mp4", "live.jpg", "photo.jpg"}));
    // The library itself is untouched.
    EXPECT_EQ(filesIn(home.path("Pictures/Trip")),
              (std::vector<std::string>{"clip.mp4", "live.jpg", "live.mov", "photo.jpg"}));
}

TEST(ProcessLibraryMedia, AssetsByIdentifierAndTheNewest) {
    TestHome home;
    auto ids = makeLibrary(home);
    ASSERT_EQ(ids.size(), 3u);
    struct Row {
        std::string arguments;
        std::vector<std::string> sources;
    } rows[] = {
        {"--asset " + ids["photo.jpg"], {ids["photo.jpg"]}},
        {"--asset " + ids["photo.jpg"] + " " + ids["clip.mp4"],
         {ids["photo.jpg"], ids["clip.mp4"]}},
        {"--recents 2", {ids["photo.jpg"], ids["live.jpg"]}},
        {"--recents 9", {ids["photo.jpg"], ids["live.jpg"], ids["clip.mp4"]}},
        // Files go first, then the library's assets.
        {"--recents 1 '" + home.path("Pictures/Trip/live.jpg") + "'",
         {home.path("Pictures/Trip/live.jpg"), ids["photo.jpg"]}},
    };
    int n = 0;
    for (const auto& row : rows) {
        const std::string out = home.path("out" + std::to_string(n++));
        Outcome run =
            unwarp(home, "process --template uw-133 --json --out '" + out + "' " + row.arguments);
        ASSERT_EQ(run.exitCode, 0) << row.arguments << "\n" << run.err;
        EXPECT_EQ(sources(run.out), row.sources) << row.arguments;
        EXPECT_EQ(filesIn(out).size(), row.sources.size()) << row.arguments;
    }
}

// Anything the library lacks stops the run before the first asset: exit 1, nothing written.
TEST(ProcessLibraryMedia, UnknownIdentifierOrAlbumProcessesNothing) {
    TestHome home;
    auto ids = makeLibrary(home);
    struct Row {
        std::string arguments;
        std::string message;
    } rows[] = {
        {"--asset " + ids["photo.jpg"] + " NO-SUCH-ID", "--asset NO-SUCH-ID: no such asset"},
        {"--album Elsewhere", "--album Elsewhere: no such album"},
        {"--album Trip --asset GONE", "--asset GONE: no such asset"},
        {"--recents 0", "--recents 0"},
    };
    for (const auto& row : rows) {
        Outcome run = unwarp(
            home, "process --template uw-133 --out '" + home.path("out") + "' " + row.arguments);
        EXPECT_EQ(run.exitCode, 1) << row.arguments;
        EXPECT_NE(run.err.find(row.message), std::string::npos) << run.err;
        EXPECT_TRUE(filesIn(home.path("out")).empty()) << row.arguments;
    }
    // A deleted asset is as unknown as one that never was.
    std::filesystem::remove(home.path("Pictures/Trip/photo.jpg"));
    Outcome gone = unwarp(home, "process --template uw-133 --out '" + home.path("out") +
                                    "' --asset " + ids["photo.jpg"]);
    EXPECT_EQ(gone.exitCode, 1) << gone.err;
    EXPECT_TRUE(filesIn(home.path("out")).empty());
}
