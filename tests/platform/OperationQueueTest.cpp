#include "platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/Signal.h"

using platform::BlockOperation;
using platform::MainRunLoop;
using platform::OperationQueue;
using platform::OperationQueuePriority;
using testing_support::Occupancy;
using testing_support::Signal;
using namespace std::chrono_literals;

namespace {

struct Named {
    const char* name;
    OperationQueuePriority priority;
};

// Thread-safe record of what ran, in order.
class Journal {
  public:
    void add(std::string entry) {
        std::lock_guard lock(_mutex);
        _entries.push_back(std::move(entry));
    }
    std::vector<std::string> entries() const {
        std::lock_guard lock(_mutex);
        return _entries;
    }

  private:
    mutable std::mutex _mutex;
    std::vector<std::string> _entries;
};

}  // namespace

TEST(OperationQueue, SerialQueueRunsOneAtATimeByPriorityThenByAddition) {
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);
    queue.setName("processing");
    EXPECT_EQ(queue.name(), "processing");

    Occupancy occupancy;
    Signal gateRunning, openGate;
    queue.addOperationWithBlock([&] {
        Occupancy::Scope scope(occupancy);
        gateRunning.notify();
        openGate.waitFor();
    });
    ASSERT_TRUE(gateRunning.waitFor());

    const Named waiting[] = {
        {"low", OperationQueuePriority::low},
        {"normal-1", OperationQueuePriority::normal},
        {"very-high", OperationQueuePriority::veryHigh},
        {"high-1", OperationQueuePriority::high},
        {"normal-2", OperationQueuePriority::normal},
        {"very-low", OperationQueuePriority::veryLow},
        {"high-2", OperationQueuePriority::high},
        {"raised", OperationQueuePriority::veryLow},
    };
    std::vector<std::string> order;  // unguarded: the queue runs one operation at a time
    std::shared_ptr<BlockOperation> raised;
    for (const auto& entry : waiting) {
        auto operation = BlockOperation::blockOperationWithBlock([&, name = entry.name] {
            Occupancy::Scope scope(occupancy);
            order.push_back(name);
        });
        operation->setQueuePriority(entry.priority);
        queue.addOperation(operation);
        raised = operation;
    }
    // The priority counts when the operation is picked, not when it was added.
    raised->setQueuePriority(OperationQueuePriority::veryHigh);
    EXPECT_EQ(queue.operationCount(), 1 + std::size(waiting));

    openGate.notify();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(order, (std::vector<std::string>{"very-high", "raised", "high-1", "high-2",
                                               "normal-1", "normal-2", "low", "very-low"}));
    EXPECT_EQ(occupancy.peak(), 1);
    EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueue, WidthBoundsHowManyOperationsRunAtOnce) {
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    struct Case {
        std::int64_t setting;
        int expectedWidth;
    } cases[] = {{2, 2}, {3, 3}, {-1, cores}, {-7, cores}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setting);
        OperationQueue queue;
        queue.setMaxConcurrentOperationCount(c.setting);
        EXPECT_EQ(queue.maxConcurrentOperationCount(), c.setting < 0 ? -1 : c.setting);
        Occupancy occupancy;
        Signal arrived;
        std::atomic<int> overlapped{0};
        const int total = 3 * c.expectedWidth;
        for (int i = 0; i < total; ++i) {
            queue.addOperationWithBlock([&, width = c.expectedWidth, total] {
                Occupancy::Scope scope(occupancy);
                arrived.notify();
                // The first `width` operations can only pass together.
                if (arrived.waitFor(width)) ++overlapped;
                // Linger, so that a queue running more than `width` would show it in the peak.
                arrived.waitFor(total, 20ms);
            });
        }
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_EQ(overlapped.load(), total);
        EXPECT_EQ(occupancy.peak(), c.expectedWidth);
    }

    // Width 0 holds operations back until the count is raised.
    OperationQueue held;
    held.setMaxConcurrentOperationCount(0);
    Signal ran;
    held.addOperationWithBlock([&] { ran.notify(); });
    EXPECT_FALSE(ran.waitFor(1, 30ms));
    EXPECT_EQ(held.operationCount(), 1u);
    held.setMaxConcurrentOperationCount(1);
    EXPECT_TRUE(ran.waitFor());
    held.waitUntilAllOperationsAreFinished();
}

