// PNG reading through libpng (the writer is in PngWriting.cpp). libpng's longjmp lands in the
// function that set it, in this file.
#include <png.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <memory>

#include "platform/ImagePropertyKeys.h"
#include "platform/linux/ImageCodecs.h"
#include "platform/linux/PngPixelRows.h"
#include "platform/linux/PngTextChunks.h"
#include "platform/linux/RowReadAhead.h"

namespace platform::codecs {
namespace {

struct Reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    Bytes data = nullptr;
    std::size_t size = 0;
    std::size_t offset = 0;
    char message[256] = {0};
    ~Reader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

void onError(png_structp png, png_const_charp message) {
    auto* r = static_cast<Reader*>(png_get_error_ptr(png));
    std::snprintf(r->message, sizeof r->message, "%s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

void readBytes(png_structp png, png_bytep out, png_size_t length) {
    auto* r = static_cast<Reader*>(png_get_io_ptr(png));
    if (r->size - r->offset < length) png_error(png, "file is truncated");
    std::memcpy(out, r->data + r->offset, length);
    r->offset += length;
}

std::uint32_t bigEndian32(Bytes p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           p[3];
}

// Ancillary chunks (text, profiles) above this are refused; real ones are far smaller.
constexpr std::uint32_t kMaxChunkBytes = 16u << 20;

// libpng reads each chunk before the pixels whole, into a buffer of the length the chunk
// claims, which it allocates and zeroes first; above its own limit it only warns and goes on.
// So a few bytes claiming gigabytes would cost that much memory before failing as truncated.
// The lengths are checked here against what the file holds, before libpng sees them. The
// pixel data are read piecewise and need no such check.
bool chunksFitTheFile(Bytes data, std::size_t size, std::string& why) {
    for (std::size_t at = 8; at + 8 <= size;) {
        const std::uint32_t length = bigEndian32(data + at);
        std::string type(reinterpret_cast<const char*>(data + at + 4), 4);
        if (type == "IDAT") return true;
        const std::size_t left = size - at - 8;  // after the length and type
        if (std::uint64_t(length) + 4 > left || length > kMaxChunkBytes) {
            if (!std::all_of(type.begin(), type.end(),
                             [](unsigned char c) { return std::isalpha(c) != 0; }))
                type = "a";
            why = "the " + type + " chunk claims " + std::to_string(length) + " bytes, but " +
                  (length > kMaxChunkBytes ? "a chunk before the pixels may hold at most " +
                                                 std::to_string(kMaxChunkBytes)
                                           : "the file holds only " + std::to_string(left)) +
                  " (damaged or truncated file)";
            return false;
        }
        at += 12 + std::size_t(length);
    }
    return true;  // libpng reports a file without pixels itself
}

bool openReader(Reader& r, Bytes data, std::size_t size, std::string& why) {
    if (!chunksFitTheFile(data, size, why)) return false;
    r.data = data;
    r.size = size;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, onError, onWarning);
    if (!r.png) return why = "out of memory", false;
    r.info = png_create_info_struct(r.png);
    if (!r.info) return why = "out of memory", false;
    png_set_read_fn(r.png, &r, readBytes);
    // Checksums are checked. The sides are left to the image source's limits, which name
    // them; more than a thousand ancillary chunks, or a larger chunk than above, are refused
    // before anything is allocated for them.
    png_set_user_limits(r.png, 0x7fffffff, 0x7fffffff);
    png_set_chunk_cache_max(r.png, 1000);
    png_set_chunk_malloc_max(r.png, kMaxChunkBytes);
    return true;
}

}  // namespace

double dpiFromPixelsPerMeter(std::uint32_t ppm) {
    double dpi = ppm * 0.0254;
    double rounded = std::round(dpi);
    return std::fabs(dpi - rounded) < 0.01 ? rounded : dpi;
}

bool pngSniff(Bytes data, std::size_t size) {
    return size >= 8 && std::memcmp(data, "\x89PNG\r\n\x1A\n", 8) == 0;
}

bool pngReadInfo(Bytes data, std::size_t size, ImageInfo& out, std::string& why) {
    auto r = std::make_unique<Reader>();
    if (!openReader(*r, data, size, why)) return false;
    if (setjmp(png_jmpbuf(r->png))) {
        why = r->message;
        return false;
    }
    png_read_info(r->png, r->info);
    png_uint_32 w = 0, h = 0;
    int depth = 0, colorType = 0, interlace = 0;
    png_get_IHDR(r->png, r->info, &w, &h, &depth, &colorType, &interlace, nullptr, nullptr);
    out.width = w;
    out.height = h;
    out.bitsPerComponent = depth == 16 ? 16 : 8;
    out.hasAlpha =
        (colorType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r->png, r->info, PNG_INFO_tRNS);
    out.model =
        (colorType & PNG_COLOR_MASK_COLOR) ? ColorSpace::Model::RGB : ColorSpace::Model::Gray;
    PlistDictionary family;
    family["InterlaceType"] = interlace;
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 profileLength = 0;
    int compression = 0;
    if (png_get_iCCP(r->png, r->info, &name, &compression, &profile, &profileLength) && profile)
        out.icc.assign(profile, profile + profileLength);
    double gamma = 0;
    if (png_get_gAMA(r->png, r->info, &gamma)) family["Gamma"] = gamma;
    int srgbIntent = 0;
    if (png_get_sRGB(r->png, r->info, &srgbIntent)) family["sRGBIntent"] = srgbIntent;
    png_uint_32 xppm = 0, yppm = 0;
    int unit = 0;
    if (png_get_pHYs(r->png, r->info, &xppm, &yppm, &unit)) {
        family[kCGImagePropertyPNGXPixelsPerMeter] = static_cast<std::int64_t>(xppm);
        family[kCGImagePropertyPNGYPixelsPerMeter] = static_cast<std::int64_t>(yppm);
        if (unit == PNG_RESOLUTION_METER && xppm > 0 && yppm > 0) {
            out.properties[kCGImagePropertyDPIWidth] = dpiFromPixelsPerMeter(xppm);
            out.properties[kCGImagePropertyDPIHeight] = dpiFromPixelsPerMeter(yppm);
        }
    }
    png_timep time = nullptr;
    if (png_get_tIME(r->png, r->info, &time) && time) {
        char text[32];
        std::snprintf(text, sizeof text, "%04u:%02u:%02u %02u:%02u:%02u",
                      static_cast<unsigned>(time->year), time->month, time->day, time->hour,
                      time->minute, time->second);
        family[kCGImagePropertyPNGModificationTime] = std::string(text);
    }
    readTexts(r->png, r->info, family, out.xmp);
    readTrailingTexts(data, size, family, out.xmp);
    png_bytep exif = nullptr;
    png_uint_32 exifLength = 0;
    if (png_get_eXIf_1(r->png, r->info, &exifLength, &exif) && exif)
        out.exif.assign(exif, exif + exifLength);
    out.properties[kCGImagePropertyPNGDictionary] = std::move(family);
    return true;
}

PlistDictionary pngTextChunks(Bytes data, std::size_t size) {
    auto r = std::make_unique<Reader>();
    std::string why;
    auto texts = std::make_unique<PlistDictionary>();
    if (!pngSniff(data, size) || !openReader(*r, data, size, why)) return {};
    if (setjmp(png_jmpbuf(r->png))) return {};
    png_read_info(r->png, r->info);
    png_textp chunks = nullptr;
    const int count = png_get_text(r->png, r->info, &chunks, nullptr);
    for (int i = 0; i < count; ++i)
        (*texts)[chunks[i].key] = std::string(chunks[i].text ? chunks[i].text : "");
    return std::move(*texts);
}

namespace {

// What the whole decode and the row decoder share: libpng's transformations to the layout of
// createImageAtIndex, and the picture's shape. Runs under the caller's setjmp.
struct PngShape {
    png_uint_32 width = 0, height = 0;
    int interlace = 0;
    PixelLayout layout;
    std::size_t stride = 0;
    ColorSpace::Model model = ColorSpace::Model::RGB;
    int depth = 8, colorType = 0;
    bool trns = false;
};

bool setUpDecoding(Reader& r, PngShape& shape, std::vector<std::uint8_t>& icc, std::string& why) {
    png_read_info(r.png, r.info);
    int depth = 0, colorType = 0;
    png_get_IHDR(r.png, r.info, &shape.width, &shape.height, &depth, &colorType, &shape.interlace,
                 nullptr, nullptr);
    bool trns = png_get_valid(r.png, r.info, PNG_INFO_tRNS);
    shape.depth = depth, shape.colorType = colorType, shape.trns = trns;
    bool alpha = (colorType & PNG_COLOR_MASK_ALPHA) || trns;
    bool gray = !(colorType & PNG_COLOR_MASK_COLOR) && colorType != PNG_COLOR_TYPE_PALETTE;
    int bits = depth == 16 ? 16 : 8;
    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png);
    if (gray && depth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
    if (trns) png_set_tRNS_to_alpha(r.png);
    if (gray && alpha) {
        png_set_gray_to_rgb(r.png);
        gray = false;
    }
    if (!gray && !alpha) png_set_filler(r.png, bits == 16 ? 0xFFFF : 0xFF, PNG_FILLER_AFTER);
    if (bits == 16) png_set_swap(r.png);
    png_set_interlace_handling(r.png);
    png_read_update_info(r.png, r.info);
    shape.layout = PixelLayout{bits, gray ? 1 : 3,
                               gray    ? kCGImageAlphaNone
                               : alpha ? kCGImageAlphaLast
                                       : kCGImageAlphaNoneSkipLast};
    shape.stride = static_cast<std::size_t>(shape.width) * shape.layout.bytesPerPixel();
    if (png_get_rowbytes(r.png, r.info) != shape.stride) {
        why = "unexpected row layout";
        return false;
    }
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 profileLength = 0;
    int compression = 0;
    if (png_get_iCCP(r.png, r.info, &name, &compression, &profile, &profileLength) && profile)
        icc.assign(profile, profile + profileLength);
    shape.model = gray ? ColorSpace::Model::Gray : ColorSpace::Model::RGB;
    dropUnusableProfile(icc, shape.model);
    return true;
}

// The channels of a row of `colorType` that PngPixelRows can give, in the file's order; 0 for
// those that libpng must transform beyond what pngRowLayout does (palettes, a tRNS chunk,
// samples of fewer than 8 bits).
int directChannels(const PngShape& shape) {
    if (shape.trns || (shape.depth != 8 && shape.depth != 16)) return 0;
    if (shape.interlace != PNG_INTERLACE_NONE) return 0;
    switch (shape.colorType) {
        case PNG_COLOR_TYPE_GRAY:
            return 1;
        case PNG_COLOR_TYPE_GRAY_ALPHA:
            return 2;
        case PNG_COLOR_TYPE_RGB:
            return 3;
        case PNG_COLOR_TYPE_RGB_ALPHA:
            return 4;
        default:
            return 0;
    }
}

// A row in PNG order into the layout setUpDecoding asks libpng for: gray with alpha widened to
// RGBA, RGB given an opaque fourth sample, 16-bit samples in the machine's order.
void pngRowLayout(const std::uint8_t* in, std::size_t width, int channels, bool sixteen,
                  std::uint8_t* out) {
    if (!sixteen && (channels == 1 || channels == 4)) {
        std::memcpy(out, in, width * channels);
        return;
    }
    if (sixteen && (channels == 1 || channels == 4)) {
        const std::size_t samples = width * channels;
        for (std::size_t i = 0; i < samples; ++i) {
            out[2 * i] = in[2 * i + 1];
            out[2 * i + 1] = in[2 * i];
        }
        return;
    }
    const std::size_t bytes = sixteen ? 2 : 1;
    for (std::size_t x = 0; x < width; ++x, in += channels * bytes, out += 4 * bytes) {
        const std::uint8_t* samples[4];
        const std::uint8_t opaque[2] = {0xFF, 0xFF};
        if (channels == 2) {
            samples[0] = samples[1] = samples[2] = in, samples[3] = in + bytes;
        } else {
            samples[0] = in, samples[1] = in + bytes, samples[2] = in + 2 * bytes;
            samples[3] = opaque;
        }
        for (int c = 0; c < 4; ++c) {
            if (sixteen) {
                out[2 * c] = samples[c][1];
                out[2 * c + 1] = samples[c][0];
            } else {
                out[c] = samples[c][0];
            }
        }
    }
}

// Every row into `pixels` (shape.stride apart) without libpng, where directChannels allows.
bool decodeDirect(Bytes data, std::size_t size, const PngShape& shape, std::uint8_t* pixels,
                  std::string& why) {
    const int channels = directChannels(shape);
    const bool sixteen = shape.depth == 16;
    const std::size_t pixelBytes = std::size_t(channels) * (sixteen ? 2 : 1);
    PngPixelRows rows(data, size, shape.width * pixelBytes, pixelBytes, shape.height);
    for (std::size_t y = 0; y < shape.height; ++y) {
        const std::uint8_t* row = rows.next(why);
        if (!row) return false;
        pngRowLayout(row, shape.width, channels, sixteen, pixels + y * shape.stride);
    }
    return true;
}

class PngRowDecoder final : public RowDecoder {
  public:
    const Bitmap& shape() const override { return _shape; }

