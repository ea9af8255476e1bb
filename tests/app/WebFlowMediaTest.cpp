// The walks of pages through `unwarp serve`: each tab's walk on its own stack, the size editor's
// field rules and buttons answered by the server, and the user's own templates changed from the
// page and from the command line on one home. The other screens of a walk: the summary's back
// step along the stack, the external item presented on the walk of the tab that takes it, and
// the settings pushed over home or presented over the summary; every answer reports the stack.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

struct Page {
    const Server& server;
    std::unique_ptr<httplib::Client> client = server.client();

    // The answer's status and JSON.
    std::pair<int, json> post(const std::string& path, const json& body) {
        auto answer = client->Post(path, server.pageHeaders(), body.dump(), "application/json");
        if (!answer) return {0, json()};
        return {answer->status, json::parse(answer->body, nullptr, false)};
    }
    json get(const std::string& path) {
        auto answer = client->Get(path, server.pageHeaders());
        return answer ? json::parse(answer->body, nullptr, false) : json();
    }
    std::vector<std::string> ownTitles(const std::string& search = "") {
        std::vector<std::string> titles;
        const json catalogue = get("/api/templates?search=" + search);
        for (const auto& section : catalogue["sections"])
            if (section["list"] == "own")
                for (const auto& item : section["items"]) titles.push_back(item["title"]);
        return titles;
    }
};

class WebFlowMedia : public ::testing::Test {
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
    }
    std::string file(const char* name) const { return "file:" + media + "/" + name; }

    testing_support::TestHome home;
    std::string media = home.path("media");
};

TEST_F(WebFlowMedia, EachPageWalksItsOwnStackPhotosBeforeVideos) {
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    Page page{server};
    const json selection = {file("movie.mp4"), file("photo.jpg")};

    auto [status, a] = page.post("/api/flow/begin", {{"flow", "tab-a"}, {"assets", selection}});
    ASSERT_EQ(status, 200) << a.dump();
    EXPECT_EQ(a["screen"]["kind"], "sizeEditor");
    EXPECT_EQ(a["editor"]["media"], "photo");
    // Another tab chooses a template: straight to its summary, leaving the first walk alone.
    auto [statusB, b] = page.post(
        "/api/flow/begin", {{"flow", "tab-b"}, {"assets", selection}, {"template", "uw-133"}});
    ASSERT_EQ(statusB, 200) << b.dump();
    EXPECT_EQ(b["screen"]["kind"], "summary");
    // The summary is headed by the chosen template's name, not by its size.
    EXPECT_EQ(b["summary"]["template"]["title"], "Unwarp 1.33x");
    EXPECT_EQ(page.get("/api/flow?flow=tab-a")["screen"]["id"], a["screen"]["id"]);

    const json photoEditor = a["screen"]["id"];
    auto [statusNext, video] =
        page.post("/api/flow/next", {{"flow", "tab-a"}, {"screen", photoEditor}});
    ASSERT_EQ(statusNext, 200);
    EXPECT_EQ(video["editor"]["media"], "video");
    EXPECT_EQ(video["screen"]["depth"], 3);
    // A second touch of the editor that is gone changes nothing.
    EXPECT_EQ(page.post("/api/flow/next", {{"flow", "tab-a"}, {"screen", photoEditor}}).first, 409);
    auto [statusBack, back] = page.post("/api/flow/back", {{"flow", "tab-a"}});
    ASSERT_EQ(statusBack, 200);
    EXPECT_EQ(back["editor"]["media"], "photo");
    page.post("/api/flow/next", {{"flow", "tab-a"}, {"screen", back["screen"]["id"]}});
    auto summary =
        page.post("/api/flow/next",
                  {{"flow", "tab-a"}, {"screen", page.get("/api/flow?flow=tab-a")["screen"]["id"]}})
            .second;
    EXPECT_EQ(summary["screen"]["kind"], "summary");
    EXPECT_EQ(summary["summary"]["assets"], selection);
    // A page id that could name anything else is refused.
    EXPECT_EQ(page.post("/api/flow/begin", {{"flow", "../x"}, {"assets", selection}}).first, 404);
}

