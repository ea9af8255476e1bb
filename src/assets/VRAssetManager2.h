// The one place that knows how to fetch the bytes of each kind of asset. The processor asks it
// for a photo's bytes on its own queue. Library, local and file assets join as they arrive.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRAssetThumbnails.h"
#include "platform/AVAsset.h"
#include "platform/OperationQueue.h"
#include "platform/PhotoLibrary.h"

class VRAssetManager2 {
  public:
    static VRAssetManager2& defaultManager();

    // Bytes and their uniform type identifier, or nothing (a missing, unreadable or too large
    // file, an asset of no photo kind).
    using ImageDataCompletion =
        std::function<void(std::optional<std::vector<std::uint8_t>> data, std::string uti)>;

    // requestImageDataAsyncForAsset:operationQueue:withCompletion:. Without a completion
    // nothing happens. The completion runs as an operation of `queue` (the main operation queue
    // when null), also for a null asset, which completes with nothing. Data assets give their
    // bytes and sniffed type; URL assets read their file between startAccessing and
    // stopAccessing, with the type of their extension. A movie's frame as an image is not
    // offered yet: URL assets of other media types complete with nothing.
    void requestImageDataAsyncForAsset(const VRAssetRef& asset, platform::OperationQueue* queue,
                                       ImageDataCompletion completion);

    // requestAVAssetForAsset:completion:, answered at once on the calling thread: the movie of
    // a video asset, or for a Live Photo its movie as a temporary link (a copy where linking
    // fails) at urlForVideoAsset, which the video stage may delete. Null for anything else,
    // for a missing file, and when the link cannot be made.
    using AVAssetCompletion = std::function<void(AVAssetRef movie)>;
    void requestAVAssetForAsset(const VRAssetRef& asset, const AVAssetCompletion& completion);
    // Where the movie of a video asset is read from: its own file, or for a Live Photo the
    // temporary link of its movie ("<still's name>-livePhotoVideo.<movie's extension>" in this
    // process's folder of the temporary directory). Absent for other assets.
    std::optional<std::string> urlForVideoAsset(const VRAssetRef& asset) const;

    // The photo library every library request goes to: the one set, else the library at the
    // `libraryPath` setting (the pictures folder when empty), opened on first use. Null when
    // its catalogue can't be opened; library requests then find nothing.
    std::shared_ptr<platform::PhotoLibrary> photoLibrary();
    // Replaces the library (a command's --library, a test's own); null reopens the default.
    void setPhotoLibrary(std::shared_ptr<platform::PhotoLibrary> library);

    // The library asset with that local identifier as an asset of flag 0; null when it is gone
    // or there is no library.
    VRAssetRef assetWithPhotoAssetIdentifier(const std::string& localIdentifier);

    // createThumbnailForURL:thumbnailURL:targetSize:contentMode:synchronously:
    std::optional<platform::Bitmap> createThumbnailForURL(const std::string& url,
                                                          const std::string& thumbnailURL,
                                                          CGSize targetSize,
                                                          PHImageContentMode contentMode,
                                                          bool synchronously) {
        return VRCreateThumbnailForURL(url, thumbnailURL, targetSize, contentMode, synchronously);
    }

    // Files larger than this are not read into memory (the image source's own limit).
    static std::size_t maxImageDataBytes();

    VRAssetManager2(const VRAssetManager2&) = delete;
    VRAssetManager2& operator=(const VRAssetManager2&) = delete;

  private:
    VRAssetManager2() = default;

    std::mutex _libraryLock;
    std::shared_ptr<platform::PhotoLibrary> _photoLibrary;
};
