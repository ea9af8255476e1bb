// The main queue and the loop that the main thread runs it by, with the heartbeat that the
// hang watchdog reads.
#include <atomic>
#include <thread>

#include "platform/DispatchInternals.h"
#include "platform/Log.h"

namespace platform {
namespace dispatch_internal {
namespace {

// runUntil re-checks its predicate this often even when no main-queue block arrives.
constexpr auto kRunUntilPoll = std::chrono::milliseconds(5);

// The main thread: the process's initial thread until the first call of run, runUntil or
// drain names another.
const std::thread::id gInitialThread = std::this_thread::get_id();
std::atomic<std::thread::id> gMainThread{gInitialThread};
std::atomic<bool> gMainThreadClaimed{false};

// The heartbeat behind MainRunLoop::busySince: the start of the main-queue block in work, in
// clock ticks, or 0. The depth counts the blocks the main thread is inside (nested loops).
std::atomic<Clock::rep> gBusySince{0};
int gMainBlockDepth = 0;  // main thread only

void markMainBlockStarted() {
    ++gMainBlockDepth;
    gBusySince = Clock::now().time_since_epoch().count();
}

void markMainBlockEnded() {
    --gMainBlockDepth;
    gBusySince = 0;
}

// A loop returns to the block that ran it: that block is busy again from now.
void markLoopLeft() {
    if (gMainBlockDepth > 0) gBusySince = Clock::now().time_since_epoch().count();
}

bool claimMainThread() {
    const auto self = std::this_thread::get_id();
    bool expected = false;
    if (gMainThreadClaimed.compare_exchange_strong(expected, true)) gMainThread = self;
    if (gMainThread.load() == self) return true;
    log("~~ The main run loop was driven from a thread other than the main thread");
    return false;
}

class MainCore final : public QueueCore {
  public:
    static const std::shared_ptr<MainCore>& shared() {
        static auto* core = new std::shared_ptr<MainCore>(std::make_shared<MainCore>());
        return *core;
    }

    void enqueue(DispatchBlock block, bool /*barrier*/) override {
        std::lock_guard lock(_mutex);
        _blocks.push_back(std::move(block));
        _changed.notify_all();
    }

    void runSync(const DispatchBlock& block, bool /*barrier*/) override {
        if (MainRunLoop::isMainThread()) {
            block();
            return;
        }
        std::mutex doneMutex;
        std::condition_variable doneCondition;
        bool done = false;
        enqueue(
            [&] {
                ScopeExit signal([&] {
                    std::lock_guard lock(doneMutex);
                    done = true;
                    doneCondition.notify_all();
                });
                block();
            },
            false);
        std::unique_lock lock(doneMutex);
        doneCondition.wait(lock, [&] { return done; });
    }

    bool isCurrent() const override { return MainRunLoop::isMainThread(); }

    enum class Wake { block, stop, timeout };

    // Waits until a block is queued, stop is requested (when honoured) or the deadline passes;
    // runs the block.
    Wake runNext(Clock::time_point deadline, bool honourStop = true) {
        DispatchBlock block;
        {
            std::unique_lock lock(_mutex);
            _changed.wait_until(lock, deadline,
                                [&] { return (honourStop && _stopRequested) || !_blocks.empty(); });
            if (honourStop && _stopRequested) {
                _stopRequested = false;
                return Wake::stop;
            }
            if (_blocks.empty()) return Wake::timeout;
            block = std::move(_blocks.front());
            _blocks.pop_front();
        }
        markMainBlockStarted();
        ScopeExit ended([] { markMainBlockEnded(); });
        RunningScope running(this, false);
        block();
        return Wake::block;
    }

    std::size_t queuedCount() {
        std::lock_guard lock(_mutex);
        return _blocks.size();
    }

    void requestStop() {
        std::lock_guard lock(_mutex);
        _stopRequested = true;
        _changed.notify_all();
    }

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<DispatchBlock> _blocks;
    // Sticky until a loop sees it, so a stop that races ahead of run() is not lost.
    bool _stopRequested = false;
};

}  // namespace

std::shared_ptr<QueueCore> mainQueueCore() {
    return MainCore::shared();
}

}  // namespace dispatch_internal

using namespace dispatch_internal;

void MainRunLoop::run() {
    if (!claimMainThread()) return;
    auto& core = *MainCore::shared();
    ScopeExit left([] { markLoopLeft(); });
    while (core.runNext(Clock::time_point::max()) != MainCore::Wake::stop) {
    }
}

bool MainRunLoop::runUntil(const std::function<bool()>& predicate,
                           std::chrono::milliseconds timeout) {
    if (!claimMainThread()) return false;
    auto& core = *MainCore::shared();
    ScopeExit left([] { markLoopLeft(); });
    // Saturate rather than overflow for the "forever" default.
    const auto now = Clock::now();
    const auto deadline = timeout >= std::chrono::duration_cast<std::chrono::milliseconds>(
                                         Clock::time_point::max() - now)
                              ? Clock::time_point::max()
                              : now + timeout;
    while (!predicate()) {
        const auto current = Clock::now();
        if (current >= deadline) return false;
        const auto wake = (deadline - current > kRunUntilPoll) ? current + kRunUntilPoll : deadline;
        if (core.runNext(wake) == MainCore::Wake::stop) return predicate();
    }
    return true;
}

int MainRunLoop::drain() {
    if (!claimMainThread()) return 0;
    auto& core = *MainCore::shared();
    ScopeExit left([] { markLoopLeft(); });
    // Only the blocks queued now: a block that queues another must not keep drain going.
    const std::size_t due = core.queuedCount();
    int ran = 0;
    for (std::size_t i = 0; i < due; ++i) {
        if (core.runNext(Clock::now(), false) != MainCore::Wake::block) break;
        ++ran;
    }
    return ran;
}

void MainRunLoop::stop() {
    MainCore::shared()->requestStop();
}

bool MainRunLoop::isMainThread() {
    return gMainThread.load() == std::this_thread::get_id();
}

std::chrono::steady_clock::time_point MainRunLoop::busySince() {
    return Clock::time_point(Clock::duration(gBusySince.load()));
}

}  // namespace platform