TEST_F(WebFlowMedia, TheSizeEditorKeepsItsFieldRulesAndSavesAnOwnTemplate) {
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    Page page{server};
    auto begun = page.post("/api/flow/begin", {{"flow", "tab"}, {"assets", {file("photo.jpg")}}});
    ASSERT_EQ(begun.first, 200) << begun.second.dump();
    // Field changes in order, as [field, value] pairs.
    using Edits = std::vector<std::pair<std::string, std::string>>;
    auto editsJSON = [](const Edits& edits) {
        json list = json::array();
        for (const auto& [field, value] : edits) list.push_back(json::array({field, value}));
        return list;
    };
    auto edit = [&](const Edits& edits) {
        return page.post("/api/flow/editor", {{"flow", "tab"}, {"edits", editsJSON(edits)}}).second;
    };
    auto shown = edit({{"width", "300"}, {"height", "150"}, {"method", "stretch"}});
    EXPECT_EQ(shown["editor"]["result"]["size"], "300 x 150 px");
    // Edits that are no list of pairs (an object loses their order) are refused.
    EXPECT_EQ(page.post("/api/flow/editor", {{"flow", "tab"}, {"edits", {{"width", "1"}}}}).first,
              400);
    struct Case {
        const char* name;
        Edits edits;
        json refused;
        json width, height;  // the input view's values after the edits
    } cases[] = {
        {"a leading zero is refused", {{"width", "012"}}, json::array({"width \"012\""}), 300, 150},
        // Zero in one pixel field clears the other and leaves itself as it was.
        {"zero clears the other field",
         {{"width", "0"}},
         json::array({"width \"0\""}),
         300,
         "auto"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto fresh =
            page.post("/api/flow/begin", {{"flow", "tab"}, {"assets", {file("photo.jpg")}}});
        ASSERT_EQ(fresh.first, 200);
        // The fields as the global choice stored them; the edits are typed without leaving.
        edit({{"width", "300"}, {"height", "150"}});
        auto answer =
            page.post("/api/flow/editor", {{"flow", "tab"}, {"edits", editsJSON(c.edits)}});
        // Finishing the typing hands the values on; the refusals are what was typed.
        EXPECT_EQ(answer.second["editor"]["refused"], c.refused);
        EXPECT_EQ(answer.second["editor"]["typing"]["width"], c.width);
        EXPECT_EQ(answer.second["editor"]["typing"]["height"], c.height);
    }
    json titles = json::array();
    for (const auto& button : shown["editor"]["buttons"]) titles.push_back(button["title"]);
    EXPECT_EQ(titles, json({"Normal size", "Smart size", "Ratio clip", "Ratio fit", "Stretch"}));

    edit({{"width", "300"}, {"height", "150"}, {"format", "png"}});
    auto saved = page.post("/api/flow/save", {{"flow", "tab"}, {"name", "Strip"}});
    ASSERT_EQ(saved.first, 200) << saved.second.dump();
    const auto show = command_test::unwarp(
        home, "template show --json " + saved.second["saved"].get<std::string>());
    ASSERT_EQ(show.exitCode, 0) << show.err;
    const json stored = json::parse(show.out);
    EXPECT_EQ(stored["name"], "Strip");
    EXPECT_EQ(stored["photo"]["text"], "300 x 150 px");
    EXPECT_EQ(stored["photo"]["format"], "PNG");
}

TEST_F(WebFlowMedia, OnlyAFinishedSizeBecomesARecentSize) {
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    Page page{server};
    ASSERT_EQ(
        page.post("/api/flow/begin", {{"flow", "tab"}, {"assets", {file("photo.jpg")}}}).first,
        200);
    // Each request as the page sends it: one field as it loses focus, or the fields done.
    auto edit = [&](const char* field, const char* value, bool done) {
        json body{{"flow", "tab"}, {"edits", json::array()}};
        if (field) body["edits"].push_back({field, value});
        if (done) body["done"] = true;
        return page.post("/api/flow/editor", body).second["editor"];
    };
    auto recents = [](const json& editor) { return editor["recentSizes"]; };
    edit("width", "200", false);
    edit("height", "100", true);
    edit("width", "300", false);
    json typing = edit("height", "150", false);
    // While the fields are typed, the current size and the list stay as they were.
    EXPECT_EQ(typing["result"]["size"], "200 x 100 px");
    EXPECT_EQ(typing["typing"]["width"], 300);
    EXPECT_EQ(typing["typing"]["open"], true);
    EXPECT_EQ(recents(typing)[0], "200 x 100 px");
    json done = edit(nullptr, nullptr, true);
    EXPECT_EQ(done["result"]["size"], "300 x 150 px");
    EXPECT_EQ(done["typing"]["open"], false);
    ASSERT_GE(recents(done).size(), 2u);
    EXPECT_EQ(recents(done)[0], "300 x 150 px");
    EXPECT_EQ(recents(done)[1], "200 x 100 px");
    for (const auto& size : recents(done)) {
        EXPECT_NE(size, "300 x 100 px");
        EXPECT_NE(size, "200 x 150 px");
    }
    // A field left typed is finished by the walk's next step all the same.
    edit("width", "640", false);
    edit("height", "480", false);
    auto next =
        page.post("/api/flow/next",
                  {{"flow", "tab"}, {"screen", page.get("/api/flow?flow=tab")["screen"]["id"]}});
    ASSERT_EQ(next.first, 200);
    EXPECT_EQ(next.second["summary"]["template"]["title"], "640 x 480 px");
}

TEST_F(WebFlowMedia, OwnTemplatesChangedFromThePageAndTheCommandLineAllStay) {
    Server server(home);
    ASSERT_TRUE(server.running());
    Page page{server};
    auto [status, created] = page.post("/api/templates/create", {{"name", "Page one"}});
    ASSERT_EQ(status, 200) << created.dump();
    const std::string key = created["key"];
    // Another process on the same home adds one while the server holds its list.
    ASSERT_EQ(
        command_test::unwarp(home, "template create --name 'From CLI' --size 100x100").exitCode, 0);
    EXPECT_EQ(page.post("/api/templates/rename", {{"key", key}, {"name", "Renamed"}}).first, 200);
    auto copy = page.post("/api/templates/duplicate", {{"key", key}}).second;
    ASSERT_TRUE(copy["key"].is_string()) << copy.dump();
    const auto listed = command_test::unwarp(home, "templates");
    EXPECT_NE(listed.out.find("From CLI"), std::string::npos) << listed.out;
    EXPECT_NE(listed.out.find("Renamed"), std::string::npos) << listed.out;
    EXPECT_EQ(page.ownTitles("renam"), (std::vector<std::string>{"Renamed", "Renamed"}));

    EXPECT_EQ(page.post("/api/templates/remove", {{"key", copy["key"]}}).first, 200);
    EXPECT_EQ(page.post("/api/templates/remove", {{"key", copy["key"]}}).first, 404);
    EXPECT_EQ(page.post("/api/templates/rename", {{"key", "uw-133"}, {"name", "x"}}).first, 404);
    EXPECT_EQ(page.ownTitles("renam"), std::vector<std::string>{"Renamed"});

    // The collection takes catalogue templates only.
    EXPECT_EQ(
        page.post("/api/templates/collection", {{"key", "fb-cover"}, {"included", true}}).first,
        200);
    EXPECT_EQ(page.post("/api/templates/collection", {{"key", key}, {"included", true}}).first,
              404);
    bool inCollection = false;
    const json catalogue = page.get("/api/templates");
    for (const auto& section : catalogue["sections"])
        if (section["list"] == "collection")
            for (const auto& item : section["items"])
                inCollection |= item["identifier"] == "fb-cover";
    EXPECT_TRUE(inCollection);
}

// The walk of one tab, "tab", on a server of its own.
class WebWalkMedia : public WebFlowMedia {
  protected:
    void SetUp() override {
        WebFlowMedia::SetUp();
        server = std::make_unique<Server>(home, std::vector<std::string>{"--folder", media});
        ASSERT_TRUE(server->running());
        page = std::make_unique<Page>(Page{*server});
    }
    // A step of the walk "tab": the status and the answer.
    std::pair<int, json> step(const std::string& path, json body = json::object()) {
        body["flow"] = "tab";
        return page->post(path, body);
    }
    json walk() { return page->get("/api/flow?flow=tab"); }
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

    std::unique_ptr<Server> server;
    std::unique_ptr<Page> page;
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
    EXPECT_TRUE(page->get("/api/external")["item"].is_null());
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
