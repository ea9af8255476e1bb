// What stops a Linux process stands for the application going to the background: Ctrl-Z
// (SIGTSTP) pauses the batch run and only then stops the process, and SIGCONT brings it back to
// the foreground. The signal handlers only write one byte to a pipe; a watcher thread reads it
// and the work runs on the main queue. One instance at a time; it restores the previous
// handlers when destroyed.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>

class VRResultController;

class VRLifecycleSignals {
  public:
    struct Handlers {
        // On the main queue, before the process stops.
        std::function<void()> didEnterBackground;
        // On the main queue, after the process continues.
        std::function<void()> willEnterForeground;
        // Stops the process (raise(SIGSTOP) when empty); tests put a hook in its place.
        std::function<void()> stopProcess;
    };

    // Null when the pipe or the handlers can't be set up, or another instance is installed.
    static std::unique_ptr<VRLifecycleSignals> install(Handlers handlers);
    ~VRLifecycleSignals();
    VRLifecycleSignals(const VRLifecycleSignals&) = delete;
    VRLifecycleSignals& operator=(const VRLifecycleSignals&) = delete;

    // The run's own mapping: background pauses the run; on return the "Processing
    // Restrictions" words, when the pause made them, go to `out` and the run resumes unless
    // the user had paused it.
    static Handlers handlersForController(VRResultController& controller, std::ostream& out,
                                          std::function<void()> stopProcess = nullptr);

    struct State;

  private:
    explicit VRLifecycleSignals(std::shared_ptr<State> state);
    std::shared_ptr<State> _state;
};
