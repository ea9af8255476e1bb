// WebP through libwebp: still pictures and the first frame of an animation in, one still out.
// The container (ICC, EXIF and XMP chunks, the canvas of an animation) goes through libwebp's
// demuxer and muxer.
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "platform/linux/ImageCodecs.h"
#include "platform/linux/PixelMemory.h"

namespace platform::codecs {
namespace {

// The format's own bound on a side; a canvas above it is a damaged header.
constexpr std::uint32_t kMaxSide = 16383;

struct DemuxDeleter {
    void operator()(WebPDemuxer* d) const { WebPDemuxDelete(d); }
};
using DemuxPtr = std::unique_ptr<WebPDemuxer, DemuxDeleter>;

struct AnimDeleter {
    void operator()(WebPAnimDecoder* d) const { WebPAnimDecoderDelete(d); }
};
using AnimPtr = std::unique_ptr<WebPAnimDecoder, AnimDeleter>;

struct MuxDeleter {
    void operator()(WebPMux* m) const { WebPMuxDelete(m); }
};
using MuxPtr = std::unique_ptr<WebPMux, MuxDeleter>;

// The demuxer checks every chunk against the bytes there are, so that no chunk size in the
// file can make it read or allocate past them; a truncated file is refused here.
DemuxPtr openDemux(Bytes data, std::size_t size, std::string& why) {
    WebPData bytes{data, size};
    DemuxPtr demux(WebPDemux(&bytes));
    if (!demux) {
        why = "not a whole WebP file (damaged or cut short)";
        return nullptr;
    }
    std::uint32_t width = WebPDemuxGetI(demux.get(), WEBP_FF_CANVAS_WIDTH);
    std::uint32_t height = WebPDemuxGetI(demux.get(), WEBP_FF_CANVAS_HEIGHT);
    if (width > kMaxSide || height > kMaxSide) {
        why = "the canvas of " + std::to_string(width) + " x " + std::to_string(height) +
              " pixels is above WebP's own limit of " + std::to_string(kMaxSide);
        return nullptr;
    }
    return demux;
}

std::vector<std::uint8_t> chunk(WebPDemuxer* demux, const char fourcc[5]) {
    WebPChunkIterator it;
    std::vector<std::uint8_t> out;
    if (WebPDemuxGetChunk(demux, fourcc, 1, &it))
        out.assign(it.chunk.bytes, it.chunk.bytes + it.chunk.size);
    WebPDemuxReleaseChunkIterator(&it);
    return out;
}

bool isAnimated(WebPDemuxer* demux) {
    return (WebPDemuxGetI(demux, WEBP_FF_FORMAT_FLAGS) & ANIMATION_FLAG) != 0;
}

// The first frame of an animation, drawn onto its canvas by libwebp.
std::optional<std::vector<std::uint8_t>> firstAnimationFrame(Bytes data, std::size_t size,
                                                             std::string& why) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options))
        return why = "libwebp version mismatch", std::nullopt;
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    WebPData bytes{data, size};
    AnimPtr decoder(WebPAnimDecoderNew(&bytes, &options));
    if (!decoder) return why = "the animation could not be opened", std::nullopt;
    WebPAnimInfo info;
    if (!WebPAnimDecoderGetInfo(decoder.get(), &info))
        return why = "the animation has no canvas", std::nullopt;
    std::uint8_t* frame = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &frame, &timestamp) || !frame)
        return why = "the first frame could not be decoded", std::nullopt;
    std::size_t bytesCount = std::size_t(info.canvas_width) * info.canvas_height * 4;
    std::vector<std::uint8_t> pixels = pixelMemory(bytesCount);
    std::memcpy(pixels.data(), frame, bytesCount);
    return pixels;
}

}  // namespace

bool webpSniff(Bytes data, std::size_t size) {
    return size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0;
}

namespace {

void readInfo(WebPDemuxer* demux, Bytes data, std::size_t size, ImageInfo& info) {
    info.width = WebPDemuxGetI(demux, WEBP_FF_CANVAS_WIDTH);
    info.height = WebPDemuxGetI(demux, WEBP_FF_CANVAS_HEIGHT);
    info.bitsPerComponent = 8;
    info.model = ColorSpace::Model::RGB;
    // An animation's canvas may stay uncovered, as a GIF's may.
    info.hasAlpha = isAnimated(demux) || (WebPDemuxGetI(demux, WEBP_FF_FORMAT_FLAGS) & ALPHA_FLAG);
    if (!isAnimated(demux)) {
        // A simple file (VP8 or VP8L without the extended header) tells its alpha only in the
        // bitstream.
        WebPBitstreamFeatures features;
        if (WebPGetFeatures(data, size, &features) == VP8_STATUS_OK && features.has_alpha)
            info.hasAlpha = true;
    }
    info.icc = chunk(demux, "ICCP");
    dropUnusableProfile(info.icc, info.model);
    info.exif = chunk(demux, "EXIF");
    // Some writers keep the JPEG APP1 marker's "Exif\0\0" in front of the TIFF header.
    if (info.exif.size() > 6 && std::memcmp(info.exif.data(), "Exif\0\0", 6) == 0)
        info.exif.erase(info.exif.begin(), info.exif.begin() + 6);
    std::vector<std::uint8_t> xmp = chunk(demux, "XMP ");
    info.xmp.assign(xmp.begin(), xmp.end());
}

}  // namespace

