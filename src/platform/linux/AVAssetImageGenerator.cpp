// Frames come from the platform's movie reader, so that every codec the reader handles gives
// pictures here too without a second decoding path. The reader hands them out in the decoder's
// own 4:2:0 layout where it has one (no copy per frame), and only the frame chosen is converted
// to RGB; other layouts (4:2:2, 4:4:4, RGB) come as BGRA from the reader itself.
#include "platform/AVAssetImageGenerator.h"

#include <algorithm>
#include <cmath>

#include "platform/AVAssetReader.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/CVPixelBuffer.h"
#include "platform/linux/FramePicture.h"
#include "platform/linux/SyncFrames.h"

using namespace platform;

namespace {

// The frame's BGRA pixels as an RGB bitmap with a skipped fourth byte.
Bitmap bitmapOfFrame(const CVPixelBufferRef& buffer) {
    const std::size_t width = CVPixelBufferGetWidth(buffer);
    const std::size_t height = CVPixelBufferGetHeight(buffer);
    const std::size_t stride = CVPixelBufferGetBytesPerRow(buffer);
    const auto* base = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
    std::vector<std::uint8_t> pixels(width * height * 4);
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* from = base + y * stride;
        std::uint8_t* to = pixels.data() + y * width * 4;
        for (std::size_t x = 0; x < width; ++x, from += 4, to += 4) {
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
            to[3] = 255;
        }
    }
    PixelLayout layout;
    layout.alphaInfo = kCGImageAlphaNoneSkipLast;
    return Bitmap(width, height, layout, ColorSpace::deviceRGB(), std::move(pixels));
}

bool isFourTwoZero(OSType code) {
    return code == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ||
           code == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange ||
           code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange ||
           code == kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
}

// The display matrix reduced to what it does to the picture's axes: where the displayed pixel
// (x, y) of a w x h display takes its stored pixel from. Translations only place the picture
// and are ignored; a matrix that is no quarter turn or mirror leaves the frame as stored.
Bitmap transformed(const Bitmap& image, const CGAffineTransform& t) {
    const auto sign = [](double v) { return v > 0.5 ? 1 : v < -0.5 ? -1 : 0; };
    const int a = sign(t.a), b = sign(t.b), c = sign(t.c), d = sign(t.d);
    const bool swaps = a == 0 && d == 0 && b != 0 && c != 0;
    const bool keeps = b == 0 && c == 0 && a != 0 && d != 0;
    if (!swaps && !keeps) return image;
    if (keeps && a == 1 && d == 1) return image;
    const std::size_t sw = image.width(), sh = image.height();
    const std::size_t dw = swaps ? sh : sw, dh = swaps ? sw : sh;
    std::vector<std::uint8_t> pixels(dw * dh * 4);
    for (std::size_t sy = 0; sy < sh; ++sy) {
        const std::uint8_t* row = image.row(sy);
        for (std::size_t sx = 0; sx < sw; ++sx) {
            // x' = a x + c y, y' = b x + d y, then moved back into the picture.
            long dx = a * long(sx) + c * long(sy);
            long dy = b * long(sx) + d * long(sy);
            if (a + c < 0) dx += long(dw) - 1;
            if (b + d < 0) dy += long(dh) - 1;
            std::copy_n(row + sx * 4, 4,
                        pixels.data() + (std::size_t(dy) * dw + std::size_t(dx)) * 4);
        }
    }
    return Bitmap(dw, dh, image.layout(), image.colorSpace(), std::move(pixels));
}

double secondsOr(CMTime time, double otherwise) {
    const double s = CMTimeGetSeconds(time);
    return std::isnan(s) ? otherwise : s;
}

}  // namespace

std::shared_ptr<AVAssetImageGenerator> AVAssetImageGenerator::assetImageGeneratorWithAsset(
    AVAssetRef asset) {
    if (!asset) return nullptr;
    return std::shared_ptr<AVAssetImageGenerator>(new AVAssetImageGenerator(std::move(asset)));
}

