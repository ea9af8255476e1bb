// The library as the home screen's grid reads it through `unwarp serve`: pages of an album
// that stay in step while the library changes, small items, and thumbnails the browser keeps.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

// Small photos named NAME-0.jpg ... made by ImageMagick, added to `album` by one call.
void addPhotos(const testing_support::TestHome& home, const std::string& album,
               const std::string& name, int count) {
    const std::string folder = home.path("media-" + name);
    std::filesystem::create_directories(folder);
    std::string files;
    for (int i = 0; i < count; ++i) {
        const std::string file = folder + "/" + name + "-" + std::to_string(i) + ".jpg";
        ASSERT_EQ(testing_support::runCommand("convert -size 64x48 xc:gray" +
                                              std::to_string(10 + i * 10) + " '" + file + "'"),
                  0);
        files += " '" + file + "'";
    }
    ASSERT_EQ(
        testing_support::runCommand(std::string(UNWARP_BINARY) + " --home '" + home.root() +
                                    "' library add --album " + album + files + " > /dev/null"),
        0);
}

json getJSON(const Server& server, const std::string& path) {
    auto response = server.client()->Get(path, server.pageHeaders());
    if (!response || response->status != 200) return json();
    return json::parse(response->body, nullptr, false);
}

std::vector<std::string> namesOf(const json& page) {
    std::vector<std::string> names;
    for (const auto& item : page["items"]) names.push_back(item["name"].get<std::string>());
    return names;
}

TEST(ServeLibraryMedia, LaterPagesOfAnAlbumComeFromTheFirstPagesListing) {
    testing_support::TestHome home;
    addPhotos(home, "Trip", "first", 5);
    Server server(home);
    ASSERT_TRUE(server.running());
    const json albums = getJSON(server, "/api/library/albums");
    ASSERT_EQ(albums["albums"].size(), 1u) << albums.dump();
    const std::string album = "/api/library/assets?album=" +
                              httplib::detail::encode_query_param(albums["albums"][0]["id"]);

    const json first = getJSON(server, album + "&offset=0&limit=2");
    ASSERT_EQ(first["total"], 5) << first.dump();
    ASSERT_EQ(first["items"].size(), 2u);
    // A grid item tells what a cell shows; the files' places stay on the server.
    for (const auto& item : first["items"]) {
        for (const char* key : {"id", "name", "media", "width", "height", "duration"})
            EXPECT_TRUE(item.contains(key)) << key << " in " << item.dump();
        EXPECT_FALSE(item.contains("resources")) << item.dump();
        EXPECT_EQ(item["media"], "photo");
        EXPECT_EQ(item["id"].get<std::string>().rfind("library:", 0), 0u);
    }

    // Another process adds to the album while the page is scrolling.
    addPhotos(home, "Trip", "second", 3);
    const json rest = getJSON(server, album + "&offset=2&limit=10");
    EXPECT_EQ(rest["total"], 5) << rest.dump();
    EXPECT_EQ(rest["offset"], 2);
    std::vector<std::string> seen = namesOf(first);
    for (const auto& name : namesOf(rest)) seen.push_back(name);
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"first-0.jpg", "first-1.jpg", "first-2.jpg",
                                              "first-3.jpg", "first-4.jpg"}));

    // Opening the album again (its first page) shows the change.
    const json again = getJSON(server, album + "&offset=0&limit=10");
    EXPECT_EQ(again["total"], 8) << again.dump();
    EXPECT_EQ(again["items"].size(), 8u);
    // A page past the end is empty, not an error.
    const json past = getJSON(server, album + "&offset=50&limit=10");
    EXPECT_EQ(past["total"], 8) << past.dump();
    EXPECT_TRUE(past["items"].empty());
}

