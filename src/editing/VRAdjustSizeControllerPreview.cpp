// The session's previews: an item drawn as its state makes it, off the main queue.
#include <algorithm>
#include <cmath>

#include "assets/VRAssetManager2.h"
#include "editing/VRAdjustSizeController.h"
#include "model/ImageRendering.h"
#include "photo/VRImage.h"
#include "platform/Dispatch.h"
#include "video/LegacyManager.h"

namespace {

platform::OperationQueue& previewQueue() {
    // Made once and kept for the whole process, like the other queues of the program.
    static auto* queue = [] {
        auto* q = new platform::OperationQueue();
        q->setName("adjust-preview-queue");
        q->setMaxConcurrentOperationCount(1);
        return q;
    }();
    return *queue;
}

struct PreviewJob {
    VRAdjustLayout layout;
    VRAdjustAssetStateRef state;
    CGSize size;
};

// The frame scaled to fit the box, at least a pixel a side.
double boxScale(CGSize frame, CGSize box) {
    if (frame.width <= 0 || frame.height <= 0) return 0;
    return std::min(box.width / frame.width, box.height / frame.height);
}

std::optional<platform::Bitmap> drawPreview(const PreviewJob& job,
                                            const std::vector<std::uint8_t>& bytes) {
    auto image = VRImage::imageWithData(bytes);
    if (!image || image->cgImage().isNull()) return std::nullopt;
    const VRResolvedOutput out = VRResolveEditingItem(
        job.layout, image->pixelSize(),
        VROrientation::orientationWithImageOrientation(image->imageOrientation()), job.state);
    const double s = boxScale(out.imageFrame.size, job.size);
    if (s <= 0) return std::nullopt;
    const CGSize target = {std::max(1.0, std::round(out.imageFrame.size.width * s)),
                           std::max(1.0, std::round(out.imageFrame.size.height * s))};
    const CGPoint displacement = {out.imageFrame.origin.x * s, out.imageFrame.origin.y * s};
    std::optional<VRColor> fill = out.fillColor;
    // An ordinary movie prefers the setting's colour to the item's, and is black without both.
    if (job.layout.mediaType == VRFormatMediaTypeVideo)
        fill = LegacyManager::defaultVideoColor()
                   ? LegacyManager::defaultVideoColor()
                   : (job.state && job.state->fillColor() ? job.state->fillColor()
                                                          : std::optional(VRColor::blackColor()));
    const auto arrangement =
        static_cast<VRImageArrangementBits>(out.drawingArrangement | VRImageArrangementIntegral);
    return VRRenderCGImage(image->cgImage(), out.drawingOrientation.imageOrientation(),
                           platform::kCGInterpolationMedium, fill, arrangement, image->scale(), 0,
                           CGRect{}, target, displacement);
}

}  // namespace

void VRAdjustSizeController::requestPreviewImageForAsset(
    const VRAssetRef& asset, CGSize size, PreviewCompletion completionOnMainThread) const {
    if (!completionOnMainThread) return;
    auto nothing = [completionOnMainThread] {
        platform::DispatchQueue::main().async(
            [completionOnMainThread] { completionOnMainThread(std::nullopt); });
    };
    std::size_t index = _assets.size();
    for (std::size_t i = 0; asset && i < _assets.size(); ++i)
        if (_assets[i] && _assets[i]->objectIdentifier() == asset->objectIdentifier()) index = i;
    if (index == _assets.size() || size.width < 1 || size.height < 1) return nothing();
    PreviewJob job{_layout, _views[index].adjustState(), size};
    VRAssetManager2::defaultManager().requestImageDataAsyncForAsset(
        asset, &previewQueue(),
        [job, completionOnMainThread](std::optional<std::vector<std::uint8_t>> data, std::string) {
            std::optional<platform::Bitmap> image;
            if (data) image = drawPreview(job, *data);
            platform::DispatchQueue::main().async(
                [completionOnMainThread, image = std::move(image)] {
                    completionOnMainThread(image);
                });
        });
}
