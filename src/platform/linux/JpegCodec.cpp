// JPEG through libjpeg-turbo. libjpeg reports fatal errors by longjmp; every jump lands in this
// file, inside the function that set it, and no C++ object with a destructor lives across one.
#include <setjmp.h>
// clang-format off
#include <algorithm>
#include <cstdio>
#include <jpeglib.h>
#include <jerror.h>
// clang-format on
#include <lcms2.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "platform/ImagePropertyKeys.h"
#include "platform/linux/ImageCodecs.h"
#include "platform/linux/PixelMemory.h"

namespace platform::codecs {
namespace {

struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void onError(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    longjmp(err->jump, 1);
}

// A file that ends early decodes as grey in libjpeg; here it is an error, like any damage.
void onMessage(j_common_ptr cinfo, int level) {
    if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) onError(cinfo);
}

// A progressive file may hold any number of scans, each one a pass over the whole picture,
// so that a small file can keep the decoder busy for minutes; real files have about a dozen.
constexpr int kMaxScans = 500;
// The whole-picture coefficient buffers of progressive and multi-scan files are refused above
// this, before they are allocated; the pixels themselves are bounded by the image source.
constexpr long kMaxDecoderMemory = 1L << 30;

void onProgress(j_common_ptr common) {
    if (!common->is_decompressor) return;
    auto* cinfo = reinterpret_cast<j_decompress_ptr>(common);
    if (cinfo->input_scan_number <= kMaxScans) return;
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    std::snprintf(err->message, sizeof err->message,
                  "more than %d scans (damaged file or a decoding bomb)", kMaxScans);
    longjmp(err->jump, 1);
}

// The decompressor and its buffers live in one heap block that outlives any longjmp.
struct Decoder {
    jpeg_decompress_struct cinfo{};
    jpeg_progress_mgr progress{};
    ErrorManager err{};
    bool created = false;
    ~Decoder() {
        if (created) jpeg_destroy_decompress(&cinfo);
    }
};

bool openHeader(Decoder& d, Bytes data, std::size_t size, std::string& why) {
    d.cinfo.err = jpeg_std_error(&d.err.pub);
    d.err.pub.error_exit = onError;
    d.err.pub.emit_message = onMessage;
    if (setjmp(d.err.jump)) {
        why = d.err.message;
        return false;
    }
    jpeg_create_decompress(&d.cinfo);
    d.created = true;
    d.cinfo.mem->max_memory_to_use = kMaxDecoderMemory;
    d.progress.progress_monitor = onProgress;
    d.cinfo.progress = &d.progress;
    jpeg_mem_src(&d.cinfo, data, static_cast<unsigned long>(size));
    // Only the ICC profile's segments are kept; each is at most 64 KiB and they cannot add up
    // to more than the file.
    jpeg_save_markers(&d.cinfo, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&d.cinfo, TRUE);
    return true;
}

std::vector<std::uint8_t> readIcc(Decoder& d) {
    JOCTET* icc = nullptr;
    unsigned int length = 0;
    std::vector<std::uint8_t> out;
    if (jpeg_read_icc_profile(&d.cinfo, &icc, &length) && icc) {
        out.assign(icc, icc + length);
        std::free(icc);
    }
    return out;
}

bool isCmyk(const jpeg_decompress_struct& cinfo) {
    return cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
}

// CMYK pixels (as libjpeg gives them, inverted when an Adobe marker says so) to RGBX through
// the embedded profile, or through a generic profile when there is none.
bool cmykToRgb(const std::vector<std::uint8_t>& icc, bool inverted, std::uint8_t* pixels,
               std::size_t count, std::string& why) {
    cmsHPROFILE in =
        icc.empty() ? nullptr
                    : cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size()));
    if (in && cmsGetColorSpace(in) != cmsSigCmykData) {
        cmsCloseProfile(in);
        in = nullptr;
    }
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    cmsHTRANSFORM transform = nullptr;
    if (in) {
        transform = cmsCreateTransform(in, inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8, srgb,
                                       TYPE_RGBA_8, INTENT_PERCEPTUAL, 0);
    }
    if (transform) {
        cmsDoTransform(transform, pixels, pixels, static_cast<cmsUInt32Number>(count));
        cmsDeleteTransform(transform);
    } else {
        // Without a usable profile: the plain complement formula.
        for (std::size_t i = 0; i < count; ++i) {
            std::uint8_t* p = pixels + i * 4;
            int c = p[0], m = p[1], y = p[2], k = p[3];
            if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
            p[0] = static_cast<std::uint8_t>(c * k / 255);
            p[1] = static_cast<std::uint8_t>(m * k / 255);
            p[2] = static_cast<std::uint8_t>(y * k / 255);
        }
    }
    for (std::size_t i = 0; i < count; ++i) pixels[i * 4 + 3] = 255;
    if (in) cmsCloseProfile(in);
    cmsCloseProfile(srgb);
    (void)why;
    return true;
}

