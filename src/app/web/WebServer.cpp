#include "app/web/WebServer.h"

#include "app/web/StaticFiles.h"
#include "platform/Dispatch.h"

namespace app::web {
namespace {

using nlohmann::json;

std::optional<std::string> headerOf(const httplib::Request& request, const char* name) {
    if (!request.has_header(name)) return std::nullopt;
    return request.get_header_value(name);
}

RequestCredentials credentialsOf(const httplib::Request& request) {
    RequestCredentials credentials;
    credentials.method = request.method;
    if (request.has_param("token")) credentials.queryToken = request.get_param_value("token");
    credentials.headerToken = headerOf(request, kTokenHeader);
    credentials.cookieHeader = headerOf(request, "Cookie");
    credentials.origin = headerOf(request, "Origin");
    credentials.host = headerOf(request, "Host");
    credentials.authorization = headerOf(request, "Authorization");
    return credentials;
}

// Pages and answers are never cached or framed by another site.
void addSafetyHeaders(httplib::Response& response) {
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("X-Frame-Options", "DENY");
    response.set_header("Referrer-Policy", "no-referrer");
}

}  // namespace

Reply Reply::json(const nlohmann::json& value, int status) {
    return {status, value.dump(-1, ' ', false, json::error_handler_t::replace), "application/json"};
}

Reply Reply::error(int status, const std::string& message) {
    return json({{"error", message}}, status);
}

WebServer::WebServer(WebServerOptions options)
    : _options(std::move(options)), _access(makeAccessToken(), _options.password) {
    // Each open event stream holds a thread; enough remain for the pages' other requests.
    _http.new_task_queue = [] { return new httplib::ThreadPool(16); };
    _http.set_payload_max_length(_options.uploadLimit);
    _http.set_keep_alive_max_count(1000);
    // Events are small writes one after another: Nagle's wait for an acknowledgement would
    // hold each behind the one before.
    _http.set_tcp_nodelay(true);
    _http.set_error_handler([this](const httplib::Request&, httplib::Response& response) {
        if (response.status == 413) {
            send(response,
                 Reply::json({{"error", "The upload is larger than the limit of " +
                                            std::to_string(_options.uploadLimit) + " bytes."},
                              {"limit", _options.uploadLimit}},
                             413));
        } else if (response.body.empty()) {
            send(response, Reply::error(response.status, response.status == 404
                                                             ? "No such page."
                                                             : "The request was refused."));
        }
    });
    installAccessCheck();
    installEventStream();
}

WebServer::~WebServer() {
    stop();
}

bool WebServer::bind(std::string* problem) {
    // Routes match in the order they were added: the pages' files come after every other.
    installStaticFiles();
    _port = _options.port == 0
                ? _http.bind_to_any_port(_options.address)
                : (_http.bind_to_port(_options.address, _options.port) ? _options.port : -1);
    if (_port <= 0) {
        if (problem)
            *problem = "can't listen on " + _options.address + ":" + std::to_string(_options.port);
        return false;
    }
    return true;
}

void WebServer::start() {
    _thread = std::thread([this] { _http.listen_after_bind(); });
}

void WebServer::stop() {
    _events.close();
    _http.stop();
    if (_thread.joinable()) _thread.join();
}

std::string WebServer::url() const {
    std::string host = _options.address == "0.0.0.0" ? "127.0.0.1" : _options.address;
    if (host.find(':') != std::string::npos) host = "[" + host + "]";
    return "http://" + host + ":" + std::to_string(_port) + "/?token=" + _access.token();
}

Reply WebServer::onMain(const std::function<Reply()>& work) {
    Reply reply;
    platform::DispatchQueue::main().sync([&] { reply = work(); });
    return reply;
}

void WebServer::send(httplib::Response& response, const Reply& reply) {
    response.status = reply.status;
    response.set_content(reply.body, reply.contentType.c_str());
}

void WebServer::allowCaching(httplib::Response& response, const std::string& cacheControl) {
    response.headers.erase("Cache-Control");
    response.set_header("Cache-Control", cacheControl);
}

void WebServer::installAccessCheck() {
    _http.set_pre_routing_handler([this](const httplib::Request& request,
                                         httplib::Response& response) {
        addSafetyHeaders(response);
        switch (_access.decide(credentialsOf(request))) {
            case AccessDecision::allowed:
                // The first visit's token is kept in a cookie so reloads and images work; it
                // alone never allows a change.
                if (request.has_param("token"))
                    response.set_header("Set-Cookie", std::string(kTokenCookie) + "=" +
                                                          _access.token() +
                                                          "; Path=/; HttpOnly; SameSite=Strict");
                return httplib::Server::HandlerResponse::Unhandled;
            case AccessDecision::noPassword:
                response.set_header("WWW-Authenticate", "Basic realm=\"unwarp\"");
                send(response, Reply::error(401, "The password is needed."));
                return httplib::Server::HandlerResponse::Handled;
            case AccessDecision::forged:
                send(response, Reply::error(403,
                                            "A change needs the X-Unwarp-Token header "
                                            "from this server's own page."));
                return httplib::Server::HandlerResponse::Handled;
            case AccessDecision::noToken:
                send(response, Reply::error(403,
                                            "Open the address that `unwarp serve` printed, "
                                            "with its token."));
                return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
}

void WebServer::installStaticFiles() {
    _http.Get(
        R"(/(?!api/)[^?]*)", [](const httplib::Request& request, httplib::Response& response) {
            auto file = staticFileAtPath(request.path);
            if (!file) return send(response, Reply::error(404, "No such page."));
            response.set_header("Content-Security-Policy",
                                "default-src 'self'; img-src 'self' blob: data:; media-src 'self' "
                                "blob:; style-src 'self'; connect-src 'self'");
            response.set_content(std::string(file->bytes), std::string(file->contentType).c_str());
        });
}

void WebServer::installEventStream() {
    _http.Get("/api/events", [this](const httplib::Request&, httplib::Response& response) {
        auto subscription = _events.subscribe();
        response.set_header("X-Accel-Buffering", "no");
        response.set_chunked_content_provider(
            "text/event-stream",
            [subscription](std::size_t, httplib::DataSink& sink) {
                // A comment first, so the page knows the stream is open.
                static const std::string kHello = ": open\n\n";
                sink.write(kHello.data(), kHello.size());
                for (;;) {
                    auto event = subscription->next(std::chrono::seconds(15));
                    if (!sink.is_writable()) return false;
                    if (event) {
                        if (!sink.write(event->data(), event->size())) return false;
                    } else if (subscription->isClosed()) {
                        sink.done();
                        return true;
                    } else {
                        static const std::string kKeepAlive = ": keep-alive\n\n";
                        if (!sink.write(kKeepAlive.data(), kKeepAlive.size())) return false;
                    }
                }
            },
            [this, subscription](bool) { _events.unsubscribe(subscription); });
    });
}

}  // namespace app::web