// From the container's own count; 0 when the bytes can't be read as WebP.
std::size_t webpFrameCount(Bytes data, std::size_t size, std::size_t stopAt) {
    std::string why;
    DemuxPtr demux = openDemux(data, size, why);
    if (!demux) return 0;
    return std::min<std::size_t>(WebPDemuxGetI(demux.get(), WEBP_FF_FRAME_COUNT), stopAt);
}

bool webpReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why) {
    DemuxPtr demux = openDemux(data, size, why);
    if (!demux) return false;
    readInfo(demux.get(), data, size, info);
    return true;
}

// The header was read and held to the image source's limits before this is called, so the
// canvas it allocates is bounded by them.
std::optional<Bitmap> webpDecode(Bytes data, std::size_t size, std::string& why) {
    DemuxPtr demux = openDemux(data, size, why);
    if (!demux) return std::nullopt;
    ImageInfo info;
    readInfo(demux.get(), data, size, info);
    if (info.width == 0 || info.height == 0) return why = "empty canvas", std::nullopt;
    const std::size_t stride = std::size_t(info.width) * 4;
    std::vector<std::uint8_t> pixels;
    if (isAnimated(demux.get())) {
        auto frame = firstAnimationFrame(data, size, why);
        if (!frame) return std::nullopt;
        pixels = std::move(*frame);
    } else {
        pixels = pixelMemory(stride * info.height);
        if (!WebPDecodeRGBAInto(data, size, pixels.data(), pixels.size(), static_cast<int>(stride)))
            return why = "the picture could not be decoded (damaged data)", std::nullopt;
    }
    PixelLayout layout{8, 3, info.hasAlpha ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
    return Bitmap(info.width, info.height, layout, ColorSpace(info.model, std::move(info.icc)),
                  std::move(pixels), stride);
}

bool webpIsLossless(double quality) {
    return quality >= 1.0;
}

bool webpEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why) {
    if (image.width() > kMaxSide || image.height() > kMaxSide)
        return why = "WebP holds at most " + std::to_string(kMaxSide) + " pixels a side", false;
    WebPConfig config;
    if (!WebPConfigInit(&config)) return why = "libwebp version mismatch", false;
    if (webpIsLossless(options.quality)) {
        // Every pixel kept; the quality then only trades effort for size.
        config.lossless = 1;
        config.quality = 75;
        config.exact = 1;
    } else {
        config.quality = static_cast<float>(std::clamp(options.quality, 0.0, 1.0) * 100.0);
    }
    config.method = 4;
    if (!WebPValidateConfig(&config)) return why = "invalid WebP settings", false;

    WebPPicture picture;
    if (!WebPPictureInit(&picture)) return why = "libwebp version mismatch", false;
    struct PictureFree {
        WebPPicture* p;
        ~PictureFree() { WebPPictureFree(p); }
    } pictureFree{&picture};
    picture.width = static_cast<int>(image.width());
    picture.height = static_cast<int>(image.height());
    picture.use_argb = 1;
    const bool alpha = options.keepAlpha && image.layout().hasAlpha();
    const std::size_t channels = alpha ? 4 : 3;
    {
        std::vector<std::uint8_t> rows(image.width() * image.height() * channels);
        for (std::size_t y = 0; y < image.height(); ++y)
            unpackRow8(image, y, false, alpha, rows.data() + y * image.width() * channels);
        const int stride = static_cast<int>(image.width() * channels);
        int imported = alpha ? WebPPictureImportRGBA(&picture, rows.data(), stride)
                             : WebPPictureImportRGB(&picture, rows.data(), stride);
        if (!imported) return why = "out of memory", false;
    }

    WebPMemoryWriter writer;
    WebPMemoryWriterInit(&writer);
    struct WriterFree {
        WebPMemoryWriter* w;
        ~WriterFree() { WebPMemoryWriterClear(w); }
    } writerFree{&writer};
    picture.writer = WebPMemoryWrite;
    picture.custom_ptr = &writer;
    if (!WebPEncode(&config, &picture))
        return why = "the WebP encoder failed (error " + std::to_string(picture.error_code) + ")",
               false;

    const auto& icc = image.colorSpace().iccProfile();
    WebPData out{writer.mem, writer.size};
    WebPData assembled{nullptr, 0};
    if (!icc.empty() || !options.exif.empty() || !options.xmp.empty()) {
        MuxPtr mux(WebPMuxCreate(&out, 1));
        if (!mux) return why = "the WebP container could not be built", false;
        auto set = [&](const char* fourcc, const std::uint8_t* bytes, std::size_t size) {
            if (size == 0) return true;
            WebPData chunk{bytes, size};
            return WebPMuxSetChunk(mux.get(), fourcc, &chunk, 1) == WEBP_MUX_OK;
        };
        if (!set("ICCP", icc.data(), icc.size()) ||
            !set("EXIF", options.exif.data(), options.exif.size()) ||
            !set("XMP ", reinterpret_cast<const std::uint8_t*>(options.xmp.data()),
                 options.xmp.size()))
            return why = "the WebP metadata chunks could not be added", false;
        if (WebPMuxAssemble(mux.get(), &assembled) != WEBP_MUX_OK)
            return why = "the WebP container could not be assembled", false;
        out = assembled;
    }
    const bool written = std::fwrite(out.bytes, 1, out.size, file) == out.size;
    WebPDataClear(&assembled);
    if (!written) return why = "the file could not be written", false;
    return true;
}

}  // namespace platform::codecs
