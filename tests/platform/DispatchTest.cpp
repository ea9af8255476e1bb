#include "platform/Dispatch.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/Signal.h"

using platform::DispatchQoS;
using platform::DispatchQueue;
using platform::MainRunLoop;
using testing_support::Occupancy;
using testing_support::Signal;
using namespace std::chrono_literals;

namespace {

std::shared_ptr<DispatchQueue> makeConcurrent(const char* label) {
    return DispatchQueue::create(label, DispatchQueue::Attributes::concurrent);
}

}  // namespace

TEST(DispatchQueue, SerialQueueRunsOneBlockAtATimeInSubmissionOrder) {
    auto queue = DispatchQueue::create("serial");
    EXPECT_FALSE(queue->isConcurrent());
    Occupancy occupancy;
    std::vector<int> order;  // unguarded: only the queue touches it
    bool currentInside = true;
    for (int i = 0; i < 300; ++i) {
        auto block = [&, i] {
            Occupancy::Scope scope(occupancy);
            currentInside = currentInside && queue->isCurrent();
            order.push_back(i);
        };
        // Every kind of submission keeps the one order on a serial queue.
        if (i % 20 == 2) {
            queue->sync(block);
        } else if (i % 20 == 3) {
            queue->syncBarrier(block);
        } else if (i % 2) {
            queue->asyncBarrier(block);
        } else {
            queue->async(block);
        }
    }
    queue->sync([] {});
    ASSERT_EQ(order.size(), 300u);
    for (int i = 0; i < 300; ++i) EXPECT_EQ(order[i], i);
    EXPECT_EQ(occupancy.peak(), 1);
    EXPECT_TRUE(currentInside);
    EXPECT_FALSE(queue->isCurrent());
}

TEST(DispatchQueue, BarrierRunsAloneWhileReadersOverlapAroundIt) {
    auto queue = makeConcurrent("readers-writers");
    EXPECT_TRUE(queue->isConcurrent());
    Occupancy readers;
    Signal readersIn, laterSubmitted, laterStarted;
    int shared = 0;  // written only by barriers; the thread sanitizer reports any overlap
    bool overlapped[2] = {false, false};
    int insideWhenBarrierStarted = -1;
    bool laterReaderStartedDuringBarrier = true;
    int seenByLater[2] = {-1, -1};

    for (int i = 0; i < 2; ++i) {
        queue->async([&, i] {
            Occupancy::Scope scope(readers);
            readersIn.notify();
            // Both readers can only get here together if the queue runs them side by side.
            overlapped[i] = readersIn.waitFor(2);
            EXPECT_EQ(shared, 0);
        });
    }
    queue->asyncBarrier([&] {
        insideWhenBarrierStarted = readers.inside();
        laterSubmitted.waitFor();
        // A reader submitted after the barrier must not start while it runs.
        laterReaderStartedDuringBarrier = laterStarted.waitFor(1, 50ms);
        shared = 1;
    });
    for (int i = 0; i < 2; ++i) {
        queue->async([&, i] {
            laterStarted.notify();
            seenByLater[i] = shared;
        });
    }
    laterSubmitted.notify();
    queue->syncBarrier([] {});

    EXPECT_TRUE(overlapped[0]);
    EXPECT_TRUE(overlapped[1]);
    EXPECT_EQ(insideWhenBarrierStarted, 0);
    EXPECT_FALSE(laterReaderStartedDuringBarrier);
    EXPECT_EQ(seenByLater[0], 1);
    EXPECT_EQ(seenByLater[1], 1);
}

TEST(DispatchQueue, ReadersSeeExactlyTheWritesSubmittedBeforeThem) {
    auto queue = makeConcurrent("rounds");
    int value = 0;
    std::mutex seenMutex;
    std::vector<std::pair<int, int>> seen;  // (round, value read)
    constexpr int kRounds = 20;
    for (int round = 0; round < kRounds; ++round) {
        for (int reader = 0; reader < 3; ++reader) {
            queue->async([&, round] {
                int read = value;
                std::lock_guard lock(seenMutex);
                seen.emplace_back(round, read);
            });
        }
        if (round % 2 == 0) {
            queue->asyncBarrier([&] { ++value; });
        } else {
            queue->syncBarrier([&] { ++value; });
        }
    }
    int finalValue = -1;
    queue->sync([&] { finalValue = value; });

    EXPECT_EQ(finalValue, kRounds);
    ASSERT_EQ(seen.size(), 3u * kRounds);
    for (const auto& [round, read] : seen) EXPECT_EQ(read, round) << "reader of round " << round;
}

