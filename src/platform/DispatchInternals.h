// Shared by the parts of the dispatch implementation (the worker pool and timer, the serial
// and concurrent queues, the main run loop); nothing outside them includes it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <utility>

#include "platform/Dispatch.h"

namespace platform::dispatch_internal {

using Clock = std::chrono::steady_clock;

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
void enterRunningQueue(const void* queue, bool barrier);
void leaveRunningQueue();
const RunningQueue* innermostRun(const void* queue);

class RunningScope {
  public:
    RunningScope(const void* queue, bool barrier) { enterRunningQueue(queue, barrier); }
    ~RunningScope() { leaveRunningQueue(); }
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;
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

// Runs the task on the shared worker threads; higher qualities of service start first.
void submitToWorkers(DispatchQoS qos, DispatchBlock task);

std::shared_ptr<QueueCore> makeSerialCore(DispatchQoS qos);
// A global queue does not honour barriers: it is shared by the whole process.
std::shared_ptr<QueueCore> makeConcurrentCore(DispatchQoS qos, bool honoursBarriers);
std::shared_ptr<QueueCore> mainQueueCore();

}  // namespace platform::dispatch_internal