std::optional<Bitmap> finishDecode(const jpeg_decompress_struct& c, std::vector<std::uint8_t> icc,
                                   std::vector<std::uint8_t> pixels, std::size_t stride,
                                   std::string& why) {
    bool gray = c.num_components == 1;
    std::size_t width = c.output_width, height = c.output_height;
    PixelLayout layout{8, gray ? 1 : 3, gray ? kCGImageAlphaNone : kCGImageAlphaNoneSkipLast};
    const auto model = gray        ? ColorSpace::Model::Gray
                       : isCmyk(c) ? ColorSpace::Model::CMYK
                                   : ColorSpace::Model::RGB;
    dropUnusableProfile(icc, model);
    ColorSpace space(model == ColorSpace::Model::CMYK ? ColorSpace::Model::RGB : model, icc);
    if (isCmyk(c)) {
        if (!cmykToRgb(icc, c.saw_Adobe_marker, pixels.data(), width * height, why))
            return std::nullopt;
        space = ColorSpace::deviceRGB();
    }
    return Bitmap(width, height, layout, std::move(space), std::move(pixels), stride);
}

struct Encoder {
    jpeg_compress_struct cinfo{};
    ErrorManager err{};
    bool created = false;
    ~Encoder() {
        if (created) jpeg_destroy_compress(&cinfo);
    }
};

}  // namespace

bool jpegSniff(Bytes data, std::size_t size) {
    return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

bool jpegReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why) {
    auto d = std::make_unique<Decoder>();
    if (!openHeader(*d, data, size, why)) return false;
    auto& c = d->cinfo;
    info.width = c.image_width;
    info.height = c.image_height;
    info.bitsPerComponent = 8;
    info.hasAlpha = false;
    info.model = c.num_components == 1 ? ColorSpace::Model::Gray
                 : isCmyk(c)           ? ColorSpace::Model::CMYK
                                       : ColorSpace::Model::RGB;
    if (setjmp(d->err.jump)) {
        why = d->err.message;
        return false;
    }
    info.icc = readIcc(*d);
    PlistDictionary jfif;
    if (c.saw_JFIF_marker) {
        jfif["Version"] =
            PlistArray{PlistValue(c.JFIF_major_version), PlistValue(c.JFIF_minor_version)};
        jfif[kCGImagePropertyJFIFXDensity] = static_cast<int>(c.X_density);
        jfif[kCGImagePropertyJFIFYDensity] = static_cast<int>(c.Y_density);
        jfif[kCGImagePropertyJFIFDensityUnit] = static_cast<int>(c.density_unit);
        double scale = c.density_unit == 1 ? 1.0 : c.density_unit == 2 ? 2.54 : 0.0;
        if (scale > 0 && c.X_density > 0 && c.Y_density > 0) {
            info.properties[kCGImagePropertyDPIWidth] = c.X_density * scale;
            info.properties[kCGImagePropertyDPIHeight] = c.Y_density * scale;
        }
    }
    jfif[kCGImagePropertyJFIFIsProgressive] = static_cast<bool>(c.progressive_mode);
    info.properties[kCGImagePropertyJFIFDictionary] = std::move(jfif);
    return true;
}

