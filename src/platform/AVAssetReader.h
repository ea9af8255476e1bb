// Reads samples of an asset's tracks: decoded frames for track outputs with pixel format
// settings, the file's own compressed samples for outputs without settings. The video resizer
// probes and reads through it. Each output reads its track independently, so tracks may be
// drained one after the other without buffering the others.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AVAsset.h"
#include "platform/AVAssetTrack.h"
#include "platform/CMSampleBuffer.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

enum AVAssetReaderStatus : int {
    AVAssetReaderStatusUnknown = 0,
    AVAssetReaderStatusReading = 1,
    AVAssetReaderStatusCompleted = 2,
    AVAssetReaderStatusFailed = 3,
    AVAssetReaderStatusCancelled = 4,
};

class AVAssetReader;

class AVAssetReaderOutput {
  public:
    virtual ~AVAssetReaderOutput() = default;
    virtual const std::string& mediaType() const = 0;
    // The next sample, or null at the end of the track, when the reader is not reading, or
    // after a failure (the reader's status and error then say so). Blocks while a decoded
    // frame is being made. One thread at a time per output.
    virtual CMSampleBufferRef copyNextSampleBuffer() = 0;
    // Samples are always owned by the caller here; the flag is kept for the logic's sake.
    void setAlwaysCopiesSampleData(bool value) { _alwaysCopiesSampleData = value; }
    bool alwaysCopiesSampleData() const { return _alwaysCopiesSampleData; }

  private:
    bool _alwaysCopiesSampleData = true;
};

using AVAssetReaderOutputRef = std::shared_ptr<AVAssetReaderOutput>;

class AVAssetReaderTrackOutput : public AVAssetReaderOutput {
  public:
    struct Impl;

    // outputSettings absent: compressed samples unchanged. For a video track, settings with
    // kCVPixelBufferPixelFormatTypeKey (one code or a list of codes of the six pixel formats):
    // decoded frames. A source whose decoded format is one of the listed codes is delivered
    // in it with no conversion (planar 4:2:0 is only interleaved into the biplanar layout);
    // otherwise frames are converted to the best listed code for the source (alpha -> BGRA or
    // b64a, more than 8 bits -> x420/xf20, else 420v/420f, by the source's range), or the
    // first listed code when that one is not listed. Other keys are accepted and ignored.
    static std::shared_ptr<AVAssetReaderTrackOutput> assetReaderTrackOutputWithTrack(
        AVAssetTrackRef track, std::optional<platform::PlistDictionary> outputSettings);
    ~AVAssetReaderTrackOutput() override;

    const AVAssetTrackRef& track() const;
    const std::optional<platform::PlistDictionary>& outputSettings() const;
    const std::string& mediaType() const override;
    CMSampleBufferRef copyNextSampleBuffer() override;

    Impl& impl() { return *_impl; }

  private:
    explicit AVAssetReaderTrackOutput(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> _impl;
};

class AVAssetReader {
  public:
    struct Impl;

    // Fails (null, with the error) when the asset's file cannot be opened as a movie.
    static std::shared_ptr<AVAssetReader> assetReaderWithAsset(AVAssetRef asset,
                                                               platform::ErrorRef* error);
    ~AVAssetReader();

    const AVAssetRef& asset() const;
    std::vector<AVAssetReaderOutputRef> outputs() const;
    // False once reading has started, for an output already added to a reader, a track not of
    // this asset, or settings this platform cannot honour (a pixel format outside the six,
    // pixel settings on a track that is not video).
    bool canAddOutput(const AVAssetReaderOutputRef& output) const;
    // Does nothing when canAddOutput would say false.
    void addOutput(const AVAssetReaderOutputRef& output);
    // Before startReading: the part of the timeline read. Decoded frames shown before the
    // start are decoded but not handed out, and the first one shown at or after the end ends
    // the output; compressed samples begin at the sync sample at or before the start and end
    // at the first one decoded at or after the end. A start that is not numeric or not after
    // zero reads from the beginning, a duration that is not numeric reads to the track's end.
    void setTimeRange(CMTimeRange range);
    CMTimeRange timeRange() const;
    // Opens every output's decoder and starts the frame threads. False, with status failed
    // and the error, when that fails or when called twice.
    bool startReading();
    // Stops the frame threads; later copies give null. Status cancelled unless already ended.
    void cancelReading();
    AVAssetReaderStatus status() const;
    platform::ErrorRef error() const;

    Impl& impl() { return *_impl; }

  private:
    AVAssetReader();
    std::unique_ptr<Impl> _impl;
};

using AVAssetReaderRef = std::shared_ptr<AVAssetReader>;
