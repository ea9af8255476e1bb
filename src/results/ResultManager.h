// The list of finished results across launches and processes: one folder per result under
// documents/"results", no index file, so a result exists exactly as long as its folder does.
// The batch run adds to it; the results screen and `unwarp results` read and remove.
//
// Several processes share one store. Every disk step (making a result's folder and its
// contents, removing folders, reading the tree) holds the flock of "results/.store.lock", so
// no process reads or removes a folder that another is still filling; a process sees the
// results others added when it reloads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "platform/Dispatch.h"
#include "results/VRResult.h"

class ResultManager {
  public:
    // The store under documents/"results" of the current home, made on first use (one a
    // home, should the home root change while the process runs).
    static ResultManager& shared();
    // A store at `resultsURL` (tools and tests); the folder is made when the first result is.
    explicit ResultManager(std::string resultsURL);
    ~ResultManager();
    ResultManager(const ResultManager&) = delete;
    ResultManager& operator=(const ResultManager&) = delete;

    const std::string& resultsURL() const { return _resultsURL; }
    // The folder of one result.
    std::string folderURLForResult(const VRResult& result) const;

    // Success, and the index the result took. Runs on the main queue.
    using AddCompletion = std::function<void(bool success, std::size_t index)>;

    // The count of the records, loading first when needed: results whose folder can't be read
    // count too.
    std::size_t numberOfAssets();
    // The records themselves, oldest first.
    std::vector<VRResult> results();
    // All results as assets, in order; those that can't be read (a library item deleted
    // since, an emptied folder) are left out.
    std::vector<VRAssetRef> assets();
    // One result as an asset; null for an index out of range or a result that can't be read.
    VRAssetRef assetAt(std::int64_t index);

    // Stores a reference to the library item `localIdentifier`. The record is appended at once
    // (index = the count before); main/phasset is written on the store's queue.
    void addPhotoAssetResultWith(const std::string& localIdentifier,
                                 AddCompletion completionOnMainThread = nullptr);
    // Moves the output file at `url` into the store under its own name and draws its
    // thumbnail; a thumbnail that can't be made doesn't fail the add. A failed folder creation
    // or move answers false, and the file stays where it was.
    void addLocalAssetResultWith(const std::string& url,
                                 AddCompletion completionOnMainThread = nullptr);
    // Removes the records at `indexes` (those in range, from the highest down) and then, on the
    // store's queue, their folders. A photo result's library item stays in the library.
    // Returns the indexes removed.
    std::set<std::size_t> removeAssetsAt(const std::set<std::size_t>& indexes);

    // Reads the tree again after the disk steps of this process end, so that results added or
    // removed by other processes show. The indexes may change.
    void reload();
    // Waits until the disk steps queued so far have ended (before a command exits).
    void waitUntilStored();

  private:
    void _loadIfNeeded();
    std::vector<VRResult> _readTree() const;
    std::optional<VRResult> _record(std::int64_t index);
    VRAssetRef _assetForResult(const VRResult& result) const;
    std::size_t _append(const std::string& identifier, ResultType type);
    bool _storePhoto(const std::string& identifier, const std::string& localIdentifier) const;
    bool _storeLocal(const std::string& identifier, const std::string& url) const;
    bool _ensureResultsFolder() const;

    std::string _resultsURL;
    std::shared_ptr<platform::DispatchQueue> _queue;
    std::mutex _lock;  // guards the two fields below
    bool _resultsLoaded = false;
    std::vector<VRResult> _results;
};
