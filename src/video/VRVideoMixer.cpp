#include "video/VRVideoMixer.h"

#include <algorithm>
#include <regex>

#include "core/VRError.h"
#include "model/VXHelperDevice.h"
#include "platform/AVMediaFormat.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"
#include "video/VRVideoMetadataManager.h"
#include "video/VRVideoResizeStatus.h"

using platform::ErrorRef;
using platform::FileManager;

namespace {

VRVideoResizeStatus statusOf(AVAssetExportSessionStatus status) {
    switch (status) {
        case AVAssetExportSessionStatusCompleted:
            return VRVideoResizeStatus::finished;
        case AVAssetExportSessionStatusFailed:
            return VRVideoResizeStatus::failed;
        case AVAssetExportSessionStatusCancelled:
            return VRVideoResizeStatus::cancelled;
        default:
            return VRVideoResizeStatus::unknown;
    }
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts) text += (text.empty() ? "" : "; ") + part;
    return text;
}

// The errors that are there, wrapped in one VRError of `code`.
ErrorRef joinedError(VRErrorCode code, std::initializer_list<ErrorRef> errors) {
    std::vector<ErrorRef> present;
    for (const auto& e : errors) {
        if (e) present.push_back(e);
    }
    return VRError::errorWithCodeUnderlyingErrors(code, present);
}

}  // namespace

VRVideoMixer::VRVideoMixer(AVAssetRef asset, std::optional<std::string> videoURL,
                           std::string identifier)
    : _asset(std::move(asset)),
      _identifier(std::move(identifier)),
      _videoURL(std::move(videoURL)),
      _outputFormat(VRFormat::formatWithType(VRFormatTypeMOV)) {}

std::shared_ptr<VRVideoMixer> VRVideoMixer::mixerWithAVAsset(AVAssetRef asset,
                                                             std::optional<std::string> videoURL,
                                                             std::string identifier) {
    return std::shared_ptr<VRVideoMixer>(
        new VRVideoMixer(std::move(asset), std::move(videoURL), std::move(identifier)));
}

std::optional<std::string> VRVideoMixer::fixedURL() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _fixedURL;
}

void VRVideoMixer::cancel() {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_exportSession) _exportSession->cancelExport();
}

void VRVideoMixer::mixWithCompletion(Completion completion) {
    auto self = shared_from_this();
    auto onMain = [completion](const std::optional<std::string>& url, VRVideoResizeStatus status,
                               const ErrorRef& error) {
        platform::DispatchQueue::main().async([completion, url, status, error] {
            if (completion) completion(url, status, error);
        });
    };
    _mixWithCompletion([self, onMain](const std::optional<std::string>& url,
                                      VRVideoResizeStatus status, const ErrorRef& firstError) {
        if (status != VRVideoResizeStatus::failed || self->fixedURL())
            return onMain(url, status, firstError);
        self->_rebuildNonVideoTracks([self, onMain, firstError](
                                         const std::optional<std::string>& fixed,
                                         VRVideoResizeStatus rebuilt,
                                         const ErrorRef& rebuildError) {
            if (rebuilt != VRVideoResizeStatus::finished || !fixed) {
                return onMain(
                    std::nullopt, rebuilt,
                    joinedError(VRErrorCode::trackRebuildFailed, {firstError, rebuildError}));
            }
            {
                std::lock_guard<std::mutex> lock(self->_mutex);
                self->_fixedURL = fixed;
            }
            self->_mixWithCompletion([self, onMain, firstError, fixed](
                                         const std::optional<std::string>& url,
                                         VRVideoResizeStatus status, const ErrorRef& secondError) {
                FileManager::removeItemAtPath(*fixed);
                onMain(url, status,
                       status == VRVideoResizeStatus::finished
                           ? nullptr
                           : joinedError(VRErrorCode::mixStepFailed, {firstError, secondError}));
            });
        });
    });
}

void VRVideoMixer::_mixComposition(AVMutableComposition& composition, const AVAssetRef& source,
                                   const AVAssetTrackRef& track,
                                   std::vector<std::string>& errors) const {
    auto added = composition.addMutableTrackWithMediaType(track->mediaType());
    ErrorRef error;
    auto range = track->loadTimeRange();
    if (!range) {
        error = range.error();
    } else if (added->insertTimeRange(range.value(), source, track, kCMTimeZero, &error)) {
        added->setPreferredTransform(
            track->loadPreferredTransform().valueOr(CGAffineTransformIdentity));
    }
    if (error || !range) errors.push_back(error ? error->description() : "Unknown");
    platform::logf("~~ composition track segments %zu", added->segments().size());
}

