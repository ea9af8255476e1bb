// TIFF through libtiff, read from memory with a client I/O and written to a file. libtiff's
// messages go through handlers set once here into a per-thread buffer, never to stderr.
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <mutex>

#include "platform/ImagePropertyKeys.h"
#include "platform/linux/ImageCodecs.h"

namespace platform::codecs {
namespace {

thread_local std::string tiffMessage;

void onTiffError(const char* module, const char* format, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    tiffMessage = std::string(module ? module : "tiff") + ": " + text;
}

void onTiffWarning(const char*, const char*, va_list) {}

void installHandlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetErrorHandler(onTiffError);
        TIFFSetWarningHandler(onTiffWarning);
    });
}

struct Memory {
    Bytes data;
    std::size_t size;
    toff_t offset = 0;
};

tsize_t memRead(thandle_t h, tdata_t buf, tsize_t n) {
    auto* m = static_cast<Memory*>(h);
    if (n < 0 || m->offset >= m->size) return 0;
    std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(n), m->size - m->offset);
    std::memcpy(buf, m->data + m->offset, count);
    m->offset += count;
    return static_cast<tsize_t>(count);
}
tsize_t memWrite(thandle_t, tdata_t, tsize_t) {
    return 0;
}
toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto* m = static_cast<Memory*>(h);
    toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m->offset : m->size;
    m->offset = base + off;
    return m->offset;
}
int memClose(thandle_t) {
    return 0;
}
toff_t memSize(thandle_t h) {
    return static_cast<Memory*>(h)->size;
}
int memMap(thandle_t, tdata_t*, toff_t*) {
    return 0;
}
void memUnmap(thandle_t, tdata_t, toff_t) {}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

constexpr tmsize_t kMaxSingleAllocation = tmsize_t(256) << 20;

TiffPtr openMemory(Memory& m, std::string& why) {
    installHandlers();
    tiffMessage.clear();
    // No single allocation of libtiff (a directory's tag arrays, a strip or tile buffer) may
    // exceed this, so that a few bytes claiming huge tags or strips fail before they cost
    // memory. Our own raster is bounded by the image source's pixel limits instead.
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                         TIFFOpenOptionsFree);
    if (options) TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMaxSingleAllocation);
    TIFF* t = TIFFClientOpenExt("memory", "rm", &m, memRead, memWrite, memSeek, memClose, memSize,
                                memMap, memUnmap, options.get());
    if (!t) why = tiffMessage.empty() ? "not a readable TIFF" : tiffMessage;
    return TiffPtr(t);
}

struct Layout {
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 1, samples = 1, photometric = 0, planar = 1, extraCount = 0;
    std::uint16_t* extra = nullptr;
    bool alpha = false, associated = false;
};

