// The sharing actions of `unwarp results` (share into a folder, save to the program's albums)
// and what the command line hands to ExportManager: a sheet that performs the one activity
// the command asked for, alerts on standard error, the saver and the mail sender.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "platform/Error.h"
#include "results/VRExportShareStatus.h"
#include "results/VRImageSaveActivity.h"
#include "results/VRMailActivity.h"

namespace app::results {

// The application's name in the words of the sharing and saving outcomes.
inline constexpr const char* kApplicationName = "Unwarp";

// Shares the assets into `folder` (or, without one, by mail through xdg-email) by the export
// rules, printing one path a file written (or attached): custom names from `baseName` when
// given (stored as the last base name, as the name prompt does) or when exportFilenameType
// asks for them, original names otherwise.
int shareIntoFolder(const std::vector<VRAssetRef>& assets, const std::optional<std::string>& folder,
                    const std::optional<std::string>& baseName, bool json);
// The same into `folder` without printing: the exit code and the files written, in the
// assets' order.
struct FolderExport {
    int code = 0;
    std::vector<std::string> written;
    // Why the files were not all written, when the activity said.
    platform::ErrorRef error;
};
FolderExport exportIntoFolder(const std::vector<VRAssetRef>& assets, const std::string& folder,
                              const std::optional<std::string>& baseName);
// The same without printing (albums must be turned on): the share's status and the title of
// the save action ("Save 2 images").
struct AlbumSave {
    VRExportShareStatus status = VRExportShareStatusFailed;
    std::string title;
};
AlbumSave saveIntoAlbums(const std::vector<VRAssetRef>& assets);
// Saves the assets' files into the albums "Uwrp photos" and "Uwrp videos".
int saveToAlbums(const std::vector<VRAssetRef>& assets, bool json);

// Saves each item into the photo library's album of its media type, made when missing.
std::optional<VRImageSaveActivity::SaveError> saveItemsToLibrary(
    const std::vector<VRImageSaveActivity::Item>& items,
    const std::map<VRImageSaveActivity::MediaType, std::string>& albumNames);
// `xdg-email --attach FILE...` when xdg-email is on the PATH; absent otherwise.
std::optional<VRMailActivity::Sender> mailSender();

}  // namespace app::results
