#include "core/VRLifecycleSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ostream>
#include <thread>

#include "core/VRResultController.h"
#include "platform/Dispatch.h"

namespace {

constexpr char kBackground = 'B';
constexpr char kForeground = 'F';
constexpr char kQuit = 'Q';

// The write end for the handlers; -1 while no instance is installed.
std::atomic<int> gSignalPipe{-1};

void onSignal(int signo) {
    int saved = errno;
    int fd = gSignalPipe.load();
    if (fd >= 0) {
        char byte = signo == SIGTSTP ? kBackground : kForeground;
        ssize_t written = ::write(fd, &byte, 1);
        (void)written;  // a full pipe already holds a wake-up
    }
    errno = saved;
}

}  // namespace

struct VRLifecycleSignals::State {
    Handlers handlers;
    int readFd = -1;
    int writeFd = -1;
    std::thread watcher;
    std::atomic<bool> active{true};
    struct sigaction oldTstp {};
    struct sigaction oldCont {};

    void dispatch(char byte, const std::shared_ptr<State>& self) {
        std::weak_ptr<State> weak = self;
        platform::DispatchQueue::main().async([weak, byte] {
            auto state = weak.lock();
            if (!state || !state->active) {
                return;
            }
            if (byte == kBackground) {
                if (state->handlers.didEnterBackground) {
                    state->handlers.didEnterBackground();
                }
                if (state->handlers.stopProcess) {
                    state->handlers.stopProcess();
                } else {
                    ::raise(SIGSTOP);
                }
            } else if (state->handlers.willEnterForeground) {
                state->handlers.willEnterForeground();
            }
        });
    }
};

std::unique_ptr<VRLifecycleSignals> VRLifecycleSignals::install(Handlers handlers) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return nullptr;
    }
    int expected = -1;
    if (!gSignalPipe.compare_exchange_strong(expected, fds[1])) {
        ::close(fds[0]);
        ::close(fds[1]);
        return nullptr;
    }
    ::fcntl(fds[1], F_SETFL, O_NONBLOCK);
    auto state = std::make_shared<State>();
    state->handlers = std::move(handlers);
    state->readFd = fds[0];
    state->writeFd = fds[1];
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTSTP, &action, &state->oldTstp);
    ::sigaction(SIGCONT, &action, &state->oldCont);
    state->watcher = std::thread([raw = state.get(), weak = std::weak_ptr<State>(state)] {
        for (;;) {
            char byte = 0;
            ssize_t got = ::read(raw->readFd, &byte, 1);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0 || byte == kQuit) {
                return;
            }
            if (auto self = weak.lock()) {
                self->dispatch(byte, self);
            }
        }
    });
    return std::unique_ptr<VRLifecycleSignals>(new VRLifecycleSignals(std::move(state)));
}

VRLifecycleSignals::VRLifecycleSignals(std::shared_ptr<State> state) : _state(std::move(state)) {}

VRLifecycleSignals::~VRLifecycleSignals() {
    _state->active = false;
    ::sigaction(SIGTSTP, &_state->oldTstp, nullptr);
    ::sigaction(SIGCONT, &_state->oldCont, nullptr);
    gSignalPipe.store(-1);
    char quit = kQuit;
    // Blocking write: the watcher drains the pipe, so this returns.
    ::fcntl(_state->writeFd, F_SETFL, 0);
    while (::write(_state->writeFd, &quit, 1) < 0 && errno == EINTR) {
    }
    _state->watcher.join();
    ::close(_state->readFd);
    ::close(_state->writeFd);
}

VRLifecycleSignals::Handlers VRLifecycleSignals::handlersForController(
    VRResultController& controller, std::ostream& out, std::function<void()> stopProcess) {
    Handlers handlers;
    handlers.didEnterBackground = [&controller] { controller._didEnterBackground(); };
    handlers.willEnterForeground = [&controller, &out] {
        if (const auto& alert = controller.backgroundAlert()) {
            out << alert->title << ": " << alert->message << "\n" << std::flush;
            controller.dismissBackgroundAlert();
        }
        controller._willEnterForeground();
    };
    handlers.stopProcess = std::move(stopProcess);
    return handlers;
}