void VRVideoMixer::_mixWithCompletion(Completion completion) {
    AVAssetRef videoSource, otherSource;
    if (_videoURL && FileManager::fileExistsAtPath(*_videoURL)) {
        videoSource = AVAsset::assetWithURL(*_videoURL);
    }
    if (auto fixed = fixedURL(); fixed && FileManager::fileExistsAtPath(*fixed)) {
        otherSource = AVAsset::assetWithURL(*fixed);
    }
    auto composition = AVMutableComposition::composition();
    std::vector<std::string> errors;
    bool videoGiven = false, othersGiven = false;
    if (videoSource) {
        for (const auto& track :
             videoSource->loadTracksWithMediaType(AVMediaTypeVideo).valueOr({})) {
            _mixComposition(*composition, videoSource, track, errors);
            videoGiven = true;
        }
    }
    if (otherSource) {
        for (const auto& track : otherSource->loadTracks().valueOr({})) {
            _mixComposition(*composition, otherSource, track, errors);
            othersGiven = true;
        }
    }
    for (const auto& track : _asset->loadTracks().valueOr({})) {
        const bool video = track->mediaType() == AVMediaTypeVideo;
        if ((video && videoGiven) || (!video && othersGiven)) continue;
        _mixComposition(*composition, _asset, track, errors);
    }
    auto session =
        AVAssetExportSession::exportSessionWithAsset(composition, AVAssetExportPresetPassthrough);
    const std::string outputURL = _outputURL();
    session->setOutputURL(outputURL);
    session->setOutputFileType(_outputFormat.UTI());
    session->setShouldOptimizeForNetworkUse(true);
    session->setCanPerformMultiplePassesOverSourceMediaData(false);
    session->setMetadata(_prepareMetadata(_asset->loadMetadata().valueOr({})));
    _export(session, outputURL, std::move(errors), VRErrorCode::mixFailed, std::move(completion));
}

void VRVideoMixer::_rebuildNonVideoTracks(Completion completion) {
    auto composition = AVMutableComposition::composition();
    std::vector<std::string> errors;
    for (const auto& track : _asset->loadTracks().valueOr({})) {
        if (track->mediaType() != AVMediaTypeVideo) {
            _mixComposition(*composition, _asset, track, errors);
        }
    }
    const std::string directory =
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
    const std::string base =
        FileManager::stringByDeletingPathExtension(FileManager::lastPathComponent(_outputURL()));
    const std::string outputURL = FileManager::stringByAppendingPathComponent(
        directory, base + "-fix." + _outputFormat.extension());
    FileManager::removeItemAtPath(outputURL);

    std::string preset = AVAssetExportPresetMediumQuality;
    const auto compatible = AVAssetExportSession::exportPresetsCompatibleWithAsset(composition);
    for (const char* wanted :
         {AVAssetExportPresetHEVCHighestQuality, AVAssetExportPresetHEVC1920x1080}) {
        if (std::find(compatible.begin(), compatible.end(), wanted) != compatible.end()) {
            preset = wanted;
            break;
        }
    }
    auto session = AVAssetExportSession::exportSessionWithAsset(composition, preset);
    session->setOutputURL(outputURL);
    session->setOutputFileType(_outputFormat.UTI());
    session->setShouldOptimizeForNetworkUse(true);
    session->setCanPerformMultiplePassesOverSourceMediaData(false);
    _export(session, outputURL, std::move(errors), VRErrorCode::otherTracksRebuildFailed,
            std::move(completion));
}

void VRVideoMixer::_export(const AVAssetExportSessionRef& session, const std::string& outputURL,
                           std::vector<std::string> trackErrors, VRErrorCode failureCode,
                           Completion completion) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _exportSession = session;
    }
    std::weak_ptr<AVAssetExportSession> weakSession = session;
    session->exportAsynchronouslyWithCompletionHandler([weakSession, outputURL,
                                                        trackErrors = std::move(trackErrors),
                                                        failureCode,
                                                        completion = std::move(completion)] {
        auto s = weakSession.lock();
        const VRVideoResizeStatus status = s ? statusOf(s->status()) : VRVideoResizeStatus::unknown;
        const ErrorRef exportError = s ? s->error() : nullptr;
        std::optional<std::string> url;
        if (status == VRVideoResizeStatus::finished && FileManager::fileExistsAtPath(outputURL)) {
            VXHelper::excludeURLFromBackup(outputURL);
            url = outputURL;
        } else {
            FileManager::removeItemAtPath(outputURL);
        }
        ErrorRef error;
        if (exportError || !trackErrors.empty()) {
            ErrorRef tracks;
            if (!trackErrors.empty()) {
                tracks = VRError::errorWithCode(VRErrorCode::tracksFailed,
                                                {{VRErrorUserInfoTracksKey, joined(trackErrors)}});
            }
            error = joinedError(failureCode, {exportError, tracks});
        }
        if (completion) completion(url, status, error);
    });
}

std::string VRVideoMixer::_outputURL() const {
    const std::string directory =
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
    std::string name = _identifier;
    if (_videoURL) {
        name = std::regex_replace(
            FileManager::stringByDeletingPathExtension(FileManager::lastPathComponent(*_videoURL)),
            std::regex("-vid$"), "");
    }
    const std::string path = FileManager::stringByAppendingPathComponent(
        directory, name + "." + _outputFormat.extension());
    FileManager::removeItemAtPath(path);
    return path;
}

std::vector<AVMetadataItem> VRVideoMixer::_prepareMetadata(
    const std::vector<AVMetadataItem>& items) const {
    return VRVideoMetadataManager(_asset, VRVideoMetadataOptions{true})
        .metadataWithItems(items, VXHelper::appFullName(), platform::PlistDate::now());
}
