// One video job: turns a movie into a finished file in the temporary video directory, every
// video track decoded, placed and re-encoded, every other track copied sample by sample, the
// movie's metadata rebuilt. Reports a fraction while it runs and ends in exactly one
// completion with a status. Started and cancelled through LegacyManager by the processor.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/AVAsset.h"
#include "platform/AVAssetReader.h"
#include "platform/AVAssetWriter.h"
#include "platform/Error.h"
#include "video/VRInternalStateManager.h"
#include "video/VRVideoResizeOptions.h"
#include "video/VRVideoResizeStatus.h"
#include "video/VRVideoResizerTrack_Provider.h"

class VRVideoResizer2 : public std::enable_shared_from_this<VRVideoResizer2> {
  public:
    // Why a job stopped, with the platform's error where there is one.
    struct ResizeError {
        enum class Case {
            nilReader,            // the reader could not be made
            nilWriter,            // the writer could not be made
            readingError,         // startReading said false
            writingError,         // startWriting said false
            writerFailed,         // the writer ended neither completed nor cancelled
            unknownError,         // kept for the status mapping
            cancelled,            // the job was cancelled
            invalidReaderOutput,  // the reader refused a video track output
            invalidWriterInput,   // the writer refused a video track input
            trackNotFound,        // no video track, or the track list could not be loaded
            outputBusy,           // a file at the output location could not be removed
        };
        Case kind = Case::unknownError;
        platform::ErrorRef error;

        // nilReader, nilWriter, readingError, writingError, writerFailed and
        // invalidWriterInput (which says what the file type cannot hold): failed with the
        // payload; cancelled: cancelled; trackNotFound: trackNotFound; the rest failed with no
        // error.
        std::pair<VRVideoResizeStatus, platform::ErrorRef> outcome() const;
    };

    using Progress = std::function<void(double fraction)>;
    using Completion =
        std::function<void(const std::optional<std::string>& url, VRVideoResizeStatus status,
                           const platform::ErrorRef& error)>;

    // The output is <this process's folder in documents/_vrtempvideodir>/<a folder of this
    // job's own>/<identifier>.<extension of the format>: jobs of two processes, and two jobs
    // of one asset (a cancelled one still ending and its restart), never share a file, and
    // the file keeps the name the result is stored under.
    static std::shared_ptr<VRVideoResizer2> resizerWithAsset(AVAssetRef asset,
                                                             std::string identifier,
                                                             VRVideoResizeOptions options);

    // Returns at once; the job runs on a thread of its own. `progress` (0 to 1, never above)
    // is called from the processing queue and the state queue; `completion` once, on the
    // job's thread, with the URL only when the status is finished. Anything else ends with
    // the output file removed. A resizer runs once.
    void resize(Progress progress, Completion completion);

    // Removes the folder of a finished job's output once whoever took the file has moved or
    // removed it; anything else (a folder not made by a job, one still holding a file) stays.
    static void removeEmptyJobFolderOfOutput(const std::string& outputURL);

    // Made on first use.
    std::shared_ptr<VRInternalStateManager> stateManager();
    void cancel() { stateManager()->cancel(); }

    const std::string& identifier() const { return _identifier; }
    const VRVideoResizeOptions& options() const { return _options; }
    const std::string& outputURL() const { return _outputURL; }

  private:
    VRVideoResizer2(AVAssetRef asset, std::string identifier, VRVideoResizeOptions options);

    struct Job;
    void _run(const Completion& completion);
    std::optional<ResizeError> _stages(Job& job);
    std::optional<ResizeError> _probe(Job& job);
    std::optional<ResizeError> _addVideoTracks(Job& job);
    std::optional<ResizeError> _addOtherTracks(Job& job);
    std::optional<ResizeError> _runProviders(Job& job);
    std::optional<ResizeError> _checkCancelled();

    AVAssetRef _asset;
    std::string _identifier;
    VRVideoResizeOptions _options;
    std::string _outputURL;
    std::once_flag _stateOnce;
    std::shared_ptr<VRInternalStateManager> _stateManager;
};
