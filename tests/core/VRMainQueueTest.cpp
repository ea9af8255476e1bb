#include "core/VRMainQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Signal.h"

using platform::MainRunLoop;
using platform::OperationQueuePriority;

TEST(VRMainQueue, OperationsRunOnTheMainThreadByPriorityWithTheirCompletions) {
    MainRunLoop::drain();            // this thread drives the main queue
    std::vector<std::string> order;  // main thread only
    bool onMain = true;
    auto block = [&](const char* name) {
        return [&, name] {
            onMain = onMain && MainRunLoop::isMainThread();
            order.emplace_back(name);
        };
    };

    // The first operation is handed to the main queue at once; the rest wait their turn.
    auto first =
        VRMainQueue::addOperationWithPriority(OperationQueuePriority::veryLow, block("first"));
    auto low = VRMainQueue::addOperationWithPriority(OperationQueuePriority::low, block("low"),
                                                     block("low done"));
    auto high = VRMainQueue::addOperationWithPriority(OperationQueuePriority::high, block("high"),
                                                      block("high done"));
    auto dropped = VRMainQueue::addOperationWithPriority(OperationQueuePriority::veryHigh,
                                                         block("dropped"), block("dropped done"));
    dropped->cancel();
    EXPECT_EQ(high->queuePriority(), OperationQueuePriority::high);
    EXPECT_TRUE(order.empty());

    ASSERT_TRUE(MainRunLoop::runUntil(
        [&] {
            return first->isFinished() && low->isFinished() && high->isFinished() &&
                   dropped->isFinished();
        },
        testing_support::kPatience));
    EXPECT_EQ(order, (std::vector<std::string>{"first", "dropped done", "high", "high done", "low",
                                               "low done"}));
    EXPECT_TRUE(onMain);
}
