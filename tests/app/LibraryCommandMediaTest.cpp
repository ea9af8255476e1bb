#include <gtest/gtest.h>

#include <filesystem>

#include "app/CommandSupport.h"
#include "support/TestHome.h"

using command_test::jsonLines;
using command_test::unwarp;
using testing_support::TestHome;

namespace {

void makeJpeg(const std::string& path, const std::string& size, const std::string& date) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ASSERT_EQ(testing_support::runCommand("convert -size " + size + " xc:green '" + path +
                                          "' && exiftool -q "
                                          "-overwrite_original '-DateTimeOriginal=" +
                                          date + "' '" + path + "'"),
              0);
}

}  // namespace

TEST(LibraryCommand, InfoAlbumsAndListsOfTheHomesPictures) {
    TestHome home;
    makeJpeg(home.path("Pictures/Trip/b.jpg"), "30x20", "2022:01:01 10:00:00");
    makeJpeg(home.path("Pictures/Trip/a.jpg"), "40x30", "2021:01:01 10:00:00");
    makeJpeg(home.path("Pictures/loose.jpg"), "10x10", "2023:01:01 10:00:00");
    std::filesystem::create_directories(home.path("Pictures/Clips"));
    ASSERT_EQ(testing_support::runCommand(
                  "ffmpeg -nostdin -v error -f lavfi -i testsrc=size=64x48:rate=10 -t 0.3 '" +
                  home.path("Pictures/Clips/c.mp4") + "'"),
              0);
    std::filesystem::create_directories(home.path("Pictures/Empty"));

    auto info = unwarp(home, "library info --json");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    auto facts = jsonLines(info.out).at(0);
    EXPECT_EQ(facts["root"], home.path("Pictures"));
    EXPECT_EQ(facts["status"], "authorized");
    EXPECT_EQ(facts["assets"], 4);
    EXPECT_EQ(facts["photos"], 3);
    EXPECT_EQ(facts["videos"], 1);
    EXPECT_EQ(facts["albums"], 3);

    auto albums = unwarp(home, "library albums");
    ASSERT_EQ(albums.exitCode, 0) << albums.err;
    EXPECT_EQ(albums.out, "Clips\t1\nEmpty\t0\nTrip\t2\n");

    struct Row {
        std::string arguments;
        std::vector<std::string> names;  // in listed order
    } rows[] = {
        {"library list --album Trip --json", {"a.jpg", "b.jpg"}},
        {"library list --media video --json", {"c.mp4"}},
        {"library list --media photo --json", {"a.jpg", "b.jpg", "loose.jpg"}},
        {"library list --json --album Empty", {}},
    };
    for (const auto& row : rows) {
        auto listed = unwarp(home, row.arguments);
        ASSERT_EQ(listed.exitCode, 0) << row.arguments << "\n" << listed.err;
        std::vector<std::string> names;
        for (const auto& line : jsonLines(listed.out))
            names.push_back(
                std::filesystem::path(line["resources"][0]["path"].get<std::string>()).filename());
        EXPECT_EQ(names, row.names) << row.arguments;
    }
    auto first = jsonLines(unwarp(home, "library list --album Trip --json").out).at(0);
    EXPECT_EQ(first["width"], 40);
    EXPECT_EQ(first["created"].get<std::string>().substr(0, 4), "2021");
}

TEST(LibraryCommand, MissingLibraryAndAlbumAreReported) {
    TestHome home;
    auto info = unwarp(home, "library info");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_NE(info.out.find("status:      not determined"), std::string::npos) << info.out;
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures")));  // asking creates nothing

    std::filesystem::create_directories(home.path("elsewhere/Album"));
    auto other = unwarp(home, "library albums --library '" + home.path("elsewhere") + "'");
    ASSERT_EQ(other.exitCode, 0) << other.err;
    EXPECT_EQ(other.out, "Album\t0\n");

    auto missing = unwarp(home, "library list --album Nowhere");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("no album \"Nowhere\""), std::string::npos) << missing.err;
    auto bad = unwarp(home, "library list --media audio");
    EXPECT_EQ(bad.exitCode, 2);
}
