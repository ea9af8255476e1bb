#include "core/VRBackgroundTask.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace {

using StartDate = std::chrono::system_clock::time_point;

// One started task: its callbacks and the start date that marks it live.
class BackgroundTask : public std::enable_shared_from_this<BackgroundTask> {
  public:
    BackgroundTask(VRBackgroundTask::BackgroundBlock block,
                   VRBackgroundTask::MainThreadCompletion completion)
        : _block(std::move(block)), _completion(std::move(completion)) {}

    void main() {
        const StartDate date = std::chrono::system_clock::now();
        {
            std::lock_guard lock(_mutex);
            _backgroundTaskStartDate = date;
        }
        platform::DispatchQueue::global(platform::DispatchQoS::background)
            .async([self = shared_from_this(), date] { self->runInBackground(date); });
    }

    void cancel() {
        std::lock_guard lock(_mutex);
        _backgroundTaskStartDate.reset();
    }

  private:
    bool isLive(const StartDate& date) {
        std::lock_guard lock(_mutex);
        return _backgroundTaskStartDate == date;
    }

    void runInBackground(const StartDate& date) {
        VRBackgroundTaskResult result;
        if (_block) result = _block();
        if (!_completion || !isLive(date)) return;
        platform::DispatchQueue::main().async(
            [self = shared_from_this(), date, result = std::move(result)] {
                if (self->isLive(date)) self->_completion(result);
            });
    }

    const VRBackgroundTask::BackgroundBlock _block;
    const VRBackgroundTask::MainThreadCompletion _completion;
    std::mutex _mutex;
    std::optional<StartDate> _backgroundTaskStartDate;
};

class TaskRegistry {
  public:
    static TaskRegistry& shared() {
        static TaskRegistry registry;
        return registry;
    }

    std::shared_ptr<BackgroundTask> take(std::int64_t taskID) {
        std::lock_guard lock(_mutex);
        auto found = _tasks.find(taskID);
        if (found == _tasks.end()) return nullptr;
        auto task = std::move(found->second);
        _tasks.erase(found);
        return task;
    }

    void put(std::int64_t taskID, std::shared_ptr<BackgroundTask> task) {
        std::lock_guard lock(_mutex);
        _tasks[taskID] = std::move(task);
    }

  private:
    std::mutex _mutex;
    std::map<std::int64_t, std::shared_ptr<BackgroundTask>> _tasks;
};

}  // namespace

void VRBackgroundTask::performBackgroundTaskWithID(
    std::int64_t taskID, BackgroundBlock blockOnBackgroundThread,
    MainThreadCompletion completionBlockOnMainThread) {
    cancelBackgroundTaskWithID(taskID);
    auto task = std::make_shared<BackgroundTask>(std::move(blockOnBackgroundThread),
                                                 std::move(completionBlockOnMainThread));
    TaskRegistry::shared().put(taskID, task);
    task->main();
}

void VRBackgroundTask::cancelBackgroundTaskWithID(std::int64_t taskID) {
    if (auto task = TaskRegistry::shared().take(taskID)) task->cancel();
}

void VRBackgroundTask::performBackgroundTaskWithBlock(platform::DispatchBlock block) {
    platform::DispatchQueue::global(platform::DispatchQoS::background).async(std::move(block));
}
