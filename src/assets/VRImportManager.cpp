#include "assets/VRImportManager.h"

#include <sstream>

#include "assets/VRAssetThumbnails.h"
#include "assets/VRURLAsset.h"
#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/FileLock.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

struct VRImportManager::Task {
    std::vector<VRImportItem> items;
    CompletionOnMainThread completion;
    std::string baseURL;
    CGSize thumbnailSize;
    std::shared_ptr<std::atomic<bool>> cancelled;
};

namespace {

// An identifier names a folder below the base only when it can't climb out of it: relative,
// with no empty, "." or ".." component. Library identifiers ("UUID/L0/001") nest.
bool isFolderBelowBase(const std::string& identifier) {
    if (identifier.empty() || identifier.front() == '/') return false;
    std::istringstream components(identifier);
    std::string component;
    while (std::getline(components, component, '/'))
        if (component.empty() || component == "." || component == "..") return false;
    return identifier.back() != '/';
}

// The kind of file the item delivers: a movie is looked for first, then an image.
VRFormatMediaType conformingMediaType(const std::string& path) {
    const VRFormatMediaType type = VRURLAsset::mediaTypeForPath(path);
    if (type == VRFormatMediaTypeVideo) return VRFormatMediaTypeVideo;
    if (type == VRFormatMediaTypePhoto) return VRFormatMediaTypePhoto;
    return VRFormatMediaTypeNone;
}

// Copies one item into its folder below the base, with its thumbnail. Nothing when the item
// yields no file or the import was stopped meanwhile; then its folder is gone too.
std::shared_ptr<VRLocalAsset> importItem(const std::stop_token& stop, const VRImportItem& item,
                                         const std::string& baseURL, CGSize thumbnailSize) {
    const VRFormatMediaType mediaType = conformingMediaType(item.itemProvider);
    if (mediaType == VRFormatMediaTypeNone || !isFolderBelowBase(item.identifier)) return nullptr;
    const std::string folder =
        FileManager::stringByAppendingPathComponent(baseURL, item.identifier);
    if (!FileManager::createDirectoryAtPath(folder, true)) return nullptr;
    auto giveUp = [&] {
        FileManager::removeItemAtPath(folder);
        return nullptr;
    };

    const std::string url = FileManager::stringByAppendingPathComponent(
        folder, FileManager::lastPathComponent(item.itemProvider));
    platform::ErrorRef error;
    if (!FileManager::copyItemAtPath(item.itemProvider, url, &error)) {
        platform::log("Error: " + (error ? error->localizedDescription() : std::string()));
        return giveUp();
    }
    VXHelper::excludeURLFromBackup(url);
    if (stop.stop_requested()) return giveUp();

    // Movies get no thumbnail file here; the local asset still names where it would lie.
    const std::string thumbnailURL = FileManager::stringByDeletingPathExtension(url) + "_tbn.jpg";
    if (VRCreateThumbnailForURL(url, thumbnailURL, thumbnailSize, PHImageContentModeAspectFill,
                                true))
        VXHelper::excludeURLFromBackup(thumbnailURL);
    if (stop.stop_requested()) return giveUp();

    return VRLocalAsset::localAssetWithIdentifier(item.identifier, mediaType, url, thumbnailURL,
                                                  std::nullopt, platform::PlistDate::now());
}

}  // namespace

VRImportManager::VRImportManager()
    : VRImportManager(FileManager::stringByAppendingPathComponent(
          VRFileStorage::projectURLs().assetsURL, "import")) {}

VRImportManager::VRImportManager(std::string baseURL) : _baseURL(std::move(baseURL)) {}

VRImportManager::~VRImportManager() {
    cancel();
}

void VRImportManager::cancel() {
    std::lock_guard lock(_mutex);
    if (_cancelled) _cancelled->store(true);
    if (_copyTask.joinable()) {
        _copyTask.request_stop();
        _copyTask.join();
    }
}

void VRImportManager::importItems(std::vector<VRImportItem> items,
                                  CompletionOnMainThread completion) {
    cancel();
    std::lock_guard lock(_mutex);
    _cancelled = std::make_shared<std::atomic<bool>>(false);
    auto task = std::make_shared<Task>(Task{std::move(items), std::move(completion), _baseURL,
                                            VXHelper::thumbnailSize(), _cancelled});
    _copyTask = std::jthread([task](std::stop_token stop) { _run(stop, *task); });
}

void VRImportManager::_run(std::stop_token stop, const Task& task) {
    // Two processes of one home import one after the other: the second removes the first's
    // copies only once the first has made them whole.
    const std::string parent = FileManager::stringByDeletingLastPathComponent(task.baseURL);
    FileManager::createDirectoryAtPath(parent, true);
    auto lock = platform::FileLock::lockPath(task.baseURL);
    FileManager::removeItemAtPath(task.baseURL);

    Result result;
    if (!task.items.empty()) {
        if (FileManager::createDirectoryAtPath(task.baseURL, true))
            VXHelper::excludeURLFromBackup(task.baseURL);
        for (const VRImportItem& item : task.items) {
            if (stop.stop_requested()) return;
            if (auto asset = importItem(stop, item, task.baseURL, task.thumbnailSize))
                result[item.identifier] = std::move(asset);
        }
    }
    if (stop.stop_requested()) return;
    platform::DispatchQueue::main().async(
        [completion = task.completion, cancelled = task.cancelled, result = std::move(result)] {
            if (!cancelled->load()) completion(result);
        });
}
