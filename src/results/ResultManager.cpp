#include "results/ResultManager.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>

#include "assets/VRAssetManager2.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "model/VXHelperDevice.h"
#include "platform/FileLock.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

namespace {

constexpr const char* kMainFolder = "main";
constexpr const char* kPhotoAssetFile = "phasset";
constexpr const char* kThumbnailFile = "thumbnail.jpg";
// Hidden, so the tree's walk skips it; the lock is "results/.store.lock".
constexpr const char* kLockName = ".store";
// A library identifier is short; anything longer is not one of ours.
constexpr std::size_t kMostIdentifierBytes = 4096;

std::optional<ResultType> resultTypeOfName(const std::string& name) {
    if (name.empty()) return std::nullopt;
    if (name[0] == 'A') return ResultType::photoAsset;
    if (name[0] == 'B') return ResultType::localAsset;
    return std::nullopt;
}

std::optional<platform::PlistDate> modificationDate(const std::string& path) {
    std::error_code code;
    const auto written = std::filesystem::last_write_time(path, code);
    if (code) return std::nullopt;
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::duration<double>>(
        std::chrono::file_clock::to_sys(written).time_since_epoch());
    return platform::PlistDate::fromTimeIntervalSince1970(sinceEpoch.count());
}

// Where a folder stands in the order of the results: its birth time where the file system
// records one (statx), else its modification time; then its modification time, which the
// store sets from the precise clock when the folder is whole. Birth times come from the
// kernel's coarse clock, so two results stored within a few milliseconds share one, and the
// second key keeps their order.
struct FolderDates {
    platform::PlistDate created;
    double tieBreak = 0;
};

std::optional<FolderDates> folderDates(const std::string& path) {
    auto modified = modificationDate(path);
    if (!modified) return std::nullopt;
    auto born = FileManager::creationDateOfItemAtPath(path);
    return FolderDates{born.value_or(*modified), modified->sinceReferenceDate};
}

// Marks the folder with the precise time the result became whole (see folderDates).
void stampFolder(const std::string& path) {
    std::error_code ignored;
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now(), ignored);
}

// The result's folder and its "main" inside "results", which exists by then: two mkdirs,
// not one for every folder of the path.
bool makeResultFolders(const std::string& folder, const std::string& main,
                       platform::ErrorRef* error) {
    return FileManager::createDirectoryAtPath(folder, false, error) &&
           FileManager::createDirectoryAtPath(main, false, error);
}

// Atomically as the platform's atomic writes are: whole under a hidden name, then renamed, so
// a reader never meets a part of it. Without an fsync, which took most of an add's time on a
// busy disk: a reference lost to a power cut leaves an unreadable result, which the list
// leaves out while its library item stays in the library.
bool writeWholeFile(const std::string& text, const std::string& path, platform::ErrorRef* error) {
    const std::string partial = FileManager::stringByAppendingPathComponent(
        FileManager::stringByDeletingLastPathComponent(path), "." + platform::UUIDString());
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << text;
        out.close();
        if (!out) {
            FileManager::removeItemAtPath(partial);
            if (error) *error = platform::Error::posixError(EIO, "write", partial);
            return false;
        }
    }
    if (FileManager::moveItemAtPath(partial, path, error)) return true;
    FileManager::removeItemAtPath(partial);
    return false;
}

}  // namespace

ResultManager& ResultManager::shared() {
    // One store per documents directory, so that a process whose home root changes (a tool
    // that serves several homes) never writes into the folder of the previous one. Never
    // destroyed: a queue may still run a disk step while the process exits.
    static std::mutex lock;
    static auto* stores = new std::map<std::string, ResultManager*>();
    const std::string url =
        FileManager::stringByAppendingPathComponent(VXHelper::documentDirectory(), "results");
    std::lock_guard guard(lock);
    ResultManager*& store = (*stores)[url];
    if (!store) store = new ResultManager(url);
    return *store;
}

ResultManager::ResultManager(std::string resultsURL)
    : _resultsURL(std::move(resultsURL)),
      _queue(platform::DispatchQueue::create("result-storing-queue",
                                             platform::DispatchQueue::Attributes::concurrent,
                                             platform::DispatchQoS::userInitiated)) {}

ResultManager::~ResultManager() {
    waitUntilStored();
}

std::string ResultManager::folderURLForResult(const VRResult& result) const {
    return FileManager::stringByAppendingPathComponent(_resultsURL, result.identifier);
}

