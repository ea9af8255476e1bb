#include "results/ExportManager.h"

#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "results/VRFolderExportActivity.h"
#include "results/VXHelperNames.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

namespace {

void onMain(std::function<void()> block) {
    if (platform::MainRunLoop::isMainThread())
        block();
    else
        platform::DispatchQueue::main().async(std::move(block));
}

void removeSessionFolder(const std::string& folder) {
    if (folder.empty() || !FileManager::fileExistsAtPath(folder)) return;
    if (!FileManager::removeItemAtPath(folder)) platform::logf("~~ Unable to remove sharing URL");
}

}  // namespace

ExportManager& ExportManager::shared() {
    static ExportManager* manager = new ExportManager();
    return *manager;
}

std::string ExportManager::sharingRoot() const {
    if (!_sharingRoot.empty()) return _sharingRoot;
    // Inside this process's own temporaries, so that a share cut short by a kill is cleaned
    // by the next start.
    return FileManager::stringByAppendingPathComponent(
        VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory()), "sharing");
}

VRAlert ExportManager::lowDiskAlert() {
    return {"Export Failed",
            "Unwarp can NOT create temporary files for sharing due to low disk space. Please free "
            "up some disk storage and try again.",
            {"Cancel", "Try again"}};
}

std::optional<std::string> ExportManager::sourceURLForAsset(const VRAsset& asset) {
    const VRAssetObject* object = asset.object().get();
    if (auto* library = dynamic_cast<const VRLibraryAsset*>(object)) return library->primaryPath();
    if (auto* url = dynamic_cast<const VRURLAsset*>(object)) return url->url();
    if (auto* local = dynamic_cast<const VRLocalAsset*>(object)) return local->url();
    return std::nullopt;
}

ExportManager::Prepared ExportManager::_prepare(const std::vector<VRAssetRef>& assets,
                                                const std::optional<std::string>& baseName,
                                                const Options& options,
                                                const std::string& folder) const {
    SharingNaming naming;
    naming.custom = options.filenameType.value_or(VRSettings::exportFilenameType()) == 1;
    naming.baseName = baseName.value_or("img");
    naming.digits = VXHelper::digitsForCount(assets.size());
    naming.hasMany = assets.size() > 1;
    naming.suffixEnabled = VRSettings::isOriginalFilenameSuffixEnabled();
    Prepared prepared;
    for (std::size_t i = 0; i < assets.size(); ++i) {
        if (!assets[i]) continue;
        auto source = sourceURLForAsset(*assets[i]);
        if (!source) continue;
        const std::string target =
            sharingTargetName(naming, *source, assets[i]->originalFilename(), i);
        ItemCandidate candidate = prepareSharingCandidate(*source, target, folder);
        prepared.renameFailed = prepared.renameFailed || !candidate.success;
        prepared.candidates.push_back(std::move(candidate));
    }
    return prepared;
}

void ExportManager::shareWithAssets(std::vector<VRAssetRef> assets,
                                    std::optional<std::string> baseName,
                                    std::function<void()> didBegin,
                                    std::function<void(VRExportShareStatus)> didFinish,
                                    Options options) {
    // A replaced session's files are not shown any more.
    platform::DispatchQueue::global().async([old = _sessionFolder] { removeSessionFolder(old); });
    _session = ExportSession{didBegin, didFinish};
    const std::uint64_t generation = ++_generation;
    // A folder of its own, so that sessions of other processes never meet.
    const std::string folder =
        FileManager::stringByAppendingPathComponent(sharingRoot(), platform::UUIDString());
    _sessionFolder = folder;
    platform::DispatchQueue::global(platform::DispatchQoS::userInitiated)
        .async([this, generation, folder, assets, baseName, options, didBegin, didFinish] {
            Prepared prepared = _prepare(assets, baseName, options, folder);
            platform::DispatchQueue::main().async([=, this] {
                if (generation != _generation) {
                    removeSessionFolder(folder);
                    return;
                }
                if (prepared.renameFailed) {
                    if (!_alertPresenter) return _finish(generation, VRExportShareStatusCancelled);
                    _alertPresenter(lowDiskAlert(), [=, this](std::size_t button) {
                        if (generation != _generation) return;
                        if (button == 1)
                            shareWithAssets(assets, baseName, didBegin, didFinish, options);
                        else
                            _finish(generation, VRExportShareStatusCancelled);
                    });
                    return;
                }
                if (prepared.candidates.empty())
                    return _finish(generation, VRExportShareStatusEmptySelection);
                if (_session && _session->didBegin) _session->didBegin();
                _present(generation, prepared.candidates);
            });
        });
}

std::vector<std::shared_ptr<VRShareActivity>> ExportManager::_activities() const {
    std::vector<std::shared_ptr<VRShareActivity>> activities;
    activities.push_back(std::make_shared<VRFolderExportActivity>());
    if (VRSettings::areAlbumsForResultsEnabled()) {
        activities.push_back(std::make_shared<VRImageSaveActivity>(
            std::map<VRImageSaveActivity::MediaType, std::string>{
                {VRImageSaveActivity::MediaType::photo, VRAssetManager2::VRAlbumNamePhotos},
                {VRImageSaveActivity::MediaType::video, VRAssetManager2::VRAlbumNameVideos}},
            _imageSaver));
    }
    if (_mailSender) activities.push_back(std::make_shared<VRMailActivity>(_mailSender));
    return activities;
}

void ExportManager::_present(std::uint64_t generation, std::vector<ItemCandidate> candidates) {
    ShareSheetRequest request;
    for (const auto& candidate : candidates) request.items.push_back(candidate.url);
    request.applicationActivities = _activities();
    for (auto& activity : request.applicationActivities)
        activity->prepareWithActivityItems(request.items);
    request.excludedActivityTypes = {"com.apple.UIKit.activity.AddToReadingList",
                                     "com.apple.UIKit.activity.SaveToCameraRoll",
                                     "com.apple.UIKit.activity.AssignToContact"};
    if (!_presenter) return _finish(generation, VRExportShareStatusCancelled);
    _presenter(request, [this, generation](std::shared_ptr<VRShareActivity> activity,
                                           bool completed, platform::ErrorRef error) {
        onMain([=, this] {
            if (generation != _generation || !_session) return;
            VRExportShareStatus status =
                completed ? VRExportShareStatusDone : VRExportShareStatusCancelled;
            if (auto* save = dynamic_cast<VRImageSaveActivity*>(activity.get())) {
                if (save->saveError())
                    status =
                        save->saveError()->kind == VRImageSaveActivity::SaveError::Kind::noAccess
                            ? VRExportShareStatusNoLibraryAccess
                            : VRExportShareStatusFailed;
            } else if (error) {
                status = VRExportShareStatusFailed;
            }
            _finish(generation, status);
        });
    });
}

void ExportManager::presentationControllerDidDismiss() {
    if (_session) _finish(_generation, VRExportShareStatusCancelled);
}

void ExportManager::_finish(std::uint64_t generation, VRExportShareStatus status) {
    if (generation != _generation || !_session) return;
    removeSessionFolder(_sessionFolder);
    _sessionFolder.clear();
    auto didFinish = std::move(_session->didFinish);
    _session.reset();
    if (didFinish) didFinish(status);
}
