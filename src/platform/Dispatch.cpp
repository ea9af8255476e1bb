// The worker pool and the timer behind every queue, and the queue handles.
#include "platform/Dispatch.h"

#include <array>
#include <map>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/CrashReporter.h"
#include "platform/DispatchInternals.h"
#include "platform/Log.h"

namespace platform {
namespace dispatch_internal {
namespace {

// A blocked sync must never starve the pool, so it grows on demand; the bound keeps a runaway
// producer from exhausting the process.
constexpr std::size_t kMaxWorkers = 64;
// How long process exit waits for busy workers before abandoning them.
constexpr auto kExitGrace = std::chrono::seconds(2);

constexpr std::size_t kQoSCount = 5;

std::size_t qosIndex(DispatchQoS qos) {
    return static_cast<std::size_t>(qos);
}

thread_local std::vector<RunningQueue> tRunningQueues;

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

void enterRunningQueue(const void* queue, bool barrier) {
    tRunningQueues.push_back({queue, barrier});
}

void leaveRunningQueue() {
    tRunningQueues.pop_back();
}

const RunningQueue* innermostRun(const void* queue) {
    for (auto it = tRunningQueues.rbegin(); it != tRunningQueues.rend(); ++it) {
        if (it->queue == queue) return &*it;
    }
    return nullptr;
}

void submitToWorkers(DispatchQoS qos, DispatchBlock task) {
    WorkerPool::shared().submit(qos, std::move(task));
}

}  // namespace dispatch_internal

using namespace dispatch_internal;

std::shared_ptr<DispatchQueue> DispatchQueue::create(std::string label, Attributes attributes,
                                                     DispatchQoS qos) {
    const bool concurrent = attributes == Attributes::concurrent;
    auto core = concurrent ? makeConcurrentCore(qos, true) : makeSerialCore(qos);
    return std::make_shared<CoreQueue>(std::move(label), std::move(core), concurrent, true);
}

DispatchQueue& DispatchQueue::main() {
    static auto* queue = new CoreQueue("main", mainQueueCore(), false, false);
    return *queue;
}

DispatchQueue& DispatchQueue::global(DispatchQoS qos) {
    static auto* queues = [] {
        auto* made = new std::array<CoreQueue*, kQoSCount>();
        for (std::size_t i = 0; i < kQoSCount; ++i) {
            auto q = static_cast<DispatchQoS>(i);
            (*made)[i] = new CoreQueue(std::string("global.") + qosName(q),
                                       makeConcurrentCore(q, false), true, false);
        }
        return made;
    }();
    return *(*queues)[qosIndex(qos)];
}

}  // namespace platform