bool ResultManager::_ensureResultsFolder() const {
    bool isDirectory = false;
    if (FileManager::fileExistsAtPath(_resultsURL, &isDirectory) && isDirectory) return true;
    // Made with intermediates, which takes a folder another process made meanwhile as made.
    platform::ErrorRef error;
    if (!FileManager::createDirectoryAtPath(_resultsURL, true, &error)) {
        platform::logf("~~ RES: can't create results folder: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
        return false;
    }
    FileManager::setExcludedFromBackup(_resultsURL);
    return true;
}

std::vector<VRResult> ResultManager::_readTree() const {
    std::vector<VRResult> records;
    bool isDirectory = false;
    if (!FileManager::fileExistsAtPath(_resultsURL, &isDirectory) || !isDirectory) return records;
    // A reader under the lock never meets a folder that another process is still filling.
    auto lock = platform::FileLock::lockPath(
        FileManager::stringByAppendingPathComponent(_resultsURL, kLockName));
    auto names = FileManager::contentsOfDirectoryAtPath(_resultsURL);
    if (!names) return records;
    std::sort(names->begin(), names->end());
    const auto now = platform::PlistDate::now();
    std::vector<std::pair<VRResult, double>> dated;
    for (const auto& name : *names) {
        if (name.empty() || name[0] == '.') continue;
        auto type = resultTypeOfName(name);
        if (!type) continue;
        const std::string path = FileManager::stringByAppendingPathComponent(_resultsURL, name);
        if (!FileManager::fileExistsAtPath(path, &isDirectory) || !isDirectory) continue;
        const auto dates = folderDates(path).value_or(FolderDates{now, now.sinceReferenceDate});
        dated.push_back({{name, *type, dates.created}, dates.tieBreak});
    }
    // Stable, so folders of one instant keep the order of their names on every load.
    std::stable_sort(dated.begin(), dated.end(), [](const auto& a, const auto& b) {
        const double x = a.first.creationDate.sinceReferenceDate;
        const double y = b.first.creationDate.sinceReferenceDate;
        return x < y || (x == y && a.second < b.second);
    });
    for (auto& entry : dated) records.push_back(std::move(entry.first));
    return records;
}

void ResultManager::_loadIfNeeded() {
    {
        std::lock_guard<std::mutex> guard(_lock);
        if (_resultsLoaded) return;
    }
    _queue->sync([this] {
        auto records = _readTree();
        std::lock_guard<std::mutex> guard(_lock);
        if (_resultsLoaded) return;
        _results = std::move(records);
        _resultsLoaded = true;
    });
}

void ResultManager::reload() {
    // A barrier, so that this process's own pending adds are on disk before the walk.
    _queue->syncBarrier([this] {
        auto records = _readTree();
        std::lock_guard<std::mutex> guard(_lock);
        _results = std::move(records);
        _resultsLoaded = true;
    });
}

void ResultManager::waitUntilStored() {
    _queue->syncBarrier([] {});
}

std::size_t ResultManager::numberOfAssets() {
    _loadIfNeeded();
    std::lock_guard<std::mutex> guard(_lock);
    return _results.size();
}

std::vector<VRResult> ResultManager::results() {
    _loadIfNeeded();
    std::lock_guard<std::mutex> guard(_lock);
    return _results;
}

std::optional<VRResult> ResultManager::_record(std::int64_t index) {
    _loadIfNeeded();
    std::lock_guard<std::mutex> guard(_lock);
    if (index < 0 || static_cast<std::uint64_t>(index) >= _results.size()) return std::nullopt;
    return _results[static_cast<std::size_t>(index)];
}

VRAssetRef ResultManager::assetAt(std::int64_t index) {
    auto record = _record(index);
    if (!record) return nullptr;
    return _assetForResult(*record);
}

std::vector<VRAssetRef> ResultManager::assets() {
    std::vector<VRAssetRef> found;
    for (const auto& record : results()) {
        if (auto asset = _assetForResult(record)) found.push_back(std::move(asset));
    }
    return found;
}

VRAssetRef ResultManager::_assetForResult(const VRResult& result) const {
    const std::string folder = folderURLForResult(result);
    const std::string main = FileManager::stringByAppendingPathComponent(folder, kMainFolder);
    if (result.resultType == ResultType::photoAsset) {
        std::optional<platform::PlistData> data;
        // Waits for a pending add of this process to have written the file.
        _queue->sync([&] {
            data = FileManager::contentsAtPath(
                FileManager::stringByAppendingPathComponent(main, kPhotoAssetFile), nullptr,
                kMostIdentifierBytes);
        });
        if (!data || data->empty()) return nullptr;
        return VRAssetManager2::defaultManager().assetWithPhotoAssetIdentifier(
            std::string(data->begin(), data->end()));
    }
    std::optional<std::string> file;
    _queue->sync([&] {
        auto names = FileManager::contentsOfDirectoryAtPath(main);
        if (!names) return;
        std::sort(names->begin(), names->end());
        for (const auto& name : *names) {
            const std::string path = FileManager::stringByAppendingPathComponent(main, name);
            bool isDirectory = false;
            if (FileManager::fileExistsAtPath(path, &isDirectory) && !isDirectory) {
                file = path;
                return;
            }
        }
    });
    if (!file) return nullptr;
    // A local result has no pair: a Live Photo's movie is deleted before its still is stored.
    auto object = VRLocalAsset::localAssetWithIdentifier(
        result.identifier, VRURLAsset::mediaTypeForPath(*file), *file,
        FileManager::stringByAppendingPathComponent(folder, kThumbnailFile), std::nullopt,
        result.creationDate);
    return VRAsset::assetWithObject(object, 0);
}

std::size_t ResultManager::_append(const std::string& identifier, ResultType type) {
    _loadIfNeeded();
    std::lock_guard<std::mutex> guard(_lock);
    _results.push_back({identifier, type, platform::PlistDate::now()});
    return _results.size() - 1;
}

bool ResultManager::_storePhoto(const std::string& identifier,
                                const std::string& localIdentifier) const {
    if (!_ensureResultsFolder()) return false;
    auto lock = platform::FileLock::lockPath(
        FileManager::stringByAppendingPathComponent(_resultsURL, kLockName));
    const std::string folder = FileManager::stringByAppendingPathComponent(_resultsURL, identifier);
    const std::string main = FileManager::stringByAppendingPathComponent(folder, kMainFolder);
    platform::ErrorRef error;
    if (!makeResultFolders(folder, main, &error) ||
        !writeWholeFile(localIdentifier,
                        FileManager::stringByAppendingPathComponent(main, kPhotoAssetFile),
                        &error)) {
        platform::logf("~~ RES: can't store photo result: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
        return false;
    }
    stampFolder(folder);
    return true;
}

bool ResultManager::_storeLocal(const std::string& identifier, const std::string& url) const {
    if (!_ensureResultsFolder()) return false;
    auto lock = platform::FileLock::lockPath(
        FileManager::stringByAppendingPathComponent(_resultsURL, kLockName));
    const std::string folder = FileManager::stringByAppendingPathComponent(_resultsURL, identifier);
    const std::string main = FileManager::stringByAppendingPathComponent(folder, kMainFolder);
    const std::string target =
        FileManager::stringByAppendingPathComponent(main, FileManager::lastPathComponent(url));
    platform::ErrorRef error;
    if (!makeResultFolders(folder, main, &error) ||
        !FileManager::moveItemAtPath(url, target, &error)) {
        platform::logf("~~ RES: can't store local result: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
        return false;
    }
    FileManager::setExcludedFromBackup(target);
    // Movies and unreadable pictures get no thumbnail; the result stands without one.
    VRAssetManager2::defaultManager().createThumbnailForURL(
        target, FileManager::stringByAppendingPathComponent(folder, kThumbnailFile),
        VXHelper::thumbnailSize(), PHImageContentModeAspectFill, true);
    stampFolder(folder);
    return true;
}

void ResultManager::addPhotoAssetResultWith(const std::string& localIdentifier,
                                            AddCompletion completionOnMainThread) {
    const std::string identifier = "A" + platform::UUIDString();
    const std::size_t index = _append(identifier, ResultType::photoAsset);
    _queue->asyncBarrier(
        [this, identifier, localIdentifier, index, completion = std::move(completionOnMainThread)] {
            const bool success = _storePhoto(identifier, localIdentifier);
            if (completion)
                platform::DispatchQueue::main().async([=] { completion(success, index); });
        });
}

void ResultManager::addLocalAssetResultWith(const std::string& url,
                                            AddCompletion completionOnMainThread) {
    const std::string identifier = "B" + platform::UUIDString();
    const std::size_t index = _append(identifier, ResultType::localAsset);
    _queue->asyncBarrier(
        [this, identifier, url, index, completion = std::move(completionOnMainThread)] {
            const bool success = _storeLocal(identifier, url);
            if (completion)
                platform::DispatchQueue::main().async([=] { completion(success, index); });
        });
}

std::set<std::size_t> ResultManager::removeAssetsAt(const std::set<std::size_t>& indexes) {
    _loadIfNeeded();
    std::set<std::size_t> removed;
    std::vector<std::string> folders;
    {
        std::lock_guard<std::mutex> guard(_lock);
        for (auto it = indexes.rbegin(); it != indexes.rend(); ++it) {
            if (*it >= _results.size()) continue;
            folders.push_back(folderURLForResult(_results[*it]));
            _results.erase(_results.begin() + static_cast<std::ptrdiff_t>(*it));
            removed.insert(*it);
        }
    }
    if (folders.empty()) return removed;
    _queue->asyncBarrier([this, folders] {
        // Under the lock: a folder another process is still filling is removed once it is
        // whole, never half-way through.
        auto lock = platform::FileLock::lockPath(
            FileManager::stringByAppendingPathComponent(_resultsURL, kLockName));
        for (const auto& folder : folders) FileManager::removeItemAtPath(folder);
    });
    return removed;
}
