#include "video/VRVideoResizer2.h"

#include <exception>
#include <future>
#include <thread>

#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"
#include "video/VRVideoMetadataManager.h"
#include "video/VRVideoResizerTrackProvider2.h"
#include "video/VRVideoResizerVideoTrackProvider.h"

using platform::FileManager;
using Case = VRVideoResizer2::ResizeError::Case;
using ResizeError = VRVideoResizer2::ResizeError;

namespace {

ResizeError raise(Case kind, platform::ErrorRef error = nullptr) {
    return {kind, std::move(error)};
}

bool isKnownMediaType(const std::string& type) {
    for (const char* known :
         {AVMediaTypeAudio, AVMediaTypeVideo, AVMediaTypeSubtitle, AVMediaTypeMetadata,
          AVMediaTypeClosedCaption, AVMediaTypeTimecode, AVMediaTypeMuxed, AVMediaTypeText}) {
        if (type == known) return true;
    }
    return false;
}

// The first format description of the track's own media type, for a passthrough input.
CMFormatDescriptionRef formatHintOf(const AVAssetTrack& track) {
    if (!isKnownMediaType(track.mediaType())) return nullptr;
    auto descriptions = track.loadFormatDescriptions();
    if (!descriptions) return nullptr;
    for (const CMFormatDescriptionRef& d : descriptions.value()) {
        if (d && d->mediaType == track.mediaType()) return d;
    }
    return nullptr;
}

// Why the writer refused a video input: the codec and size that the file type cannot hold.
platform::ErrorRef refusedInputError(const AVAssetWriterInput& input, const VRFormat& format) {
    if (platform::ErrorRef faulty = input.outputSettingsError()) return faulty;
    std::string what = "this video";
    if (const auto& settings = input.outputSettings()) {
        const platform::PlistValue* codec = nullptr;
        if (auto it = settings->find(AVVideoCodecKey); it != settings->end()) codec = &it->second;
        auto side = [&](const char* key) {
            auto it = settings->find(key);
            return it != settings->end() ? std::to_string(it->second.integerValue()) : "?";
        };
        what = (codec && codec->string() ? *codec->string() : std::string("unknown")) +
               " video of " + side(AVVideoWidthKey) + " x " + side(AVVideoHeightKey) + " pixels";
    }
    return platform::avError(AVErrorOperationNotAllowed,
                             "A " + format.extension() + " file cannot hold " + what);
}

// The folders that hold one job's output each start with this.
constexpr const char* kJobFolderPrefix = "job-";

bool isJobFolder(const std::string& path) {
    return FileManager::lastPathComponent(path).rfind(kJobFolderPrefix, 0) == 0;
}

void logStatuses(const char* opening, const AVAssetReader& reader, const AVAssetWriter& writer) {
    platform::logf("~~ %s%d, status for writer %d", opening, static_cast<int>(reader.status()),
                   static_cast<int>(writer.status()));
}

}  // namespace

std::pair<VRVideoResizeStatus, platform::ErrorRef> ResizeError::outcome() const {
    switch (kind) {
        case Case::nilReader:
        case Case::nilWriter:
        case Case::readingError:
        case Case::writingError:
        case Case::writerFailed:
        case Case::invalidWriterInput:
            return {VRVideoResizeStatus::failed, error};
        case Case::cancelled:
            return {VRVideoResizeStatus::cancelled, nullptr};
        case Case::trackNotFound:
            return {VRVideoResizeStatus::trackNotFound, nullptr};
        case Case::unknownError:
        case Case::invalidReaderOutput:
        case Case::outputBusy:
            break;
    }
    return {VRVideoResizeStatus::failed, nullptr};
}

// What one run holds between its stages.
struct VRVideoResizer2::Job {
    std::vector<VRVideoResizerVideoTrackProvider::Constructor> constructors;
    AVAssetReaderRef reader;
    AVAssetWriterRef writer;
    std::vector<VRVideoResizerTrack_ProviderRef> videoProviders;
    std::vector<VRVideoResizerTrack_ProviderRef> otherProviders;
};

VRVideoResizer2::VRVideoResizer2(AVAssetRef asset, std::string identifier,
                                 VRVideoResizeOptions options)
    : _asset(std::move(asset)), _identifier(std::move(identifier)), _options(options) {
    const std::string directory = FileManager::stringByAppendingPathComponent(
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory()),
        kJobFolderPrefix + platform::UUIDString());
    _outputURL = FileManager::stringByAppendingPathComponent(directory, _identifier) + "." +
                 _options.fileFormat.extension();
}