std::optional<Bitmap> AVAssetImageGenerator::copyCGImageAtTime(CMTime requestedTime,
                                                               CMTime* actualTime,
                                                               ErrorRef* error) const {
    auto fail = [&](ErrorRef e) -> std::optional<Bitmap> {
        if (error) *error = std::move(e);
        return std::nullopt;
    };
    auto tracks = _asset->loadTracksWithMediaType(AVMediaTypeVideo);
    if (!tracks) return fail(tracks.error());
    if (tracks.value().empty())
        return fail(avError(AVErrorNoSourceTrack, "The movie has no video track"));
    const AVAssetTrackRef& track = tracks.value().front();
    ErrorRef readerError;
    auto reader = AVAssetReader::assetReaderWithAsset(_asset, &readerError);
    if (!reader) return fail(readerError);
    // The decoder's own 4:2:0 layout where the stream header names one, else BGRA: only the
    // frame chosen is converted, not every frame decoded on the way to it.
    PlistArray codes{PlistValue(static_cast<std::int64_t>(kCVPixelFormatType_32BGRA))};
    auto descriptions = track->loadFormatDescriptions();
    if (descriptions && !descriptions.value().empty() && descriptions.value().front() &&
        isFourTwoZero(descriptions.value().front()->pixelFormat)) {
        codes.push_back(
            PlistValue(static_cast<std::int64_t>(descriptions.value().front()->pixelFormat)));
    }
    PlistDictionary settings;
    settings[kCVPixelBufferPixelFormatTypeKey] = PlistValue(std::move(codes));
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(track, settings);
    if (!reader->canAddOutput(output))
        return fail(avError(AVErrorDecodeFailed, "The movie's frames cannot be decoded"));
    reader->addOutput(output);
    const bool anyTime = !CMTIME_IS_NUMERIC(requestedTime);
    // A sync frame inside the window needs no frame before it: reading starts there.
    CMTime wanted = requestedTime;
    if (!anyTime && (CMTimeCompare(_toleranceBefore, kCMTimeZero) > 0 ||
                     CMTimeCompare(_toleranceAfter, kCMTimeZero) > 0)) {
        const double t = CMTimeGetSeconds(requestedTime);
        const auto sync = platform::media::firstSyncFrameBetween(_asset->URL(), track->trackID(),
                                                                 t - secondsOr(_toleranceBefore, 0),
                                                                 t + secondsOr(_toleranceAfter, 0));
        if (sync) {
            wanted = *sync;
            reader->setTimeRange(CMTimeRange{*sync, kCMTimePositiveInfinity});
        }
    }
    if (!reader->startReading()) return fail(reader->error());

    CMSampleBufferRef chosen;
    while (auto sample = output->copyNextSampleBuffer()) {
        if (!CMSampleBufferGetImageBuffer(sample)) continue;
        chosen = sample;
        if (anyTime || CMTimeCompare(CMSampleBufferGetPresentationTimeStamp(sample), wanted) >= 0)
            break;
    }
    reader->cancelReading();
    if (!chosen)
        return fail(reader->error() ? reader->error()
                                    : avError(AVErrorDecodeFailed, "The movie has no frame"));
    if (actualTime) *actualTime = CMSampleBufferGetPresentationTimeStamp(chosen);
    const CVPixelBufferRef& buffer = CMSampleBufferGetImageBuffer(chosen);
    std::optional<Bitmap> converted;
    if (isFourTwoZero(buffer->pixelFormatType())) {
        converted = platform::media::pictureOfYCbCrFrame(*buffer);
        if (!converted)
            return fail(avError(AVErrorDecodeFailed, "The movie's frames cannot be converted"));
    }
    Bitmap image = converted ? std::move(*converted) : bitmapOfFrame(buffer);
    if (_appliesPreferredTrackTransform) {
        auto transform = track->loadPreferredTransform();
        if (transform) image = transformed(image, transform.value());
    }
    return image;
}
