// The import of picked items that the program has no library access to: each item's file is
// copied into the program's own storage with a "_tbn" JPEG thumbnail beside it and handed back
// as a local asset. The copies live until the next import, which removes them all first. The
// home flow imports the picker's `limited` items through it.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRLocalAsset.h"

// One item of the photo picker.
struct VRImportItem {
    // What the item provider delivers: the path of the picked file.
    std::string itemProvider;
    // The library identifier when the picker gave one, else a fresh UUID; it keys the result.
    std::string identifier;
    // The library showed the asset: it is used from there and needn't be imported.
    bool accessable = false;
    VRAssetRef photoAsset;
};

class VRImportManager {
  public:
    // Item identifier to the local asset made of its copy; items that yielded nothing are
    // absent.
    using Result = std::map<std::string, std::shared_ptr<VRLocalAsset>>;
    using CompletionOnMainThread = std::function<void(Result)>;

    // Copies under the assets folder's "import" folder (VRFileStorage), of the home root in
    // force when the manager is made.
    VRImportManager();
    explicit VRImportManager(std::string baseURL);
    // Cancels a running import and waits for it.
    ~VRImportManager();
    VRImportManager(const VRImportManager&) = delete;
    VRImportManager& operator=(const VRImportManager&) = delete;

    const std::string& baseURL() const { return _baseURL; }

    // Cancels the running import, removes every earlier copy, then copies the items on a task
    // of its own. The completion runs on the main queue, with an empty result for no items;
    // it never runs for an import that was cancelled. Items without a movie or image file,
    // with an identifier that can't name a folder, or whose copy fails (logged as "Error: "
    // and the reason) yield nothing.
    void importItems(std::vector<VRImportItem> items, CompletionOnMainThread completion);
    // Stops the running import and waits until its task has ended; the item being copied
    // leaves no folder behind. Nothing when no import runs.
    void cancel();

  private:
    struct Task;
    static void _run(std::stop_token stop, const Task& task);

    std::string _baseURL;
    std::mutex _mutex;
    std::shared_ptr<std::atomic<bool>> _cancelled;
    std::jthread _copyTask;
};
