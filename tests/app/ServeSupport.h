// Starts `unwarp --home HOME serve --port 0 ...` as a child for the web server tests, waits for
// the line with its address (printed once it listens), and stops it with SIGTERM at the end.
#pragma once

#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestHome.h"

extern char** environ;

namespace serve_test {

class Server {
  public:
    Server(const testing_support::TestHome& home, const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments{UNWARP_BINARY, "--home", home.root(),
                                           "serve",       "--port", "0"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::vector<char*> argv;
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        int pipeFds[2];
        if (pipe(pipeFds) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
        const bool spawned =
            posix_spawn(&_pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        close(pipeFds[1]);
        if (!spawned) {
            close(pipeFds[0]);
            return;
        }
        _out = fdopen(pipeFds[0], "r");
        // The address line comes once the server listens; EOF means it ended first.
        char line[1024];
        while (_out && std::fgets(line, sizeof line, _out)) {
            std::string text(line);
            auto at = text.find("http://");
            if (at == std::string::npos) continue;
            _url = text.substr(at, text.find_last_not_of("\r\n") + 1 - at);
            break;
        }
        auto token = _url.find("/?token=");
        if (token != std::string::npos) {
            _base = _url.substr(0, token);
            _token = _url.substr(token + 8);
            auto port = _base.rfind(':');
            _port = std::stoi(_base.substr(port + 1));
        }
    }

    ~Server() { stop(); }

    // SIGTERM and the exit status (-1 when it did not exit by itself).
    int stop() {
        if (_pid <= 0) return _status;
        kill(_pid, SIGTERM);
        int status = 0;
        waitpid(_pid, &status, 0);
        _pid = 0;
        if (_out) std::fclose(_out);
        _out = nullptr;
        _status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return _status;
    }

    bool running() const { return !_url.empty(); }
    const std::string& url() const { return _url; }
    const std::string& token() const { return _token; }
    const std::string& base() const { return _base; }
    int port() const { return _port; }

    std::unique_ptr<httplib::Client> client() const {
        auto c = std::make_unique<httplib::Client>("127.0.0.1", _port);
        c->set_read_timeout(60, 0);
        return c;
    }
    // The headers of the page's own requests.
    httplib::Headers pageHeaders() const { return {{"X-Unwarp-Token", _token}, {"Origin", _base}}; }

  private:
    pid_t _pid = 0;
    std::FILE* _out = nullptr;
    std::string _url, _base, _token;
    int _port = 0;
    int _status = -1;
};

// The first event called `name` on the stream for which `accept` holds; the stream is opened
// before `trigger` runs, so the event can't pass unseen.
inline nlohmann::json awaitEvent(const Server& server, const std::string& name,
                                 const std::function<bool(const nlohmann::json&)>& accept,
                                 const std::function<void()>& trigger) {
    nlohmann::json found;
    std::string pending;
    bool triggered = false;
    auto client = server.client();
    client->Get("/api/events", {{"X-Unwarp-Token", server.token()}},
                [&](const char* data, std::size_t size) {
                    pending.append(data, size);
                    if (!triggered) {
                        triggered = true;
                        trigger();
                    }
                    for (auto end = pending.find("\n\n"); end != std::string::npos;
                         end = pending.find("\n\n")) {
                        const std::string block = pending.substr(0, end);
                        pending.erase(0, end + 2);
                        const auto body = block.find("\ndata: ");
                        if (block.rfind("event: " + name + "\n", 0) != 0) continue;
                        auto event = nlohmann::json::parse(block.substr(body + 7), nullptr, false);
                        if (accept(event)) {
                            found = event;
                            return false;
                        }
                    }
                    return true;
                });
    return found;
}

}  // namespace serve_test
