#include "results/VRFolderExportActivity.h"

#include <cerrno>

#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/UUID.h"

using platform::FileManager;

namespace {

constexpr int kMostAttempts = 10000;

bool isNameTaken(const platform::ErrorRef& error) {
    return error && error->domain() == platform::NSPOSIXErrorDomain && error->code() == EEXIST;
}

std::string nameCandidate(const std::string& stem, const std::string& extension, int n) {
    std::string name = n == 0 ? stem : stem + "-" + std::to_string(n);
    return extension.empty() ? name : name + "." + extension;
}

}  // namespace

std::optional<std::string> VRFolderExportActivity::exportItem(const std::string& item,
                                                              const std::string& folder,
                                                              platform::ErrorRef* error) {
    const std::string name = FileManager::lastPathComponent(item);
    const std::string stem = FileManager::stringByDeletingPathExtension(name);
    const std::string extension = FileManager::pathExtension(name);
    // What is linked under the free name: the item itself, or where links fail, a whole copy
    // under a hidden name beside it, so a half-copied file never carries a visible name.
    std::string linked = item;
    std::optional<std::string> partial;
    auto dropPartial = [&] {
        if (partial) FileManager::removeItemAtPath(*partial);
    };
    for (int n = 0; n < kMostAttempts; ++n) {
        const std::string to =
            FileManager::stringByAppendingPathComponent(folder, nameCandidate(stem, extension, n));
        platform::ErrorRef linkError;
        if (FileManager::linkItemAtPath(linked, to, &linkError)) {
            dropPartial();
            // The user's file belongs in their backups, even where it shares the stored one's
            // data.
            FileManager::removeExcludedFromBackup(to);
            return to;
        }
        if (isNameTaken(linkError)) continue;
        if (partial) {
            dropPartial();
            if (error) *error = linkError;
            return std::nullopt;
        }
        partial = FileManager::stringByAppendingPathComponent(
            folder, "." + platform::UUIDString() + ".part");
        if (!FileManager::copyItemAtPath(item, *partial, error)) return std::nullopt;
        linked = *partial;
        --n;  // the same name again, now for the copy
    }
    dropPartial();
    if (error) *error = platform::Error::posixError(EEXIST, "no free name", folder + "/" + name);
    return std::nullopt;
}

void VRFolderExportActivity::perform(Completion completionOnMainThread) {
    platform::DispatchQueue::global(platform::DispatchQoS::userInitiated)
        .async([this, completion = std::move(completionOnMainThread)] {
            std::vector<std::string> exported;
            platform::ErrorRef error;
            if (_destination.empty() ||
                !FileManager::createDirectoryAtPath(_destination, true, &error)) {
                if (!error) error = platform::Error::posixError(ENOENT, "export", _destination);
            } else {
                for (const auto& item : _items) {
                    auto written = exportItem(item, _destination, &error);
                    if (!written) break;
                    exported.push_back(*written);
                }
            }
            platform::DispatchQueue::main().async([this, exported, error, completion] {
                _exported = exported;
                if (completion) completion(!error, error);
            });
        });
}