    bool readRow(std::uint8_t* out, std::string& why) override {
        if (_next >= _shape.height()) return why = "no more rows", false;
        if (_pixels) {
            const std::uint8_t* row = _pixels->next(why);
            if (!row) return false;
            pngRowLayout(row, _shape.width(), _channels, _sixteen, out);
            ++_next;
            return true;
        }
        return readTransformed(out, why);
    }

    // Opens the decoder; false with `why` empty for a file that has no row decoder.
    bool open(Bytes data, std::size_t size, std::string& why) {
        _r = std::make_unique<Reader>();
        if (!openReader(*_r, data, size, why)) return false;
        auto icc = std::make_unique<std::vector<std::uint8_t>>();
        auto shape = std::make_unique<PngShape>();
        if (setjmp(png_jmpbuf(_r->png))) {
            why = _r->message;
            return false;
        }
        if (!setUpDecoding(*_r, *shape, *icc, why)) return false;
        if (shape->interlace != PNG_INTERLACE_NONE) return false;
        _shape = Bitmap::strip(shape->width, shape->height, shape->layout,
                               std::make_shared<const ColorSpace>(shape->model, std::move(*icc)), 0,
                               0, nullptr, shape->stride);
        // libpng has read everything before the pixels; they are inflated and unfiltered
        // apart from it where no transformation but the layout's is needed.
        _channels = directChannels(*shape);
        _sixteen = shape->depth == 16;
        if (_channels) {
            const std::size_t pixelBytes = std::size_t(_channels) * (_sixteen ? 2 : 1);
            _pixels = std::make_unique<PngPixelRows>(data, size, shape->width * pixelBytes,
                                                     pixelBytes, shape->height);
        }
        return true;
    }

