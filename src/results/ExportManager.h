// Hands a selection of assets to the share sheet under the file names the settings ask for,
// without renaming or duplicating the sources where that can be avoided. One session at a
// time; the results screen and `unwarp results share|save` start them. All public calls and
// every callback are on the main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "results/ExportCandidates.h"
#include "results/VRExportShareStatus.h"
#include "results/VRImageSaveActivity.h"
#include "results/VRMailActivity.h"

struct ExportSession {
    std::function<void()> didBegin;
    std::function<void(VRExportShareStatus)> didFinish;
};

// What the share sheet is asked to show: the files, the program's own activities and the
// platform activities left out.
struct ShareSheetRequest {
    std::vector<std::string> items;
    std::vector<std::shared_ptr<VRShareActivity>> applicationActivities;
    std::vector<std::string> excludedActivityTypes;
};
// The sheet's answer: the activity chosen (null when none was), whether it completed, and the
// platform's error.
using ShareSheetCompletion = std::function<void(std::shared_ptr<VRShareActivity> activity,
                                                bool completed, platform::ErrorRef error)>;
using ShareSheetPresenter =
    std::function<void(const ShareSheetRequest& request, ShareSheetCompletion completion)>;

// An alert with its buttons; the presenter answers the index of the button pressed.
struct VRAlert {
    std::string title;
    std::string message;
    std::vector<std::string> buttons;
};
using AlertPresenter =
    std::function<void(const VRAlert& alert, std::function<void(std::size_t button)> answer)>;

class ExportManager {
  public:
    static ExportManager& shared();
    ExportManager() = default;
    ExportManager(const ExportManager&) = delete;
    ExportManager& operator=(const ExportManager&) = delete;

    // What the front end provides: the sheet, the alerts, the saving into the albums and the
    // mail program (absent: no mail activity).
    void setSheetPresenter(ShareSheetPresenter presenter) { _presenter = std::move(presenter); }
    void setAlertPresenter(AlertPresenter presenter) { _alertPresenter = std::move(presenter); }
    void setImageSaver(VRImageSaveActivity::Saver saver) { _imageSaver = std::move(saver); }
    void setMailSender(VRMailActivity::Sender sender) { _mailSender = std::move(sender); }
    // The folder that holds each session's own folder; unless set, "sharing" in this
    // process's folder of the temporary directory.
    void setSharingRoot(std::string folder) { _sharingRoot = std::move(folder); }
    std::string sharingRoot() const;

    // Which naming rule to use, exportFilenameType (0 original, 1 custom) unless given.
    struct Options {
        std::optional<std::int64_t> filenameType;
    };

    // shareWithAssets:baseName:caller:sourceView:didBegin:didFinish:. Replaces a running
    // session, whose callbacks are then never called. Prepares the files off the main thread,
    // calls didBegin, presents the sheet and calls didFinish with the status; the session's
    // folder is removed before didFinish.
    void shareWithAssets(std::vector<VRAssetRef> assets, std::optional<std::string> baseName,
                         std::function<void()> didBegin,
                         std::function<void(VRExportShareStatus)> didFinish, Options options = {});
    // The sheet was dismissed without a choice: finishes as cancelled.
    void presentationControllerDidDismiss();
    bool hasSession() const { return _session.has_value(); }

    // The low-disk alert.
    static VRAlert lowDiskAlert();
    // The source file of an asset: a library photo's full-size file or video's movie, the
    // file of URL and local assets; absent for kinds without one.
    static std::optional<std::string> sourceURLForAsset(const VRAsset& asset);

  private:
    struct Prepared {
        std::vector<ItemCandidate> candidates;
        bool renameFailed = false;
    };
    Prepared _prepare(const std::vector<VRAssetRef>& assets,
                      const std::optional<std::string>& baseName, const Options& options,
                      const std::string& folder) const;
    void _present(std::uint64_t generation, std::vector<ItemCandidate> candidates);
    void _finish(std::uint64_t generation, VRExportShareStatus status);
    std::vector<std::shared_ptr<VRShareActivity>> _activities() const;

    std::optional<ExportSession> _session;
    std::uint64_t _generation = 0;
    std::string _sessionFolder;
    ShareSheetPresenter _presenter;
    AlertPresenter _alertPresenter;
    VRImageSaveActivity::Saver _imageSaver;
    VRMailActivity::Sender _mailSender;
    std::string _sharingRoot;
};
