#include "assets/VRRequestSession.h"

#include <algorithm>
#include <cmath>

#include "platform/Dispatch.h"

void PHCachingImageManager::startCachingImagesForAssets(
    const std::vector<std::string>& localIdentifiers, CGSize targetSize) {
    if (!_library || localIdentifiers.empty()) return;
    {
        std::lock_guard lock(_lock);
        _pending.insert(localIdentifiers.begin(), localIdentifiers.end());
    }
    const auto maxSide = std::max<std::uint32_t>(
        1, static_cast<std::uint32_t>(std::ceil(std::max(targetSize.width, targetSize.height))));
    // The work holds the manager, so that a session ended meanwhile only empties the queue.
    platform::DispatchQueue::global(platform::DispatchQoS::utility)
        .async([self = shared_from_this(), identifiers = localIdentifiers, maxSide] {
            for (const auto& identifier : identifiers) {
                {
                    std::lock_guard lock(self->_lock);
                    if (!self->_pending.erase(identifier)) continue;
                }
                self->_library->requestThumbnail(identifier, maxSide, nullptr);
            }
        });
}

void PHCachingImageManager::stopCachingImagesForAssets(
    const std::vector<std::string>& localIdentifiers) {
    std::lock_guard lock(_lock);
    for (const auto& identifier : localIdentifiers) _pending.erase(identifier);
}

void PHCachingImageManager::stopCachingImagesForAllAssets() {
    std::lock_guard lock(_lock);
    _pending.clear();
}

std::size_t PHCachingImageManager::pendingCount() const {
    std::lock_guard lock(_lock);
    return _pending.size();
}

std::shared_ptr<VRRequestSession> VRRequestSession::sessionWithTargetSize(
    CGSize targetSize, PHImageContentMode contentMode, bool highQuality, bool synchronous,
    bool allowHighQualityCaching, std::shared_ptr<platform::PhotoLibrary> library) {
    auto session = std::make_shared<VRRequestSession>();
    session->targetSize = targetSize;
    session->contentMode = contentMode;
    session->highQuality = highQuality;
    session->synchronous = synchronous;
    session->imageManager = std::make_shared<PHCachingImageManager>(std::move(library));
    session->imageManager->setAllowsCachingHighQualityImages(allowHighQualityCaching);
    return session;
}
