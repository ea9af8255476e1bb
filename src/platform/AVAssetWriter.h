// Writes a movie file of one of the QuickTime-family types from writer inputs, with movie-level
// metadata. The video resizer makes one per job. A full disk (or a file size limit) fails the
// writer with AVFoundationErrorDomain code -11807; a failed or cancelled writer removes its
// partial file.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/AVAssetWriterInput.h"
#include "platform/AVMetadataItem.h"
#include "platform/AVVideoCodecs.h"
#include "platform/CMTime.h"
#include "platform/Error.h"

enum AVAssetWriterStatus : int {
    AVAssetWriterStatusUnknown = 0,
    AVAssetWriterStatusWriting = 1,
    AVAssetWriterStatusCompleted = 2,
    AVAssetWriterStatusFailed = 3,
    AVAssetWriterStatusCancelled = 4,
};

class AVAssetWriter : public std::enable_shared_from_this<AVAssetWriter> {
  public:
    struct Impl;

    // fileType: AVFileTypeQuickTimeMovie, AVFileTypeMPEG4, AVFileTypeAppleM4V,
    // AVFileType3GPP or AVFileType3GPP2. Fails (null, with the error) for another type or
    // when a file already exists at the path (AVErrorFileAlreadyExists).
    static std::shared_ptr<AVAssetWriter> assetWriterWithURL(const std::string& path,
                                                             const std::string& fileType,
                                                             platform::ErrorRef* error);
    ~AVAssetWriter();

    // Whether a file of the type can hold video of the codec (an AVVideoCodecType... value),
    // as the container table says (ProRes only in QuickTime movies, HEVC and JPEG not in M4V,
    // 3GP and 3GPP2), and the codec's encoder is at hand.
    static bool fileTypeAcceptsVideoCodec(const std::string& fileType, const std::string& codec);
    static bool fileTypeAcceptsVideoCodec(const std::string& fileType, AVVideoCodec codec);

    const std::string& outputURL() const;
    const std::string& outputFileType() const;

    // False once writing has started, for an input already added, a video input whose codec
    // the container does not take (ProRes only in MOV) or whose settings are faulty (see
    // AVAssetWriterInput::outputSettingsError) or of a size the codec cannot encode, and
    // a passthrough input without a format hint or whose codec the container refuses.
    bool canAddInput(const AVAssetWriterInputRef& input) const;
    void addInput(const AVAssetWriterInputRef& input);
    const std::vector<AVAssetWriterInputRef>& inputs() const;

    // Movie-level items. Written: Common creationDate (movie header time), software, title,
    // description, copyrights, location; QuickTime metadata keys as they are; QuickTime user
    // data @day, @swr, @xyz, @nam; 3GP keys in 3GP files. Items of other key spaces (ID3) have
    // no place in these containers and are left out.
    void setMetadata(std::vector<AVMetadataItem> items);
    const std::vector<AVMetadataItem>& metadata() const;

    // Opens the file and checks the inputs. False, with status failed and the error.
    bool startWriting();
    void startSessionAtSourceTime(CMTime time);
    // Marks every input finished, drains encoders, completes the file. The handler runs on a
    // thread of the writer, once, after status is completed or failed.
    void finishWritingWithCompletionHandler(std::function<void()> handler);
    // Stops encoders, removes the partial file; status cancelled.
    void cancelWriting();
    AVAssetWriterStatus status() const;
    platform::ErrorRef error() const;

    Impl& impl() { return *_impl; }

  private:
    AVAssetWriter();
    std::unique_ptr<Impl> _impl;
};

using AVAssetWriterRef = std::shared_ptr<AVAssetWriter>;
