// Queues: the main queue run by the program's main thread, serial and concurrent dispatch
// queues with barriers, delayed work and once-guards. Blocks are std::function; a block runs
// exactly once unless its queue is destroyed first.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace platform {

using DispatchBlock = std::function<void()>;

enum class DispatchQoS { background, utility, defaultQoS, userInitiated, userInteractive };

class DispatchQueue {
  public:
    enum class Attributes { serial, concurrent };

    // A new queue. Serial queues run one block at a time in submission order. Concurrent
    // queues run blocks side by side on a shared worker pool; a barrier block waits for
    // everything submitted before it, runs alone, and holds back everything after it.
    // Destroying the returned queue drops its blocks that have not started (delayed ones
    // too); a running block finishes.
    static std::shared_ptr<DispatchQueue> create(std::string label,
                                                 Attributes attributes = Attributes::serial,
                                                 DispatchQoS qos = DispatchQoS::defaultQoS);
    // The main queue: blocks run on the thread that drives MainRunLoop.
    static DispatchQueue& main();
    // Concurrent global queues, one per quality of service. They are shared by the whole
    // process, so a barrier on them is an ordinary block, as on the platform.
    static DispatchQueue& global(DispatchQoS qos = DispatchQoS::defaultQoS);

    virtual ~DispatchQueue() = default;
    virtual const std::string& label() const = 0;
    virtual bool isConcurrent() const = 0;

    virtual void async(DispatchBlock block) = 0;
    // Runs the block on this queue and waits for it; the block runs on the caller's thread
    // once the queue admits it (the main queue's blocks always run on the main thread).
    // Calling sync on the serial queue that is running the caller deadlocks, as on the
    // platform; calling it on the main queue from the main thread runs the block at once.
    // On a concurrent queue, sync from inside one of its own blocks runs at once.
    virtual void sync(const DispatchBlock& block) = 0;
    // On a serial queue these are async and sync. syncBarrier from inside a plain block of
    // the same concurrent queue deadlocks (the barrier waits for its caller); from inside one
    // of its barriers it runs at once.
    virtual void asyncBarrier(DispatchBlock block) = 0;
    virtual void syncBarrier(const DispatchBlock& block) = 0;
    // Submits the block once the delay has passed; blocks due at the same time keep their
    // order. A delay of zero or less submits at once.
    virtual void after(std::chrono::milliseconds delay, DispatchBlock block) = 0;

    // True when the calling thread is running a block of this queue (for assertions); for the
    // main queue, true on the main thread.
    virtual bool isCurrent() const = 0;
};

// The main thread's loop. The program's main() calls run() (or runUntil) after setting up;
// library code only submits to DispatchQueue::main().
class MainRunLoop {
  public:
    // Runs main-queue blocks until stop() is called.
    static void run();
    // Runs main-queue blocks until the predicate, checked first, after each block and every
    // few milliseconds while idle, holds, or the timeout passes, or stop() is called. True
    // when the predicate held.
    static bool runUntil(const std::function<bool()>& predicate,
                         std::chrono::milliseconds timeout = std::chrono::hours(24));
    // Runs the blocks that are due now (not those they queue), then returns how many ran.
    static int drain();
    // Ends the current run or runUntil; a stop that arrives while no loop runs ends the next
    // one, so a stop racing ahead of run() is not lost. Any thread may call it.
    static void stop();
    // True on the thread that runs the main queue (the first thread to call run, runUntil
    // or drain; before that, the process's initial thread). Loop calls from any other thread
    // are refused with a log line.
    static bool isMainThread();
    // The hang watchdog's heartbeat: when the main thread took the main-queue block that it is
    // still running without coming back to a run loop (a nested loop counts as coming back);
    // the clock's epoch while a loop waits or no loop runs. Any thread may read it.
    static std::chrono::steady_clock::time_point busySince();
};

// A once-guard: the block of the first call runs, later calls wait for it and skip.
class DispatchOnce {
  public:
    void operator()(const DispatchBlock& block) { std::call_once(_flag, block); }

  private:
    std::once_flag _flag;
};

}  // namespace platform
