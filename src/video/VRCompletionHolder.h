// The once-only result of one track loop: empty until the loop resolves, then true (the track
// ended or failed) or false (cancelled). The writer may call a request block again after the
// end, so the track providers ask it before doing anything. One holder per track run.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/Dispatch.h"

class VRCompletionHolder {
  public:
    // With its own concurrent queue labelled "async-reading-writing".
    VRCompletionHolder();

    // Synchronous read.
    bool isEmpty() const;
    // Barrier write; only the first value is kept.
    void setCompleted(bool completed);
    // Runs `block` with the value, synchronously, when there is one.
    void withCompleted(const std::function<void(bool)>& block) const;

  private:
    std::shared_ptr<platform::DispatchQueue> _queue;
    std::optional<bool> _completed;
};
