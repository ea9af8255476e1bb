// The summary's adjust session through `unwarp serve`: what it refuses, the axis a drag may
// take, and the preview it draws.
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

struct Answer {
    int status = 0;
    json body;
};

Answer post(const Server& server, const std::string& path, const json& body) {
    auto r = server.client()->Post(path, server.pageHeaders(), body.dump(), "application/json");
    if (!r) return {};
    return {r->status, json::parse(r->body, nullptr, false)};
}

std::string sizeOf(const std::string& file) {
    std::string out;
    testing_support::runCommand(
        "vipsheader -f width '" + file + "'; vipsheader -f height '" + file + "'", &out);
    auto newline = out.find('\n');
    return out.substr(0, newline) + "x" +
           out.substr(newline + 1, out.find('\n', newline + 1) - newline - 1);
}

// The colour at a point, by libvips, each channel rounded to a multiple of 2 against the
// codec's noise.
std::string pointOf(const std::string& file, int x, int y) {
    std::string out;
    testing_support::runCommand(
        "vips getpoint '" + file + "' " + std::to_string(x) + " " + std::to_string(y), &out);
    std::istringstream in(out);
    std::string text;
    for (double v = 0; in >> v;) text += (text.empty() ? "" : " ") + std::to_string(int(v) / 2 * 2);
    return text;
}

TEST(ServeAdjustMedia, TheSessionDecidesWhatAPageMayDo) {
    testing_support::TestHome home;
    const std::string media = home.path("media");
    std::filesystem::create_directories(media);
    ASSERT_EQ(testing_support::runCommand("convert -size 320x240 xc:red '" + media +
                                          "/wide.png' && convert -size 240x320 xc:blue '" + media +
                                          "/tall.png'"),
              0);
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    const json picked{{"assets", {"file:" + media + "/wide.png", "file:" + media + "/tall.png"}},
                      {"template", "ig-square-fit"}};

    EXPECT_EQ(post(server, "/api/adjust/action", {{"action", "rotateRight"}}).status, 409);
    const Answer opened = post(server, "/api/adjust/open", picked);
    ASSERT_EQ(opened.status, 200) << opened.body.dump();
    EXPECT_EQ(opened.body["title"], "Edit Photo 1/2");
    EXPECT_EQ(opened.body["fill"]["color"], "#FFFFFF");
    // A wide picture in a square frame has its margin above and below.
    EXPECT_EQ(opened.body["direction"], "vertical");

    const struct {
        const char* path;
        json body;
        int status;
    } refused[] = {
        {"/api/adjust/action", {{"action", "center"}}, 409},      // nothing to centre yet
        {"/api/adjust/action", {{"action", "applyToAll"}}, 409},  // nothing to apply
        {"/api/adjust/action", {{"action", "explode"}}, 400},
        {"/api/adjust/fill", {{"palette", 0}}, 400},  // the picker is no colour of its own
        {"/api/adjust/fill", {{"palette", 44}}, 400},
        {"/api/adjust/fill", {{"color", "red"}}, 400},
        {"/api/adjust/item", {{"index", 2}}, 400},
        {"/api/adjust/drag", {{"drag", "up"}}, 400},
    };
    for (const auto& r : refused)
        EXPECT_EQ(post(server, r.path, r.body).status, r.status) << r.path << " " << r.body.dump();

    // A sideways drag moves nothing; a drag down of a quarter of a 400-point view moves the
    // picture by its whole margin and makes centring possible.
    const json view{{"width", 400}, {"height", 400}, {"scale", 2}};
    Answer sideways = post(server, "/api/adjust/drag", {{"drag", {100, 5}}, {"view", view}});
    EXPECT_EQ(sideways.body["revision"], 0);
    EXPECT_FALSE(sideways.body["menu"]["center"].get<bool>());
    Answer down = post(server, "/api/adjust/drag", {{"drag", {5, 100}}, {"view", view}});
    EXPECT_EQ(down.body["revision"], 1);
    EXPECT_TRUE(down.body["menu"]["center"].get<bool>());
    EXPECT_TRUE(down.body["items"][0]["adjusted"].get<bool>());
    EXPECT_FALSE(down.body["items"][1]["adjusted"].get<bool>());
    // A colour of the picker becomes the item's fill.
    EXPECT_EQ(post(server, "/api/adjust/fill", {{"color", "#00FF00"}}).body["fill"]["color"],
              "#00FF00");

    // The preview: the square frame fitted into 200 pixels, with the margin filled.
    auto preview =
        server.client()->Get("/api/adjust/preview?index=0&size=200&v=2", server.pageHeaders());
    ASSERT_TRUE(preview);
    ASSERT_EQ(preview->status, 200) << preview->body;
    const std::string file = home.path("preview.jpg");
    std::ofstream(file, std::ios::binary) << preview->body;
    EXPECT_EQ(sizeOf(file), "200x200");
    auto missing =
        server.client()->Get("/api/adjust/preview?index=7&size=200", server.pageHeaders());
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);

    // Drawn as the state makes it: the picked green above, the red picture moved down.
    EXPECT_EQ(pointOf(file, 100, 20), "0 254 0");
    EXPECT_EQ(pointOf(file, 100, 150), "254 0 0");
}

}  // namespace
