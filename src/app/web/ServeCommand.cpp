// `unwarp serve [--port N] [--open] [--listen ADDR --password P] [--folder DIR...]`: the
// program's screens as a local web application. The address with its token is printed once
// the server listens; Ctrl-C or SIGTERM ends it.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <iostream>
#include <thread>

#include "app/Command.h"
#include "app/web/WebApi.h"
#include "app/web/WebServer.h"
#include "platform/Dispatch.h"
#include "storage/VRFileStorage.h"

extern char** environ;

namespace {

// Ctrl-C and SIGTERM write a byte here; a thread of the command's own reads it and stops the
// server, since a signal may arrive on any thread and stopping is not signal-safe.
int gStopPipe[2] = {-1, -1};

void requestStop(int) {
    const char byte = 1;
    [[maybe_unused]] auto written = write(gStopPipe[1], &byte, 1);
}

using app::web::WebServer;

bool isLoopback(const std::string& address) {
    return address == "127.0.0.1" || address == "::1" || address == "localhost";
}

// Starts the desktop's browser at `url` without waiting for it.
void openInBrowser(const std::string& url) {
    std::string program = "xdg-open";
    char* argv[] = {program.data(), const_cast<char*>(url.c_str()), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) {
        std::cerr << "unwarp: xdg-open could not be started; open the address yourself\n";
        return;
    }
    // Reaped on a thread, so no zombie stays behind while the server runs.
    std::thread([pid] {
        int status = 0;
        waitpid(pid, &status, 0);
    }).detach();
}

class ServeCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "serve", "Serve the screens as a local web application and print its address");
        command->add_option("--port", _options.port, "The port (default: a free one)")
            ->check(CLI::Range(0, 65535));
        command->add_flag("--open", _open, "Open the address in the desktop's browser");
        command->add_option("--listen", _options.address,
                            "The address to listen on (default 127.0.0.1); another than the "
                            "loopback needs --password");
        command->add_option("--password", _password, "The password asked by the browser");
        command->add_option("--folder", _folders,
                            "A folder whose files the file browser may show (repeatable)");
        command
            ->add_option("--upload-limit", _uploadLimitMB,
                         "The largest upload in megabytes (default 512)")
            ->check(CLI::Range(1, 1 << 20));
        return command;
    }

    int run() override {
        if (!isLoopback(_options.address) && !_password)
            return app::reportUsageError("--listen " + _options.address +
                                         " needs --password, since others can reach it");
        _options.password = _password;
        _options.uploadLimit = static_cast<std::size_t>(_uploadLimitMB) << 20;

        if (pipe2(gStopPipe, O_CLOEXEC) != 0) return app::reportFailure("no pipe for the signals");
        struct sigaction action {};
        action.sa_handler = requestStop;
        sigemptyset(&action.sa_mask);
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);

        WebServer server(_options);
        auto api = app::web::installWebApi(server, _folders);
        std::string problem;
        if (!server.bind(&problem)) return app::reportFailure(problem);
        server.start();
        std::cout << "unwarp: serving at " << server.url() << std::endl;
        if (_open) openInBrowser(server.url());

        std::thread waiter([&server] {
            char byte = 0;
            while (read(gStopPipe[0], &byte, 1) < 0 && errno == EINTR) {
            }
            // The routes wait on the main queue, so the server stops while it still runs.
            server.stop();
            platform::MainRunLoop::stop();
        });
        platform::MainRunLoop::run();
        waiter.join();
        api.reset();
        platform::MainRunLoop::drain();
        // Files handed over by `unwarp open` were moved into this process's own folder.
        VRFileStorage::removeOwnTemporaries();
        return app::kExitSuccess;
    }

  private:
    app::web::WebServerOptions _options;
    std::optional<std::string> _password;
    std::vector<std::string> _folders;
    int _uploadLimitMB = 512;
    bool _open = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(ServeCommand)