Layout readLayout(TIFF* t) {
    Layout l;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &l.width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &l.height);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &l.planar);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &l.photometric))
        l.photometric = l.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    if (TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &l.extraCount, &l.extra) && l.extraCount > 0) {
        l.alpha = l.extra[0] == EXTRASAMPLE_ASSOCALPHA || l.extra[0] == EXTRASAMPLE_UNASSALPHA;
        l.associated = l.extra[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    return l;
}

std::vector<std::uint8_t> readIcc(TIFF* t) {
    std::uint32_t length = 0;
    void* data = nullptr;
    if (TIFFGetField(t, TIFFTAG_ICCPROFILE, &length, &data) && data && length > 0)
        return std::vector<std::uint8_t>(static_cast<std::uint8_t*>(data),
                                         static_cast<std::uint8_t*>(data) + length);
    return {};
}

// Contiguous RGB or grey in 8 or 16 bits, striped, with at most an alpha as extra sample:
// read as they are, keeping the depth. Everything else goes through libtiff's RGBA reader.
bool isDirectLayout(TIFF* t, const Layout& l) {
    bool rgb = l.photometric == PHOTOMETRIC_RGB && l.samples == 3 + l.extraCount;
    bool gray = l.photometric == PHOTOMETRIC_MINISBLACK && l.samples == 1 + l.extraCount;
    std::uint16_t format = SAMPLEFORMAT_UINT;
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
    return (rgb || gray) && (l.bits == 8 || l.bits == 16) && l.planar == PLANARCONFIG_CONTIG &&
           l.extraCount <= 1 && !TIFFIsTiled(t) && format == SAMPLEFORMAT_UINT;
}

// The rows of a direct layout as they are stored, RGB given a fourth sample when it has none.
class DirectRows {
  public:
    DirectRows(TIFF* t, const Layout& l)
        : _l(l),
          _gray(l.photometric == PHOTOMETRIC_MINISBLACK),
          _layout{l.bits, _gray ? 1 : 3,
                  l.alpha ? (l.associated ? kCGImageAlphaPremultipliedLast : kCGImageAlphaLast)
                  : l.extraCount ? kCGImageAlphaNoneSkipLast
                  : _gray        ? kCGImageAlphaNone
                                 : kCGImageAlphaNoneSkipLast},
          _scan(static_cast<std::size_t>(TIFFScanlineSize64(t))) {}

    bool valid() const {
        return _scan >= static_cast<std::size_t>(_l.width) * _l.samples * (_l.bits / 8);
    }
    std::size_t scanlineSize() const { return _scan; }
    std::size_t stride() const {
        return static_cast<std::size_t>(_l.width) * _layout.bytesPerPixel();
    }
    const PixelLayout& layout() const { return _layout; }
    ColorSpace::Model model() const {
        return _gray ? ColorSpace::Model::Gray : ColorSpace::Model::RGB;
    }

    // Row `y` into `out`, through `line` (scanlineSize() bytes).
    bool read(TIFF* t, std::uint32_t y, std::uint8_t* line, std::uint8_t* out,
              std::string& why) const {
        if (TIFFReadScanline(t, line, y, 0) < 0)
            return why = tiffMessage.empty() ? "damaged strip" : tiffMessage, false;
        if (static_cast<std::size_t>(_layout.samplesPerPixel()) == _l.samples) {
            std::memcpy(out, line, stride());
            return true;
        }
        const std::size_t bps = _l.bits / 8;
        for (std::size_t x = 0; x < _l.width; ++x) {  // RGB without a fourth sample
            std::memcpy(out + x * 4 * bps, line + x * 3 * bps, 3 * bps);
            std::memset(out + (x * 4 + 3) * bps, 0xFF, bps);
        }
        return true;
    }

  private:
    Layout _l;
    bool _gray;
    PixelLayout _layout;
    std::size_t _scan;
};

// What libtiff's RGBA reader gives: 8-bit RGB with straight alpha or a skipped fourth byte.
PixelLayout rgbaLayout(const Layout& l) {
    return {8, 3, l.alpha ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
}

// The RGBA reader's colour space: a profile for grey or ink no longer fits its RGB.
ColorSpace rgbaColorSpace(const Layout& l, std::vector<std::uint8_t> icc) {
    bool keepProfile = l.photometric != PHOTOMETRIC_SEPARATED &&
                       l.photometric != PHOTOMETRIC_MINISBLACK &&
                       l.photometric != PHOTOMETRIC_MINISWHITE;
    if (!keepProfile) icc.clear();
    dropUnusableProfile(icc, ColorSpace::Model::RGB);
    return ColorSpace(ColorSpace::Model::RGB, std::move(icc));
}

}  // namespace

bool tiffSniff(Bytes data, std::size_t size) {
    return size >= 4 && (std::memcmp(data, "II*\0", 4) == 0 || std::memcmp(data, "MM\0*", 4) == 0);
}

bool tiffReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why) {
    Memory m{data, size};
    TiffPtr t = openMemory(m, why);
    if (!t) return false;
    Layout l = readLayout(t.get());
    info.width = l.width;
    info.height = l.height;
    info.bitsPerComponent = isDirectLayout(t.get(), l) ? l.bits : 8;
    info.hasAlpha = l.alpha;
    info.model =
        l.photometric == PHOTOMETRIC_SEPARATED ? ColorSpace::Model::CMYK
        : (l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE)
            ? ColorSpace::Model::Gray
            : ColorSpace::Model::RGB;
    info.icc = readIcc(t.get());
    float xres = 0, yres = 0;
    std::uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(t.get(), TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(t.get(), TIFFTAG_XRESOLUTION, &xres) &&
        TIFFGetField(t.get(), TIFFTAG_YRESOLUTION, &yres) && xres > 0 && yres > 0 &&
        unit != RESUNIT_NONE) {
        double scale = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
        info.properties[kCGImagePropertyDPIWidth] = xres * scale;
        info.properties[kCGImagePropertyDPIHeight] = yres * scale;
    }
    return true;
}