TEST(DispatchQueue, SyncAcrossAndWithinQueuesDoesNotDeadlock) {
    auto serialA = DispatchQueue::create("a");
    auto serialB = DispatchQueue::create("b");
    auto concurrent = makeConcurrent("c");

    // A block of A waits with sync for B, which is busy; the sync runs after B's earlier block.
    Signal releaseB, done;
    std::vector<std::string> order;
    std::mutex orderMutex;
    auto note = [&](const char* what) {
        std::lock_guard lock(orderMutex);
        order.emplace_back(what);
    };
    bool bothCurrent = false;
    serialB->async([&] {
        releaseB.waitFor();
        note("b-async");
    });
    serialA->async([&] {
        serialB->sync([&] {
            note("b-sync");
            bothCurrent = serialA->isCurrent() && serialB->isCurrent();
        });
        done.notify();
    });
    releaseB.notify();
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_EQ(order, (std::vector<std::string>{"b-async", "b-sync"}));
    EXPECT_TRUE(bothCurrent);

    // Nested calls on a concurrent queue from inside its own blocks, with a barrier waiting
    // behind the outer block, and a barrier nesting a barrier and a read.
    Signal nestedDone;
    int nestedSteps = 0;
    concurrent->async([&] {
        concurrent->sync([&] { ++nestedSteps; });
        nestedDone.notify();
    });
    concurrent->asyncBarrier([&] {
        concurrent->syncBarrier([&] { ++nestedSteps; });
        concurrent->sync([&] { ++nestedSteps; });
        nestedDone.notify();
    });
    ASSERT_TRUE(nestedDone.waitFor(2));
    EXPECT_EQ(nestedSteps, 3);

    // Many callers at once taking turns on one serial queue through sync.
    auto shared = DispatchQueue::create("turns");
    int counter = 0;  // unguarded: the queue is the lock
    Signal callers;
    for (int i = 0; i < 12; ++i) {
        DispatchQueue::global().async([&] {
            for (int k = 0; k < 20; ++k) shared->sync([&] { ++counter; });
            shared->async([&] { ++counter; });
            callers.notify();
        });
    }
    ASSERT_TRUE(callers.waitFor(12));
    shared->sync([] {});
    EXPECT_EQ(counter, 12 * 21);
}

TEST(DispatchQueue, BlockedBlocksDoNotStarveThePool) {
    // Every block waits until all of them are running, which needs more threads than cores.
    constexpr int kBlocks = 16;
    auto queue = makeConcurrent("wide");
    Signal arrived, finished;
    std::atomic<int> sawEveryone{0};
    for (int i = 0; i < kBlocks; ++i) {
        queue->async([&] {
            arrived.notify();
            if (arrived.waitFor(kBlocks)) ++sawEveryone;
            finished.notify();
        });
    }
    ASSERT_TRUE(finished.waitFor(kBlocks));
    EXPECT_EQ(sawEveryone.load(), kBlocks);
}