TEST(ServeLibraryMedia, ThumbnailsAreKeptByTheBrowserAndAnswersAreNot) {
    testing_support::TestHome home;
    addPhotos(home, "Trip", "photo", 1);
    Server server(home);
    ASSERT_TRUE(server.running());
    const json page = getJSON(server, "/api/library/assets?limit=1");
    ASSERT_EQ(page["items"].size(), 1u) << page.dump();
    auto client = server.client();
    auto thumbnail = client->Get(
        "/api/library/thumbnail?size=128&id=" +
            httplib::detail::encode_query_param(page["items"][0]["id"].get<std::string>()),
        server.pageHeaders());
    ASSERT_TRUE(thumbnail);
    ASSERT_EQ(thumbnail->status, 200) << thumbnail->body;
    EXPECT_EQ(thumbnail->get_header_value("Content-Type"), "image/jpeg");
    // One Cache-Control only: a no-store beside it would win and every scroll would ask again.
    ASSERT_EQ(thumbnail->get_header_value_count("Cache-Control"), 1u);
    EXPECT_EQ(thumbnail->get_header_value("Cache-Control").find("no-store"), std::string::npos);
    EXPECT_NE(thumbnail->get_header_value("Cache-Control").find("max-age="), std::string::npos);

    auto listing = client->Get("/api/library/assets?limit=1", server.pageHeaders());
    ASSERT_TRUE(listing);
    EXPECT_EQ(listing->get_header_value("Cache-Control"), "no-store");
}

// A wide photo, blue, red and blue in thirds, asked for as a grid cell's square: it comes
// exactly that many pixels a side, cut from the middle (red to its edges), while the plain
// thumbnail keeps the whole picture (blue at its left edge).
TEST(ServeLibraryMedia, SquareThumbnailsCoverTheCellAndCutAroundTheMiddle) {
    testing_support::TestHome home;
    const std::string photo = home.path("wide.png");
    ASSERT_EQ(testing_support::runCommand("convert -size 50x50 xc:blue xc:red xc:blue +append '" +
                                          photo + "'"),
              0);
    ASSERT_EQ(testing_support::runCommand(std::string(UNWARP_BINARY) + " --home '" + home.root() +
                                          "' library add '" + photo + "' > /dev/null"),
              0);
    Server server(home);
    ASSERT_TRUE(server.running());
    const json page = getJSON(server, "/api/library/assets?limit=1");
    ASSERT_EQ(page["items"].size(), 1u) << page.dump();
    const std::string id =
        httplib::detail::encode_query_param(page["items"][0]["id"].get<std::string>());
    // "WIDTHxHEIGHT R,G,B at (x,y)" of each point of a thumbnail asked for by `query`.
    const auto shown = [&](const std::string& query, const std::vector<std::string>& points) {
        auto answer =
            server.client()->Get("/api/library/thumbnail?id=" + id + query, server.pageHeaders());
        if (!answer || answer->status != 200) return std::string("no thumbnail");
        const std::string file = home.path("answer.jpg");
        std::ofstream(file, std::ios::binary) << answer->body;
        std::string format = "%wx%h";
        for (const auto& point : points)
            format += " %[fx:round(255*p{" + point + "}.r)],%[fx:round(255*p{" + point + "}.b)]";
        std::string out;
        testing_support::runCommand("convert '" + file + "' -format '" + format + "' info:", &out);
        return out;
    };
    // Size, then red and blue of each point.
    const auto parsed = [](const std::string& text) {
        std::istringstream in(text);
        std::string size;
        in >> size;
        std::vector<std::pair<int, int>> samples;
        for (std::string sample; in >> sample;)
            samples.emplace_back(std::stoi(sample), std::stoi(sample.substr(sample.find(',') + 1)));
        return std::make_pair(size, samples);
    };
    const std::string square = shown("&size=40&square=1", {"4,20", "20,20", "35,20"});
    const auto [squareSize, middle] = parsed(square);
    EXPECT_EQ(squareSize, "40x40") << square;
    ASSERT_EQ(middle.size(), 3u) << square;
    for (const auto& [red, blue] : middle) {
        EXPECT_GT(red, 200) << square;
        EXPECT_LT(blue, 60) << square;
    }
    const std::string whole = shown("&size=128", {"1,10"});
    const auto [wholeSize, edge] = parsed(whole);
    EXPECT_NE(wholeSize, "40x40") << whole;
    ASSERT_EQ(edge.size(), 1u) << whole;
    EXPECT_LT(edge[0].first, 60) << whole;
    EXPECT_GT(edge[0].second, 200) << whole;
}

}  // namespace
