#include "model/VRSizeResolver.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/SizeGeometry.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperSize.h"
#include "platform/Log.h"

namespace {

using VXHelper::frame;
using VXHelper::ratio;

struct Method {
    VRImageArrangement arrangement;
    VRImageArrangementBits drawingBits;
    VRZeroSizeBehavior zeroSizeBehavior;
    bool stretch() const { return arrangement == VRImageArrangement::stretch; }
    bool fit() const { return arrangement == VRImageArrangement::fit; }
};

// Clip is tested first, so options holding both 3 and 4 mean clip.
Method methodForOptions(const VRSizeOptions& options) {
    constexpr VRImageArrangementBits kBase =
        VRImageArrangementOriented | VRImageArrangementSourceColorSpace;
    if (containsOption(options, VRSizeOptionRatioClip))
        return {VRImageArrangement::fill, kBase | VRImageArrangementFill, VRZeroSizeProportional};
    if (containsOption(options, VRSizeOptionRatioFit))
        return {VRImageArrangement::fit, kBase | VRImageArrangementFit, VRZeroSizeProportional};
    return {VRImageArrangement::stretch, kBase, VRZeroSizeKeep};
}

// The side test ignores orientation: a 2160 x 3840 size passes a 3840 x 2160 limit.
struct Limit {
    double maxEdge;
    double minEdge;
    explicit Limit(CGSize max) : maxEdge(maxSize(max)), minEdge(minSize(max)) {}
    double area() const { return maxEdge * minEdge; }
    bool exceeds(CGSize s) const {
        return s.width > maxEdge || s.height > maxEdge || s.width * s.height > area();
    }
};

bool adjustIsRotated(const VRAdjustAssetState& adjust) {
    return adjust.orientation() && adjust.orientation()->isRotated();
}

// Steps shared by both stages: the target, the Auto rule and the Smart and Normal turns.
VRSizeEntry workingEntry(const VRResolveRequest& request, const Method& method, CGSize target,
                         const VRAdjustAssetState& adjust, bool video) {
    VRSizeEntry entry = request.sizeEntry;
    entry.setTargetSize(target);
    entry.setZeroSizeBehavior(method.zeroSizeBehavior);
    if (video) entry.setOutputRounding(2);
    if (VXHelper::isSizeRotationRequiredForTargetSize(target, request.options)) {
        entry = entry.sizeEntryRotated();
    } else if (VXHelper::isSizeSquareRequiredForTargetSize(target, request.options)) {
        entry = entry.sizeEntryOuterSquare();
    }
    if (adjustIsRotated(adjust) && containsOption(request.options, VRSizeOptionNormal))
        entry = entry.sizeEntryRotated();
    return entry;
}

CGPoint scaled(CGPoint p, CGSize to, CGSize from) {
    return {p.x * to.width / from.width, p.y * to.height / from.height};
}

// The room a picture of the source's ratio leaves inside (fit) or around (clip) the frame
// bounds the displacement: the whole difference, not half of it.
CGPoint clampedDisplacement(CGPoint d, CGSize frameSize, CGSize pictureSize) {
    const double lx = std::fabs(frameSize.width - pictureSize.width);
    const double ly = std::fabs(frameSize.height - pictureSize.height);
    return {VXHelper::clamp(d.x, -lx, lx), VXHelper::clamp(d.y, -ly, ly)};
}

VRResolvedOutput resolvePhoto(const VRResolveRequest& request, const VRDeviceLimits& limits,
                              const VRAdjustAssetState& adjust) {
    const Method method = methodForOptions(request.options);
    const CGSize source = request.sourceSize;
    VRResolvedOutput out;
    out.arrangement = method.arrangement;
    out.drawingArrangement = method.drawingBits;

    VRFormat format = request.format;
    if (format.type() == VRFormatTypeJPEG || format.type() == VRFormatTypeHEIC)
        format.setCompression(request.photoCompression);

    const VRSizeEntry entry = workingEntry(request, method, source, adjust, false);
    CGSize target = VXHelper::safeSizeWithSize(entry.outputSize(), source, method.stretch());
    CGPoint displacement = adjust.displacement();

    const Limit limit(limits.maxPhotoSize);
    if (request.explicitSize) {
        if (target.width > 0 && target.height > 0)
            displacement = scaled(displacement, *request.explicitSize, target);
        target = *request.explicitSize;
    } else if (limit.exceeds(target)) {
        out.outputSize = target;
        out.limitExceeded = VRLimitVerdict{
            source, target, VXHelper::rounded(VXHelper::limitedSize(target, limits.maxPhotoSize))};
        return out;
    }

    if (format.type() == VRFormatTypeAuto) {
        format = VRFormat::formatFromUTI(request.sourceTypeIdentifier);
        if (format.type() == VRFormatTypeAuto)
            format = VRFormat::formatWithType(VRFormatTypeJPEG, request.photoCompression);
    }
    out.format = format;

    // The drawing happens in the frame turned with the user's orientation; the size reported
    // keeps the displayed order.
    VROrientation drawing = request.sourceOrientation;
    CGSize drawSize = target, imageSize = source;
    if (adjust.orientation()) {
        drawing.appendOrientation(*adjust.orientation());
        VROrientation simplified = *adjust.orientation();
        simplified.simplify();
        displacement = displacementForOrientation(displacement, simplified);
        if (simplified.isRotated()) {
            drawSize = VXHelper::rotated(drawSize);
            imageSize = VXHelper::rotated(imageSize);
        }
    }
    out.pictureSize = drawSize;
    if (!method.stretch()) {
        out.pictureSize = frame(drawSize, ratio(imageSize), method.fit());
        displacement = clampedDisplacement(displacement, drawSize, out.pictureSize);
    }

    // PNG, and WebP beside it, leave the margins clear unless a colour is asked for.
    const bool clearMargins = format.type() == VRFormatTypePNG || format.type() == VRFormatTypeWebP;
    if (clearMargins && !adjust.fillColor() && !request.defaultPhotoColor) {
        out.fillColor = VRColor::clearColor();
    } else {
        out.fillColor =
            adjust.fillColor().value_or(request.defaultPhotoColor.value_or(VRColor::whiteColor()));
    }
    out.outputSize = target;
    out.imageFrame = {displacement, drawSize};
    out.drawingOrientation = drawing;
    return out;
}

// The video half of a Live Photo: kept near half the video limit, at least the Live Photo
// minimum, never wider than the photo half; the displacement follows.
CGSize pairedVideoSize(CGSize safe, CGSize photo, const VRDeviceLimits& limits, CGPoint& d) {
    if (photo.width > 0 && photo.height > 0 && safe.width > 0 && safe.height > 0) {
        const bool portrait = safe.width < safe.height;
        if (maxSize(safe) < maxSize(limits.maxVideoSize)) {
            CGSize half = limits.maxVideoSize * 0.5;
            if (maxSize(safe) > maxSize(half)) {
                half = rotate(half, portrait);
                safe = frame(half, ratio(safe), true);
            }
        }
        const CGSize minimum =
            frame(rotate(limits.minLivePhotoVideoSize, portrait), ratio(safe), true);
        if (safe.width < minimum.width) safe = minimum;
        if (safe.width > photo.width) safe = photo;
        platform::logf("~~ RESIZE VIDEO SIZE %s WHEN PHOTO TOTAL SIZE %s",
                       NSStringFromCGSize(safe).c_str(), NSStringFromCGSize(photo).c_str());
        d = scaled(d, safe, photo);
    }
    safe = VXHelper::roundedTo(2, safe);
    platform::logf("~~ DISPLACEMENT %s", NSStringFromCGPoint(d).c_str());
    return safe;
}

// The largest even size of the ratio of `safe` whose area fits the video limit.
CGSize videoCorrection(CGSize safe, CGSize maxVideo) {
    const Limit limit(maxVideo);
    const double r = ratio(safe);
    if ((r >= 1) != (ratio(maxVideo) >= 1)) maxVideo = VXHelper::rotated(maxVideo);
    const double w = std::sqrt(limit.area() * r);
    CGSize c = VXHelper::roundedTo(2, VXHelper::limitedSize({w, w / r}, maxVideo));
    if (limit.exceeds(c)) {
        double& first = c.width > c.height ? c.width : c.height;
        double& second = c.width > c.height ? c.height : c.width;
        first -= 2;
        if (limit.exceeds(c)) second -= 2;
    }
    return c;
}

VRResolvedOutput resolveVideo(const VRResolveRequest& request, const VRDeviceLimits& limits,
                              const VRAdjustAssetState& adjust) {
    const Method method = methodForOptions(request.options);
    VRResolvedOutput out;
    out.arrangement = method.arrangement;
    out.drawingArrangement = method.drawingBits;

    VROrientation track = request.sourceOrientation.inverseOrientation();
    track.simplify();
    const CGSize natural = request.sourceSize;
    const CGSize shown = rotate(natural, track.isRotated());

    const VRSizeEntry entry = workingEntry(request, method, shown, adjust, true);
    CGSize safe = VXHelper::safeSizeWithSize(entry.outputSize(), natural, method.stretch());
    CGPoint displacement = adjust.displacement();
    const bool userRotated = adjustIsRotated(adjust);
    const Limit limit(limits.maxVideoSize);

    CGSize target;
    if (request.explicitSize) {
        target = rotate(*request.explicitSize, userRotated);
        if (safe.width > 0 && safe.height > 0) displacement = scaled(displacement, target, safe);
    } else {
        if (request.livePhotoVideo)
            safe = pairedVideoSize(safe, request.pairedPhotoSize, limits, displacement);
        if (!limit.exceeds(safe)) {
            target = safe;
        } else {
            safe = rotate(safe, userRotated);
            const CGSize correction = videoCorrection(safe, limits.maxVideoSize);
            if (!request.livePhotoVideo) {
                out.outputSize = safe;
                out.limitExceeded = VRLimitVerdict{shown, safe, correction};
                return out;
            }
            target = rotate(correction, userRotated);
            displacement = scaled(displacement, target, safe);
        }
        if (target.width < 16 || target.height < 16)
            target = VXHelper::rounded(frame(16, 16, ratio(target), false));
    }

    out.outputSize = target;
    if (track.isFlipped()) displacement.x = -displacement.x;
    const CGSize frameSize = rotate(target, track.isRotated());
    const double a = track.rotationAngle(), c = std::cos(a), s = std::sin(a);
    displacement = {std::round(displacement.x * c - displacement.y * s),
                    std::round(displacement.x * s + displacement.y * c)};
    out.imageFrame = {displacement, frameSize};
    out.pictureSize = method.stretch() ? frameSize : frame(frameSize, ratio(natural), method.fit());

    VRFormat format = request.format;
    if (format.type() == VRFormatTypeAuto) {
        format = VRFormat::formatFromURL(request.sourcePath);
        if (format.type() == VRFormatTypeAuto) format = VRFormat::formatWithType(VRFormatTypeMOV);
    }
    out.format = format;

    // The two orders differ on purpose: an ordinary video prefers the setting's colour.
    if (request.livePhotoVideo) {
        out.fillColor =
            adjust.fillColor().value_or(request.defaultPhotoColor.value_or(VRColor::whiteColor()));
    } else {
        out.fillColor = request.defaultVideoColor ? request.defaultVideoColor : adjust.fillColor();
    }
    out.drawingOrientation = adjust.orientation().value_or(VROrientation());
    return out;
}

}  // namespace

