// `unwarp serve` as a browser and a hostile page meet it: the token, forged changes, paths out
// of the allowed folders, the upload limit and the embedded front end.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

TEST(ServeCommand, PrintsItsAddressOnceListeningAndEndsOnSIGTERM) {
    testing_support::TestHome home;
    Server server(home);
    ASSERT_TRUE(server.running());
    EXPECT_EQ(server.token().size(), 64u);
    EXPECT_EQ(server.base().rfind("http://127.0.0.1:", 0), 0u) << server.url();
    // The page itself comes from inside the program.
    auto page = server.client()->Get("/?token=" + server.token());
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("<uw-app>"), std::string::npos);
    EXPECT_NE(page->get_header_value("Set-Cookie").find("HttpOnly"), std::string::npos);
    EXPECT_EQ(server.stop(), 0);
}

TEST(ServeCommand, RefusesRequestsWithoutTheToken) {
    testing_support::TestHome home;
    Server server(home);
    ASSERT_TRUE(server.running());
    const std::string wrong(64, 'a');
    struct Case {
        std::string path;
        httplib::Headers headers;
        int status;
    };
    const std::vector<Case> cases{
        {"/", {}, 403},
        {"/api/state", {}, 403},
        {"/api/state?token=" + wrong, {}, 403},
        {"/api/state", {{"X-Unwarp-Token", wrong}}, 403},
        {"/api/state", {{"X-Unwarp-Token", server.token().substr(0, 63)}}, 403},
        {"/api/state", {{"Cookie", "unwarp-token=" + wrong}}, 403},
        {"/api/events", {}, 403},
        {"/api/state", {{"X-Unwarp-Token", server.token()}}, 200},
        {"/api/state?token=" + server.token(), {}, 200},
        {"/api/state", {{"Cookie", "other=1; unwarp-token=" + server.token()}}, 200},
    };
    auto client = server.client();
    for (const auto& c : cases) {
        auto response = client->Get(c.path, c.headers);
        ASSERT_TRUE(response) << c.path;
        EXPECT_EQ(response->status, c.status) << c.path;
        if (c.status == 403) {
            EXPECT_TRUE(json::parse(response->body).contains("error"));
        }
    }
}

TEST(ServeCommand, RefusesForgedChanges) {
    testing_support::TestHome home;
    Server server(home);
    ASSERT_TRUE(server.running());
    const std::string cookie = "unwarp-token=" + server.token();
    struct Case {
        const char* what;
        httplib::Headers headers;
        int status;
    };
    const std::vector<Case> cases{
        // Another site's form posts with the cookie, but can't set the header.
        {"cookie only", {{"Cookie", cookie}}, 403},
        {"cookie and another origin", {{"Cookie", cookie}, {"Origin", "http://evil.example"}}, 403},
        {"header from another origin",
         {{"X-Unwarp-Token", server.token()}, {"Origin", "http://evil.example"}},
         403},
        {"header from a sandboxed page",
         {{"X-Unwarp-Token", server.token()}, {"Origin", "null"}},
         403},
        // The page's own request reaches the route, which finds no run open.
        {"the page's own", server.pageHeaders(), 409},
    };
    auto client = server.client();
    for (const auto& c : cases) {
        auto response = client->Post("/api/run/button", c.headers, "{}", "application/json");
        ASSERT_TRUE(response) << c.what;
        EXPECT_EQ(response->status, c.status) << c.what;
    }
    // A POST with the token only in the query is refused too.
    auto query = client->Post("/api/run/button?token=" + server.token(), "{}", "application/json");
    ASSERT_TRUE(query);
    EXPECT_EQ(query->status, 403);
}

