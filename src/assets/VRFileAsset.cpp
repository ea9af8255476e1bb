#include "assets/VRFileAsset.h"

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "assets/VRAssetThumbnails.h"
#include "assets/VRMediaAttributes.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "platform/UUID.h"
#include "storage/VRFileStorage.h"

using platform::DispatchQueue;
using platform::FileManager;

namespace {

// The platform's security scope of a file from outside. Here a file is reachable when this
// process may open it for reading, so opening the scope is that test.
bool startAccessingSecurityScopedResource(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return false;
    ::close(descriptor);
    return true;
}

void stopAccessingSecurityScopedResource(const std::string& /*path*/) {
    // Nothing is held open between the two calls.
}

// The thumbnail window of a requested width: the width itself, and the stored widths above
// `lo` and below `hi` that may serve it. Each rounded to the nearest, halves away from zero.
struct ThumbnailWindow {
    long width, lo, hi;
};

std::optional<ThumbnailWindow> thumbnailWindow(double w) {
    const double limit = static_cast<double>(std::numeric_limits<int>::max());
    // A width under a pixel has no picture either.
    if (!std::isfinite(w) || w < 1 || w * 1.5 >= limit) return std::nullopt;
    return ThumbnailWindow{std::lround(w), std::lround(w * 0.8), std::lround(w * 1.5)};
}

std::optional<platform::Bitmap> imageInFile(const std::string& path) {
    auto source = platform::ImageSource::createWithURL(path);
    if (!source) return std::nullopt;
    return source->createImageAtIndex(0);
}

}  // namespace

std::shared_ptr<VRFileAsset> VRFileAsset::fileAssetWithURL(const std::string& path) {
    std::shared_ptr<VRFileAsset> asset(new VRFileAsset());
    asset->_identifier = path;
    asset->_originalURL = path;
    asset->_mediaType = VRURLAsset::mediaTypeForPath(path);
    asset->_uniqueID = platform::UUIDString();
    asset->_assetCreationDate = platform::PlistDate::now();
    return asset;
}

DispatchQueue& VRFileAsset::queue() {
    static const std::shared_ptr<DispatchQueue> shared =
        DispatchQueue::create("com.vorela.unwarp.file-asset.queue");
    return *shared;
}

void VRFileAsset::clearAllResources() {
    // On the queue, so that no thumbnail is half written into the folder while it goes.
    queue().sync([] { VRFileStorage::clearApplicationFiles(); });
}

bool VRFileAsset::_openAccess(const std::optional<std::string>& accessID) const {
    const bool wasEmpty = _accessIDs.empty();
    _accessIDs.insert(accessID.value_or(_uniqueID));
    if (!wasEmpty) return true;
    return startAccessingSecurityScopedResource(_originalURL);
}

void VRFileAsset::_closeAccess(const std::optional<std::string>& accessID) const {
    _accessIDs.erase(accessID.value_or(_uniqueID));
    if (_accessIDs.empty()) stopAccessingSecurityScopedResource(_originalURL);
}

std::optional<std::string> VRFileAsset::url() const {
    std::optional<std::string> url;
    queue().sync([&] {
        if (!_accessIDs.empty()) url = _originalURL;
    });
    return url;
}

bool VRFileAsset::isDataExist() const {
    bool exists = false;
    queue().sync([&] {
        _openAccess(std::nullopt);
        exists = FileManager::fileExistsAtPath(_originalURL);
        _closeAccess(std::nullopt);
    });
    return exists;
}

std::optional<std::string> VRFileAsset::startAccessing() {
    std::string accessID = platform::UUIDString();
    bool opened = false;
    queue().sync([&] { opened = _openAccess(accessID); });
    if (!opened) return std::nullopt;
    return accessID;
}

void VRFileAsset::stopAccessingWithAccessID(const std::string& accessID) {
    queue().sync([&] { _closeAccess(accessID); });
}

void VRFileAsset::_readAttributes() const {
    if (_attributesLoaded) return;
    _creationDate = FileManager::creationDateOfItemAtPath(_originalURL);
    VRMediaAttributes attributes = VRLoadMediaAttributes(_originalURL, _mediaType);
    if (attributes.pixelSize) _pixelSize = *attributes.pixelSize;
    _duration = attributes.duration;
    _attributesLoaded = true;
}

void VRFileAsset::_loadAttributesIfNeeded() const {
    if (_attributesLoaded) return;
    // Without access the defaults stay, and a later question tries again.
    if (!_openAccess(std::nullopt)) return;
    _readAttributes();
    _closeAccess(std::nullopt);
}