std::optional<Bitmap> jpegDecode(Bytes data, std::size_t size, std::string& why) {
    return jpegDecodeReduced(data, size, 1, why);
}

std::optional<Bitmap> jpegDecodeReduced(Bytes data, std::size_t size, unsigned denominator,
                                        std::string& why) {
    if (denominator != 1 && denominator != 2 && denominator != 4 && denominator != 8) {
        why = "a JPEG decodes reduced by 2, 4 or 8 only";
        return std::nullopt;
    }
    auto d = std::make_unique<Decoder>();
    if (!openHeader(*d, data, size, why)) return std::nullopt;
    auto& c = d->cinfo;
    auto icc = std::make_unique<std::vector<std::uint8_t>>();
    auto pixels = std::make_unique<std::vector<std::uint8_t>>();
    if (setjmp(d->err.jump)) {
        why = d->err.message;
        return std::nullopt;
    }
    *icc = readIcc(*d);
    c.out_color_space = c.num_components == 1 ? JCS_GRAYSCALE : isCmyk(c) ? JCS_CMYK : JCS_EXT_RGBX;
    // The scaled inverse DCT gives each output pixel the mean of its block of source pixels.
    c.scale_num = 1;
    c.scale_denom = denominator;
    jpeg_start_decompress(&c);
    std::size_t stride = std::size_t(c.output_width) * std::size_t(c.output_components);
    *pixels = pixelMemory(stride * c.output_height);
    while (c.output_scanline < c.output_height) {
        JSAMPROW row = pixels->data() + stride * c.output_scanline;
        jpeg_read_scanlines(&c, &row, 1);
    }
    jpeg_finish_decompress(&c);
    return finishDecode(c, std::move(*icc), std::move(*pixels), stride, why);
}

namespace {

class JpegRowDecoder final : public RowDecoder {
  public:
    const Bitmap& shape() const override { return _shape; }

    bool readRow(std::uint8_t* out, std::string& why) override {
        auto& c = _d->cinfo;
        if (c.output_scanline >= c.output_height) return why = "no more rows", false;
        if (setjmp(_d->err.jump)) {
            why = _d->err.message;
            return false;
        }
        JSAMPROW row = out;
        jpeg_read_scanlines(&c, &row, 1);
        // The end is checked as the whole decode checks it.
        if (c.output_scanline == c.output_height) jpeg_finish_decompress(&c);
        return true;
    }

    // Opens the decoder; false with `why` empty for a file that has no row decoder.
    bool open(Bytes data, std::size_t size, unsigned denominator, std::string& why) {
        _d = std::make_unique<Decoder>();
        if (!openHeader(*_d, data, size, why)) return false;
        auto& c = _d->cinfo;
        if (isCmyk(c)) return false;
        auto icc = std::make_unique<std::vector<std::uint8_t>>();
        if (setjmp(_d->err.jump)) {
            why = _d->err.message;
            return false;
        }
        *icc = readIcc(*_d);
        const bool gray = c.num_components == 1;
        c.out_color_space = gray ? JCS_GRAYSCALE : JCS_EXT_RGBX;
        c.scale_num = 1;
        c.scale_denom = denominator;
        jpeg_start_decompress(&c);
        const auto model = gray ? ColorSpace::Model::Gray : ColorSpace::Model::RGB;
        dropUnusableProfile(*icc, model);
        const PixelLayout layout{8, gray ? 1 : 3,
                                 gray ? kCGImageAlphaNone : kCGImageAlphaNoneSkipLast};
        const std::size_t stride = std::size_t(c.output_width) * std::size_t(c.output_components);
        _shape = Bitmap::strip(c.output_width, c.output_height, layout,
                               std::make_shared<const ColorSpace>(model, std::move(*icc)), 0, 0,
                               nullptr, stride);
        return true;
    }

  private:
    std::unique_ptr<Decoder> _d;
    Bitmap _shape;
};

}  // namespace

