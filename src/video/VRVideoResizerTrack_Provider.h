// The interface of one track worker of a video job: VRVideoResizer2 runs its providers one
// after the other on the job's processing queue. VRVideoResizerTrackProvider2 copies samples,
// VRVideoResizerVideoTrackProvider re-encodes frames.
#pragma once

#include <functional>
#include <memory>

#include "platform/AVAssetWriterInput.h"
#include "platform/Dispatch.h"
#include "video/VRCompletionHolder.h"

class VRVideoResizerTrack_Provider {
  public:
    using Cancelled = std::function<bool()>;
    using Progress = std::function<void(double seconds)>;

    virtual ~VRVideoResizerTrack_Provider() = default;

    // Seconds this track adds to the job's progress when it ends.
    virtual double fullProgress() const = 0;
    // Moves the track's samples from reader to writer through request blocks on `queue`, and
    // blocks the caller until the track has ended: true when it ran to its end or stopped on an
    // error (the writer's status tells which), false when `cancelled` said so. `progress` gets
    // the presentation time of every frame appended, on `queue`.
    virtual bool process(const std::shared_ptr<platform::DispatchQueue>& queue, Cancelled cancelled,
                         Progress progress) = 0;

  protected:
    // What a request block gets: the track's holder and the resolve step, which marks the
    // input finished and resumes the waiting caller with the holder's value, once.
    using RequestBlock =
        std::function<void(VRCompletionHolder& holder, const std::function<void()>& resolve)>;
    // Runs a track: a fresh holder, the block registered on the input, and the wait.
    static bool runTrack(const AVAssetWriterInputRef& input,
                         const std::shared_ptr<platform::DispatchQueue>& queue, RequestBlock block);
};

using VRVideoResizerTrack_ProviderRef = std::shared_ptr<VRVideoResizerTrack_Provider>;
