#include "platform/OperationQueue.h"

#include <algorithm>
#include <limits>
#include <thread>

namespace platform {

void Operation::setCompletionBlock(DispatchBlock block) {
    std::lock_guard lock(_mutex);
    _completion = std::move(block);
}

void Operation::waitUntilFinished() {
    std::unique_lock lock(_mutex);
    _finishedCondition.wait(lock, [&] { return _finished.load(); });
}

void Operation::start() {
    if (_started.exchange(true)) return;
    _executing = true;
    if (!_cancelled) main();
    _executing = false;
    DispatchBlock completion;
    {
        std::lock_guard lock(_mutex);
        // Taken out so that a completion capturing its own operation does not keep it alive.
        completion.swap(_completion);
    }
    if (completion) completion();
    {
        std::lock_guard lock(_mutex);
        _finished = true;
    }
    _finishedCondition.notify_all();
}

std::shared_ptr<BlockOperation> BlockOperation::blockOperationWithBlock(DispatchBlock block) {
    auto operation = std::make_shared<BlockOperation>();
    operation->addExecutionBlock(std::move(block));
    return operation;
}

void BlockOperation::addExecutionBlock(DispatchBlock block) {
    if (!block) return;
    std::lock_guard lock(_blocksMutex);
    _blocks.push_back(std::move(block));
}

void BlockOperation::main() {
    std::vector<DispatchBlock> blocks;
    {
        std::lock_guard lock(_blocksMutex);
        blocks.swap(_blocks);
    }
    for (auto& block : blocks) block();
}

namespace {
// The queue state whose operation the calling thread is running, so a queue destroyed from
// inside its own operation does not wait for that operation.
thread_local const void* tRunningQueueState = nullptr;
}  // namespace

struct OperationQueue::State : std::enable_shared_from_this<OperationQueue::State> {
    struct Waiting {
        std::shared_ptr<Operation> operation;
        std::uint64_t sequence;
    };

    mutable std::mutex mutex;
    std::condition_variable allFinished;
    std::string name;
    std::int64_t maxCount = NSOperationQueueDefaultMaxConcurrentOperationCount;
    DispatchQoS qos = DispatchQoS::defaultQoS;
    bool onMainQueue = false;
    // Set by the destructor: the cancelled leftovers start at once to deliver their completions.
    bool closing = false;
    std::vector<Waiting> waiting;
    std::vector<std::shared_ptr<Operation>> running;
    std::uint64_t nextSequence = 0;

    std::size_t widthLocked() const {
        if (closing) return std::numeric_limits<std::size_t>::max();
        if (onMainQueue) return 1;
        if (maxCount < 0) return std::max(1u, std::thread::hardware_concurrency());
        return static_cast<std::size_t>(maxCount);
    }

    bool idleLocked() const { return waiting.empty() && running.empty(); }

    // The waiting operation of highest priority, the earliest added among equals.
    std::vector<Waiting>::iterator nextLocked() {
        return std::min_element(waiting.begin(), waiting.end(), [](const auto& a, const auto& b) {
            auto pa = a.operation->queuePriority();
            auto pb = b.operation->queuePriority();
            return pa != pb ? pa > pb : a.sequence < b.sequence;
        });
    }

    void pump() {
        std::vector<std::shared_ptr<Operation>> toStart;
        DispatchQueue* target = nullptr;
        {
            std::lock_guard lock(mutex);
            const std::size_t width = widthLocked();
            while (running.size() < width && !waiting.empty()) {
                auto next = nextLocked();
                toStart.push_back(std::move(next->operation));
                waiting.erase(next);
                running.push_back(toStart.back());
            }
            target = onMainQueue ? &DispatchQueue::main() : &DispatchQueue::global(qos);
        }
        for (auto& operation : toStart) {
            target->async([self = shared_from_this(), operation] { self->run(operation); });
        }
    }

    void run(const std::shared_ptr<Operation>& operation) {
        const void* outer = tRunningQueueState;
        tRunningQueueState = this;
        operation->start();
        tRunningQueueState = outer;
        {
            std::lock_guard lock(mutex);
            running.erase(std::find(running.begin(), running.end(), operation));
        }
        allFinished.notify_all();
        pump();
    }
};

OperationQueue::OperationQueue() : _state(std::make_shared<State>()) {}

OperationQueue::OperationQueue(bool onMainQueue) : OperationQueue() {
    _state->onMainQueue = onMainQueue;
    _state->name = onMainQueue ? "NSOperationQueue Main Queue" : "";
}

OperationQueue::~OperationQueue() {
    {
        std::lock_guard lock(_state->mutex);
        _state->closing = true;
        for (auto& waiting : _state->waiting) waiting.operation->cancel();
    }
    _state->pump();
    const std::size_t self = tRunningQueueState == _state.get() ? 1 : 0;
    std::unique_lock lock(_state->mutex);
    _state->allFinished.wait(
        lock, [&] { return _state->waiting.empty() && _state->running.size() <= self; });
}

OperationQueue& OperationQueue::mainQueue() {
    // Never destroyed: operations may be added to it until the process ends.
    static auto* queue = new OperationQueue(true);
    return *queue;
}

void OperationQueue::setName(std::string name) {
    std::lock_guard lock(_state->mutex);
    _state->name = std::move(name);
}

std::string OperationQueue::name() const {
    std::lock_guard lock(_state->mutex);
    return _state->name;
}

void OperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
    {
        std::lock_guard lock(_state->mutex);
        if (_state->onMainQueue) return;
        _state->maxCount = count < 0 ? NSOperationQueueDefaultMaxConcurrentOperationCount : count;
    }
    _state->pump();
}

std::int64_t OperationQueue::maxConcurrentOperationCount() const {
    std::lock_guard lock(_state->mutex);
    return _state->onMainQueue ? 1 : _state->maxCount;
}

void OperationQueue::setQualityOfService(DispatchQoS qos) {
    std::lock_guard lock(_state->mutex);
    _state->qos = qos;
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
    if (!operation) return;
    {
        std::lock_guard lock(_state->mutex);
        _state->waiting.push_back({std::move(operation), _state->nextSequence++});
    }
    _state->pump();
}

std::shared_ptr<BlockOperation> OperationQueue::addOperationWithBlock(DispatchBlock block) {
    auto operation = BlockOperation::blockOperationWithBlock(std::move(block));
    addOperation(operation);
    return operation;
}

void OperationQueue::cancelAllOperations() {
    std::lock_guard lock(_state->mutex);
    for (auto& waiting : _state->waiting) waiting.operation->cancel();
    for (auto& operation : _state->running) operation->cancel();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    auto state = _state;
    auto idle = [state] {
        std::lock_guard lock(state->mutex);
        return state->idleLocked();
    };
    if (state->onMainQueue && MainRunLoop::isMainThread()) {
        // A stop meant for an outer loop is passed on once the wait is over.
        bool stopped = false;
        while (!MainRunLoop::runUntil(idle)) stopped = true;
        if (stopped) MainRunLoop::stop();
        return;
    }
    std::unique_lock lock(state->mutex);
    state->allFinished.wait(lock, [&] { return state->idleLocked(); });
}

std::size_t OperationQueue::operationCount() const {
    std::lock_guard lock(_state->mutex);
    return _state->waiting.size() + _state->running.size();
}

}  // namespace platform