std::optional<Bitmap> tiffDecode(Bytes data, std::size_t size, std::string& why) {
    Memory m{data, size};
    TiffPtr t = openMemory(m, why);
    if (!t) return std::nullopt;
    Layout l = readLayout(t.get());
    if (l.width == 0 || l.height == 0) return why = "no image in the file", std::nullopt;
    std::vector<std::uint8_t> icc = readIcc(t.get());
    if (isDirectLayout(t.get(), l)) {
        const DirectRows direct(t.get(), l);
        if (!direct.valid()) return why = "bad scanline size", std::nullopt;
        const std::size_t stride = direct.stride();
        std::vector<std::uint8_t> pixels(stride * l.height);
        std::vector<std::uint8_t> line(direct.scanlineSize());
        for (std::uint32_t y = 0; y < l.height; ++y)
            if (!direct.read(t.get(), y, line.data(), pixels.data() + stride * y, why))
                return std::nullopt;
        const auto model = direct.model();
        dropUnusableProfile(icc, model);
        return Bitmap(l.width, l.height, direct.layout(), ColorSpace(model, std::move(icc)),
                      std::move(pixels), stride);
    }
    // libtiff's general reader: every photometric and tiling, 8-bit RGBA with straight alpha.
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(l.width) * l.height * 4);
    char message[1024] = {0};
    if (!TIFFRGBAImageOK(t.get(), message))
        return why = std::string("unsupported layout: ") + message, std::nullopt;
    if (!TIFFReadRGBAImageOriented(t.get(), l.width, l.height,
                                   reinterpret_cast<std::uint32_t*>(pixels.data()),
                                   ORIENTATION_TOPLEFT, 0))
        return why = tiffMessage.empty() ? "damaged image data" : tiffMessage, std::nullopt;
    return Bitmap(l.width, l.height, rgbaLayout(l), rgbaColorSpace(l, std::move(icc)),
                  std::move(pixels));
}

namespace {

// Whether libtiff's RGBA reader, asked for rows top first, turns rows of this file in place:
// a file stored bottom up is turned over as a whole, which no band can do alone.
bool flipsRowsOnly(TIFF* t) {
    std::uint16_t orientation = ORIENTATION_TOPLEFT;
    TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &orientation);
    return orientation == ORIENTATION_TOPLEFT || orientation == ORIENTATION_TOPRIGHT ||
           orientation == ORIENTATION_LEFTTOP || orientation == ORIENTATION_RIGHTTOP;
}

// The layouts the RGBA reader serves that also stream: 8 or 16 bits, in the
// colour models whose rows come out as the whole picture's do. CMYK, other depths and files
// stored bottom up are left to the whole decode.
bool streamsAsRgba(TIFF* t, const Layout& l) {
    bool model = l.photometric == PHOTOMETRIC_RGB || l.photometric == PHOTOMETRIC_MINISBLACK ||
                 l.photometric == PHOTOMETRIC_MINISWHITE || l.photometric == PHOTOMETRIC_YCBCR ||
                 l.photometric == PHOTOMETRIC_PALETTE;
    bool depth = l.bits == 8 || l.bits == 16;
    char message[1024] = {0};
    return model && depth && flipsRowsOnly(t) && TIFFRGBAImageOK(t, message);
}

class TiffRowDecoder final : public RowDecoder {
  public:
    ~TiffRowDecoder() override {
        if (_rgbaOpen) TIFFRGBAImageEnd(&_rgba);
    }

    const Bitmap& shape() const override { return _shape; }

    bool readRow(std::uint8_t* out, std::string& why) override {
        const std::uint32_t height = _l.height;
        if (_next >= height) return why = "no more rows", false;
        tiffMessage.clear();
        if (_direct) {
            if (!_direct->read(_t.get(), _next, _line.data(), out, why)) return false;
        } else {
            if (_next >= _bandFirst + _bandCount && !readBand(why)) return false;
            std::memcpy(out, _band.data() + std::size_t(_next - _bandFirst) * _shape.bytesPerRow(),
                        _shape.bytesPerRow());
        }
        ++_next;
        return true;
    }

