#include "app/ResultsSharing.h"

#include <future>
#include <iostream>
#include <nlohmann/json.hpp>

#include "assets/VRAssetManager2.h"
#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/MailComposer.h"
#include "platform/PhotoLibrary.h"
#include "results/ExportManager.h"
#include "results/VRFolderExportActivity.h"
#include "results/VRSharingNamePrompt.h"
#include "storage/VRSettings.h"

namespace app::results {
namespace {

using platform::FileManager;

// Answers every alert with its first button ("Cancel"): nobody is there to choose.
void showAlertOnStandardError(const VRAlert& alert, std::function<void(std::size_t)> answer) {
    std::cerr << "unwarp: " << alert.title << ": " << alert.message << "\n";
    answer(0);
}

struct ShareOutcome {
    std::optional<VRExportShareStatus> status;
    std::shared_ptr<VRShareActivity> performed;
    bool alerted = false;
    // What the activity failed with.
    platform::ErrorRef error;
};

// Runs one share whose sheet performs the activity of `type` (prepared by `configure`).
ShareOutcome runShare(const std::vector<VRAssetRef>& assets,
                      const std::optional<std::string>& baseName, ExportManager::Options options,
                      const std::string& type,
                      const std::function<void(VRShareActivity&)>& configure) {
    ExportManager& manager = ExportManager::shared();
    ShareOutcome outcome;
    manager.setImageSaver(saveItemsToLibrary);
    if (auto sender = mailSender()) manager.setMailSender(*sender);
    manager.setAlertPresenter([&](const VRAlert& alert, std::function<void(std::size_t)> answer) {
        outcome.alerted = true;
        showAlertOnStandardError(alert, std::move(answer));
    });
    manager.setSheetPresenter([&](const ShareSheetRequest& request, ShareSheetCompletion done) {
        for (const auto& activity : request.applicationActivities) {
            if (activity->activityType() != type) continue;
            configure(*activity);
            outcome.performed = activity;
            activity->perform([&outcome, activity, done](bool completed, platform::ErrorRef error) {
                outcome.error = error;
                done(activity, completed, error);
            });
            return;
        }
        done(nullptr, false, nullptr);
    });
    manager.shareWithAssets(
        assets, baseName, nullptr, [&](VRExportShareStatus status) { outcome.status = status; },
        options);
    platform::MainRunLoop::runUntil([&] { return outcome.status.has_value(); });
    return outcome;
}

int reportStatus(const ShareOutcome& outcome) {
    const auto status = outcome.status.value_or(VRExportShareStatusFailed);
    if (status == VRExportShareStatusDone) return 0;
    std::cerr << "unwarp: " << VRExportShareStatusMessage(status, kApplicationName) << "\n";
    return 1;
}

}  // namespace

namespace {

FolderExport share(const std::vector<VRAssetRef>& assets, const std::optional<std::string>& folder,
                   const std::optional<std::string>& baseName) {
    ExportManager::Options options;
    std::optional<std::string> name = baseName;
    if (baseName) {
        // As the name prompt takes an accepted name: stored for the next share.
        if (!acceptSharingName(*baseName)) {
            std::cerr << "unwarp: --name " << *baseName
                      << ": use letters, digits and _-.@!* with at most one % for the number\n";
            return {2, {}, nullptr};
        }
        options.filenameType = 1;
    } else if (auto prompt = sharingNamePromptForCount(assets.size(), {})) {
        // Nobody is asked on the command line: the prompt's stored name is taken.
        name = prompt->name;
    }
    const std::string type =
        folder ? VRFolderExportActivity::kActivityType : VRMailActivity::kActivityType;
    auto outcome = runShare(assets, name, options, type, [&](VRShareActivity& activity) {
        if (auto* exporter = dynamic_cast<VRFolderExportActivity*>(&activity))
            exporter->setDestination(*folder);
    });
    FolderExport result;
    if (auto* exporter = dynamic_cast<VRFolderExportActivity*>(outcome.performed.get()))
        result.written = exporter->exportedURLs();
    else if (outcome.performed && outcome.status == VRExportShareStatusDone)
        result.written = outcome.performed->items();
    result.code = outcome.alerted ? 1 : reportStatus(outcome);
    result.error = outcome.error;
    return result;
}

}  // namespace

int shareIntoFolder(const std::vector<VRAssetRef>& assets, const std::optional<std::string>& folder,
                    const std::optional<std::string>& baseName, bool json) {
    if (!folder && !mailSender()) {
        std::cerr << "unwarp: mail needs xdg-email (package xdg-utils); use --to DIR\n";
        return 1;
    }
    FolderExport shared = share(assets, folder, baseName);
    for (const auto& path : shared.written) {
        if (json)
            std::cout << nlohmann::json{{"file", path}}.dump() << "\n";
        else
            std::cout << path << "\n";
    }
    return shared.code;
}

FolderExport exportIntoFolder(const std::vector<VRAssetRef>& assets, const std::string& folder,
                              const std::optional<std::string>& baseName) {
    return share(assets, folder, baseName);
}

AlbumSave saveIntoAlbums(const std::vector<VRAssetRef>& assets) {
    ExportManager::Options options;
    options.filenameType = 0;
    AlbumSave saved;
    auto outcome =
        runShare(assets, std::nullopt, options, VRImageSaveActivity::kActivityType,
                 [&](VRShareActivity& activity) { saved.title = activity.activityTitle(); });
    saved.status = outcome.status.value_or(VRExportShareStatusFailed);
    return saved;
}

int saveToAlbums(const std::vector<VRAssetRef>& assets, bool json) {
    if (!VRSettings::areAlbumsForResultsEnabled()) {
        std::cerr << "unwarp: saving to the albums is turned off "
                     "(unwarp settings set areAlbumsForResultsEnabled true)\n";
        return 1;
    }
    const AlbumSave saved = saveIntoAlbums(assets);
    if (saved.status != VRExportShareStatusDone) {
        std::cerr << "unwarp: " << VRExportShareStatusMessage(saved.status, kApplicationName)
                  << "\n";
        return 1;
    }
    if (json)
        std::cout << nlohmann::json{{"saved", assets.size()}, {"action", saved.title}}.dump()
                  << "\n";
    else
        std::cout << saved.title << ": done\n";
    return 0;
}

std::optional<VRImageSaveActivity::SaveError> saveItemsToLibrary(
    const std::vector<VRImageSaveActivity::Item>& items,
    const std::map<VRImageSaveActivity::MediaType, std::string>& albumNames) {
    using SaveError = VRImageSaveActivity::SaveError;
    VRAssetManager2& manager = VRAssetManager2::defaultManager();
    auto library = manager.photoLibrary();
    if (!library || library->requestAuthorizationForAccessLevel(platform::PHAccessLevelAddOnly) !=
                        platform::PHAuthorizationStatusAuthorized)
        return SaveError{SaveError::Kind::noAccess, nullptr};
    // One save a media type, each into its album; the manager's saving queue runs them in turn.
    std::map<VRImageSaveActivity::MediaType, std::vector<VRAssetResource>> byType;
    for (const auto& item : items) {
        const bool video = item.mediaType == VRImageSaveActivity::MediaType::video;
        byType[item.mediaType].push_back(VRAssetResource::resourceWithURL(
            item.url, video ? VRFormatMediaTypeVideo : VRFormatMediaTypePhoto));
    }
    for (auto& [type, resources] : byType) {
        auto album = albumNames.find(type);
        auto answer = std::make_shared<std::promise<platform::ErrorRef>>();
        auto saved = answer->get_future();
        manager.saveToAlbum(
            album != albumNames.end() ? album->second : std::string(), std::move(resources),
            [answer](bool success, std::vector<std::string>, const platform::ErrorRef& error) {
                answer->set_value(success ? nullptr : error);
            });
        // Called off the main queue by the activity, so waiting blocks no one who answers.
        if (auto error = saved.get()) return SaveError{SaveError::Kind::photosError, error};
    }
    return std::nullopt;
}

std::optional<VRMailActivity::Sender> mailSender() {
    if (!platform::MailComposer::canSendMail()) return std::nullopt;
    return [](const std::vector<std::string>& attachments) -> platform::ErrorRef {
        return platform::MailComposer::composeMail({{}, {}, {}, attachments});
    };
}

}  // namespace app::results
