// The pass-through track worker of a video job: copies the compressed samples of one
// non-video track (sound, timecode, subtitles...) from the reader to the writer unchanged.
// Made by VRVideoResizer2 for every track the writer accepts.
#pragma once

#include "platform/AVAssetReader.h"
#include "platform/AVAssetTrack.h"
#include "platform/AVAssetWriterInput.h"
#include "video/VRVideoResizerTrack_Provider.h"

class VRVideoResizerTrackProvider2 final : public VRVideoResizerTrack_Provider {
  public:
    VRVideoResizerTrackProvider2(AVAssetTrackRef track, AVAssetReaderOutputRef readerOutput,
                                 AVAssetWriterInputRef writerInput);

    const AVAssetTrackRef& track() const { return _track; }
    const AVAssetReaderOutputRef& readerOutput() const { return _readerOutput; }
    const AVAssetWriterInputRef& writerInput() const { return _writerInput; }

    // Always 0: only video counts towards the job's progress.
    double fullProgress() const override { return _fullProgress; }
    // Samples move in a tight loop while the input is ready; a failed append ends the track.
    bool process(const std::shared_ptr<platform::DispatchQueue>& queue, Cancelled cancelled,
                 Progress progress) override;

  private:
    AVAssetTrackRef _track;
    AVAssetReaderOutputRef _readerOutput;
    AVAssetWriterInputRef _writerInput;
    double _fullProgress = 0;
};