    // False with `why` empty for a file whose layout has no row decoder.
    bool open(Bytes data, std::size_t size, std::string& why) {
        _m = Memory{data, size};
        _t = openMemory(_m, why);
        if (!_t) return false;
        TIFF* t = _t.get();
        _l = readLayout(t);
        if (_l.width == 0 || _l.height == 0) return why = "no image in the file", false;
        std::vector<std::uint8_t> icc = readIcc(t);
        if (isDirectLayout(t, _l)) {
            _direct.emplace(t, _l);
            if (!_direct->valid()) return why = "bad scanline size", false;
            _line.resize(_direct->scanlineSize());
            const auto model = _direct->model();
            dropUnusableProfile(icc, model);
            _shape = Bitmap::strip(_l.width, _l.height, _direct->layout(),
                                   std::make_shared<const ColorSpace>(model, std::move(icc)), 0, 0,
                                   nullptr, _direct->stride());
            return true;
        }
        if (!streamsAsRgba(t, _l)) return false;
        char message[1024] = {0};
        if (!TIFFRGBAImageBegin(&_rgba, t, 1, message))
            return why = std::string("unsupported layout: ") + message, false;
        _rgbaOpen = true;
        _rgba.req_orientation = ORIENTATION_TOPLEFT;
        // A band is a whole strip or row of tiles, so that each is decoded once.
        std::uint32_t rows = 0;
        if (TIFFIsTiled(t))
            TIFFGetField(t, TIFFTAG_TILELENGTH, &rows);
        else
            TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &rows);
        _bandRows = std::clamp<std::uint32_t>(rows, 1, _l.height);
        _shape =
            Bitmap::strip(_l.width, _l.height, rgbaLayout(_l),
                          std::make_shared<const ColorSpace>(rgbaColorSpace(_l, std::move(icc))), 0,
                          0, nullptr, std::size_t(_l.width) * 4);
        return true;
    }

  private:
    bool readBand(std::string& why) {
        _bandFirst = _next;
        _bandCount = std::min(_bandRows, _l.height - _next);
        _band.resize(std::size_t(_bandCount) * _shape.bytesPerRow());
        _rgba.row_offset = static_cast<int>(_bandFirst);
        _rgba.col_offset = 0;
        if (!TIFFRGBAImageGet(&_rgba, reinterpret_cast<std::uint32_t*>(_band.data()), _l.width,
                              _bandCount)) {
            _bandCount = 0;
            return why = tiffMessage.empty() ? "damaged image data" : tiffMessage, false;
        }
        return true;
    }

    Memory _m{nullptr, 0};
    TiffPtr _t;
    Layout _l;
    Bitmap _shape;
    std::optional<DirectRows> _direct;
    std::vector<std::uint8_t> _line;
    TIFFRGBAImage _rgba{};
    bool _rgbaOpen = false;
    std::vector<std::uint8_t> _band;
    std::uint32_t _bandRows = 0, _bandFirst = 0, _bandCount = 0;
    std::uint32_t _next = 0;
};

}  // namespace

std::unique_ptr<RowDecoder> tiffRowDecoder(Bytes data, std::size_t size, std::string& why) {
    auto decoder = std::make_unique<TiffRowDecoder>();
    if (!decoder->open(data, size, why)) return nullptr;
    return decoder;
}

bool tiffEncode(const Bitmap& image, const EncodeOptions& options, const std::string& path,
                std::string& why) {
    installHandlers();
    tiffMessage.clear();
    TiffPtr t(TIFFOpen(path.c_str(), "w"));
    if (!t) return why = tiffMessage.empty() ? "cannot create the file" : tiffMessage, false;
    bool gray = image.layout().colorComponents == 1;
    bool alpha = options.keepAlpha && image.layout().hasAlpha();
    int bits = image.bitsPerComponent() == 16 ? 16 : 8;
    int samples = (gray ? 1 : 3) + (alpha ? 1 : 0);
    TIFF* f = t.get();
    TIFFSetField(f, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width()));
    TIFFSetField(f, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height()));
    TIFFSetField(f, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(f, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(f, TIFFTAG_PHOTOMETRIC, gray ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(f, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(f, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(f, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(f, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (alpha) {
        std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(f, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    TIFFSetField(f, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(f, 0));
    const auto& icc = image.colorSpace().iccProfile();
    if (!icc.empty())
        TIFFSetField(f, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(icc.size()), icc.data());
    if (options.dpiX && options.dpiY) {
        TIFFSetField(f, TIFFTAG_XRESOLUTION, static_cast<float>(*options.dpiX));
        TIFFSetField(f, TIFFTAG_YRESOLUTION, static_cast<float>(*options.dpiY));
        TIFFSetField(f, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    }
    std::size_t count = image.width() * static_cast<std::size_t>(samples);
    std::vector<std::uint8_t> row8(bits == 8 ? count : 0);
    std::vector<std::uint16_t> row16(bits == 16 ? count : 0);
    for (std::size_t y = 0; y < image.height(); ++y) {
        void* row;
        if (bits == 16) {
            unpackRow16(image, y, gray, alpha, row16.data());
            row = row16.data();
        } else {
            unpackRow8(image, y, gray, alpha, row8.data());
            row = row8.data();
        }
        if (TIFFWriteScanline(f, row, static_cast<std::uint32_t>(y), 0) < 0)
            return why = tiffMessage.empty() ? "write failed" : tiffMessage, false;
    }
    if (!TIFFWriteDirectory(f))
        return why = tiffMessage.empty() ? "write failed" : tiffMessage, false;
    TIFF* raw = t.release();
    TIFFFlush(raw);
    TIFFClose(raw);
    if (!tiffMessage.empty()) return why = tiffMessage, false;
    return true;
}

}  // namespace platform::codecs
