#include "core/VRLifecycleSignals.h"

#include <gtest/gtest.h>
#include <signal.h>

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
