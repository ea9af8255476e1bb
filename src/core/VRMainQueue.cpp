#include "core/VRMainQueue.h"

std::shared_ptr<platform::BlockOperation> VRMainQueue::addOperationWithPriority(
    platform::OperationQueuePriority priority, platform::DispatchBlock block) {
    return addOperationWithPriority(priority, std::move(block), nullptr);
}

std::shared_ptr<platform::BlockOperation> VRMainQueue::addOperationWithPriority(
    platform::OperationQueuePriority priority, platform::DispatchBlock block,
    platform::DispatchBlock completion) {
    auto operation = platform::BlockOperation::blockOperationWithBlock(std::move(block));
    operation->setQueuePriority(priority);
    operation->setCompletionBlock(std::move(completion));
    platform::OperationQueue::mainQueue().addOperation(operation);
    return operation;
}