TEST(ServeCommand, KeepsClientPathsInsideTheAllowedFolders) {
    testing_support::TestHome home;
    namespace fs = std::filesystem;
    const std::string chosen = home.path("chosen");
    const std::string outside = home.path("outside");
    fs::create_directories(chosen + "/album");
    fs::create_directories(outside);
    std::ofstream(outside + "/secret.jpg") << "secret";
    std::ofstream(chosen + "/album/mine.jpg") << "mine";
    fs::create_directory_symlink(outside, chosen + "/link");
    fs::create_symlink(outside + "/secret.jpg", chosen + "/album/alias.jpg");
    Server server(home, {"--folder", chosen});
    ASSERT_TRUE(server.running());
    auto client = server.client();
    auto get = [&](const std::string& path) {
        auto response = client->Get(path, server.pageHeaders());
        return response ? response->status : -1;
    };
    struct Case {
        std::string path;
        int status;
    };
    const std::vector<Case> cases{
        {"/api/file?path=" + chosen + "/album/mine.jpg", 200},
        {"/api/files?path=" + chosen, 200},
        {"/api/file?path=" + chosen + "/../outside/secret.jpg", 403},
        {"/api/file?path=" + chosen + "/album/../../outside/secret.jpg", 403},
        {"/api/file?path=" + chosen + "/link/secret.jpg", 403},
        {"/api/file?path=" + chosen + "/album/alias.jpg", 403},
        {"/api/files?path=" + chosen + "/link", 403},
        {"/api/files?path=/etc", 403},
        {"/api/file?path=album/mine.jpg", 403},
        {"/api/file?path=", 403},
        {"/api/zip?path=" + chosen + "/album/mine.jpg&path=" + chosen + "/link/secret.jpg", 403},
        {"/..%2f..%2fetc%2fpasswd", 404},
        {"/../../etc/passwd", 404},
    };
    for (const auto& c : cases) EXPECT_EQ(get(c.path), c.status) << c.path;
    auto listing = client->Get("/api/files?path=" + chosen, server.pageHeaders());
    ASSERT_TRUE(listing);
    EXPECT_NE(listing->body.find("album"), std::string::npos);
    // The link shows as a folder, but can't be entered.
    auto mine = client->Get("/api/file?path=" + chosen + "/album/mine.jpg", server.pageHeaders());
    ASSERT_TRUE(mine);
    EXPECT_EQ(mine->body, "mine");
}

TEST(ServeCommand, RefusesAnUploadOverTheLimitAndTellsIt) {
    testing_support::TestHome home;
    Server server(home, {"--upload-limit", "1"});
    ASSERT_TRUE(server.running());
    auto client = server.client();
    httplib::MultipartFormDataItems big{
        {"file", std::string((1 << 20) + 1000, 'x'), "big.jpg", "image/jpeg"}};
    auto refused = client->Post("/api/upload", server.pageHeaders(), big);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 413);
    auto error = json::parse(refused->body, nullptr, false);
    ASSERT_TRUE(error.is_object()) << refused->body;
    EXPECT_EQ(error["limit"], 1 << 20);
    EXPECT_NE(error["error"].get<std::string>().find("1048576"), std::string::npos);
    EXPECT_TRUE(testing_support::namesIn(home.path("documents/uploads")).empty());

    // A small one is stored under its own name, and a name with a path loses the path.
    httplib::MultipartFormDataItems small{{"file", "abc", "../../x.jpg", "image/jpeg"}};
    auto stored = client->Post("/api/upload", server.pageHeaders(), small);
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->status, 200) << stored->body;
    const std::string path = json::parse(stored->body)["files"][0]["path"];
    EXPECT_EQ(path.rfind(home.path("documents/uploads/"), 0), 0u) << path;
    EXPECT_EQ(std::filesystem::path(path).filename(), "x.jpg");
    // Not a photo or movie: refused, nothing kept.
    httplib::MultipartFormDataItems text{{"file", "abc", "notes.txt", "text/plain"}};
    auto wrongType = client->Post("/api/upload", server.pageHeaders(), text);
    ASSERT_TRUE(wrongType);
    EXPECT_EQ(wrongType->status, 415);
}

TEST(ServeCommand, ListenBeyondTheLoopbackNeedsAPassword) {
    testing_support::TestHome home;
    std::string out;
    const int code = testing_support::runCommand(
        std::string(UNWARP_BINARY) + " --home '" + home.root() + "' serve --listen 0.0.0.0 2>&1",
        &out);
    EXPECT_EQ(code, 2) << out;
    EXPECT_NE(out.find("--password"), std::string::npos) << out;

    Server server(home, {"--listen", "127.0.0.1", "--password", "s3cret"});
    ASSERT_TRUE(server.running());
    auto client = server.client();
    auto without = client->Get("/api/state", server.pageHeaders());
    ASSERT_TRUE(without);
    EXPECT_EQ(without->status, 401);
    client->set_basic_auth("me", "wrong");
    auto wrong = client->Get("/api/state", server.pageHeaders());
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->status, 401);
    client->set_basic_auth("me", "s3cret");
    auto right = client->Get("/api/state", server.pageHeaders());
    ASSERT_TRUE(right);
    EXPECT_EQ(right->status, 200);
}

}  // namespace