TEST(OperationQueue, CancelSkipsWaitingOperationsButRunsTheirCompletions) {
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    Journal journal;
    auto makeOperation = [&](const std::string& name) {
        auto operation = BlockOperation::blockOperationWithBlock([&, name] { journal.add(name); });
        operation->setCompletionBlock([&, name] { journal.add(name + " done"); });
        return operation;
    };

    // One operation cancelled by itself while it waits.
    Signal gateRunning, openGate;
    queue.addOperationWithBlock([&] {
        gateRunning.notify();
        openGate.waitFor();
    });
    ASSERT_TRUE(gateRunning.waitFor());
    auto kept = makeOperation("kept");
    auto dropped = makeOperation("dropped");
    queue.addOperation(kept);
    queue.addOperation(dropped);
    dropped->cancel();
    openGate.notify();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(journal.entries(), (std::vector<std::string>{"kept", "kept done", "dropped done"}));
    EXPECT_FALSE(kept->isCancelled());
    EXPECT_TRUE(dropped->isCancelled());
    for (const auto& operation : {kept, dropped}) {
        EXPECT_TRUE(operation->isFinished());
        EXPECT_FALSE(operation->isExecuting());
    }

    // cancelAllOperations reaches the running operation too; it sees the flag and ends.
    Signal secondGateRunning, cancelled;
    std::atomic<bool> runningSawCancel{false};
    std::shared_ptr<BlockOperation> runner;
    runner = BlockOperation::blockOperationWithBlock([&] {
        secondGateRunning.notify();
        cancelled.waitFor();
        runningSawCancel = runner->isCancelled();
    });
    queue.addOperation(runner);
    ASSERT_TRUE(secondGateRunning.waitFor());
    EXPECT_TRUE(runner->isExecuting());
    queue.addOperation(makeOperation("first-waiting"));
    queue.addOperation(makeOperation("second-waiting"));
    queue.cancelAllOperations();
    cancelled.notify();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(runningSawCancel);
    EXPECT_EQ(journal.entries(),
              (std::vector<std::string>{"kept", "kept done", "dropped done", "first-waiting done",
                                        "second-waiting done"}));
    EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueue, OperationRunsItsBlocksOnceThenItsCompletionOnTheSameThread) {
    Journal journal;
    auto operation = BlockOperation::blockOperationWithBlock([&] { journal.add("first"); });
    operation->addExecutionBlock([&] { journal.add("second"); });
    std::thread::id mainThread, completionThread;
    operation->addExecutionBlock([&] {
        journal.add("third");
        mainThread = std::this_thread::get_id();
    });
    operation->setCompletionBlock([&] {
        journal.add("completion");
        completionThread = std::this_thread::get_id();
    });

    OperationQueue queue;
    queue.addOperation(operation);
    operation->waitUntilFinished();
    // waitUntilFinished returns only after the completion has run.
    EXPECT_EQ(journal.entries(),
              (std::vector<std::string>{"first", "second", "third", "completion"}));
    EXPECT_EQ(mainThread, completionThread);
    EXPECT_NE(mainThread, std::this_thread::get_id());
    EXPECT_TRUE(operation->isFinished());

    // Starting it again, directly or through a queue, does nothing.
    operation->start();
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(journal.entries().size(), 4u);
}

TEST(OperationQueue, DestroyingTheQueueWaitsForRunningAndCancelsWaiting) {
    Signal running;
    std::atomic<bool> runnerFinished{false};
    Journal journal;
    auto waiting = BlockOperation::blockOperationWithBlock([&] { journal.add("waiting"); });
    waiting->setCompletionBlock([&] { journal.add("waiting done"); });
    {
        OperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        queue.addOperationWithBlock([&] {
            running.notify();
            Signal never;
            never.waitFor(1, 40ms);  // still running when the queue is destroyed
            runnerFinished = true;
        });
        queue.addOperation(waiting);
        ASSERT_TRUE(running.waitFor());
    }
    EXPECT_TRUE(runnerFinished);
    EXPECT_TRUE(waiting->isCancelled());
    EXPECT_TRUE(waiting->isFinished());
    EXPECT_EQ(journal.entries(), (std::vector<std::string>{"waiting done"}));
}

TEST(OperationQueue, MainQueueStaysSerialAndRunsOnTheMainThread) {
    MainRunLoop::drain();  // this thread drives the main queue
    auto& queue = OperationQueue::mainQueue();
    queue.setMaxConcurrentOperationCount(4);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);

    // Operations added from workers still run on the main thread, one at a time;
    // waitUntilAllOperationsAreFinished on the main thread runs the loop meanwhile.
    Occupancy occupancy;
    std::atomic<int> offMain{0};
    Signal added;
    for (int i = 0; i < 4; ++i) {
        platform::DispatchQueue::global().async([&] {
            queue.addOperationWithBlock([&] {
                Occupancy::Scope scope(occupancy);
                if (!MainRunLoop::isMainThread()) ++offMain;
            });
            added.notify();
        });
    }
    ASSERT_TRUE(added.waitFor(4));
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue.operationCount(), 0u);
    EXPECT_EQ(offMain.load(), 0);
    EXPECT_EQ(occupancy.peak(), 1);
}
