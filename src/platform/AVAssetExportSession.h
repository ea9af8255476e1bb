// Writes an asset (a movie or a composition) to a new file, standing in for the media
// framework's export session. Used by the remux stage. Every preset copies the compressed
// samples of every track unchanged; this platform has no re-encoding export, so a preset other
// than passthrough fails on video tracks and copies the others as they are.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/AVAsset.h"
#include "platform/AVMetadataItem.h"
#include "platform/Error.h"

inline constexpr const char* AVAssetExportPresetPassthrough = "AVAssetExportPresetPassthrough";
inline constexpr const char* AVAssetExportPresetHEVCHighestQuality =
    "AVAssetExportPresetHEVCHighestQuality";
inline constexpr const char* AVAssetExportPresetHEVC1920x1080 = "AVAssetExportPresetHEVC1920x1080";
inline constexpr const char* AVAssetExportPresetMediumQuality = "AVAssetExportPresetMediumQuality";

enum AVAssetExportSessionStatus : int {
    AVAssetExportSessionStatusUnknown = 0,
    AVAssetExportSessionStatusWaiting = 1,
    AVAssetExportSessionStatusExporting = 2,
    AVAssetExportSessionStatusCompleted = 3,
    AVAssetExportSessionStatusFailed = 4,
    AVAssetExportSessionStatusCancelled = 5,
};

class AVAssetExportSession : public std::enable_shared_from_this<AVAssetExportSession> {
  public:
    // Null for an unknown preset.
    static std::shared_ptr<AVAssetExportSession> exportSessionWithAsset(AVAssetRef asset,
                                                                        std::string presetName);
    // The four presets above, passthrough first.
    static std::vector<std::string> exportPresetsCompatibleWithAsset(const AVAssetRef& asset);

    const std::string& presetName() const { return _preset; }
    void setOutputURL(std::string path) { _outputURL = std::move(path); }
    const std::string& outputURL() const { return _outputURL; }
    // One of the writer's file types.
    void setOutputFileType(std::string fileType) { _fileType = std::move(fileType); }
    // Kept for the caller's sake: the writer always puts the movie header where it can.
    void setShouldOptimizeForNetworkUse(bool value) { _optimizeForNetworkUse = value; }
    void setCanPerformMultiplePassesOverSourceMediaData(bool value) { _multiplePasses = value; }
    void setMetadata(std::vector<AVMetadataItem> items) { _metadata = std::move(items); }

    // Runs on a thread of its own and calls `handler` there once the status is completed,
    // failed or cancelled. A failed or cancelled export leaves no file. One export per session.
    void exportAsynchronouslyWithCompletionHandler(std::function<void()> handler);
    void cancelExport();

    AVAssetExportSessionStatus status() const { return _status.load(); }
    platform::ErrorRef error() const;

  private:
    AVAssetExportSession(AVAssetRef asset, std::string preset)
        : _asset(std::move(asset)), _preset(std::move(preset)) {}
    void _export();
    void _end(AVAssetExportSessionStatus status, platform::ErrorRef error);

    AVAssetRef _asset;
    std::string _preset;
    std::string _outputURL;
    std::string _fileType;
    bool _optimizeForNetworkUse = false;
    bool _multiplePasses = true;
    std::vector<AVMetadataItem> _metadata;
    std::atomic<AVAssetExportSessionStatus> _status{AVAssetExportSessionStatusUnknown};
    std::atomic<bool> _cancelled{false};
    mutable std::mutex _mutex;
    platform::ErrorRef _error;
};

using AVAssetExportSessionRef = std::shared_ptr<AVAssetExportSession>;