void VRVideoResizer2::removeEmptyJobFolderOfOutput(const std::string& outputURL) {
    const std::string folder = FileManager::stringByDeletingLastPathComponent(outputURL);
    if (!isJobFolder(folder)) return;
    const auto contents = FileManager::contentsOfDirectoryAtPath(folder);
    if (contents && contents->empty()) FileManager::removeItemAtPath(folder);
}

std::shared_ptr<VRVideoResizer2> VRVideoResizer2::resizerWithAsset(AVAssetRef asset,
                                                                   std::string identifier,
                                                                   VRVideoResizeOptions options) {
    return std::shared_ptr<VRVideoResizer2>(
        new VRVideoResizer2(std::move(asset), std::move(identifier), options));
}

std::shared_ptr<VRInternalStateManager> VRVideoResizer2::stateManager() {
    std::call_once(_stateOnce, [this] { _stateManager = VRInternalStateManager::create(); });
    return _stateManager;
}

void VRVideoResizer2::resize(Progress progress, Completion completion) {
    if (progress) stateManager()->makeProgressManager(std::move(progress));
    FileManager::createDirectoryAtPath(FileManager::stringByDeletingLastPathComponent(_outputURL),
                                       true);
    auto self = shared_from_this();
    try {
        std::thread([self, completion] { self->_run(completion); }).detach();
    } catch (const std::exception& e) {
        platform::logf("~~ Unable to start a video job: %s", e.what());
        if (completion) {
            completion(std::nullopt, VRVideoResizeStatus::failed,
                       platform::avError(AVErrorUnknown, "The video job could not be started"));
        }
    }
}

void VRVideoResizer2::_run(const Completion& completion) {
    Job job;
    std::optional<ResizeError> failure;
    platform::ErrorRef otherError;
    try {
        failure = _stages(job);
    } catch (const std::exception& e) {
        otherError = platform::avError(AVErrorUnknown, e.what());
    }
    if (!failure && !otherError) {
        VXHelper::excludeURLFromBackup(_outputURL);
        if (completion) completion(_outputURL, VRVideoResizeStatus::finished, nullptr);
        return;
    }
    // A writer left open by an early stop must not write again after the removal.
    if (job.writer && job.writer->status() == AVAssetWriterStatusWriting) {
        job.writer->cancelWriting();
    }
    if (job.reader) job.reader->cancelReading();
    FileManager::removeItemAtPath(_outputURL);
    removeEmptyJobFolderOfOutput(_outputURL);
    auto [status, error] =
        failure ? failure->outcome() : std::pair{VRVideoResizeStatus::failed, otherError};
    if (completion) completion(std::nullopt, status, error);
}

std::optional<ResizeError> VRVideoResizer2::_checkCancelled() {
    if (stateManager()->isCancelled()) return raise(Case::cancelled);
    return std::nullopt;
}

std::optional<ResizeError> VRVideoResizer2::_stages(Job& job) {
    if (auto e = _checkCancelled()) return e;
    if (FileManager::fileExistsAtPath(_outputURL) && !FileManager::removeItemAtPath(_outputURL)) {
        return raise(Case::outputBusy);
    }
    if (auto e = _probe(job)) return e;

    if (auto e = _checkCancelled()) return e;
    platform::ErrorRef error;
    job.reader = AVAssetReader::assetReaderWithAsset(_asset, &error);
    if (!job.reader) return raise(Case::nilReader, error);
    job.writer = AVAssetWriter::assetWriterWithURL(_outputURL, _options.fileFormat.UTI(), &error);
    if (!job.writer) return raise(Case::nilWriter, error);

    if (auto e = _addVideoTracks(job)) return e;
    if (auto e = _addOtherTracks(job)) return e;

    const VRVideoMetadataOptions config =
        _options.metadataOptions.value_or(VRVideoMetadataOptions{true});
    job.writer->setMetadata(VRVideoMetadataManager(_asset, config).metadata());
    if (auto e = _checkCancelled()) return e;
    return _runProviders(job);
}

std::optional<ResizeError> VRVideoResizer2::_probe(Job& job) {
    platform::ErrorRef error;
    AVAssetReaderRef probe = AVAssetReader::assetReaderWithAsset(_asset, &error);
    if (!probe) return raise(Case::nilReader, error);
    auto tracks = _asset->loadTracksWithMediaType(AVMediaTypeVideo);
    if (!tracks) return raise(Case::trackNotFound);
    for (const AVAssetTrackRef& track : tracks.value()) {
        VRVideoResizerVideoTrackProvider::Constructor constructor(track);
        AVAssetReaderOutputRef output = constructor.pixelFormatReaderOutput();
        if (!probe->canAddOutput(output)) return raise(Case::invalidReaderOutput);
        probe->addOutput(output);
        job.constructors.push_back(std::move(constructor));
    }
    if (job.constructors.empty()) return raise(Case::trackNotFound);
    if (!probe->startReading()) return raise(Case::readingError, probe->error());
    for (auto& constructor : job.constructors) constructor.readPixelDetails();
    probe->cancelReading();
    return std::nullopt;
}

