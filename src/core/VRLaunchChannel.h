// How a file opened by one process reaches a front end that runs in another: a front end that
// is ready for external files publishes a local socket, named by a file "frontend-<owner tag>"
// in the home's runtime folder; `unwarp open` sends it the path of its copy and waits for the
// answer. A front end that was killed leaves its names behind; they are recognised by the owner
// lock it no longer holds and removed. Used by the front ends and `unwarp open`.
#pragma once

#include <functional>
#include <memory>
#include <string>

class VRLaunchChannel {
  public:
    // Runs on the main queue with the path of a file handed over, already moved into this
    // process's own temporary folder when it was another process's copy.
    using Receiver = std::function<void(const std::string& path)>;

    // Publishes this process's channel; null with `problem` set when it can't.
    static std::unique_ptr<VRLaunchChannel> publish(Receiver receiverOnMainThread,
                                                    std::string* problem);
    // Withdraws the names and stops listening.
    ~VRLaunchChannel();
    VRLaunchChannel(const VRLaunchChannel&) = delete;
    VRLaunchChannel& operator=(const VRLaunchChannel&) = delete;

    // Hands `path` to the most recently started front end that answers, trying older ones
    // next. True once one acknowledged it: it then owns the file, so the sender must not
    // remove it. Blocks for at most a few seconds per front end that doesn't answer.
    static bool sendToRunningFrontEnd(const std::string& path);

    // ROOT/tmp/run under a home root; else $XDG_RUNTIME_DIR/unwarp, or tmp/run without it.
    static std::string runtimeDirectory();
    // Removes the names and sockets of front ends that have ended; returns how many.
    static int removeStaleChannels();

    // A copy that another process made for us in its own folder of "_vrtempimagedir" moves
    // into ours, so that it outlives the sender; any other path is used where it is.
    static std::string _adoptExternalFile(const std::string& path);

    struct Listener;

  private:
    explicit VRLaunchChannel(std::shared_ptr<Listener> listener);
    std::shared_ptr<Listener> _listener;
};
