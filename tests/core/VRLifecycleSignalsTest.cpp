#include "core/VRLifecycleSignals.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include "core/BatchRunSupport.h"
#include "platform/Dispatch.h"
#include "support/Signal.h"

using batch_support::BatchFixture;
using batch_support::urlAsset;
using platform::MainRunLoop;
using testing_support::kPatience;

// Real SIGTSTP and SIGCONT sent to this process, with the final stop replaced by a hook: the
// run is paused before the stop, and on return the words are printed and the run resumes,
// unless the user paused it first.
TEST(VRLifecycleSignals, StopAndContinueMapToBackgroundAndForeground) {
    struct Case {
        bool userPaused;
        bool resumes;
        bool wordsPrinted;
    };
    for (Case c : {Case{false, true, true}, Case{true, false, false}}) {
        SCOPED_TRACE(c.userPaused);
        MainRunLoop::drain();
        BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
        f.start();
        if (c.userPaused) {
            f.controller->touchProcessingButton();
        }
        std::ostringstream out;
        int stops = 0;
        VRProcessingState stateAtStop = VRProcessingState::none;
        auto handlers = VRLifecycleSignals::handlersForController(*f.controller, out, [&] {
            stateAtStop = f.controller->processingState();
            ++stops;
        });
        int foregrounds = 0;
        auto foreground = handlers.willEnterForeground;
        handlers.willEnterForeground = [&] {
            foreground();
            ++foregrounds;
        };
        auto signals = VRLifecycleSignals::install(handlers);
        ASSERT_TRUE(signals);
        // One mapping at a time: a second install is refused.
        EXPECT_FALSE(VRLifecycleSignals::install({}));

        ASSERT_EQ(::raise(SIGTSTP), 0);
        ASSERT_TRUE(MainRunLoop::runUntil([&] { return stops == 1; }, kPatience));
        EXPECT_EQ(stateAtStop, VRProcessingState::resume);
        EXPECT_EQ(f.processor->cancels, 1);
        EXPECT_TRUE(out.str().empty());

        ASSERT_EQ(::raise(SIGCONT), 0);
        ASSERT_TRUE(MainRunLoop::runUntil([&] { return foregrounds == 1; }, kPatience));
        EXPECT_EQ(f.processor->calls.size(), c.resumes ? 2u : 1u);
        EXPECT_EQ(f.controller->processingState(),
                  c.resumes ? VRProcessingState::processing : VRProcessingState::resume);
        EXPECT_EQ(out.str().find("Processing Restrictions: Unwarp could not process media while "
                                 "inactive") == 0,
                  c.wordsPrinted)
            << out.str();
        EXPECT_FALSE(f.controller->backgroundAlert().has_value());
        signals.reset();
    }
}

// Once removed, the mapping gives the signals back their previous actions, and another can be
// installed.
TEST(VRLifecycleSignals, RemovalRestoresTheSignals) {
    MainRunLoop::drain();
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGTSTP, nullptr, &before), 0);
    int foregrounds = 0;
    VRLifecycleSignals::Handlers handlers;
    handlers.willEnterForeground = [&] { ++foregrounds; };
    auto signals = VRLifecycleSignals::install(handlers);
    ASSERT_TRUE(signals);
    struct sigaction during {};
    ASSERT_EQ(::sigaction(SIGTSTP, nullptr, &during), 0);
    EXPECT_NE(during.sa_handler, before.sa_handler);
    signals.reset();
    struct sigaction after {};
    ASSERT_EQ(::sigaction(SIGTSTP, nullptr, &after), 0);
    EXPECT_EQ(after.sa_handler, before.sa_handler);

    signals = VRLifecycleSignals::install(handlers);
    ASSERT_TRUE(signals);
    ASSERT_EQ(::raise(SIGCONT), 0);
    ASSERT_TRUE(MainRunLoop::runUntil([&] { return foregrounds == 1; }, kPatience));
}

namespace {

// Reads one byte from `fd` within the patience; 0 when none came.
char readByte(int fd) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(kPatience.count())) != 1) {
        return 0;
    }
    char byte = 0;
    return ::read(fd, &byte, 1) == 1 ? byte : 0;
}

}  // namespace

// With the real stop: a child that gets SIGTSTP pauses (reports "b") and only then stops
// itself; SIGCONT lets it go on and brings the foreground ("f").
TEST(VRLifecycleSignals, ChildPausesBeforeItReallyStops) {
    MainRunLoop::drain();
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(report[0]);
        bool foreground = false;
        VRLifecycleSignals::Handlers handlers;
        handlers.didEnterBackground = [&] { (void)!::write(report[1], "b", 1); };
        handlers.willEnterForeground = [&] {
            foreground = true;
            (void)!::write(report[1], "f", 1);
        };
        auto signals = VRLifecycleSignals::install(handlers);
        (void)!::write(report[1], signals ? "r" : "x", 1);
        bool done = signals && MainRunLoop::runUntil([&] { return foreground; }, kPatience);
        signals.reset();
        ::_exit(done ? 0 : 1);
    }
    ::close(report[1]);
    // A failed check must not leave a stopped child behind.
    struct Reaper {
        pid_t pid;
        bool reaped = false;
        ~Reaper() {
            if (!reaped) {
                ::kill(pid, SIGKILL);
                ::waitpid(pid, nullptr, 0);
            }
        }
    } reaper{child};
    ASSERT_EQ(readByte(report[0]), 'r');
    ASSERT_EQ(::kill(child, SIGTSTP), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    EXPECT_TRUE(WIFSTOPPED(status));
    // The pause was made before the stop: its report is already in the pipe.
    EXPECT_EQ(readByte(report[0]), 'b');
    ASSERT_EQ(::kill(child, SIGCONT), 0);
    EXPECT_EQ(readByte(report[0]), 'f');
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    reaper.reaped = true;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ::close(report[0]);
}
