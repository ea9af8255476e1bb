// Background work with a completion on the main thread, keyed by a task ID so that a newer
// request replaces an older one. Used by start-up clean-ups and the screens' slow look-ups.
#pragma once

#include <any>
#include <cstdint>
#include <functional>

#include "platform/Dispatch.h"

// `object` is a std::any rather than a std::shared_ptr<void>: the reader gets it back with a
// checked std::any_cast (a wrong type yields null, not undefined behaviour), and a producer that
// wants shared identity stores a std::shared_ptr<T> in it.
struct VRBackgroundTaskResult {
    std::int64_t value = 0;
    std::any object;
};

class VRBackgroundTask {
  public:
    // Runs on the global background queue; returns the result handed to the completion.
    using BackgroundBlock = std::function<VRBackgroundTaskResult()>;
    // Runs on the main queue. Without a background block it receives an empty result.
    using MainThreadCompletion = std::function<void(const VRBackgroundTaskResult& result)>;

    // Cancels the task under `taskID`, then starts a new one under it. The completion is
    // delivered only while this task is still the one under its ID: a later perform or a
    // cancel with the same ID drops it (checked again on the main thread, so a cancel made on
    // the main thread always wins). Either callback may be empty.
    static void performBackgroundTaskWithID(std::int64_t taskID,
                                            BackgroundBlock blockOnBackgroundThread,
                                            MainThreadCompletion completionBlockOnMainThread);
    // Drops the completion of the task under `taskID`; its background block is not interrupted.
    static void cancelBackgroundTaskWithID(std::int64_t taskID);
    // A plain asynchronous block on the global background queue.
    static void performBackgroundTaskWithBlock(platform::DispatchBlock block);
};