VRDeviceLimits VRDeviceLimits::currentDevice() {
    return {VXHelper::maxPhotoSize(), VXHelper::maxVideoSize(), VXHelper::minLivePhotoVideoSize()};
}

platform::PlistDictionary VRLimitVerdict::userInfo() const {
    return {
        {VRErrorUserInfoOriginalSizeKey, VXHelper::sizeArrayWithSize(originalSize)},
        {VRErrorUserInfoExceedingSizeKey, VXHelper::sizeArrayWithSize(exceedingSize)},
        {VRErrorUserInfoCorrectingSizesKey,
         platform::PlistArray{VXHelper::sizeArrayWithSize(correctingSize)}},
    };
}

VRErrorRef VRLimitVerdict::error() const {
    return VRError::errorWithCode(VRErrorCode::sizeLimitExceeded, userInfo());
}

namespace VXHelper {

VRResolvedOutput resolveOutput(const VRResolveRequest& request) {
    const VRDeviceLimits& limits = request.limits;
    const VRAdjustAssetState empty;
    const VRAdjustAssetState& adjust = request.adjustState ? *request.adjustState : empty;
    if (request.mediaType == VRFormatMediaTypeVideo || request.livePhotoVideo)
        return resolveVideo(request, limits, adjust);
    return resolvePhoto(request, limits, adjust);
}

}  // namespace VXHelper
