// Server-sent events: the run's events are published from the main thread and each open
// event stream (one per page) takes them in order from its own queue on a server thread. A
// stream that falls far behind loses its oldest events rather than holding memory.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace app::web {

class EventHub {
  public:
    class Subscription {
      public:
        // The next event as "event: NAME\ndata: JSON\n\n", or none after `wait` (the caller
        // then sends a keep-alive comment) or once the hub is closed.
        std::optional<std::string> next(std::chrono::milliseconds wait);
        bool isClosed() const;

      private:
        friend class EventHub;
        mutable std::mutex _mutex;
        std::condition_variable _changed;
        std::deque<std::string> _queue;
        bool _closed = false;
    };

    static constexpr std::size_t kMaxQueued = 1000;

    std::shared_ptr<Subscription> subscribe();
    void unsubscribe(const std::shared_ptr<Subscription>& subscription);
    // `data` is one line of JSON.
    void publish(const std::string& name, const std::string& data);
    // Ends every stream (the server is stopping).
    void close();
    std::size_t subscriberCount() const;

  private:
    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Subscription>> _subscriptions;
};

}  // namespace app::web
