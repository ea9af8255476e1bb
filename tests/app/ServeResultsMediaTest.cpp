// The results screen's ways out through `unwarp serve`: export into a folder the user chose
// (only one of the server's folders, never the result store), saving into the library's
// albums, and files opened with `unwarp open` reaching the server as the external item.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::awaitEvent;
using serve_test::Server;
namespace fs = std::filesystem;

json post(const Server& server, const std::string& path, const json& body, int* status = nullptr) {
    auto answer =
        server.client()->Post(path, server.pageHeaders(), body.dump(), "application/json");
    if (status) *status = answer ? answer->status : 0;
    return answer ? json::parse(answer->body, nullptr, false) : json();
}

json get(const Server& server, const std::string& path) {
    auto answer = server.client()->Get(path, server.pageHeaders());
    return answer ? json::parse(answer->body, nullptr, false) : json();
}

class ServeResultsMedia : public ::testing::Test {
  protected:
    void SetUp() override {
        media = home.path("media");
        exports = home.path("exports");
        fs::create_directories(media);
        fs::create_directories(exports + "/trip");
        for (const char* name : {"a.jpg", "b.jpg"})
            ASSERT_EQ(testing_support::runCommand("convert -size 64x48 gradient:red-blue '" +
                                                  media + "/" + name + "'"),
                      0);
    }

    // A run of both photos with "Unwarp 1.33x", answered once it shows "Results".
    json runToResults(const Server& server) {
        json body{{"assets", {"file:" + media + "/a.jpg", "file:" + media + "/b.jpg"}},
                  {"template", "uw-133"}};
        awaitEvent(
            server, "button", [](const json& e) { return e["title"] == "Results"; },
            [&] { post(server, "/api/run", body); });
        return get(server, "/api/run");
    }

    testing_support::TestHome home;
    std::string media, exports;
};

TEST_F(ServeResultsMedia, ExportsOnlyIntoTheServersFoldersAndNeverIntoTheResultStore) {
    Server server(home, {"--folder", media, "--folder", exports});
    ASSERT_TRUE(server.running());
    const json run = runToResults(server);
    ASSERT_EQ(run["items"].size(), 2u);
    const std::string storeFile = run["items"][0]["file"];
    const std::string store = fs::path(storeFile).parent_path().parent_path().string();

    struct Case {
        std::string folder;
        int status;
    };
    const Case cases[] = {
        {exports + "/trip", 200},
        {exports + "/trip/../../outside", 403},             // leaves the folders by ".."
        {home.path("elsewhere"), 403},                      // a folder the server was not given
        {fs::path(storeFile).parent_path().string(), 403},  // inside the result store
        {store, 403},
        {media + "/a.jpg", 403},  // a file, not a folder
    };
    fs::create_directories(home.path("elsewhere"));
    for (const auto& c : cases) {
        int status = 0;
        auto answer = post(
            server, "/api/share",
            {{"from", "run"}, {"indexes", {0, 1}}, {"folder", c.folder}, {"name", "pic"}}, &status);
        EXPECT_EQ(status, c.status) << c.folder << " " << answer.dump();
    }
    std::vector<std::string> written;
    for (const auto& entry : fs::directory_iterator(exports + "/trip"))
        written.push_back(entry.path().filename().string());
    std::sort(written.begin(), written.end());
    EXPECT_EQ(written, (std::vector<std::string>{"pic1.jpg", "pic2.jpg"}));
    EXPECT_TRUE(fs::is_empty(home.path("elsewhere")));
}

TEST_F(ServeResultsMedia, SavesResultsIntoTheAlbumsUnderTheSaveActionsTitle) {
    // The run keeps its results to itself, so the albums hold only what is saved here.
    ASSERT_EQ(testing_support::runCommand(std::string(UNWARP_BINARY) + " --home '" + home.root() +
                                          "' settings set isAutoSaveEnabled false"),
              0);
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());
    runToResults(server);
    auto prompt = post(server, "/api/albums/prompt", {{"from", "run"}, {"indexes", {0, 1}}});
    EXPECT_EQ(prompt["enabled"], true);
    EXPECT_EQ(prompt["title"], "Save 2 images");
    auto saved = post(server, "/api/albums", {{"from", "run"}, {"indexes", {0, 1}}});
    EXPECT_EQ(saved["status"], 1) << saved.dump();
    EXPECT_EQ(saved["message"], "Success");
    int photos = -1;
    const json albums = get(server, "/api/library/albums");
    for (const auto& album : albums["albums"])
        if (album["title"] == "Uwrp photos") photos = album["count"];
    EXPECT_EQ(photos, 2) << albums.dump();
    // Nothing selected to save: the empty-selection words.
    auto empty = post(server, "/api/albums", {{"from", "run"}, {"indexes", json::array()}});
    EXPECT_EQ(empty["message"],
              "An error occurred while sharing: Selection is empty. Please try again.");
}

TEST_F(ServeResultsMedia, AFileOpenedFromOutsideArrivesAsTheExternalItemOnce) {
    Server server(home);
    ASSERT_TRUE(server.running());
    std::string said;
    const json event = awaitEvent(
        server, "external", [](const json&) { return true; },
        [&] {
            testing_support::runCommand(std::string(UNWARP_BINARY) + " --home '" + home.root() +
                                            "' open '" + media + "/a.jpg'",
                                        &said);
        });
    EXPECT_NE(said.find("Opened in the running front end"), std::string::npos) << said;
    EXPECT_EQ(event["title"], "External Photo");
    EXPECT_EQ(event["name"], "a.jpg");
    // The page may read the copy, and a page opened later is offered it too until it is taken.
    const std::string id = event["id"];
    auto picture =
        server.client()->Get("/api/file?path=" + httplib::detail::encode_query_param(id.substr(5)),
                             server.pageHeaders());
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->status, 200);
    EXPECT_EQ(get(server, "/api/external")["item"]["id"], id);
    post(server, "/api/external/done", json::object());
    EXPECT_TRUE(get(server, "/api/external")["item"].is_null());
}

}  // namespace
