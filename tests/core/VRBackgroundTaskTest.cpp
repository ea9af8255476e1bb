#include "core/VRBackgroundTask.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Signal.h"

using platform::MainRunLoop;
using testing_support::kPatience;
using testing_support::Signal;
using namespace std::chrono_literals;

namespace {

// Long enough for a dropped completion to have reached the main queue if it were sent.
constexpr auto kQuietPeriod = 60ms;

}  // namespace

TEST(VRBackgroundTask, DeliversTheBackgroundResultOnTheMainThread) {
    MainRunLoop::drain();  // this thread drives the main queue

    std::atomic<bool> blockOnMain{true};
    int value = -1;
    std::string text;
    bool completionOnMain = false;
    VRBackgroundTask::performBackgroundTaskWithID(
        1,
        [&] {
            blockOnMain = MainRunLoop::isMainThread();
            return VRBackgroundTaskResult{42, std::make_shared<const std::string>("sizes")};
        },
        [&](const VRBackgroundTaskResult& result) {
            completionOnMain = MainRunLoop::isMainThread();
            value = static_cast<int>(result.value);
            auto object = std::any_cast<std::shared_ptr<const std::string>>(&result.object);
            text = object ? **object : "<wrong type>";
            // A checked cast to another type yields nothing rather than a bad pointer.
            EXPECT_EQ(std::any_cast<std::shared_ptr<int>>(&result.object), nullptr);
        });
    ASSERT_TRUE(MainRunLoop::runUntil([&] { return value != -1; }, kPatience));
    EXPECT_FALSE(blockOnMain);
    EXPECT_TRUE(completionOnMain);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(text, "sizes");

    // Without a background block the completion gets an empty result.
    bool emptyDelivered = false;
    VRBackgroundTask::performBackgroundTaskWithID(2, nullptr, [&](const auto& result) {
        emptyDelivered = result.value == 0 && !result.object.has_value();
    });
    EXPECT_TRUE(MainRunLoop::runUntil([&] { return emptyDelivered; }, kPatience));

    // Without a completion the block still runs, as does a plain block, off the main thread.
    Signal ran;
    std::atomic<bool> plainOnMain{true};
    VRBackgroundTask::performBackgroundTaskWithID(
        3,
        [&] {
            ran.notify();
            return VRBackgroundTaskResult{};
        },
        nullptr);
    VRBackgroundTask::performBackgroundTaskWithBlock([&] {
        plainOnMain = MainRunLoop::isMainThread();
        ran.notify();
    });
    EXPECT_TRUE(ran.waitFor(2));
    EXPECT_FALSE(plainOnMain);
}

TEST(VRBackgroundTask, ANewTaskUnderTheSameIDDropsTheOlderCompletion) {
    MainRunLoop::drain();
    Signal openGate, firstReturned, otherReturned;
    std::vector<std::int64_t> delivered;  // main thread only
    auto record = [&](const VRBackgroundTaskResult& result) { delivered.push_back(result.value); };
    auto gated = [&](std::int64_t value, Signal& returned) {
        return [&, value] {
            openGate.waitFor();
            returned.notify();
            return VRBackgroundTaskResult{value, {}};
        };
    };

    VRBackgroundTask::performBackgroundTaskWithID(6, gated(1, firstReturned), record);
    VRBackgroundTask::performBackgroundTaskWithID(7, gated(3, otherReturned), record);
    VRBackgroundTask::performBackgroundTaskWithID(
        6,
        [] {
            return VRBackgroundTaskResult{2, {}};
        },
        record);
    openGate.notify();

    ASSERT_TRUE(firstReturned.waitFor());
    ASSERT_TRUE(otherReturned.waitFor());
    ASSERT_TRUE(MainRunLoop::runUntil([&] { return delivered.size() >= 2; }, kPatience));
    EXPECT_FALSE(MainRunLoop::runUntil([&] { return delivered.size() > 2; }, kQuietPeriod));
    std::sort(delivered.begin(), delivered.end());
    EXPECT_EQ(delivered, (std::vector<std::int64_t>{2, 3}));
}

TEST(VRBackgroundTask, CancelDropsTheCompletionButNotTheWork) {
    MainRunLoop::drain();
    int completions = 0;  // main thread only
    auto count = [&](const VRBackgroundTaskResult&) { ++completions; };

    // Cancelled while the block runs: the block finishes, its result goes nowhere.
    Signal openGate, finished;
    VRBackgroundTask::performBackgroundTaskWithID(
        9,
        [&] {
            openGate.waitFor();
            finished.notify();
            return VRBackgroundTaskResult{9, {}};
        },
        count);
    VRBackgroundTask::cancelBackgroundTaskWithID(9);
    openGate.notify();
    EXPECT_TRUE(finished.waitFor());

    // Cancelled after the block has finished, before the main thread ran the completion.
    Signal done;
    VRBackgroundTask::performBackgroundTaskWithID(
        10,
        [&] {
            done.notify();
            return VRBackgroundTaskResult{10, {}};
        },
        count);
    ASSERT_TRUE(done.waitFor());
    VRBackgroundTask::cancelBackgroundTaskWithID(10);
    VRBackgroundTask::cancelBackgroundTaskWithID(12345);  // unknown: nothing happens

    EXPECT_FALSE(MainRunLoop::runUntil([&] { return completions > 0; }, kQuietPeriod));
    EXPECT_EQ(completions, 0);

    // The ID is free again after a cancel.
    VRBackgroundTask::performBackgroundTaskWithID(
        9, [] { return VRBackgroundTaskResult{}; }, count);
    EXPECT_TRUE(MainRunLoop::runUntil([&] { return completions == 1; }, kPatience));
}
