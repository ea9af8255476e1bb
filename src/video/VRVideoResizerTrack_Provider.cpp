#include "video/VRVideoResizerTrack_Provider.h"

#include <future>
#include <mutex>

namespace {

struct TrackRun {
    VRCompletionHolder holder;
    std::promise<bool> resumed;
    std::once_flag once;
};

}  // namespace

bool VRVideoResizerTrack_Provider::runTrack(const AVAssetWriterInputRef& input,
                                            const std::shared_ptr<platform::DispatchQueue>& queue,
                                            RequestBlock block) {
    auto run = std::make_shared<TrackRun>();
    std::future<bool> result = run->resumed.get_future();
    // Weak: the input keeps its request block until it is marked finished.
    std::weak_ptr<AVAssetWriterInput> weakInput = input;
    std::weak_ptr<TrackRun> weakRun = run;
    auto resolve = [weakInput, weakRun] {
        auto state = weakRun.lock();
        if (!state) return;
        state->holder.withCompleted([&](bool completed) {
            if (auto in = weakInput.lock()) in->markAsFinished();
            std::call_once(state->once, [&] { state->resumed.set_value(completed); });
        });
    };
    input->requestMediaDataWhenReadyOnQueue(queue, [weakRun, block = std::move(block), resolve] {
        auto state = weakRun.lock();
        if (!state) return;
        block(state->holder, resolve);
    });
    return result.get();
}
