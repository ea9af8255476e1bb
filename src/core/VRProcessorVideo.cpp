// The processor's video stage: the movie's size and orientation, the resolved frame, the job
// started through LegacyManager, and the job's ending turned into the stage's result. Also
// the video half of a Live Photo (`paired`).
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <regex>

#include "assets/VRAssetManager2.h"
#include "core/VRProcessor.h"
#include "model/VRSizeResolver.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VREncodingSettings.h"
#include "storage/VRSettings.h"
#include "video/LegacyManager.h"
#include "video/VRVideoMixer.h"
#include "video/VRVideoResizeStatus.h"

using platform::FileManager;
using platform::PlistArray;
using platform::PlistDictionary;

namespace {

std::string printed(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string printed(const char* format, long long value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// A format description's text as trimmed lines, so that it reads inside a property list.
PlistArray descriptionLines(const std::string& text) {
    static const std::regex separators("[\t\n]", std::regex::icase);
    const std::string marked = std::regex_replace(text, separators, "[:::]");
    PlistArray lines;
    std::size_t start = 0;
    while (start <= marked.size()) {
        std::size_t end = marked.find("[:::]", start);
        if (end == std::string::npos) end = marked.size();
        std::string piece = marked.substr(start, end - start);
        const auto first = piece.find_first_not_of(" \r\n\t\v\f");
        const auto last = piece.find_last_not_of(" \r\n\t\v\f");
        if (first != std::string::npos) lines.emplace_back(piece.substr(first, last - first + 1));
        start = end + 5;
    }
    return lines;
}

std::string optionLabels(const VRSizeOptions& options) {
    static const char* labels[] = {"Size normal", "Size smart", "Target vertical",
                                   "Ratio Clip",  "Ratio Fit",  "Stretch"};
    std::string text;
    for (std::int64_t option : options) {
        if (option < 0 || option > 5) continue;
        text += (text.empty() ? "" : ", ") + std::string(labels[option]);
    }
    return text;
}

// What the stage learns from the movie's video tracks: the component-wise largest natural
// size, and the first track's transform.
struct MovieShape {
    CGSize natural = CGSizeZero;
    CGAffineTransform transform = CGAffineTransformIdentity;
};

MovieShape shapeOf(const AVAsset& movie) {
    MovieShape shape;
    const auto tracks = movie.loadTracksWithMediaType(AVMediaTypeVideo).valueOr({});
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const CGSize size = tracks[i]->loadNaturalSize().valueOr(CGSizeZero);
        shape.natural.width = std::max(shape.natural.width, size.width);
        shape.natural.height = std::max(shape.natural.height, size.height);
        if (i == 0) {
            shape.transform =
                tracks[i]->loadPreferredTransform().valueOr(CGAffineTransformIdentity);
        }
    }
    return shape;
}

}  // namespace

std::size_t VRProcessor::videoResizerCount() const {
    std::lock_guard<std::mutex> lock(_videoJobsMutex);
    return _videoResizers.size();
}

void VRProcessor::_cancelVideoJobs() {
    std::map<std::string, VRVideoJob> resizers;
    std::map<std::string, std::shared_ptr<VRVideoMixer>> mixers;
    {
        std::lock_guard<std::mutex> lock(_videoJobsMutex);
        resizers = _videoResizers;
        mixers = _videoMixers;
    }
    for (const auto& [name, job] : resizers) LegacyManager::videoResizerCancel(job);
    for (const auto& [name, mixer] : mixers) mixer->cancel();
}

void VRProcessor::_startVideoStage(const VRAssetRef& asset, bool paired, const VXTemplateRef& tpl,
                                   const VRAdjustAssetStateRef& adjustState, CGSize size,
                                   CGSize pairedResizeSize, double startTime,
                                   ProgressionOnInternalThread progression,
                                   CompletionOnInternalThread completion) {
    _processingQueue->addOperationWithBlock([=, this] {
        VRAssetManager2::defaultManager().requestAVAssetForAsset(asset, [&](AVAssetRef movie) {
            _videoStageWithAVAsset(movie, asset, paired, tpl, adjustState, size, pairedResizeSize,
                                   startTime, progression, completion);
        });
    });
}

void VRProcessor::_videoStageWithAVAsset(const AVAssetRef& movie, const VRAssetRef& asset,
                                         bool paired, const VXTemplateRef& tpl,
                                         const VRAdjustAssetStateRef& adjustState, CGSize size,
                                         CGSize pairedResizeSize, double startTime,
                                         ProgressionOnInternalThread progression,
                                         CompletionOnInternalThread completion) {
    const std::optional<std::string> sourceURL =
        VRAssetManager2::defaultManager().urlForVideoAsset(asset);
    const std::string identifier = _filenameOfAsset(*asset);
    if (!movie) {
        return completion(std::nullopt, VRFormatMediaTypeVideo, std::nullopt,
                          VRError::errorWithCode(VRErrorCode::loadFailed));
    }
    if (_isProcessingStartTimeInvalid(startTime)) {
        return completion(std::nullopt, VRFormatMediaTypeVideo, std::nullopt, nullptr);
    }
    const MovieShape shape = shapeOf(*movie);

    VRResolveRequest request;
    request.mediaType = VRFormatMediaTypeVideo;
    request.sizeEntry = tpl->sizeEntryForMediaType(VRFormatMediaTypeVideo).value_or(VRSizeEntry());
    request.options = tpl->optionsForMediaType(VRFormatMediaTypeVideo).value_or(VRSizeOptions{});
    request.format = tpl->formatForMediaType(VRFormatMediaTypeVideo);
    request.sourceSize = shape.natural;
    request.sourceOrientation = VROrientation::orientationWithTransform(shape.transform);
    request.adjustState = adjustState;
    if (size.width != 0 || size.height != 0) request.explicitSize = size;
    request.livePhotoVideo = paired;
    request.pairedPhotoSize = pairedResizeSize;
    request.sourcePath = sourceURL.value_or("");
    request.defaultPhotoColor = LegacyManager::defaultPhotoColor();
    request.defaultVideoColor = LegacyManager::defaultVideoColor();
    request.limits = VRDeviceLimits::currentDevice();
    const VRResolvedOutput resolved = VXHelper::resolveOutput(request);
    if (resolved.limitExceeded) {
        return completion(std::nullopt, VRFormatMediaTypeVideo, std::nullopt,
                          resolved.limitExceeded->error());
    }

    const VREncodingJobSettings encoding = VREncodingSettings::jobSettings();
    constexpr std::uint64_t kLargestBitrate = 0x7FFFFFFFFFFFFFFF;
    const std::int64_t bitrate =
        paired ? 0 : static_cast<std::int64_t>(std::min(encoding.bitrate, kLargestBitrate));
    const VRCodecType codecType =
        paired ? VRCodecTypeSource : VRCodecTypeFromNumber(encoding.codecType);
    const bool copyLocation =
        paired ? VRSettings::shouldCopyGpsMetadata() : VRSettings::shouldCopyVideoGpsMetadata();
    const CGRect frame = resolved.imageFrame;
    const VRFormat format = resolved.format;
    const VRSizeOptions options = request.options;

    // This job once started, and whether it has ended; both under _videoJobsMutex.
    struct Running {
        VRVideoJob job;
        bool ended = false;
    };
    auto running = std::make_shared<Running>();
    auto onEnd = [this, movie, identifier, paired, sourceURL, format, options, bitrate, frame,
                  completion, running](const std::optional<std::string>& url,
                                       VRVideoResizeStatus state, const platform::ErrorRef& error) {
        // Leave the registry before anyone hears of the end, so a caller woken by the
        // completion never finds the finished job still listed. Only this job's own entry
        // goes: a restart of the same asset is listed under the same name.
        {
            std::lock_guard<std::mutex> lock(_videoJobsMutex);
            running->ended = true;
            auto listed = _videoResizers.find(identifier);
            if (listed != _videoResizers.end() && running->job &&
                listed->second.resizer() == running->job.resizer())
                _videoResizers.erase(listed);
        }
        if (state == VRVideoResizeStatus::finished) {
            // The Live Photo's temporary link to its movie has served.
            if (paired && sourceURL) FileManager::removeItemAtPath(*sourceURL);
            completion(url, VRFormatMediaTypeVideo, std::nullopt, nullptr);
        } else {
            VRErrorRef failure = _videoJobError(state, error, [&] {
                PlistDictionary extra = {
                    {"Operation", "Encode"},
                    {"Error", error ? error->description() : std::string("None")}};
                return _videoAssetErrorDetails(movie, format, options, bitrate, frame.size,
                                               frame.origin, extra);
            });
            if (paired && sourceURL) FileManager::removeItemAtPath(*sourceURL);
            completion(std::nullopt, VRFormatMediaTypeVideo, std::nullopt, failure);
        }
    };
    VRVideoJob job = LegacyManager::videoResizeWithVideoAsset(
        movie, identifier, format, frame, resolved.arrangement, bitrate, codecType,
        adjustState ? adjustState->orientation() : std::nullopt, resolved.fillColor, copyLocation,
        progression, onEnd);
    VRVideoJob older;
    {
        std::lock_guard<std::mutex> lock(_videoJobsMutex);
        running->job = job;
        // A job that has already ended has nothing left to cancel.
        if (!running->ended) {
            VRVideoJob& listed = _videoResizers[identifier];
            // One asset is live at a time: a job still listed under this name is stale.
            older = std::move(listed);
            listed = std::move(job);
        }
    }
    LegacyManager::videoResizerCancel(older);
}

VRErrorRef VRProcessor::_videoJobError(VRVideoResizeStatus state, const platform::ErrorRef& error,
                                       const std::function<PlistDictionary()>& details) {
    if (state == VRVideoResizeStatus::failed) {
        bool diskFull = false;
        if (auto vrError = std::dynamic_pointer_cast<const VRError>(error)) {
            diskFull = vrError->matchesDomain(platform::AVFoundationErrorDomain, AVErrorDiskFull);
        } else if (error) {
            diskFull = error->domain() == platform::AVFoundationErrorDomain &&
                       error->code() == AVErrorDiskFull;
        }
        return VRError::errorWithCode(diskFull ? VRErrorCode::diskFull : VRErrorCode::encodeFailed,
                                      details ? details() : PlistDictionary{});
    }
    if (state == VRVideoResizeStatus::trackNotFound) {
        return VRError::errorWithCode(VRErrorCode::loadFailed);
    }
    return nullptr;
}

PlistDictionary VRProcessor::_videoAssetErrorDetails(
    const AVAssetRef& asset, const VRFormat& targetFormat, const VRSizeOptions& options,
    std::int64_t bitrate, CGSize size, CGPoint displacement, const PlistDictionary& extra) {
    PlistDictionary details = extra;
    const std::string url = asset ? asset->URL() : std::string();
    details["Source"] = VRFormat::formatFromURL(url).name();
    details["Source Extension"] = FileManager::pathExtension(url);
    const auto tracks = asset ? asset->loadTracks().valueOr({}) : std::vector<AVAssetTrackRef>{};
    details["Source Number of tracks"] = printed("%lld", static_cast<long long>(tracks.size()));
    const double duration =
        asset ? CMTimeGetSeconds(asset->loadDuration().valueOr(kCMTimeZero)) : 0;
    details["Source Duration"] = printed("%0.2f", duration);
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const AVAssetTrack& track = *tracks[i];
        const std::string key = printed("Source Track %lld", static_cast<long long>(i));
        details[key] = track.mediaType();
        details[key + " time scale"] =
            printed("%lld", static_cast<long long>(track.loadNaturalTimeScale().valueOr(0)));
        details[key + " frame rate"] = printed("%0.2f", track.loadNominalFrameRate().valueOr(0));
        details[key + " frame min duration"] =
            printed("%0.2f", CMTimeGetSeconds(track.loadMinFrameDuration().valueOr(kCMTimeZero)));
        details[key + " size"] = NSStringFromCGSize(track.loadNaturalSize().valueOr(CGSizeZero));
        const auto descriptions = track.loadFormatDescriptions().valueOr({});
        for (std::size_t j = 0; j < descriptions.size(); ++j) {
            if (!descriptions[j]) continue;
            details[key + printed(" description #%lld", static_cast<long long>(j))] =
                descriptionLines(descriptions[j]->debugDescription());
        }
    }
    details["Target format"] = targetFormat.name();
    details["Target options"] = optionLabels(options);
    details["Target bitrate"] = printed("%lld", static_cast<long long>(bitrate));
    details["Target size"] = NSStringFromCGSize(size);
    details["Target displacement"] = NSStringFromCGPoint(displacement);
    return details;
}
