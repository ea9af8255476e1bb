// The one drawing routine of the program for still images: it places a source bitmap into an
// exact pixel frame (stretch, fit or clip, turned and mirrored as its orientation says, moved by
// a displacement, on a fill colour) in one pass. The photo stage draws its results with it;
// the asset manager's thumbnails and previews and the adjust view call it with other
// arrangement values and medium quality, which is why it lives below all of them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "model/VRColor.h"
#include "model/VRImageArrangement.h"
#include "platform/Bitmap.h"
#include "platform/BitmapContext.h"
#include "platform/Geometry.h"

// VRRenderCGImage. `orientation` is the platform's image orientation (0 up ... 7) of `image`;
// `arrangement` a set of VRImageArrangementBits; `k` the image's scale, applied to `crop`;
// `angle` an extra rotation in radians after the orientation's quarter turns (the pipelines
// pass 0; any other angle draws with bilinear sampling and hard edges, see BitmapContext);
// `crop` a rectangle in points with a top-left origin, in displayed orientation when the
// Oriented bit is set and in the stored frame otherwise, or an empty rectangle for the whole
// image; `target` the output size, where a side of 0 means the source extent; `displacement`
// moves the picture in output pixels, x to the right and y downwards.
//
// The output has target's sides truncated to whole pixels. Opaque sources keep an opaque
// layout unless the fill colour's alpha is below 0.999. A fill colour of none or clearColor
// leaves the margins transparent (or black in an opaque layout). Null when the image is null,
// a side of the output is 0, no bitmap context can be made, or the picture cannot be drawn
// into it; `error` then says why where there is more to say than nothing to draw. A bitmap of
// nothing but the fill colour is never returned for a picture that failed to draw.
std::optional<platform::Bitmap> VRRenderCGImage(
    const platform::Bitmap& image, std::int64_t orientation,
    platform::CGInterpolationQuality quality, const std::optional<VRColor>& fillColor,
    VRImageArrangementBits arrangement, double k, double angle, CGRect crop, CGSize target,
    CGPoint displacement, platform::ErrorRef* error = nullptr);

// VRCreateBitmapContext. With `useSource` and a source colour space that can be an output,
// the context takes the source's depth, colour space and byte order, with the alpha part of
// VRSourceAlphaInfo; when that layout is refused, or without `useSource`, 8-bit device RGB
// with the alpha part of VRDeviceAlphaInfo. Null when neither can be made.
std::unique_ptr<platform::BitmapContext> VRCreateBitmapContext(const platform::Bitmap& source,
                                                               bool useSource, bool translucent,
                                                               std::size_t width,
                                                               std::size_t height);

// The alpha tables of VRCreateBitmapContext. Straight alpha becomes premultiplied because a
// drawing context can't hold it; a translucent fill needs an alpha sample.
platform::CGImageAlphaInfo VRSourceAlphaInfo(platform::CGImageAlphaInfo source, bool translucent);
platform::CGImageAlphaInfo VRDeviceAlphaInfo(platform::CGImageAlphaInfo source, bool translucent);
