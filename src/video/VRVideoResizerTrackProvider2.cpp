#include "video/VRVideoResizerTrackProvider2.h"

VRVideoResizerTrackProvider2::VRVideoResizerTrackProvider2(AVAssetTrackRef track,
                                                           AVAssetReaderOutputRef readerOutput,
                                                           AVAssetWriterInputRef writerInput)
    : _track(std::move(track)),
      _readerOutput(std::move(readerOutput)),
      _writerInput(std::move(writerInput)) {}

bool VRVideoResizerTrackProvider2::process(const std::shared_ptr<platform::DispatchQueue>& queue,
                                           Cancelled cancelled, Progress /*progress*/) {
    AVAssetReaderOutputRef output = _readerOutput;
    std::weak_ptr<AVAssetWriterInput> weakInput = _writerInput;
    return runTrack(_writerInput, queue,
                    [output, weakInput, cancelled](VRCompletionHolder& holder,
                                                   const std::function<void()>& resolve) {
                        if (!holder.isEmpty()) return;
                        auto input = weakInput.lock();
                        if (!input) return;
                        bool appendFailed = false;
                        if (!cancelled()) {
                            while (input->isReadyForMoreMediaData()) {
                                CMSampleBufferRef sample = output->copyNextSampleBuffer();
                                if (!sample) {
                                    holder.setCompleted(!cancelled());
                                    resolve();
                                    return;
                                }
                                appendFailed = !input->appendSampleBuffer(sample);
                                if (cancelled() || appendFailed) break;
                            }
                        }
                        const bool isCancelled = cancelled();
                        if (!isCancelled && !appendFailed) return;
                        holder.setCompleted(!isCancelled);
                        resolve();
                    });
}
