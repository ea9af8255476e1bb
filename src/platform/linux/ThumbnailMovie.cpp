// Thumbnails of movies: one frame read through the movie reader, drawn at the cache's size.
#include <algorithm>
#include <cmath>

#include "platform/AVAsset.h"
#include "platform/AVAssetReader.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/BitmapContext.h"
#include "platform/CVPixelBuffer.h"
#include "platform/linux/Thumbnail.h"

namespace platform::thumbnails {
namespace {

// Where the picture is taken: a tenth of the movie, at most a second in.
constexpr double kShareOfDuration = 0.1;
constexpr double kLatestSeconds = 1.0;

ErrorRef noFrame(const std::string& path, const std::string& why) {
    return avError(AVErrorDecodeFailed, "No thumbnail of " + path + ": " + why);
}

// The EXIF orientation that shows the stored frames as the display matrix does; 1 for a
// matrix that is no quarter turn.
int orientationOfTransform(const CGAffineTransform& t) {
    const auto is = [](double value, double want) { return std::abs(value - want) < 1e-6; };
    if (is(t.a, 0) && is(t.b, 1) && is(t.c, -1) && is(t.d, 0)) return 6;
    if (is(t.a, -1) && is(t.b, 0) && is(t.c, 0) && is(t.d, -1)) return 3;
    if (is(t.a, 0) && is(t.b, -1) && is(t.c, 1) && is(t.d, 0)) return 8;
    return 1;
}

// The first decoded frame at or after `seconds`, else the last one, as BGRA.
CVPixelBufferRef frameAt(const AVAssetRef& asset, const AVAssetTrackRef& track, double seconds,
                         ErrorRef* error) {
    auto reader = AVAssetReader::assetReaderWithAsset(asset, error);
    if (!reader) return nullptr;
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(
        track, PlistDictionary{{kCVPixelBufferPixelFormatTypeKey,
                                static_cast<std::int64_t>(kCVPixelFormatType_32BGRA)}});
    reader->addOutput(output);
    if (!reader->startReading()) {
        if (error) *error = reader->error();
        return nullptr;
    }
    CVPixelBufferRef frame;
    while (auto sample = output->copyNextSampleBuffer()) {
        if (auto image = CMSampleBufferGetImageBuffer(sample)) frame = image;
        const CMTime time = CMSampleBufferGetPresentationTimeStamp(sample);
        if (frame && CMTIME_IS_NUMERIC(time) && CMTimeGetSeconds(time) >= seconds) break;
    }
    reader->cancelReading();
    if (!frame && error)
        *error = reader->error() ? reader->error() : noFrame(asset->URL(), "it has no frames");
    return frame;
}

// The BGRA frame as the platform's RGB with a skipped fourth sample.
Bitmap bitmapOfFrame(const CVPixelBuffer& frame) {
    const std::size_t width = frame.width(), height = frame.height();
    std::vector<std::uint8_t> pixels(width * height * 4);
    const auto* base = static_cast<const std::uint8_t*>(frame.baseAddress());
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* in = base + y * frame.bytesPerRow();
        std::uint8_t* out = &pixels[y * width * 4];
        for (std::size_t x = 0; x < width; ++x, in += 4, out += 4) {
            out[0] = in[2];
            out[1] = in[1];
            out[2] = in[0];
            out[3] = 255;
        }
    }
    return Bitmap(width, height, PixelLayout{8, 3, kCGImageAlphaNoneSkipLast},
                  ColorSpace::deviceRGB(), std::move(pixels), width * 4);
}

std::optional<DrawnThumbnail> drawMovieFrame(const std::string& path, std::uint32_t side,
                                             ErrorRef* error) {
    const AVAssetRef asset = AVAsset::assetWithURL(path);
    auto tracks = asset->loadTracksWithMediaType(AVMediaTypeVideo);
    if (!tracks || tracks.value().empty()) {
        if (error) *error = tracks ? noFrame(path, "it has no video track") : tracks.error();
        return std::nullopt;
    }
    const AVAssetTrackRef& track = tracks.value().front();
    const auto duration = asset->loadDuration();
    const double seconds =
        duration && CMTIME_IS_NUMERIC(duration.value())
            ? std::min(kLatestSeconds, CMTimeGetSeconds(duration.value()) * kShareOfDuration)
            : 0;
    auto frame = frameAt(asset, track, seconds, error);
    if (!frame || frame->width() == 0 || frame->height() == 0) return std::nullopt;
    const Bitmap full = bitmapOfFrame(*frame);

    const double longSide = double(std::max(full.width(), full.height()));
    const double scale = std::min(1.0, double(side) / longSide);
    const auto w = std::max<std::size_t>(1, std::size_t(double(full.width()) * scale + 0.5));
    const auto h = std::max<std::size_t>(1, std::size_t(double(full.height()) * scale + 0.5));
    const PixelLayout layout{8, 3, kCGImageAlphaNoneSkipLast};
    auto context = BitmapContext::create(w, h, 8, ColorSpace::deviceRGB(),
                                         Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->setInterpolationQuality(kCGInterpolationMedium);
    if (!context->drawImage(CGRect{{0, 0}, {double(w), double(h)}}, full, error))
        return std::nullopt;
    const auto transform = track->loadPreferredTransform();
    return DrawnThumbnail{context->createImage(),
                          orientationOfTransform(transform.valueOr(CGAffineTransformIdentity))};
}

}  // namespace

std::optional<Bitmap> thumbnailForMovie(const std::string& cacheRoot,
                                        const std::string& absolutePath, std::uint32_t maxSide,
                                        ErrorRef* error) {
    return cachedThumbnailForFile(
        cacheRoot, absolutePath, maxSide,
        [&absolutePath](std::uint32_t side, ErrorRef* drawError) {
            return drawMovieFrame(absolutePath, side, drawError);
        },
        error);
}

}  // namespace platform::thumbnails
