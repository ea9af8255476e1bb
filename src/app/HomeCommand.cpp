// `unwarp home`: a terminal front end. It runs the start, tells the launch needs, takes the home
// screen's place as the launch manager's delegate, and tells every file that `unwarp open`
// hands to it until Ctrl-C or the end of its input.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <thread>

#include "app/Command.h"
#include "app/TerminalHome.h"
#include "core/AppDelegate.h"
#include "core/VRLaunchChannel.h"
#include "core/VRLaunchManager.h"
#include "core/VRLifecycleSignals.h"
#include "platform/Dispatch.h"
#include "storage/VRFileStorage.h"

namespace {

std::atomic<int> gStopPipe{-1};

void onStopSignal(int) {
    const int saved = errno;
    const char byte = 'S';
    if (const int fd = gStopPipe.load(); fd >= 0 && ::write(fd, &byte, 1) < 0) {
        // A full pipe already holds a stop.
    }
    errno = saved;
}

// Ends the main run loop at SIGINT, SIGTERM or the end of standard input. Handlers write one
// byte to a pipe; a thread watches it and the input.
class StopWatcher {
  public:
    bool install() {
        int fds[2];
        if (::pipe(fds) != 0) return false;
        _read = fds[0];
        _write = fds[1];
        gStopPipe = _write;
        struct sigaction action {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &_previousInt);
        sigaction(SIGTERM, &action, &_previousTerm);
        _thread = std::thread([this] { watch(); });
        return true;
    }

    ~StopWatcher() {
        if (!_thread.joinable()) return;
        onStopSignal(0);
        _thread.join();
        sigaction(SIGINT, &_previousInt, nullptr);
        sigaction(SIGTERM, &_previousTerm, nullptr);
        gStopPipe = -1;
        ::close(_read);
        ::close(_write);
    }

  private:
    void watch() {
        bool inputOpen = true;
        for (;;) {
            pollfd fds[2] = {{_read, POLLIN, 0}, {inputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
            if (::poll(fds, 2, -1) < 0) {
                if (errno == EINTR) continue;
                break;
            }
            if (fds[0].revents != 0) break;
            if (fds[1].revents != 0) {
                char buffer[256];
                if (::read(STDIN_FILENO, buffer, sizeof buffer) <= 0) break;
            }
        }
        platform::MainRunLoop::stop();
    }

    int _read = -1;
    int _write = -1;
    struct sigaction _previousInt {};
    struct sigaction _previousTerm {};
    std::thread _thread;
};

void tellLaunchNeeds(const VRLaunchNeeds& needs) {
    std::cout << "Launch: " << describeLaunchNeeds(needs) << std::endl;
}

class HomeCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        return program.add_subcommand(
            "home", "Run as the front end that files opened with `unwarp open` reach");
    }

    int run() override {
        tellLaunchNeeds(AppDelegate::shared().launchNeeds());
        auto home = app::presentTerminalHome(std::cout);
        std::string problem;
        auto channel = VRLaunchChannel::publish(
            [home](const std::string& path) { home->offer(path); }, &problem);
        if (!channel) return app::reportFailure(problem);
        auto lifecycle = VRLifecycleSignals::install(
            {[] { AppDelegate::shared().applicationDidEnterBackground(); },
             [] {
                 if (auto needs = AppDelegate::shared().applicationWillEnterForeground())
                     tellLaunchNeeds(*needs);
             },
             nullptr});
        {
            StopWatcher stop;
            if (!stop.install()) return app::reportFailure("cannot watch for the end");
            std::cout << "Ready: files opened with `unwarp open FILE` arrive here" << std::endl;
            platform::MainRunLoop::run();
        }
        channel.reset();
        // Files that arrived while the loop was ending.
        platform::MainRunLoop::drain();
        AppDelegate::shared().applicationWillTerminate();
        VRFileStorage::removeOwnTemporaries();
        return app::kExitSuccess;
    }
};

}  // namespace

UNWARP_REGISTER_COMMAND(HomeCommand)
