// The serial and concurrent queues: who may run next, sync callers taking their turn on their
// own thread, and barriers on concurrent queues.
#include <vector>

#include "platform/DispatchInternals.h"
#include "platform/Log.h"

namespace platform::dispatch_internal {
namespace {

// A serial queue gives its worker back after this many blocks so other queues get a turn.
constexpr int kSerialBatch = 32;

// The waiting items and the closed flag that both kinds of queue keep under one mutex.
class ItemQueueCore : public QueueCore {
  public:
    // Refuses new blocks and drops the ones not started. Sync callers keep their place: they
    // are blocked in the queue and must get their turn. The dropped blocks are destroyed after
    // the lock is released, since what they hold may go back to a queue.
    void close() final {
        std::deque<QueueItem> dropped;
        std::lock_guard lock(_mutex);
        _closed = true;
        std::deque<QueueItem> kept;
        for (auto& item : _items) (item.waiter ? kept : dropped).push_back(std::move(item));
        _items.swap(kept);
    }

  protected:
    std::mutex _mutex;
    std::deque<QueueItem> _items;
    bool _closed = false;
};

class SerialCore final : public ItemQueueCore {
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

  private:
    void scheduleDrain() {
        submitToWorkers(_qos,
                        [self = shared_from_this()] { static_cast<SerialCore&>(*self).drain(); });
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
    // True while a drain task or a sync caller holds the queue.
    bool _owned = false;
};

class ConcurrentCore final : public ItemQueueCore {
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
            submitToWorkers(_qos, [self = shared_from_this(), block = std::move(item.block),
                                   barrier = item.barrier] {
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
    std::size_t _running = 0;
    bool _barrierRunning = false;
};

}  // namespace

std::shared_ptr<QueueCore> makeSerialCore(DispatchQoS qos) {
    return std::make_shared<SerialCore>(qos);
}

std::shared_ptr<QueueCore> makeConcurrentCore(DispatchQoS qos, bool honoursBarriers) {
    return std::make_shared<ConcurrentCore>(qos, honoursBarriers);
}

}  // namespace platform::dispatch_internal
