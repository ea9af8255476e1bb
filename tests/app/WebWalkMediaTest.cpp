// The screens of a page's walk beyond the size editors: the summary's back step along the
// stack, the external item presented on the walk of the tab that takes it, and the settings
// pushed over home or presented over the summary; every answer reports the whole stack.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

class WebWalkMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(media);
        ASSERT_EQ(
            testing_support::runCommand("convert -size 320x240 xc:red '" + media + "/photo.jpg'"),
            0);
        ASSERT_EQ(testing_support::runCommand(
                      "ffmpeg -v error -f lavfi -i testsrc=size=320x240:rate=10:duration=1 "
                      "-pix_fmt yuv420p -c:v libx264 '" +
                      media + "/movie.mp4'"),
                  0);
        server = std::make_unique<Server>(home, std::vector<std::string>{"--folder", media});
        ASSERT_TRUE(server->running());
        client = server->client();
    }
    std::string file(const char* name) const { return "file:" + media + "/" + name; }

    // A step of the walk "tab": the status and the answer.
    std::pair<int, json> step(const std::string& path, json body = json::object()) {
        body["flow"] = "tab";
        auto answer = client->Post(path, server->pageHeaders(), body.dump(), "application/json");
        if (!answer) return {0, json()};
        return {answer->status, json::parse(answer->body, nullptr, false)};
    }
    json walk() {
        auto answer = client->Get("/api/flow?flow=tab", server->pageHeaders());
        return answer ? json::parse(answer->body, nullptr, false) : json();
    }
    // The kinds on the stack, root first, and the modal screen's kind after a "+".
    static std::string kinds(const json& answer) {
        std::string text;
        for (const auto& screen : answer["stack"])
            text += (text.empty() ? "" : " ") + screen["kind"].get<std::string>();
        if (answer["presented"].is_object())
            text += " +" + answer["presented"]["kind"].get<std::string>();
        return text;
    }
    // The screen the user answers: the modal one, else the top.
    static json shown(const json& answer) {
        return answer["presented"].is_object() ? answer["presented"]["id"] : answer["screen"]["id"];
    }

    testing_support::TestHome home;
    std::string media = home.path("media");
    std::unique_ptr<Server> server;
    std::unique_ptr<httplib::Client> client;
};

TEST_F(WebWalkMedia, BackStepsDownTheStackAndTheReportedStackFollows) {
    const json both = {file("photo.jpg"), file("movie.mp4")};
    auto [status, answer] = step("/api/flow/begin", {{"assets", both}});
    ASSERT_EQ(status, 200) << answer.dump();
    // Each step names the screen it answers; the stack of its answer is what the walk reports.
    struct Step {
        const char* path;
        const char* kinds;
    } steps[] = {
        {"/api/flow/next", "home sizeEditor sizeEditor"},
        {"/api/flow/next", "home sizeEditor sizeEditor summary"},
        {"/api/flow/back", "home sizeEditor sizeEditor"},
        {"/api/flow/next", "home sizeEditor sizeEditor summary"},
        {"/api/flow/back", "home sizeEditor sizeEditor"},
        {"/api/flow/back", "home sizeEditor"},
        {"/api/flow/back", "home"},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(std::string(s.path) + " to " + s.kinds);
        const json before = answer["screen"]["id"];
        std::tie(status, answer) = step(s.path, {{"screen", before}});
        ASSERT_EQ(status, 200) << answer.dump();
        EXPECT_EQ(kinds(answer), s.kinds);
        EXPECT_EQ(walk()["stack"], answer["stack"]);
        // The screen left is no longer answered.
        EXPECT_EQ(step(s.path, {{"screen", before}}).first, 409);
    }
    // Back at home the walk ended: a begin with a template goes straight to a summary over
    // home, and its back returns home.
    std::tie(status, answer) = step("/api/flow/begin", {{"assets", both}, {"template", "uw-133"}});
    ASSERT_EQ(status, 200) << answer.dump();
    EXPECT_EQ(kinds(answer), "home summary");
    const json home = answer["stack"][0];
    std::tie(status, answer) = step("/api/flow/back", {{"screen", answer["screen"]["id"]}});
    EXPECT_EQ(kinds(answer), "home");
    EXPECT_EQ(answer["stack"][0], home);
}

