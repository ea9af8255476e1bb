#include "video/VRInternalStateManager.h"

#include <algorithm>

using ProgressManager = VRInternalStateManager::ProgressManager;

ProgressManager::ProgressManager(std::shared_ptr<platform::DispatchQueue> queue,
                                 std::function<void(double)> block)
    : _queue(std::move(queue)), _block(std::move(block)) {}

double ProgressManager::fractionLocked(double seconds) const {
    if (!(_duration > 0)) return 0;
    return std::min(1.0, seconds / _duration);
}

void ProgressManager::setDuration(double seconds) {
    std::weak_ptr<ProgressManager> weak = weak_from_this();
    _queue->asyncBarrier([weak, seconds] {
        auto self = weak.lock();
        if (!self) return;
        self->_duration = seconds;
        self->_progress = 0;
    });
}

void ProgressManager::frameProgress(double seconds) {
    double fraction = 0;
    _queue->sync([&] { fraction = fractionLocked(seconds + _progress); });
    if (_block) _block(fraction);
}

void ProgressManager::trackProgress(double fullProgress) {
    std::weak_ptr<ProgressManager> weak = weak_from_this();
    _queue->asyncBarrier([weak, fullProgress] {
        auto self = weak.lock();
        if (!self) return;
        self->_progress += fullProgress;
        const double fraction = self->fractionLocked(self->_progress + fullProgress);
        if (self->_block) self->_block(fraction);
    });
}

std::shared_ptr<VRInternalStateManager> VRInternalStateManager::create() {
    std::shared_ptr<VRInternalStateManager> manager(new VRInternalStateManager());
    manager->_queue = platform::DispatchQueue::create(
        "com.vorela.unwarp.syncQueue", platform::DispatchQueue::Attributes::concurrent);
    return manager;
}

bool VRInternalStateManager::isCancelled() const {
    bool cancelled = false;
    _queue->sync([&] { cancelled = _cancelled; });
    return cancelled;
}

void VRInternalStateManager::cancel() {
    std::weak_ptr<VRInternalStateManager> weak = weak_from_this();
    _queue->asyncBarrier([weak] {
        if (auto self = weak.lock()) self->_cancelled = true;
    });
}

void VRInternalStateManager::makeProgressManager(std::function<void(double)> block) {
    auto manager = std::make_shared<ProgressManager>(_queue, std::move(block));
    _queue->syncBarrier([&] { _progressManager = std::move(manager); });
}

std::shared_ptr<VRInternalStateManager::ProgressManager> VRInternalStateManager::progressManager()
    const {
    std::shared_ptr<ProgressManager> manager;
    _queue->sync([&] { manager = _progressManager; });
    return manager;
}
