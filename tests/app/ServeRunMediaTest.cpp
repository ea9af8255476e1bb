// A run driven through `unwarp serve` as a page drives it: its events arrive on the event
// stream, and a hundred requests at once (some forged) leave it going to its end.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/ServeSupport.h"
#include "support/TestHome.h"

namespace {

using nlohmann::json;
using serve_test::Server;

double wallMilliseconds() {
    using namespace std::chrono;
    return duration<double, std::milli>(system_clock::now().time_since_epoch()).count();
}

// The stream's events by name, in order, until `until` holds for one of them.
std::vector<std::pair<std::string, json>> readEvents(
    const Server& server, const std::function<bool(const std::string&, const json&)>& until) {
    std::vector<std::pair<std::string, json>> events;
    std::string pending;
    auto client = server.client();
    client->Get("/api/events", {{"X-Unwarp-Token", server.token()}},
                [&](const char* data, std::size_t size) {
                    pending.append(data, size);
                    for (auto end = pending.find("\n\n"); end != std::string::npos;
                         end = pending.find("\n\n")) {
                        std::string block = pending.substr(0, end);
                        pending.erase(0, end + 2);
                        auto name = block.find("event: ");
                        auto body = block.find("\ndata: ");
                        if (name != 0 || body == std::string::npos) continue;
                        events.emplace_back(block.substr(7, body - 7),
                                            json::parse(block.substr(body + 7), nullptr, false));
                        if (until(events.back().first, events.back().second)) return false;
                    }
                    return true;
                });
    return events;
}

TEST(ServeRunMedia, ARunGoesOnThroughAHundredParallelRequests) {
    testing_support::TestHome home;
    const std::string media = home.path("media");
    std::filesystem::create_directories(media);
    for (const char* name : {"one.mp4", "two.mp4"}) {
        ASSERT_EQ(testing_support::runCommand(
                      "ffmpeg -v error -f lavfi -i testsrc=size=320x240:rate=25:duration=2 "
                      "-pix_fmt yuv420p -c:v libx264 '" +
                      media + "/" + name + "'"),
                  0);
    }
    Server server(home, {"--folder", media});
    ASSERT_TRUE(server.running());

    std::vector<std::pair<std::string, json>> events;
    std::thread listener([&] {
        events = readEvents(server, [](const std::string& name, const json& data) {
            return name == "button" && data["title"] == "Results";
        });
    });
    auto client = server.client();
    json body{{"assets", {"file:" + media + "/one.mp4", "file:" + media + "/two.mp4"}},
              {"template", "uw-133"}};
    // The server counts the open streams; the run starts once the listener's is among them.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        auto state = client->Get("/api/state", server.pageHeaders());
        ASSERT_TRUE(state);
        if (json::parse(state->body).value("streams", 0) > 0) break;
    }
    const double postedAt = wallMilliseconds();
    auto started = client->Post("/api/run", server.pageHeaders(), body.dump(), "application/json");
    ASSERT_TRUE(started);
    ASSERT_EQ(started->status, 200) << started->body;

    std::atomic<int> served{0}, refused{0}, other{0};
    std::vector<std::thread> requests;
    for (int i = 0; i < 100; ++i) {
        requests.emplace_back([&, i] {
            auto c = server.client();
            if (i % 4 == 3) {
                // A forged change: refused before its body is read, so the refusal may also
                // reach the client as a closed connection.
                auto r = c->Post("/api/run/button", {{"Cookie", "unwarp-token=" + server.token()}},
                                 "{}", "application/json");
                ++(!r || r->status == 403 ? refused : other);
                return;
            }
            auto r = c->Get(i % 2 ? "/api/run" : "/api/library/albums", server.pageHeaders());
            ++(r && r->status == 200 ? served : other);
        });
    }
    for (auto& t : requests) t.join();
    EXPECT_EQ(served, 75);
    EXPECT_EQ(refused, 25);
    EXPECT_EQ(other, 0);

    listener.join();
    const double endedAt = wallMilliseconds();
    int progress = 0, committed = 0;
    for (const auto& [name, data] : events) {
        progress += name == "progress";
        committed += name == "committed";
        // Each progress event carries the time of the run's update, so a page can tell how
        // late it arrived.
        if (name == "progress") {
            ASSERT_TRUE(data.contains("at") && data["at"].is_number()) << data.dump();
            EXPECT_GE(data["at"].get<double>(), postedAt);
            EXPECT_LE(data["at"].get<double>(), endedAt);
        }
    }
    EXPECT_GT(progress, 0);
    EXPECT_EQ(committed, 2);
    auto finished = client->Get("/api/run", server.pageHeaders());
    ASSERT_TRUE(finished);
    auto run = json::parse(finished->body);
    EXPECT_EQ(run["title"], "Results");
    ASSERT_EQ(run["items"].size(), 2u);
    for (const auto& item : run["items"]) {
        EXPECT_FALSE(item["pending"].get<bool>());
        EXPECT_TRUE(std::filesystem::exists(item["file"].get<std::string>()));
    }
}

}  // namespace