TEST_F(WebWalkMedia, SettingsArePushedOverHomeAndPresentedOverTheSummary) {
    struct Case {
        const char* name;
        json begin;  // the walk before the settings open; null stays at home
        const char* open;
        bool summarySettings;
        const char* closed;
    } cases[] = {
        {"from home", json(), "home settings", false, "home"},
        {"from the summary",
         {{"assets", {file("photo.jpg")}}, {"template", "uw-133"}},
         "home summary +settings",
         true,
         "home summary"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (!c.begin.is_null()) {
            ASSERT_EQ(step("/api/flow/begin", c.begin).first, 200);
        }
        auto [status, open] = step("/api/flow/settings");
        ASSERT_EQ(status, 200) << open.dump();
        EXPECT_EQ(kinds(open), c.open);
        const json settings = open["presented"].is_object() ? open["presented"] : open["screen"];
        EXPECT_EQ(settings["summarySettings"], c.summarySettings);
        // Opening again while they show keeps the one screen.
        EXPECT_EQ(kinds(step("/api/flow/settings").second), c.open);
        auto [closedStatus, closed] = step("/api/flow/settings/done", {{"screen", shown(open)}});
        ASSERT_EQ(closedStatus, 200) << closed.dump();
        EXPECT_EQ(kinds(closed), c.closed);
        // Closed once: a second close names a screen that is gone.
        EXPECT_EQ(step("/api/flow/settings/done", {{"screen", shown(open)}}).first, 409);
    }
    // Not from a size editor.
    ASSERT_EQ(step("/api/flow/begin", {{"assets", {file("photo.jpg")}}}).first, 200);
    EXPECT_EQ(step("/api/flow/settings").first, 409);
}

TEST_F(WebWalkMedia, TheExternalItemIsPresentedOverHomeAndItsChoiceBeginsTheWalk) {
    // A summary is open when the file arrives.
    ASSERT_EQ(
        step("/api/flow/begin", {{"assets", {file("photo.jpg")}}, {"template", "uw-133"}}).first,
        200);
    auto arrive = [&](const char* name) {
        const json event = serve_test::awaitEvent(
            *server, "external", [](const json&) { return true; },
            [&] {
                testing_support::runCommand(std::string(UNWARP_BINARY) + " --home '" + home.root() +
                                            "' open '" + media + "/" + name + "'");
            });
        ASSERT_FALSE(event.is_null());
    };
    arrive("movie.mp4");
    auto [status, shownAnswer] = step("/api/flow/external");
    ASSERT_EQ(status, 200) << shownAnswer.dump();
    // The stack went back home under the modal, titled by the file's media type.
    EXPECT_EQ(kinds(shownAnswer), "home +external");
    const json external = shownAnswer["presented"];
    EXPECT_EQ(external["title"], "External Video");
    EXPECT_EQ(external["cancel"], "Cancel");
    EXPECT_EQ(external["item"]["name"], "movie.mp4");
    EXPECT_EQ(external["item"]["media"], "video");
    // Taken by this tab, it is no longer offered; asking again answers the walk as it is.
    EXPECT_TRUE(client->Get("/api/external", server->pageHeaders())->body.find("\"item\":null") !=
                std::string::npos);
    EXPECT_EQ(kinds(step("/api/flow/external").second), "home +external");
    // Only the modal screen is answered while it shows.
    EXPECT_EQ(step("/api/flow/back", {{"screen", shownAnswer["screen"]["id"]}}).first, 409);

    // "Cancel" lets it go; a second file chosen without a template goes to its size editor,
    // one with a template straight to its summary.
    auto cancelled = step("/api/flow/external/cancel", {{"screen", external["id"]}});
    EXPECT_EQ(kinds(cancelled.second), "home");
    EXPECT_EQ(step("/api/flow/external/cancel", {{"screen", external["id"]}}).first, 409);
    struct Case {
        const char* file;
        json tpl;
        const char* kinds;
    } cases[] = {
        {"photo.jpg", json(), "home sizeEditor"},
        {"movie.mp4", "uw-133", "home summary"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        arrive(c.file);
        const json presented = step("/api/flow/external").second["presented"];
        ASSERT_TRUE(presented.is_object());
        json body{{"screen", presented["id"]}};
        if (!c.tpl.is_null()) body["template"] = c.tpl;
        auto [finishStatus, finished] = step("/api/flow/external/finish", body);
        ASSERT_EQ(finishStatus, 200) << finished.dump();
        EXPECT_EQ(kinds(finished), c.kinds);
        if (finished["summary"].is_object()) {
            EXPECT_EQ(finished["summary"]["assets"], json::array({presented["item"]["id"]}));
        }
        if (finished["editor"].is_object()) {
            EXPECT_EQ(finished["editor"]["count"], 1);
        }
    }
}

}  // namespace
