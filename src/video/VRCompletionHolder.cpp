#include "video/VRCompletionHolder.h"

VRCompletionHolder::VRCompletionHolder()
    : _queue(platform::DispatchQueue::create("async-reading-writing",
                                             platform::DispatchQueue::Attributes::concurrent)) {}

bool VRCompletionHolder::isEmpty() const {
    bool empty = true;
    _queue->sync([&] { empty = !_completed.has_value(); });
    return empty;
}

void VRCompletionHolder::setCompleted(bool completed) {
    _queue->syncBarrier([&] {
        if (!_completed) _completed = completed;
    });
}

void VRCompletionHolder::withCompleted(const std::function<void(bool)>& block) const {
    _queue->sync([&] {
        if (_completed) block(*_completed);
    });
}
