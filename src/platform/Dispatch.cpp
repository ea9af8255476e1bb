#include "platform/Dispatch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/CrashReporter.h"
#include "platform/Log.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

// A blocked sync must never starve the pool, so it grows on demand; the bound keeps a runaway
// producer from exhausting the process.
constexpr std::size_t kMaxWorkers = 64;
// A serial queue gives its worker back after this many blocks so other queues get a turn.
constexpr int kSerialBatch = 32;
// How long process exit waits for busy workers before abandoning them.
constexpr auto kExitGrace = std::chrono::seconds(2);
// runUntil re-checks its predicate this often even when no main-queue block arrives.
constexpr auto kRunUntilPoll = std::chrono::milliseconds(5);

constexpr std::size_t kQoSCount = 5;

std::size_t qosIndex(DispatchQoS qos) {
    return static_cast<std::size_t>(qos);
}

template <typename F>
class ScopeExit {
  public:
    explicit ScopeExit(F f) : _f(std::move(f)) {}
    ~ScopeExit() { _f(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

  private:
    F _f;
};

// The queues whose blocks the calling thread is running, innermost last. A sync block runs on
// the caller's thread, so one thread can be inside several queues at once.
struct RunningQueue {
    const void* queue;
    bool barrier;
};
thread_local std::vector<RunningQueue> tRunningQueues;

class RunningScope {
  public:
    RunningScope(const void* queue, bool barrier) { tRunningQueues.push_back({queue, barrier}); }
    ~RunningScope() { tRunningQueues.pop_back(); }
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;
};

const RunningQueue* innermostRun(const void* queue) {
    for (auto it = tRunningQueues.rbegin(); it != tRunningQueues.rend(); ++it) {
        if (it->queue == queue) return &*it;
    }
    return nullptr;
}

// Shared threads for every serial and concurrent queue. Tasks of a higher quality of service
// start first; within one class they start in submission order.
class WorkerPool {
  public:
    static WorkerPool& shared() {
        // Never destroyed: blocks may still be submitted while other statics are torn down.
        static auto* pool = new WorkerPool();
        return *pool;
    }

    void submit(DispatchQoS qos, DispatchBlock task) {
        std::unique_lock lock(_mutex);
        if (_stopping) {
            lock.unlock();
            return;  // the process is exiting; the task is dropped
        }
        _tasks[qosIndex(qos)].push_back(std::move(task));
        ++_pending;
        if (_pending > _idle && _threads.size() < kMaxWorkers) spawnLocked();
        _workAvailable.notify_one();
    }

    // Called once at process exit: drops queued tasks, lets idle workers end and joins them.
    // Workers stuck in a block past the grace period are abandoned rather than hang the exit.
    void shutdown() {
        std::array<std::deque<DispatchBlock>, kQoSCount> dropped;
        std::vector<std::thread> threads;
        bool allEnded = false;
        {
            std::unique_lock lock(_mutex);
            if (_stopping) return;
            _stopping = true;
            dropped.swap(_tasks);
            _pending = 0;
            _workAvailable.notify_all();
            allEnded = _workerEnded.wait_for(lock, kExitGrace, [&] { return _live == 0; });
            threads.swap(_threads);
        }
        for (auto& thread : threads) {
            if (allEnded) {
                thread.join();
            } else {
                thread.detach();
            }
        }
    }

  private:
    void spawnLocked() {
        try {
            _threads.emplace_back([this] { workerLoop(); });
            ++_live;
        } catch (const std::system_error& error) {
            log(std::string("~~ Unable to start a dispatch worker: ") + error.what());
        }
    }

    void workerLoop() {
        CrashReporter::ThreadSignalStack signalStack;
        std::unique_lock lock(_mutex);
        for (;;) {
            ++_idle;
            _workAvailable.wait(lock, [&] { return _stopping || _pending > 0; });
            --_idle;
            if (_stopping) break;
            DispatchBlock task = popLocked();
            lock.unlock();
            task();
            // Captures are released before the lock is retaken: their destructors may submit.
            task = nullptr;
            lock.lock();
        }
        --_live;
        _workerEnded.notify_all();
    }

    DispatchBlock popLocked() {
        for (std::size_t i = kQoSCount; i-- > 0;) {
            if (!_tasks[i].empty()) {
                DispatchBlock task = std::move(_tasks[i].front());
                _tasks[i].pop_front();
                --_pending;
                return task;
            }
        }
        return {};
    }

    std::mutex _mutex;
    std::condition_variable _workAvailable;
    std::condition_variable _workerEnded;
    std::array<std::deque<DispatchBlock>, kQoSCount> _tasks;
    std::size_t _pending = 0;
    std::size_t _idle = 0;
    std::size_t _live = 0;
    std::vector<std::thread> _threads;
    bool _stopping = false;
};

// The part of a queue that outlives its handle while blocks of it are running or scheduled.
class QueueCore : public std::enable_shared_from_this<QueueCore> {
  public:
    virtual ~QueueCore() = default;
    virtual void enqueue(DispatchBlock block, bool barrier) = 0;
    virtual void runSync(const DispatchBlock& block, bool barrier) = 0;
    virtual bool isCurrent() const { return innermostRun(this) != nullptr; }
    // The handle is gone: blocks that have not started are dropped.
    virtual void close() {}
};

// A caller of sync waiting for its turn; when the queue reaches it, the caller runs the block
// on its own thread, as the platform does.
struct SyncWaiter {
    std::condition_variable turn;
    bool granted = false;
};

struct QueueItem {
    DispatchBlock block;
    bool barrier = false;
    SyncWaiter* waiter = nullptr;
};

std::deque<QueueItem> takeAsyncItems(std::deque<QueueItem>& items) {
    std::deque<QueueItem> dropped;
    std::deque<QueueItem> kept;
    for (auto& item : items) (item.waiter ? kept : dropped).push_back(std::move(item));
    items.swap(kept);
    return dropped;
}

class SerialCore final : public QueueCore {
  public:
    explicit SerialCore(DispatchQoS qos) : _qos(qos) {}

    void enqueue(DispatchBlock block, bool /*barrier*/) override {
        std::unique_lock lock(_mutex);
        if (_closed) {
            lock.unlock();
            return;
        }
        _items.push_back({std::move(block), false, nullptr});
        if (_owned) return;
        _owned = true;
        lock.unlock();
        scheduleDrain();
    }

    void runSync(const DispatchBlock& block, bool /*barrier*/) override {
        if (isCurrent()) log("~~ dispatch sync on the serial queue that is running the caller");
        SyncWaiter waiter;
        {
            std::unique_lock lock(_mutex);
            if (!_owned && _items.empty()) {
                _owned = true;
            } else {
                _items.push_back({{}, false, &waiter});
                waiter.turn.wait(lock, [&] { return waiter.granted; });
            }
        }
        ScopeExit release([this] { releaseOwnership(); });
        RunningScope running(this, false);
        block();
    }

    void close() override {
        std::deque<QueueItem> dropped;
        std::lock_guard lock(_mutex);
        _closed = true;
        dropped = takeAsyncItems(_items);
    }

  private:
    void scheduleDrain() {
        WorkerPool::shared().submit(
            _qos, [self = shared_from_this()] { static_cast<SerialCore&>(*self).drain(); });
    }

    void drain() {
        RunningScope running(this, false);
        for (int n = 0; n < kSerialBatch; ++n) {
            DispatchBlock block;
            {
                std::lock_guard lock(_mutex);
                if (_items.empty()) {
                    _owned = false;
                    return;
                }
                QueueItem item = std::move(_items.front());
                _items.pop_front();
                if (item.waiter) {
                    // Ownership passes to the waiting caller; it schedules the rest.
                    item.waiter->granted = true;
                    item.waiter->turn.notify_one();
                    return;
                }
                block = std::move(item.block);
            }
            block();
        }
        scheduleDrain();
    }

    void releaseOwnership() {
        {
            std::lock_guard lock(_mutex);
            if (_items.empty()) {
                _owned = false;
                return;
            }
        }
        scheduleDrain();
    }

    const DispatchQoS _qos;
    std::mutex _mutex;
    std::deque<QueueItem> _items;
    // True while a drain task or a sync caller holds the queue.
    bool _owned = false;
    bool _closed = false;
};

class ConcurrentCore final : public QueueCore {
  public:
    ConcurrentCore(DispatchQoS qos, bool honoursBarriers)
        : _qos(qos), _honoursBarriers(honoursBarriers) {}

    void enqueue(DispatchBlock block, bool barrier) override {
        std::vector<QueueItem> ready;
        {
            std::lock_guard lock(_mutex);
            if (_closed) return;
            _items.push_back({std::move(block), barrier && _honoursBarriers, nullptr});
            ready = takeReadyLocked();
        }
        start(std::move(ready));
    }

    void runSync(const DispatchBlock& block, bool barrier) override {
        barrier = barrier && _honoursBarriers;
        if (const RunningQueue* current = innermostRun(this)) {
            // Already admitted: a nested read, or any nested call from inside a barrier, runs
            // at once instead of waiting for itself.
            if (!barrier || current->barrier) {
                block();
                return;
            }
            log("~~ dispatch barrier sync on the concurrent queue that is running the caller");
        }
        SyncWaiter waiter;
        {
            std::unique_lock lock(_mutex);
            bool idle = _items.empty() && !_barrierRunning && (!barrier || _running == 0);
            if (idle) {
                admitLocked(barrier);
            } else {
                _items.push_back({{}, barrier, &waiter});
                waiter.turn.wait(lock, [&] { return waiter.granted; });
            }
        }
        ScopeExit release([this, barrier] { finished(barrier); });
        RunningScope running(this, barrier);
        block();
    }

    void close() override {
        std::deque<QueueItem> dropped;
        std::lock_guard lock(_mutex);
        _closed = true;
        dropped = takeAsyncItems(_items);
    }

  private:
    void admitLocked(bool barrier) {
        if (barrier) {
            _barrierRunning = true;
        } else {
            ++_running;
        }
    }

    // Admits items from the front while the barrier rules allow: plain blocks run together,
    // a barrier waits for every earlier block and then runs alone.
    std::vector<QueueItem> takeReadyLocked() {
        std::vector<QueueItem> ready;
        while (!_items.empty() && !_barrierRunning) {
            QueueItem& front = _items.front();
            if (front.barrier && _running > 0) break;
            admitLocked(front.barrier);
            if (front.waiter) {
                front.waiter->granted = true;
                front.waiter->turn.notify_one();
            } else {
                ready.push_back(std::move(front));
            }
            _items.pop_front();
        }
        return ready;
    }

    void start(std::vector<QueueItem> ready) {
        for (auto& item : ready) {
            WorkerPool::shared().submit(
                _qos,
                [self = shared_from_this(), block = std::move(item.block), barrier = item.barrier] {
                    auto& core = static_cast<ConcurrentCore&>(*self);
                    {
                        RunningScope running(&core, barrier);
                        block();
                    }
                    core.finished(barrier);
                });
        }
    }

    void finished(bool barrier) {
        std::vector<QueueItem> ready;
        {
            std::lock_guard lock(_mutex);
            if (barrier) {
                _barrierRunning = false;
            } else {
                --_running;
            }
            ready = takeReadyLocked();
        }
        start(std::move(ready));
    }

    const DispatchQoS _qos;
    // The global queues are shared by the whole process, so a barrier there is a plain block.
    const bool _honoursBarriers;
    std::mutex _mutex;
    std::deque<QueueItem> _items;
    std::size_t _running = 0;
    bool _barrierRunning = false;
    bool _closed = false;
};

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

// One thread that hands delayed blocks to their queues when they fall due.
class DispatchTimer {
  public:
    static DispatchTimer& shared() {
        static auto* timer = new DispatchTimer();
        return *timer;
    }

    void schedule(Clock::time_point due, std::weak_ptr<QueueCore> queue, DispatchBlock block) {
        std::lock_guard lock(_mutex);
        if (_stopping) return;
        _entries.emplace(std::make_pair(due, _nextSequence++),
                         Entry{std::move(queue), std::move(block)});
        if (!_thread.joinable()) {
            _thread = std::thread([this] { loop(); });
        }
        _changed.notify_all();
    }

    void shutdown() {
        std::map<Key, Entry> dropped;
        std::thread thread;
        {
            std::lock_guard lock(_mutex);
            _stopping = true;
            dropped.swap(_entries);
            thread.swap(_thread);
            _changed.notify_all();
        }
        if (thread.joinable()) thread.join();
    }

  private:
    using Key = std::pair<Clock::time_point, std::uint64_t>;
    struct Entry {
        std::weak_ptr<QueueCore> queue;
        DispatchBlock block;
    };

    void loop() {
        std::unique_lock lock(_mutex);
        while (!_stopping) {
            if (_entries.empty()) {
                _changed.wait(lock);
                continue;
            }
            auto due = _entries.begin()->first.first;
            if (Clock::now() < due) {
                _changed.wait_until(lock, due);
                continue;
            }
            std::vector<Entry> fired;
            while (!_entries.empty() && _entries.begin()->first.first <= Clock::now()) {
                fired.push_back(std::move(_entries.begin()->second));
                _entries.erase(_entries.begin());
            }
            lock.unlock();
            for (auto& entry : fired) {
                if (auto queue = entry.queue.lock()) queue->enqueue(std::move(entry.block), false);
            }
            fired.clear();
            lock.lock();
        }
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    std::map<Key, Entry> _entries;
    std::uint64_t _nextSequence = 0;
    std::thread _thread;
    bool _stopping = false;
};

// Stops the timer and the workers when the process exits, so that no thread outlives main's
// statics and the sanitizers see every thread joined.
struct ExitGuard {
    ~ExitGuard() {
        DispatchTimer::shared().shutdown();
        WorkerPool::shared().shutdown();
    }
} gExitGuard;

class CoreQueue final : public DispatchQueue {
  public:
    CoreQueue(std::string label, std::shared_ptr<QueueCore> core, bool concurrent, bool owned)
        : _label(std::move(label)),
          _core(std::move(core)),
          _concurrent(concurrent),
          _owned(owned) {}
    ~CoreQueue() override {
        if (_owned) _core->close();
    }

    const std::string& label() const override { return _label; }
    bool isConcurrent() const override { return _concurrent; }
    void async(DispatchBlock block) override { _core->enqueue(std::move(block), false); }
    void sync(const DispatchBlock& block) override { _core->runSync(block, false); }
    void asyncBarrier(DispatchBlock block) override { _core->enqueue(std::move(block), true); }
    void syncBarrier(const DispatchBlock& block) override { _core->runSync(block, true); }
    void after(std::chrono::milliseconds delay, DispatchBlock block) override {
        if (delay.count() <= 0) {
            async(std::move(block));
            return;
        }
        DispatchTimer::shared().schedule(Clock::now() + delay, _core, std::move(block));
    }
    bool isCurrent() const override { return _core->isCurrent(); }

  private:
    const std::string _label;
    const std::shared_ptr<QueueCore> _core;
    const bool _concurrent;
    // Queues made by create() drop their pending blocks with the handle; the process-wide
    // queues are never destroyed.
    const bool _owned;
};

const char* qosName(DispatchQoS qos) {
    switch (qos) {
        case DispatchQoS::background:
            return "background";
        case DispatchQoS::utility:
            return "utility";
        case DispatchQoS::defaultQoS:
            return "default";
        case DispatchQoS::userInitiated:
            return "user-initiated";
        case DispatchQoS::userInteractive:
            return "user-interactive";
    }
    return "default";
}

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::create(std::string label, Attributes attributes,
                                                     DispatchQoS qos) {
    const bool concurrent = attributes == Attributes::concurrent;
    std::shared_ptr<QueueCore> core;
    if (concurrent) {
        core = std::make_shared<ConcurrentCore>(qos, true);
    } else {
        core = std::make_shared<SerialCore>(qos);
    }
    return std::make_shared<CoreQueue>(std::move(label), std::move(core), concurrent, true);
}

DispatchQueue& DispatchQueue::main() {
    static auto* queue = new CoreQueue("main", MainCore::shared(), false, false);
    return *queue;
}

DispatchQueue& DispatchQueue::global(DispatchQoS qos) {
    static auto* queues = [] {
        auto* made = new std::array<CoreQueue*, kQoSCount>();
        for (std::size_t i = 0; i < kQoSCount; ++i) {
            auto q = static_cast<DispatchQoS>(i);
            (*made)[i] = new CoreQueue(std::string("global.") + qosName(q),
                                       std::make_shared<ConcurrentCore>(q, false), true, false);
        }
        return made;
    }();
    return *(*queues)[qosIndex(qos)];
}

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