TEST(DispatchQueue, AfterRunsBlocksByDueTimeAndNotEarly) {
    using Clock = std::chrono::steady_clock;
    auto queue = DispatchQueue::create("timers");
    struct Scheduled {
        const char* name;
        std::chrono::milliseconds delay;
        // The due time lies between these two, which bracket the call to after().
        Clock::time_point earliestDue, latestDue;
    } scheduled[] = {{"late", 60ms, {}, {}},
                     {"early", 20ms, {}, {}},
                     {"now", 0ms, {}, {}},
                     {"early-second", 20ms, {}, {}}};
    struct Fired {
        std::size_t index;
        Clock::time_point at;
    };
    std::vector<Fired> fired;  // only the serial queue touches it
    Signal all;
    for (std::size_t i = 0; i < std::size(scheduled); ++i) {
        auto& entry = scheduled[i];
        entry.earliestDue = Clock::now() + entry.delay;
        queue->after(entry.delay, [&, i] {
            fired.push_back({i, Clock::now()});
            all.notify();
        });
        entry.latestDue = Clock::now() + entry.delay;
    }
    DispatchQueue::global(DispatchQoS::utility).after(10ms, [&] { all.notify(); });
    ASSERT_TRUE(all.waitFor(static_cast<int>(std::size(scheduled)) + 1));
    queue->sync([] {});

    ASSERT_EQ(fired.size(), std::size(scheduled));
    for (std::size_t position = 0; position < fired.size(); ++position) {
        const auto& mine = scheduled[fired[position].index];
        EXPECT_GE(fired[position].at, mine.earliestDue) << mine.name << " fired early";
        // Whatever fired later must not have been surely due before this one.
        for (std::size_t later = position + 1; later < fired.size(); ++later) {
            const auto& other = scheduled[fired[later].index];
            EXPECT_FALSE(other.latestDue < mine.earliestDue)
                << other.name << " was due before " << mine.name << " but fired after it";
        }
    }
    // Unless the test thread stalled for longer than the gaps, that is this order.
    if (scheduled[3].latestDue < scheduled[0].earliestDue) {
        std::vector<std::string> names;
        for (const auto& f : fired) names.emplace_back(scheduled[f.index].name);
        EXPECT_EQ(names, (std::vector<std::string>{"now", "early", "early-second", "late"}));
    }
}

TEST(DispatchQueue, DestroyingAQueueDropsBlocksThatHaveNotStarted) {
    for (auto attributes :
         {DispatchQueue::Attributes::serial, DispatchQueue::Attributes::concurrent}) {
        auto queue = DispatchQueue::create("doomed", attributes);
        Signal running, release, firstDone, dropped;
        queue->asyncBarrier([&] {
            running.notify();
            release.waitFor();
            firstDone.notify();
        });
        ASSERT_TRUE(running.waitFor());
        queue->async([&] { dropped.notify(); });
        queue->asyncBarrier([&] { dropped.notify(); });
        queue->after(5ms, [&] { dropped.notify(); });
        queue.reset();
        release.notify();
        EXPECT_TRUE(firstDone.waitFor()) << "the running block finishes";
        EXPECT_FALSE(dropped.waitFor(1, 60ms));
    }
}

TEST(DispatchQueue, GlobalQueueTreatsABarrierAsAPlainBlock) {
    // Holding back on a process-wide queue would stall unrelated work.
    auto& queue = DispatchQueue::global(DispatchQoS::background);
    EXPECT_EQ(&queue, &DispatchQueue::global(DispatchQoS::background));
    EXPECT_NE(&queue, &DispatchQueue::global(DispatchQoS::userInteractive));
    Signal running, release, barrierRan, finished;
    queue.async([&] {
        running.notify();
        release.waitFor();
        finished.notify();
    });
    ASSERT_TRUE(running.waitFor());
    queue.asyncBarrier([&] { barrierRan.notify(); });
    EXPECT_TRUE(barrierRan.waitFor());
    release.notify();
    EXPECT_TRUE(finished.waitFor());
}

TEST(MainRunLoop, BlocksFromOtherThreadsRunOnTheMainThread) {
    EXPECT_TRUE(MainRunLoop::isMainThread());
    EXPECT_TRUE(DispatchQueue::main().isCurrent());
    const auto mainId = std::this_thread::get_id();

    std::atomic<bool> workerIsMain{true};
    std::atomic<int> delivered{0};
    bool allOnMain = true;  // touched only on the main thread
    std::atomic<bool> syncReturned{false};
    DispatchQueue::global().async([&] {
        workerIsMain = MainRunLoop::isMainThread() || DispatchQueue::main().isCurrent();
        DispatchQueue::main().async([&] {
            allOnMain = allOnMain && std::this_thread::get_id() == mainId;
            ++delivered;
        });
        // A worker waiting on the main queue while the main thread runs its loop.
        DispatchQueue::main().sync([&] {
            allOnMain = allOnMain && MainRunLoop::isMainThread();
            ++delivered;
        });
        syncReturned = true;
        DispatchQueue::main().after(10ms, [&] {
            allOnMain = allOnMain && MainRunLoop::isMainThread();
            ++delivered;
        });
    });
    EXPECT_TRUE(MainRunLoop::runUntil([&] { return delivered == 3; }, testing_support::kPatience));
    EXPECT_TRUE(syncReturned);
    EXPECT_FALSE(workerIsMain);
    EXPECT_TRUE(allOnMain);

    // sync on the main queue from the main thread runs at once.
    bool ranAtOnce = false;
    DispatchQueue::main().sync([&] { ranAtOnce = true; });
    EXPECT_TRUE(ranAtOnce);
}

