#include "assets/VRMediaAttributes.h"

#include "model/VRImageProperties.h"
#include "model/VROrientation.h"
#include "platform/AVAsset.h"
#include "platform/AVAssetTrack.h"
#include "platform/AVMediaFormat.h"
#include "platform/ImageSource.h"

VRMediaAttributes VRLoadMediaAttributes(const std::string& path, VRFormatMediaType mediaType) {
    VRMediaAttributes attributes;
    if (mediaType == VRFormatMediaTypeVideo) {
        auto movie = AVAsset::assetWithURL(path);
        auto tracks = movie->loadTracksWithMediaType(AVMediaTypeVideo);
        if (tracks && !tracks.value().empty()) {
            const auto& track = tracks.value().front();
            if (auto size = track->loadNaturalSize()) {
                VROrientation o = VROrientation::orientationWithTransform(
                    track->loadPreferredTransform().valueOr(CGAffineTransformIdentity));
                o.simplify();
                attributes.pixelSize =
                    o.isRotated() ? CGSize{size.value().height, size.value().width} : size.value();
            }
        }
        if (auto duration = movie->loadDuration())
            attributes.duration = CMTimeGetSeconds(duration.value());
    } else if (mediaType == VRFormatMediaTypePhoto) {
        auto source = platform::ImageSource::createWithURL(path);
        auto properties = source ? VRImageProperties::ofImageSource(*source) : std::nullopt;
        if (properties && properties->size()) attributes.pixelSize = properties->displayedSize();
    }
    return attributes;
}

void VRLazyMediaAttributes::load(const std::string& path, VRFormatMediaType mediaType,
                                 const std::function<void()>& alsoOnce) const {
    std::call_once(_loaded, [&] {
        if (alsoOnce) alsoOnce();
        VRMediaAttributes attributes = VRLoadMediaAttributes(path, mediaType);
        if (attributes.pixelSize) _pixelSize = *attributes.pixelSize;
        _duration = attributes.duration;
    });
}
