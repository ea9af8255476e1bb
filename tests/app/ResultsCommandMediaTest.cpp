// `unwarp results` with the photo library: photo results whose item goes away, and saving
// results into the program's albums.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "../platform/PhotoLibraryTestSupport.h"
#include "app/CommandSupport.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;

using command_test::filesUnder;
using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;

std::vector<json> lines(const Outcome& o) {
    std::vector<json> rows;
    for (auto& j : command_test::jsonLines(o.out))
        if (!j.is_discarded()) rows.push_back(j);
    return rows;
}

TEST(ResultsCommandMedia, PhotoResultsFollowTheirLibraryItem) {
    testing_support::TestHome home;
    photolibrary_test::makeJpeg(home.path("in/a.jpg"), 64, 48);
    photolibrary_test::makeJpeg(home.path("in/b.jpg"), 64, 48);
    Outcome added = unwarp(
        home, "library add '" + home.path("in/a.jpg") + "' '" + home.path("in/b.jpg") + "' --json");
    ASSERT_EQ(added.exitCode, 0) << added.err;
    auto assets = lines(added);
    ASSERT_EQ(assets.size(), 2u);
    const std::string a = assets[0]["id"], b = assets[1]["id"];
    ASSERT_EQ(unwarp(home, "results add --photo '" + a + "' '" + b + "'").exitCode, 0);

    auto rows = lines(unwarp(home, "results list --json"));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0]["kind"], "library");
    EXPECT_EQ(rows[0]["libraryIdentifier"], a);
    EXPECT_EQ(rows[1]["libraryIdentifier"], b);

    // The item deleted by another program: the result still counts, but can't be read.
    fs::remove(assets[0]["resources"][0]["path"].get<std::string>());
    rows = lines(unwarp(home, "results list --json"));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_FALSE(rows[0]["available"].get<bool>());
    EXPECT_TRUE(rows[1]["available"].get<bool>());
    Outcome shown = unwarp(home, "results show 1");
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_NE(shown.out.find("available: false"), std::string::npos) << shown.out;

    // Clearing the reference leaves the library item.
    ASSERT_EQ(unwarp(home, "results clear 2").exitCode, 0);
    EXPECT_EQ(lines(unwarp(home, "results list --json")).size(), 1u);
    Outcome library = unwarp(home, "library show '" + b + "' --json");
    EXPECT_EQ(library.exitCode, 0) << library.err;
}

TEST(ResultsCommandMedia, SaveGoesIntoTheAlbumOfEachMediaType) {
    testing_support::TestHome home;
    photolibrary_test::makeJpeg(home.path("in/shot.jpg"), 64, 48);
    photolibrary_test::makeMovie(home.path("in/clip.mp4"));
    ASSERT_EQ(unwarp(home, "results add '" + home.path("in/shot.jpg") + "' '" +
                               home.path("in/clip.mp4") + "'")
                  .exitCode,
              0);
    Outcome saved = unwarp(home, "results save 1 2");
    ASSERT_EQ(saved.exitCode, 0) << saved.err;
    EXPECT_EQ(saved.out, "Save 2 items: done\n");
    EXPECT_EQ(command_test::filesIn(home.path("Pictures/Uwrp photos")),
              (std::vector<std::string>{"shot.jpg"}));
    EXPECT_EQ(command_test::filesIn(home.path("Pictures/Uwrp videos")),
              (std::vector<std::string>{"clip.mp4"}));
    // The stored results stay, and the sharing folder is gone.
    EXPECT_EQ(lines(unwarp(home, "results list --json")).size(), 2u);
    EXPECT_EQ(filesUnder(home.path("tmp")), 0u);

    // A library that can't take the item (its album's name is taken by a file) answers with
    // the failure's words, and nothing goes anywhere.
    fs::remove_all(home.path("Pictures/Uwrp photos"));
    testing_support::touch(home.path("Pictures/Uwrp photos"));
    Outcome failed = unwarp(home, "results save 1");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_NE(failed.err.find("An error occurred while sharing: The device may lack free space"),
              std::string::npos)
        << failed.err;
    EXPECT_TRUE(fs::is_regular_file(home.path("Pictures/Uwrp photos")));

    ASSERT_EQ(unwarp(home, "settings set areAlbumsForResultsEnabled false").exitCode, 0);
    Outcome refused = unwarp(home, "results save 1");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("saving to the albums is turned off"), std::string::npos);
}

}  // namespace