std::unique_ptr<RowDecoder> jpegRowDecoder(Bytes data, std::size_t size, unsigned denominator,
                                           std::string& why) {
    if (denominator != 1 && denominator != 2 && denominator != 4 && denominator != 8) {
        why = "a JPEG decodes reduced by 2, 4 or 8 only";
        return nullptr;
    }
    auto decoder = std::make_unique<JpegRowDecoder>();
    if (!decoder->open(data, size, denominator, why)) return nullptr;
    return decoder;
}

bool jpegEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why) {
    auto e = std::make_unique<Encoder>();
    bool gray = image.layout().colorComponents == 1;
    // Opaque 8-bit RGB with a skip byte goes to libjpeg as it is, with no row conversion.
    const PixelLayout& layout = image.layout();
    J_COLOR_SPACE direct = JCS_UNKNOWN;
    if (layout.bitsPerComponent == 8 && layout.colorComponents == 3) {
        if (layout.alphaInfo == kCGImageAlphaNoneSkipLast) direct = JCS_EXT_RGBX;
        if (layout.alphaInfo == kCGImageAlphaNoneSkipFirst) direct = JCS_EXT_XRGB;
    }
    std::vector<std::uint8_t> row(direct == JCS_UNKNOWN ? image.width() * (gray ? 1 : 3) : 0);
    e->cinfo.err = jpeg_std_error(&e->err.pub);
    e->err.pub.error_exit = onError;
    if (setjmp(e->err.jump)) {
        why = e->err.message;
        return false;
    }
    auto& c = e->cinfo;
    jpeg_create_compress(&c);
    e->created = true;
    jpeg_stdio_dest(&c, file);
    c.image_width = static_cast<JDIMENSION>(image.width());
    c.image_height = static_cast<JDIMENSION>(image.height());
    c.input_components = direct != JCS_UNKNOWN ? 4 : gray ? 1 : 3;
    c.in_color_space = direct != JCS_UNKNOWN ? direct : gray ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    int quality = static_cast<int>(std::lround(options.quality * 100));
    jpeg_set_quality(&c, quality < 1 ? 1 : quality > 100 ? 100 : quality, TRUE);
    auto dpiX = options.dpiX, dpiY = options.dpiY;
    if (options.properties) {
        // A JFIF family with a density unit wins over the top-level DPI for the JFIF header.
        const PlistValue& jfif = valueForKey(*options.properties, kCGImagePropertyJFIFDictionary);
        if (jfif[kCGImagePropertyJFIFDensityUnit].integerValue() == 1 &&
            jfif[kCGImagePropertyJFIFXDensity].integerValue() > 0 &&
            jfif[kCGImagePropertyJFIFYDensity].integerValue() > 0) {
            dpiX = jfif[kCGImagePropertyJFIFXDensity].doubleValue();
            dpiY = jfif[kCGImagePropertyJFIFYDensity].doubleValue();
        }
    }
    if (dpiX && dpiY) {
        c.density_unit = 1;
        c.X_density = static_cast<UINT16>(std::lround(std::min(*dpiX, 65535.0)));
        c.Y_density = static_cast<UINT16>(std::lround(std::min(*dpiY, 65535.0)));
    }
    jpeg_start_compress(&c, TRUE);
    const auto& icc = image.colorSpace().iccProfile();
    if (!icc.empty()) jpeg_write_icc_profile(&c, icc.data(), static_cast<unsigned>(icc.size()));
    while (c.next_scanline < c.image_height) {
        const Bitmap* rows = options.rows ? (*options.rows)(c.next_scanline) : &image;
        if (!rows) return why = "the picture's rows stopped coming", false;
        JSAMPROW r = row.data();
        if (direct != JCS_UNKNOWN)
            r = const_cast<JSAMPROW>(rows->row(c.next_scanline));  // libjpeg only reads it
        else
            unpackRow8(*rows, c.next_scanline, gray, false, row.data());
        jpeg_write_scanlines(&c, &r, 1);
    }
    jpeg_finish_compress(&c);
    return true;
}

}  // namespace platform::codecs
