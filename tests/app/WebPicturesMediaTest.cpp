// The pictures `unwarp serve` gives the page: every template of the lists has one (drawn for
// the catalogue, kept by the browser; the sample for an own template without a thumbnail), and
// files the page picked (uploads, the file browser's) get thumbnails as library items do, a
// stand-in when they can't be drawn, and nothing outside the allowed folders.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

class WebPicturesMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(media);
        ASSERT_EQ(
            testing_support::runCommand("convert -size 320x240 xc:red '" + media + "/photo.jpg'"),
            0);
        ASSERT_EQ(testing_support::runCommand(
                      "ffmpeg -v error -f lavfi -i testsrc=size=240x320:rate=10:duration=1 "
                      "-pix_fmt yuv420p -c:v libx264 '" +
                      media + "/movie.mp4'"),
                  0);
        std::ofstream(media + "/broken.jpg") << "\xff\xd8\xff\xe0 not a picture";
    }

    // Width and height of a picture as vipsheader reads it.
    std::string sizeOf(const std::string& bytes, const std::string& name) {
        const std::string path = home.path(name);
        std::ofstream(path, std::ios::binary) << bytes;
        std::string output;
        testing_support::runCommand(
            "vipsheader -f width '" + path + "' && vipsheader -f height '" + path + "'", &output);
        return output;
    }

    testing_support::TestHome home;
    std::string media = home.path("media");
};

TEST_F(WebPicturesMedia, EveryListedTemplateHasAPicture) {
    Server server(home);
    ASSERT_TRUE(server.running());
    auto client = server.client();
    ASSERT_EQ(client
                  ->Post("/api/templates/create", server.pageHeaders(), R"({"name":"Mine"})",
                         "application/json")
                  ->status,
              200);
    auto listed = client->Get("/api/templates", server.pageHeaders());
    ASSERT_TRUE(listed && listed->status == 200);
    std::map<std::string, json> items;
    const json catalogue = json::parse(listed->body);
    for (const auto& section : catalogue["sections"])
        for (const auto& item : section["items"]) items[item["identifier"]] = item;
    // The catalogue's 109 and the own one.
    EXPECT_GE(items.size(), 110u);
    for (const auto& [key, item] : items) {
        SCOPED_TRACE(key);
        ASSERT_TRUE(item["picture"].is_string());
        if (item["list"] == "catalogue") {
            EXPECT_EQ(item["pictureSource"], "drawn");
        } else if (item["list"] == "own") {
            EXPECT_EQ(item["pictureSource"], "sample");
        }
    }
    std::string own;
    for (const auto& [key, item] : items)
        if (item["list"] == "own") own = key;
    ASSERT_FALSE(own.empty());
    struct Case {
        std::string key;
        int status;
        const char* type;
        bool kept;
        const char* size;
    } cases[] = {
        {"uw-133", 200, "image/svg+xml", true, "96\n96\n"},
        {"wp-iphone-129", 200, "image/svg+xml", true, "96\n96\n"},
        // An own template whose thumbnail is not written shows the sample, asked anew.
        {own, 200, "image/svg+xml", false, "150\n100\n"},
        {"no-such-template", 404, "application/json", false, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        auto answer = client->Get("/api/templates/picture?key=" + c.key, server.pageHeaders());
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, c.status);
        EXPECT_EQ(answer->get_header_value("Content-Type"), c.type);
        EXPECT_EQ(answer->get_header_value("Cache-Control").find("max-age") != std::string::npos,
                  c.kept);
        if (c.status == 200) {
            EXPECT_EQ(sizeOf(answer->body, c.key + ".svg"), c.size);
        }
    }
    // Two templates of other shapes get other pictures.
    auto story = client->Get("/api/templates/picture?key=fb-story", server.pageHeaders());
    auto cover = client->Get("/api/templates/picture?key=fb-cover", server.pageHeaders());
    ASSERT_TRUE(story && cover);
    EXPECT_NE(story->body, cover->body);
}

TEST_F(WebPicturesMedia, PickedFilesHaveThumbnailsAsLibraryItemsDo) {
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    auto client = server.client();
    struct Case {
        std::string file;
        int status;
        const char* type;
        const char* size;  // as vipsheader reads it
    } cases[] = {
        {media + "/photo.jpg", 200, "image/jpeg", "256\n192\n"},
        {media + "/movie.mp4", 200, "image/jpeg", "192\n256\n"},
        // A file that can't be drawn still shows, as a stand-in.
        {media + "/broken.jpg", 200, "image/svg+xml", "256\n256\n"},
        {media + "/missing.jpg", 404, "application/json", ""},
        {home.path("elsewhere.jpg"), 403, "application/json", ""},
        {media + "/../elsewhere.jpg", 403, "application/json", ""},
    };
    std::filesystem::copy_file(media + "/photo.jpg", home.path("elsewhere.jpg"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        auto answer = client->Get("/api/library/thumbnail?size=256&id=" +
                                      httplib::detail::encode_query_param("file:" + c.file),
                                  server.pageHeaders());
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, c.status);
        EXPECT_EQ(answer->get_header_value("Content-Type"), c.type);
        if (c.status == 200) {
            const std::string name = std::filesystem::path(c.file).filename().string() +
                                     (std::string(c.type) == "image/jpeg" ? ".jpg" : ".svg");
            EXPECT_EQ(sizeOf(answer->body, name), c.size);
        }
    }
}

}  // namespace
