// The re-encoding track worker of a video job, and the Constructor that decides everything
// about it before the job runs: the pixel format frames are decoded and drawn in, alpha and
// HDR, codec, encoder preset, colour tags, bit rate and the display transform. VRVideoResizer2
// makes one per video track; the frame loop is VRFrameScaler.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/AVAssetReader.h"
#include "platform/AVAssetTrack.h"
#include "platform/AVAssetWriterInput.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/AVMediaFormat.h"
#include "video/VRVideoResizeOptions.h"
#include "video/VRVideoResizerTrack_Provider.h"

// One row of the supported pixel formats.
struct PixelDetails {
    OSType pixelFormat = 0;
    int bitDepth = 8;
    bool fullRange = false;

    // BGRA, 420f, 420v, xf20, x420, b64a: the order in which they are searched and offered.
    static const std::vector<PixelDetails>& supportedFormats();
    // The 420v row.
    static PixelDetails defaultDetails();
    friend bool operator==(const PixelDetails&, const PixelDetails&) = default;
};

class VRVideoResizerVideoTrackProvider final : public VRVideoResizerTrack_Provider {
  public:
    class Constructor {
      public:
        explicit Constructor(AVAssetTrackRef track);

        // Decoded frames in whichever of the six formats the source has, to learn it from the
        // first sample; the reader keeps it, the constructor only refers to it.
        std::shared_ptr<AVAssetReaderTrackOutput> pixelFormatReaderOutput();
        // While the probing reader runs: the first sample's pixel format picks the row of
        // PixelDetails (the default stays without a sample or a match) and says whether the
        // format has alpha.
        void readPixelDetails();
        // Decoded frames in the chosen format alone, so the decoder converts nothing.
        std::shared_ptr<AVAssetReaderTrackOutput> readerOutput() const;
        // The encoder input: settings from PresetConstructor for the frame's size, the track's
        // metadata, and the track's transform with the job's orientation appended.
        AVAssetWriterInputRef writerInput(const VRVideoResizeOptions& options,
                                          bool expectsMediaDataInRealTime) const;
        // The finished worker, with an adaptor whose pool gives buffers of the output size in
        // the chosen format.
        std::shared_ptr<VRVideoResizerVideoTrackProvider> provider(
            const VRVideoResizeOptions& options, AVAssetWriterInputRef writerInput,
            AVAssetReaderOutputRef readerOutput) const;

        const AVAssetTrackRef& track() const { return _track; }
        const PixelDetails& pixelDetails() const { return _pixelDetails; }
        bool containsAlpha() const { return _containsAlpha; }

      private:
        AVAssetTrackRef _track;
        PixelDetails _pixelDetails = PixelDetails::defaultDetails();
        bool _containsAlpha = false;
        bool _containsHDR = false;
        std::weak_ptr<AVAssetReaderTrackOutput> _pixelFormatReaderOutput;
    };

    const AVAssetTrackRef& track() const { return _track; }
    // Seconds of the track's time range; 0 when unknown.
    double duration() const { return _duration; }
    bool needs16BitDepth() const { return _needs16BitDepth; }
    const VRVideoResizeOptions& resizeOptions() const { return _resizeOptions; }
    const AVAssetReaderOutputRef& readerOutput() const { return _readerOutput; }
    const AVAssetWriterInputRef& writerInput() const { return _writerInput; }
    const std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>& writerInputAdaptor() const {
        return _writerInputAdaptor;
    }
    // Not read by the frame loop: HDR travels in the pixel format and the colour tags.
    bool containsHDR() const { return _containsHDR; }

    double fullProgress() const override { return _duration; }
    bool process(const std::shared_ptr<platform::DispatchQueue>& queue, Cancelled cancelled,
                 Progress progress) override;

  private:
    VRVideoResizerVideoTrackProvider() = default;

    AVAssetTrackRef _track;
    double _duration = 0;
    bool _needs16BitDepth = false;
    VRVideoResizeOptions _resizeOptions;
    AVAssetReaderOutputRef _readerOutput;
    AVAssetWriterInputRef _writerInput;
    std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> _writerInputAdaptor;
    bool _containsHDR = false;
};
