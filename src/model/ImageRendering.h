// The one drawing routine of the program for still images: it places a source bitmap into an
// exact pixel frame (stretch, fit or clip, turned and mirrored as its orientation says, moved by
// a displacement, on a fill colour) in one pass. The photo stage draws its results with it;
// the asset manager's thumbnails and previews and the adjust view call it with other
// arrangement values and medium quality, which is why it lives below all of them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

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
// A `rowCount` above 0 makes a context of those rows only (BitmapContext::createStrip).
std::unique_ptr<platform::BitmapContext> VRCreateBitmapContext(
    const platform::Bitmap& source, bool useSource, bool translucent, std::size_t width,
    std::size_t height, std::size_t firstRow = 0, std::size_t rowCount = 0);

// VRRenderCGImage strip by strip: the same pixels, drawn a band of output rows at a time from
// a band of source rows, so that neither picture is ever whole in memory. Only drawings whose
// source rows run with the output's (no quarter turn, not upside down, no extra angle) go this
// way; make() gives null for the others and wherever VRRenderCGImage would draw nothing.
// `shape` is the source's size, layout and colour space; a strip of it without rows will do.
class VRStripRendering {
  public:
    static std::unique_ptr<VRStripRendering> make(const platform::Bitmap& shape,
                                                  std::int64_t orientation,
                                                  platform::CGInterpolationQuality quality,
                                                  const std::optional<VRColor>& fillColor,
                                                  VRImageArrangementBits arrangement, double k,
                                                  CGRect crop, CGSize target, CGPoint displacement);
    ~VRStripRendering();
    // The output's size.
    std::size_t width() const;
    std::size_t height() const;
    // Starts output rows [y0, y1), top first, and returns the source rows [first, end) that
    // drawRows needs for them ({0, 0}: none).
    std::pair<std::size_t, std::size_t> beginRows(std::size_t y0, std::size_t y1);
    // Draws the rows begun from `source`, the whole picture or a strip holding at least the
    // rows that beginRows named; the result is a strip of the output. Null, with the reason in
    // `error`, when the resampler fails.
    std::optional<platform::Bitmap> drawRows(const platform::Bitmap& source,
                                             platform::ErrorRef* error = nullptr);

  private:
    struct Plan;
    VRStripRendering();
    std::unique_ptr<Plan> _plan;
    platform::Bitmap _shape;
    std::unique_ptr<platform::BitmapContext> _context;
};

// The alpha tables of VRCreateBitmapContext. Straight alpha becomes premultiplied because a
// drawing context can't hold it; a translucent fill needs an alpha sample.
platform::CGImageAlphaInfo VRSourceAlphaInfo(platform::CGImageAlphaInfo source, bool translucent);
platform::CGImageAlphaInfo VRDeviceAlphaInfo(platform::CGImageAlphaInfo source, bool translucent);
