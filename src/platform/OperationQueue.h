// Operation queues: operations with priorities and completion blocks, run at most
// maxConcurrentOperationCount at a time. The main operation queue runs on the main queue.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Dispatch.h"

namespace platform {

enum class OperationQueuePriority : std::int32_t {
    veryLow = -8,
    low = -4,
    normal = 0,
    high = 4,
    veryHigh = 8,
};

class Operation : public std::enable_shared_from_this<Operation> {
  public:
    virtual ~Operation() = default;

    // Cancelling marks the operation; one that has not started is skipped by its queue (its
    // completion block still runs, as on the platform). A running one must look at
    // isCancelled itself.
    void cancel() { _cancelled = true; }
    bool isCancelled() const { return _cancelled; }
    bool isExecuting() const { return _executing; }
    bool isFinished() const { return _finished; }

    // Read when the queue picks its next operation, so it may change while waiting.
    void setQueuePriority(OperationQueuePriority priority) { _priority = priority; }
    OperationQueuePriority queuePriority() const { return _priority; }
    // Runs after main() on the thread that ran it.
    void setCompletionBlock(DispatchBlock block);
    // Blocks until the operation has finished (and its completion block has run). Waiting
    // from the main thread for an operation of the main operation queue never returns.
    void waitUntilFinished();

    // The queue calls this; it runs main() unless cancelled, then the completion block, then
    // marks the operation finished. Only the first call does anything.
    void start();

  protected:
    virtual void main() = 0;

  private:
    std::atomic<bool> _started{false};
    std::atomic<bool> _cancelled{false};
    std::atomic<bool> _executing{false};
    std::atomic<bool> _finished{false};
    std::atomic<OperationQueuePriority> _priority{OperationQueuePriority::normal};
    std::mutex _mutex;
    std::condition_variable _finishedCondition;
    DispatchBlock _completion;
};

class BlockOperation : public Operation {
  public:
    static std::shared_ptr<BlockOperation> blockOperationWithBlock(DispatchBlock block);
    void addExecutionBlock(DispatchBlock block);

  protected:
    void main() override;

  private:
    std::mutex _blocksMutex;
    std::vector<DispatchBlock> _blocks;
};

class OperationQueue {
  public:
    static constexpr std::int64_t NSOperationQueueDefaultMaxConcurrentOperationCount = -1;

    OperationQueue();
    // Cancels the operations that have not started (their completion blocks still run) and
    // waits for the running ones.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    // The queue whose operations run on the main queue, one at a time.
    static OperationQueue& mainQueue();

    void setName(std::string name);
    std::string name() const;
    // -1 (or any negative count) lets the queue choose (the number of cores); 1 makes it
    // serial; 0 holds every operation back until the count is raised. The main operation
    // queue stays at 1.
    void setMaxConcurrentOperationCount(std::int64_t count);
    std::int64_t maxConcurrentOperationCount() const;
    void setQualityOfService(DispatchQoS qos);

    // Ready operations start in order of priority, then of addition.
    void addOperation(std::shared_ptr<Operation> operation);
    std::shared_ptr<BlockOperation> addOperationWithBlock(DispatchBlock block);
    // Cancels the waiting and the running operations; the running ones see isCancelled.
    void cancelAllOperations();
    // On the main thread, for the main operation queue, this runs the main queue meanwhile.
    void waitUntilAllOperationsAreFinished();
    // Operations added and not yet finished.
    std::size_t operationCount() const;

  private:
    explicit OperationQueue(bool onMainQueue);
    struct State;
    std::shared_ptr<State> _state;
};

}  // namespace platform
