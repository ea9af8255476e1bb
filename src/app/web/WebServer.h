// The local web server of `unwarp serve`: cpp-httplib on its own threads, the access rules of
// WebAccess before every route, the front end's embedded files, an event stream, and a way
// for the routes to run their work on the main queue, where the program's objects live.
#pragma once

#include <httplib.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "app/web/EventHub.h"
#include "app/web/PathGuard.h"
#include "app/web/WebAccess.h"

namespace app::web {

struct WebServerOptions {
    std::string address = "127.0.0.1";
    int port = 0;
    std::optional<std::string> password;
    // The largest request body (uploads); a larger one gets 413 with the limit in its JSON.
    std::size_t uploadLimit = std::size_t(512) << 20;
};

// What a route answers.
struct Reply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";

    static Reply json(const nlohmann::json& value, int status = 200);
    // {"error": message} with the status.
    static Reply error(int status, const std::string& message);
};

class WebServer {
  public:
    explicit WebServer(WebServerOptions options);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // Binds the address and port (0 takes a free one); false with the reason when it can't.
    // Routes added after this are never reached.
    bool bind(std::string* problem);
    // Serves on a thread of its own until stop(); call after bind().
    void start();
    void stop();

    // The address to open, with the token: "http://127.0.0.1:PORT/?token=...".
    std::string url() const;
    int port() const { return _port; }
    std::size_t uploadLimit() const { return _options.uploadLimit; }

    httplib::Server& http() { return _http; }
    EventHub& events() { return _events; }
    PathGuard& paths() { return _paths; }
    const WebAccess& access() const { return _access; }

    // Runs `work` on the main queue and waits for its reply; every call into the program's
    // objects from a route goes through here.
    static Reply onMain(const std::function<Reply()>& work);
    // Sends `reply` as the response.
    static void send(httplib::Response& response, const Reply& reply);
    // Lets the browser keep this response as `cacheControl` says, in place of the no-store
    // that every answer gets first.
    static void allowCaching(httplib::Response& response, const std::string& cacheControl);

  private:
    void installAccessCheck();
    void installStaticFiles();
    void installEventStream();

    WebServerOptions _options;
    WebAccess _access;
    httplib::Server _http;
    EventHub _events;
    PathGuard _paths;
    int _port = 0;
    std::thread _thread;
};

}  // namespace app::web