std::optional<platform::PlistDate> VRFileAsset::creationDate() const {
    std::optional<platform::PlistDate> date;
    queue().sync([&] {
        _loadAttributesIfNeeded();
        date = _creationDate ? _creationDate : _assetCreationDate;
    });
    return date;
}

CGSize VRFileAsset::pixelSize() const {
    CGSize size;
    queue().sync([&] {
        _loadAttributesIfNeeded();
        size = _pixelSize;
    });
    return size;
}

double VRFileAsset::duration() const {
    double seconds = 0;
    queue().sync([&] {
        _loadAttributesIfNeeded();
        seconds = _duration.value_or(0);
    });
    return seconds;
}

std::string VRFileAsset::originalFilename() const {
    return FileManager::lastPathComponent(_originalURL);
}

std::string VRFileAsset::_thumbnailFolder() const {
    return VRFileStorage::ProjectURLs::AppfileCoordinator(_uniqueID).url;
}

std::optional<platform::Bitmap> VRFileAsset::_thumbnailOfSize(CGSize size) {
    const auto window = thumbnailWindow(size.width);
    if (!window) return std::nullopt;
    const std::string folder = _thumbnailFolder();
    auto fileOfWidth = [&](long width) {
        return FileManager::stringByAppendingPathComponent(folder, std::to_string(width));
    };

    // Largest first: the first stored width inside the window serves; a larger one is kept
    // as the best source so far; one at or below lo ends the walk.
    std::optional<std::size_t> found;
    bool usable = false;
    for (std::size_t i = 0; i < _thumbnails.size(); ++i) {
        const long width = _thumbnails[i].width;
        if (width <= window->lo) break;
        found = i;
        if (width < window->hi) {
            usable = true;
            break;
        }
    }

    const CGSize target{static_cast<double>(window->width), size.height};
    const std::string thumbnailPath = fileOfWidth(window->width);
    if (found) {
        const std::string foundPath = fileOfWidth(_thumbnails[*found].width);
        auto image = usable ? imageInFile(foundPath)
                            : VRCreateThumbnailForURL(foundPath, thumbnailPath, target,
                                                      PHImageContentModeAspectFit, true);
        if (image) {
            if (!usable)
                _thumbnails.insert(_thumbnails.begin() + static_cast<long>(*found) + 1,
                                   Thumbnail{window->width});
            return image;
        }
        // The stored file is gone (the application files were cleared): forget it and look
        // again, down to the source if need be.
        if (!FileManager::fileExistsAtPath(foundPath)) {
            _thumbnails.erase(_thumbnails.begin() + static_cast<long>(*found));
            return _thumbnailOfSize(size);
        }
        return std::nullopt;
    }

    if (!_openAccess(std::nullopt)) return std::nullopt;
    // Read inside this access: a second internal access under the same ID would end it.
    _readAttributes();
    auto image = VRCreateThumbnailForURL(_originalURL, thumbnailPath, target,
                                         PHImageContentModeAspectFit, true);
    _closeAccess(std::nullopt);
    if (image) _thumbnails.insert(_thumbnails.begin(), Thumbnail{window->width});
    return image;
}

void VRFileAsset::createThumbnailOfSize(CGSize size, ThumbnailCompletion completion) {
    queue().async([weak = weak_from_this(), size, completion = std::move(completion)] {
        auto self = weak.lock();
        if (!self) return;
        auto image = self->_thumbnailOfSize(size);
        DispatchQueue::global(platform::DispatchQoS::userInitiated)
            .async([completion, image = std::move(image)] { completion(image); });
    });
}

std::shared_ptr<VRFileAsset> VRFileAsset::copy() const {
    std::shared_ptr<VRFileAsset> other(new VRFileAsset());
    queue().sync([&] {
        other->_identifier = _identifier;
        other->_mediaType = _mediaType;
        other->_originalURL = _originalURL;
        other->_uniqueID = _uniqueID;
        other->_assetCreationDate = _assetCreationDate;
        other->_accessIDs = _accessIDs;
        other->_thumbnails = _thumbnails;
        other->_attributesLoaded = _attributesLoaded;
        other->_pixelSize = _pixelSize;
        other->_duration = _duration;
        other->_creationDate = _creationDate;
    });
    return other;
}

bool VRFileAsset::isEqual(const VRAssetObject& other) const {
    auto* file = dynamic_cast<const VRFileAsset*>(&other);
    return file && file->_identifier == _identifier;
}

std::size_t VRFileAsset::hash() const {
    return std::hash<std::string>{}(_identifier) + 31;
}
