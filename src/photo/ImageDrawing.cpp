#include "photo/ImageDrawing.h"

#include "model/VROrientation.h"

using platform::CGInterpolationQuality;

VRImageRef VRRenderImage(const VRImage& image, CGInterpolationQuality quality,
                         const std::optional<VRColor>& fillColor,
                         VRImageArrangementBits arrangement, double angle, CGRect crop,
                         CGSize target, CGPoint displacement) {
    auto bitmap = VRRenderCGImage(image.cgImage(), image.imageOrientation(), quality, fillColor,
                                  arrangement, image.scale(), angle, crop, target, displacement);
    if (!bitmap) return nullptr;
    const bool oriented = (arrangement & VRImageArrangementOriented) != 0;
    return VRImage::imageWithCGImage(std::move(*bitmap), image.scale(),
                                     oriented ? VROrientation::up : image.imageOrientation());
}
