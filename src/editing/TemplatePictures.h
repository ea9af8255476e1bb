// The picture a template is listed with: a thumbnail of the asset the template was shaped on,
// stored beside the template when the editing session saves it as a recent. Used by the
// editing session and `unwarp template edit --asset`.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "assets/VRAsset.h"
#include "platform/Bitmap.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "templates/TemplateManager.h"

namespace VRTemplatePictures {

// A square of 200 points at the screen's scale, which is 1 here.
CGSize templateThumbnailSize();

// The picture file's bytes: the image as JPEG at quality 0.9; absent when it can't be encoded.
std::optional<platform::PlistData> templateImageDataWithImage(const platform::Bitmap& image);

// A high-quality thumbnail of the asset filling `pixelSize`, asked of the asset manager;
// nothing for one that can't be drawn. Delivered on the main queue; for a null asset, at
// once with nothing.
using ImageCompletion = std::function<void(std::optional<platform::Bitmap> image)>;
void createTemplateImageForAsset(const VRAssetRef& asset, CGSize pixelSize,
                                 ImageCompletion completionOnMainThread);

// saveRecentTemplate:targetAsset: stores the template as a recent with the target asset's
// picture (none without an asset or a thumbnail), and answers the new identifier or nothing
// on the main queue.
using SaveCompletion = std::function<void(std::optional<std::string> identifier)>;
void saveRecentTemplate(TemplateManager& manager, const VXTemplateRef& tpl,
                        const VRAssetRef& targetAsset, SaveCompletion completionOnMainThread);

}  // namespace VRTemplatePictures
