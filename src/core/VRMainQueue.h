// Operations on the main operation queue with a priority, for screen work that must run on
// the main thread in priority order rather than in submission order.
#pragma once

#include <memory>

#include "platform/OperationQueue.h"

class VRMainQueue {
  public:
    // Adds a block operation with that priority to the main operation queue and returns it
    // (the caller may cancel it). The block runs on the main thread.
    static std::shared_ptr<platform::BlockOperation> addOperationWithPriority(
        platform::OperationQueuePriority priority, platform::DispatchBlock block);
    // As above; the completion runs on the main thread after the block, and also when the
    // operation was cancelled before it started.
    static std::shared_ptr<platform::BlockOperation> addOperationWithPriority(
        platform::OperationQueuePriority priority, platform::DispatchBlock block,
        platform::DispatchBlock completion);
};
