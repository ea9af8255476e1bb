// The cancel flag and the progress of one video job, kept on a concurrent queue: reads are
// plain synchronous blocks so that the frame loop's reads never wait on one another, writes
// are barriers. Owned by VRVideoResizer2; the frame loop and the track loops read it.
#pragma once

#include <functional>
#include <memory>

#include "platform/Dispatch.h"

class VRInternalStateManager : public std::enable_shared_from_this<VRInternalStateManager> {
  public:
    // Turns seconds of video done into the job's fraction and hands it to the client's block.
    class ProgressManager : public std::enable_shared_from_this<ProgressManager> {
      public:
        ProgressManager(std::shared_ptr<platform::DispatchQueue> queue,
                        std::function<void(double)> block);

        // Barrier: the duration becomes `seconds` (the sum of all video tracks) and the part
        // finished 0. No callback.
        void setDuration(double seconds);
        // A frame at `seconds` of the running track: (seconds + finished) / duration, 0 when
        // the duration is not above 0, at most 1; the block runs at once on the caller's
        // thread.
        void frameProgress(double seconds);
        // After a track, as a barrier on the state queue: the part finished grows by
        // `fullProgress`, then the block gets (finished + fullProgress) / duration, at most 1.
        // The increment counts twice in that fraction; clients rely on the formula as it is.
        void trackProgress(double fullProgress);

      private:
        double fractionLocked(double seconds) const;

        std::shared_ptr<platform::DispatchQueue> _queue;
        std::function<void(double)> _block;
        double _duration = 0;
        double _progress = 0;
    };

    // The queue is labelled "com.vorela.unwarp.syncQueue".
    static std::shared_ptr<VRInternalStateManager> create();

    bool isCancelled() const;
    // Barrier write of true; nothing clears it.
    void cancel();

    // Replaces any former manager; the client's block is called from the processing queue and
    // from the state queue, so it must not assume a thread.
    void makeProgressManager(std::function<void(double)> block);
    std::shared_ptr<ProgressManager> progressManager() const;

  private:
    VRInternalStateManager() = default;

    std::shared_ptr<platform::DispatchQueue> _queue;
    bool _cancelled = false;
    std::shared_ptr<ProgressManager> _progressManager;
};
