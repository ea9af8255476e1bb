// Bounded waiting for concurrency tests: a counter that threads bump and tests wait on with
// a time limit, and a probe that records how many threads were inside a region at once.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace testing_support {

// Long enough that a healthy run under a sanitizer never hits it.
inline constexpr std::chrono::milliseconds kPatience{10000};

class Signal {
  public:
    void notify(int times = 1) {
        std::lock_guard lock(_mutex);
        _count += times;
        _changed.notify_all();
    }
    // True when the count reached `count` within the timeout.
    bool waitFor(int count = 1, std::chrono::milliseconds timeout = kPatience) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, timeout, [&] { return _count >= count; });
    }
    int count() const {
        std::lock_guard lock(_mutex);
        return _count;
    }

  private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    int _count = 0;
};

class Occupancy {
  public:
    class Scope {
      public:
        explicit Scope(Occupancy& occupancy) : _occupancy(occupancy) {
            int now = ++_occupancy._inside;
            int peak = _occupancy._peak.load();
            while (now > peak && !_occupancy._peak.compare_exchange_weak(peak, now)) {
            }
        }
        ~Scope() { --_occupancy._inside; }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        Occupancy& _occupancy;
    };

    int inside() const { return _inside; }
    int peak() const { return _peak; }

  private:
    std::atomic<int> _inside{0};
    std::atomic<int> _peak{0};
};

}  // namespace testing_support