TEST(MainRunLoop, RunUntilDrainAndStop) {
    // A predicate that never holds returns false after the timeout, not before.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(MainRunLoop::runUntil([] { return false; }, 30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);

    // A predicate made true by another thread, with no main-queue block, is still noticed.
    std::atomic<bool> flag{false};
    DispatchQueue::global().async([&] { flag = true; });
    EXPECT_TRUE(MainRunLoop::runUntil([&] { return flag.load(); }, testing_support::kPatience));

    // drain runs only what was queued when it was called.
    std::vector<int> ran;
    auto& main = DispatchQueue::main();
    main.async([&] { ran.push_back(1); });
    main.async([&] {
        ran.push_back(2);
        main.async([&] { ran.push_back(4); });
    });
    main.async([&] { ran.push_back(3); });
    EXPECT_EQ(MainRunLoop::drain(), 3);
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(MainRunLoop::drain(), 1);
    EXPECT_EQ(MainRunLoop::drain(), 0);
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3, 4}));

    // stop from a main-queue block ends run; a stop issued before run is not lost.
    int blocksBeforeStop = 0;
    main.async([&] { ++blocksBeforeStop; });
    main.async([&] { MainRunLoop::stop(); });
    MainRunLoop::run();
    EXPECT_EQ(blocksBeforeStop, 1);

    Signal stopped;
    std::thread other([&] {
        MainRunLoop::stop();
        stopped.notify();
    });
    ASSERT_TRUE(stopped.waitFor());
    other.join();
    MainRunLoop::run();  // returns at once
    EXPECT_EQ(MainRunLoop::drain(), 0);
}

TEST(MainRunLoop, BusySinceFollowsTheBlockInWorkAndRestartsAfterANestedLoop) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point idle{};
    auto& main = DispatchQueue::main();
    EXPECT_EQ(MainRunLoop::busySince(), idle);

    // A queued block that has not started is not busy work of the loop.
    main.async([] {});
    EXPECT_EQ(MainRunLoop::busySince(), idle);
    MainRunLoop::drain();

    Clock::time_point outer{}, inner{}, afterNested{};
    Clock::time_point beforeNested{};
    main.async([&] {
        outer = MainRunLoop::busySince();
        beforeNested = Clock::now();
        main.async([&] { inner = MainRunLoop::busySince(); });
        // A nested loop serves the queue, so the outer block is not stalled meanwhile.
        MainRunLoop::runUntil([&] { return inner != Clock::time_point{}; },
                              testing_support::kPatience);
        afterNested = MainRunLoop::busySince();
    });
    const auto start = Clock::now();
    EXPECT_EQ(MainRunLoop::drain(), 1);
    EXPECT_GE(outer, start);
    EXPECT_GE(inner, beforeNested);
    EXPECT_GE(afterNested, inner);
    // Back in the loop: idle again.
    EXPECT_EQ(MainRunLoop::busySince(), idle);

    // Another thread sees the block's start while it runs.
    std::atomic<bool> release{false};
    Signal seenBusy;
    std::thread watcher([&] {
        while (MainRunLoop::busySince() == idle) std::this_thread::yield();
        seenBusy.notify();
    });
    main.async([&] {
        EXPECT_TRUE(seenBusy.waitFor());
        release = true;
    });
    MainRunLoop::runUntil([&] { return release.load(); }, testing_support::kPatience);
    watcher.join();
    EXPECT_TRUE(release);
}
