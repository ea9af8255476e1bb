#include "app/web/EventHub.h"

#include <algorithm>

namespace app::web {

std::optional<std::string> EventHub::Subscription::next(std::chrono::milliseconds wait) {
    std::unique_lock lock(_mutex);
    _changed.wait_for(lock, wait, [this] { return _closed || !_queue.empty(); });
    if (_queue.empty()) return std::nullopt;
    std::string event = std::move(_queue.front());
    _queue.pop_front();
    return event;
}

bool EventHub::Subscription::isClosed() const {
    std::lock_guard lock(_mutex);
    return _closed;
}

std::shared_ptr<EventHub::Subscription> EventHub::subscribe() {
    auto subscription = std::make_shared<Subscription>();
    std::lock_guard lock(_mutex);
    _subscriptions.push_back(subscription);
    return subscription;
}

void EventHub::unsubscribe(const std::shared_ptr<Subscription>& subscription) {
    std::lock_guard lock(_mutex);
    _subscriptions.erase(std::remove(_subscriptions.begin(), _subscriptions.end(), subscription),
                         _subscriptions.end());
}

void EventHub::publish(const std::string& name, const std::string& data) {
    std::string event = "event: " + name + "\ndata: " + data + "\n\n";
    std::lock_guard lock(_mutex);
    for (const auto& subscription : _subscriptions) {
        std::lock_guard queueLock(subscription->_mutex);
        if (subscription->_queue.size() >= kMaxQueued) subscription->_queue.pop_front();
        subscription->_queue.push_back(event);
        subscription->_changed.notify_one();
    }
}

void EventHub::close() {
    std::lock_guard lock(_mutex);
    for (const auto& subscription : _subscriptions) {
        std::lock_guard queueLock(subscription->_mutex);
        subscription->_closed = true;
        subscription->_changed.notify_all();
    }
    _subscriptions.clear();
}

std::size_t EventHub::subscriberCount() const {
    std::lock_guard lock(_mutex);
    return _subscriptions.size();
}

}  // namespace app::web
