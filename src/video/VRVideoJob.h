// A running video job as the processor holds it, from LegacyManager's start until its end:
// all it can do is cancel. A job made by default is empty and cancels nothing.
#pragma once

#include <memory>

class VRVideoResizer2;

class VRVideoJob {
  public:
    VRVideoJob() = default;
    explicit VRVideoJob(std::shared_ptr<VRVideoResizer2> resizer) : _resizer(std::move(resizer)) {}

    // Asks the job to stop; it then ends cancelled, unless it has ended already.
    void cancel() const;
    explicit operator bool() const { return _resizer != nullptr; }
    // The job itself, for tests that look at the options it was given.
    const std::shared_ptr<VRVideoResizer2>& resizer() const { return _resizer; }

  private:
    std::shared_ptr<VRVideoResizer2> _resizer;
};