  private:
    // A row through libpng's transformations (which alone set the jump target).
    bool readTransformed(std::uint8_t* out, std::string& why) {
        if (setjmp(png_jmpbuf(_r->png))) {
            why = _r->message;
            return false;
        }
        png_read_row(_r->png, out, nullptr);
        ++_next;
        return true;
    }

    std::unique_ptr<Reader> _r;
    std::unique_ptr<PngPixelRows> _pixels;
    int _channels = 0;
    bool _sixteen = false;
    Bitmap _shape;
    std::size_t _next = 0;
};

}  // namespace

std::unique_ptr<RowDecoder> pngRowDecoder(Bytes data, std::size_t size, std::string& why) {
    auto decoder = std::make_unique<PngRowDecoder>();
    if (!decoder->open(data, size, why)) return nullptr;
    return readAhead(std::move(decoder));
}

std::optional<Bitmap> pngDecode(Bytes data, std::size_t size, std::string& why) {
    auto r = std::make_unique<Reader>();
    if (!openReader(*r, data, size, why)) return std::nullopt;
    auto pixels = std::make_unique<std::vector<std::uint8_t>>();
    auto rows = std::make_unique<std::vector<png_bytep>>();
    auto icc = std::make_unique<std::vector<std::uint8_t>>();
    auto shape = std::make_unique<PngShape>();
    if (setjmp(png_jmpbuf(r->png))) {
        why = r->message;
        return std::nullopt;
    }
    if (!setUpDecoding(*r, *shape, *icc, why)) return std::nullopt;
    const std::size_t stride = shape->stride;
    const png_uint_32 h = shape->height;
    pixels->resize(stride * h);
    if (directChannels(*shape)) {
        // The pixel data apart from libpng, as the row decoder reads them.
        if (!decodeDirect(data, size, *shape, pixels->data(), why)) return std::nullopt;
    } else {
        rows->resize(h);
        for (png_uint_32 y = 0; y < h; ++y) (*rows)[y] = pixels->data() + stride * y;
        png_read_image(r->png, rows->data());
    }
    // Chunks after the pixels are not needed, and a missing end is no damage to the image.
    return Bitmap(shape->width, h, shape->layout, ColorSpace(shape->model, std::move(*icc)),
                  std::move(*pixels), stride);
}

}  // namespace platform::codecs