std::optional<ResizeError> VRVideoResizer2::_addVideoTracks(Job& job) {
    double duration = 0;
    for (const auto& constructor : job.constructors) {
        AVAssetReaderOutputRef output = constructor.readerOutput();
        if (!job.reader->canAddOutput(output)) return raise(Case::invalidReaderOutput);
        job.reader->addOutput(output);
        AVAssetWriterInputRef input = constructor.writerInput(_options, true);
        if (!job.writer->canAddInput(input)) {
            return raise(Case::invalidWriterInput, refusedInputError(*input, _options.fileFormat));
        }
        job.writer->addInput(input);
        auto provider = constructor.provider(_options, input, output);
        duration += provider->duration();
        job.videoProviders.push_back(std::move(provider));
    }
    if (auto progress = stateManager()->progressManager()) progress->setDuration(duration);
    return std::nullopt;
}

std::optional<ResizeError> VRVideoResizer2::_addOtherTracks(Job& job) {
    auto tracks = _asset->loadTracks();
    if (!tracks) return raise(Case::trackNotFound);
    for (const AVAssetTrackRef& track : tracks.value()) {
        if (track->mediaType() == AVMediaTypeVideo) continue;
        auto output =
            AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(track, std::nullopt);
        output->setAlwaysCopiesSampleData(true);
        if (!job.reader->canAddOutput(output)) continue;
        auto input = AVAssetWriterInput::assetWriterInputWithMediaType(
            track->mediaType(), std::nullopt, formatHintOf(*track));
        input->setExpectsMediaDataInRealTime(false);
        if (auto metadata = track->loadMetadata()) input->setMetadata(metadata.value());
        if (!job.writer->canAddInput(input)) continue;
        job.reader->addOutput(output);
        job.writer->addInput(input);
        job.otherProviders.push_back(
            std::make_shared<VRVideoResizerTrackProvider2>(track, output, input));
    }
    return std::nullopt;
}

std::optional<ResizeError> VRVideoResizer2::_runProviders(Job& job) {
    AVAssetReader& reader = *job.reader;
    AVAssetWriter& writer = *job.writer;
    if (!reader.startReading()) return raise(Case::readingError, reader.error());
    if (!writer.startWriting()) return raise(Case::writingError, writer.error());
    writer.startSessionAtSourceTime(kCMTimeZero);

    auto queue = platform::DispatchQueue::create("video-resizer-processing-queue",
                                                 platform::DispatchQueue::Attributes::serial,
                                                 platform::DispatchQoS::userInitiated);
    std::weak_ptr<VRVideoResizer2> weakSelf = weak_from_this();
    auto cancelled = [weakSelf] {
        auto self = weakSelf.lock();
        return self ? self->stateManager()->isCancelled() : false;
    };
    auto progressManager = stateManager()->progressManager();
    auto progress = [progressManager](double seconds) {
        if (progressManager) progressManager->frameProgress(seconds);
    };

    std::vector<VRVideoResizerTrack_ProviderRef> providers = job.videoProviders;
    providers.insert(providers.end(), job.otherProviders.begin(), job.otherProviders.end());
    if (auto e = _checkCancelled()) return e;
    // All tracks run at once, their request blocks taking turns on the one serial queue, so
    // that the writer gets them in time order and interleaves them in the file: a player that
    // reads as it goes finds the sound beside the pictures. The writer holds back a track that
    // runs ahead of the others.
    std::vector<std::future<bool>> runs;
    for (const auto& provider : providers) {
        runs.push_back(std::async(std::launch::async, [provider, queue, cancelled, progress] {
            return provider->process(queue, cancelled, progress);
        }));
    }
    bool wasCancelled = false;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (!runs[i].get()) {
            wasCancelled = true;
            continue;
        }
        if (progressManager) progressManager->trackProgress(providers[i]->fullProgress());
        logStatuses("Status for reader ", reader, writer);
    }
    if (wasCancelled) {
        reader.cancelReading();
        writer.cancelWriting();
        return raise(Case::cancelled);
    }

    std::promise<void> finished;
    writer.finishWritingWithCompletionHandler([&finished] { finished.set_value(); });
    finished.get_future().wait();
    logStatuses("~[2]~Status for reader ", reader, writer);
    switch (writer.status()) {
        case AVAssetWriterStatusCompleted:
            return std::nullopt;
        case AVAssetWriterStatusCancelled:
            return raise(Case::cancelled);
        default:
            return raise(Case::writerFailed, writer.error());
    }
}
