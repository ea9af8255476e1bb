#include "app/ResultsSharing.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>

#include "assets/VRAssetManager2.h"
#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/PhotoLibrary.h"
#include "results/ExportManager.h"
#include "results/VRFolderExportActivity.h"
#include "results/VRSharingNamePrompt.h"
#include "storage/VRSettings.h"

extern char** environ;

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
    std::cerr << "unwarp: " << VRExportShareStatusMessage(status, "Unwarp") << "\n";
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

int saveToAlbums(const std::vector<VRAssetRef>& assets, bool json) {
    if (!VRSettings::areAlbumsForResultsEnabled()) {
        std::cerr << "unwarp: saving to the albums is turned off "
                     "(unwarp settings set areAlbumsForResultsEnabled true)\n";
        return 1;
    }
    ExportManager::Options options;
    options.filenameType = 0;
    std::string title;
    auto outcome = runShare(assets, std::nullopt, options, VRImageSaveActivity::kActivityType,
                            [&](VRShareActivity& activity) { title = activity.activityTitle(); });
    const int code = reportStatus(outcome);
    if (code == 0) {
        if (json)
            std::cout << nlohmann::json{{"saved", assets.size()}, {"action", title}}.dump() << "\n";
        else
            std::cout << title << ": done\n";
    }
    return code;
}

std::optional<VRImageSaveActivity::SaveError> saveItemsToLibrary(
    const std::vector<VRImageSaveActivity::Item>& items,
    const std::map<VRImageSaveActivity::MediaType, std::string>& albumNames) {
    using SaveError = VRImageSaveActivity::SaveError;
    auto library = VRAssetManager2::defaultManager().photoLibrary();
    if (!library || library->requestAuthorizationForAccessLevel(platform::PHAccessLevelAddOnly) !=
                        platform::PHAuthorizationStatusAuthorized)
        return SaveError{SaveError::Kind::noAccess, nullptr};
    for (const auto& item : items) {
        platform::PHChangeRequest request;
        auto album = albumNames.find(item.mediaType);
        if (album != albumNames.end()) request.albumTitle = album->second;
        request.resources.push_back({item.mediaType == VRImageSaveActivity::MediaType::video
                                         ? platform::PHAssetResourceTypeVideo
                                         : platform::PHAssetResourceTypePhoto,
                                     item.url, ""});
        auto result = library->performChangesAndWait(request);
        if (result.error) return SaveError{SaveError::Kind::photosError, result.error};
    }
    return std::nullopt;
}

std::optional<VRMailActivity::Sender> mailSender() {
    const char* path = std::getenv("PATH");
    if (!path) return std::nullopt;
    std::string found;
    std::string paths = path;
    for (std::size_t start = 0; start <= paths.size();) {
        std::size_t end = paths.find(':', start);
        if (end == std::string::npos) end = paths.size();
        const std::string candidate = paths.substr(start, end - start) + "/xdg-email";
        if (end > start && access(candidate.c_str(), X_OK) == 0) {
            found = candidate;
            break;
        }
        start = end + 1;
    }
    if (found.empty()) return std::nullopt;
    return [found](const std::vector<std::string>& attachments) -> platform::ErrorRef {
        std::vector<std::string> arguments{found};
        for (const auto& file : attachments) {
            arguments.push_back("--attach");
            arguments.push_back(file);
        }
        std::vector<char*> argv;
        for (auto& a : arguments) argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_t pid = 0;
        if (const int failed =
                posix_spawn(&pid, found.c_str(), nullptr, nullptr, argv.data(), environ))
            return platform::Error::posixError(failed, "xdg-email");
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return nullptr;
        return platform::Error::posixError(EIO, "xdg-email");
    };
}

}  // namespace app::results
