// GIF: the first frame through giflib; writing quantises with libimagequant.
#include <gif_lib.h>
#include <libimagequant.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/ImagePropertyKeys.h"
#include "platform/linux/ImageCodecs.h"

namespace platform::codecs {
namespace {

struct Memory {
    Bytes data;
    std::size_t size;
    std::size_t offset = 0;
};

int readBytes(GifFileType* gif, GifByteType* out, int length) {
    auto* m = static_cast<Memory*>(gif->UserData);
    if (length <= 0) return 0;
    std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(length), m->size - m->offset);
    std::memcpy(out, m->data + m->offset, n);
    m->offset += n;
    return static_cast<int>(n);
}

struct GifCloser {
    void operator()(GifFileType* g) const {
        int error = 0;
        DGifCloseFile(g, &error);
    }
};
using GifPtr = std::unique_ptr<GifFileType, GifCloser>;

GifPtr open(Memory& m, std::string& why) {
    int error = 0;
    GifFileType* g = DGifOpen(&m, readBytes, &error);
    if (!g) why = GifErrorString(error) ? GifErrorString(error) : "not a GIF";
    return GifPtr(g);
}

std::string gifError(GifFileType* g) {
    const char* text = GifErrorString(g->Error);
    return text ? text : "damaged GIF";
}

}  // namespace

bool gifSniff(Bytes data, std::size_t size) {
    return size >= 6 &&
           (std::memcmp(data, "GIF87a", 6) == 0 || std::memcmp(data, "GIF89a", 6) == 0);
}

// Walks the blocks without decoding them; 0 when the bytes can't be read as a GIF.
std::size_t gifFrameCount(Bytes data, std::size_t size, std::size_t stopAt) {
    Memory m{data, size};
    std::string why;
    GifPtr gif = open(m, why);
    if (!gif) return 0;
    std::size_t frames = 0;
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    while (frames < stopAt && type != TERMINATE_RECORD_TYPE) {
        if (DGifGetRecordType(gif.get(), &type) == GIF_ERROR) break;
        GifByteType* block = nullptr;
        int code = 0;
        if (type == EXTENSION_RECORD_TYPE) {
            if (DGifGetExtension(gif.get(), &code, &block) == GIF_ERROR) break;
            while (block && DGifGetExtensionNext(gif.get(), &block) != GIF_ERROR) {
            }
        } else if (type == IMAGE_DESC_RECORD_TYPE) {
            if (DGifGetImageDesc(gif.get()) == GIF_ERROR) break;
            ++frames;
            // Skip the frame's compressed data without decoding it.
            if (DGifGetCode(gif.get(), &code, &block) == GIF_ERROR) break;
            while (block && DGifGetCodeNext(gif.get(), &block) != GIF_ERROR) {
            }
        }
    }
    return frames;
}

bool gifReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why) {
    Memory m{data, size};
    GifPtr g = open(m, why);
    if (!g) return false;
    info.width = static_cast<std::uint32_t>(std::max(0, g->SWidth));
    info.height = static_cast<std::uint32_t>(std::max(0, g->SHeight));
    info.bitsPerComponent = 8;
    info.model = ColorSpace::Model::RGB;
    info.hasAlpha = true;  // frames may leave the screen uncovered or use a transparent index
    PlistDictionary family;
    family["HasGlobalColorMap"] = g->SColorMap != nullptr;
    info.properties[kCGImagePropertyGIFDictionary] = std::move(family);
    return true;
}

std::optional<Bitmap> gifDecode(Bytes data, std::size_t size, std::string& why) {
    Memory m{data, size};
    GifPtr g = open(m, why);
    if (!g) return std::nullopt;
    std::size_t width = static_cast<std::size_t>(std::max(0, g->SWidth));
    std::size_t height = static_cast<std::size_t>(std::max(0, g->SHeight));
    if (width == 0 || height == 0) return why = "empty screen", std::nullopt;
    int transparent = -1;
    GifRecordType type;
    do {
        if (DGifGetRecordType(g.get(), &type) == GIF_ERROR)
            return why = gifError(g.get()), std::nullopt;
        if (type == EXTENSION_RECORD_TYPE) {
            int code = 0;
            GifByteType* ext = nullptr;
            if (DGifGetExtension(g.get(), &code, &ext) == GIF_ERROR)
                return why = gifError(g.get()), std::nullopt;
            if (code == GRAPHICS_EXT_FUNC_CODE && ext && ext[0] >= 4 && (ext[1] & 1))
                transparent = ext[4];
            while (ext) {
                if (DGifGetExtensionNext(g.get(), &ext) == GIF_ERROR)
                    return why = gifError(g.get()), std::nullopt;
            }
        } else if (type == IMAGE_DESC_RECORD_TYPE) {
            break;
        }
    } while (type != TERMINATE_RECORD_TYPE);
    if (type != IMAGE_DESC_RECORD_TYPE) return why = "no frame in the file", std::nullopt;
    if (DGifGetImageDesc(g.get()) == GIF_ERROR) return why = gifError(g.get()), std::nullopt;
    const GifImageDesc& d = g->Image;
    const ColorMapObject* map = d.ColorMap ? d.ColorMap : g->SColorMap;
    if (!map || d.Width <= 0 || d.Height <= 0) return why = "frame without colours", std::nullopt;
    PixelLayout layout{8, 3, kCGImageAlphaLast};
    std::vector<std::uint8_t> pixels(width * height * 4, 0);
    bool anyClear =
        d.Left > 0 || d.Top > 0 || d.Left + d.Width < g->SWidth || d.Top + d.Height < g->SHeight;
    std::vector<GifPixelType> line(static_cast<std::size_t>(d.Width));
    auto putLine = [&](int y) {
        int py = d.Top + y;
        if (py < 0 || py >= g->SHeight) return;
        for (int x = 0; x < d.Width; ++x) {
            int px = d.Left + x;
            if (px < 0 || px >= g->SWidth) continue;
            int index = line[static_cast<std::size_t>(x)];
            std::uint8_t* p = pixels.data() + (static_cast<std::size_t>(py) * width + px) * 4;
            if (index == transparent || index >= map->ColorCount) {
                anyClear = true;
                continue;
            }
            const GifColorType& c = map->Colors[index];
            p[0] = c.Red, p[1] = c.Green, p[2] = c.Blue, p[3] = 255;
        }
    };
    static const int interlacedStart[] = {0, 4, 2, 1}, interlacedStep[] = {8, 8, 4, 2};
    int passes = d.Interlace ? 4 : 1;
    for (int pass = 0; pass < passes; ++pass) {
        int first = d.Interlace ? interlacedStart[pass] : 0;
        int step = d.Interlace ? interlacedStep[pass] : 1;
        for (int y = first; y < d.Height; y += step) {
            if (DGifGetLine(g.get(), line.data(), d.Width) == GIF_ERROR)
                return why = gifError(g.get()), std::nullopt;
            putLine(y);
        }
    }
    if (!anyClear) layout.alphaInfo = kCGImageAlphaNoneSkipLast;
    return Bitmap(width, height, layout, ColorSpace::deviceRGB(), std::move(pixels));
}

namespace {

int writeBytes(GifFileType* gif, const GifByteType* data, int length) {
    auto* f = static_cast<std::FILE*>(gif->UserData);
    return static_cast<int>(std::fwrite(data, 1, static_cast<std::size_t>(length), f));
}

struct Liq {
    liq_attr* attr = liq_attr_create();
    liq_image* image = nullptr;
    liq_result* result = nullptr;
    ~Liq() {
        if (result) liq_result_destroy(result);
        if (image) liq_image_destroy(image);
        liq_attr_destroy(attr);
    }
};

}  // namespace

bool gifEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
               std::string& why) {
    int width = static_cast<int>(image.width()), height = static_cast<int>(image.height());
    if (width > 65535 || height > 65535) return why = "GIF sides are at most 65535", false;
    bool alpha = options.keepAlpha && image.layout().hasAlpha();
    std::vector<std::uint8_t> rgba(image.width() * image.height() * 4);
    for (std::size_t y = 0; y < image.height(); ++y)
        unpackRow8(image, y, false, true, rgba.data() + y * image.width() * 4);
    if (!alpha)
        for (std::size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
    Liq q;
    if (!q.attr) return why = "out of memory", false;
    liq_set_speed(q.attr, 8);
    q.image = liq_image_create_rgba(q.attr, rgba.data(), width, height, 0);
    if (!q.image || liq_image_quantize(q.image, q.attr, &q.result) != LIQ_OK)
        return why = "quantisation failed", false;
    liq_set_dithering_level(q.result, 1.0);
    std::vector<std::uint8_t> indices(rgba.size() / 4);
    if (liq_write_remapped_image(q.result, q.image, indices.data(), indices.size()) != LIQ_OK)
        return why = "quantisation failed", false;
    const liq_palette* palette = liq_get_palette(q.result);
    // GIF has one transparent index: every entry below half opacity folds into the first one.
    int transparent = -1;
    std::vector<std::uint8_t> remap(256);
    for (unsigned i = 0; i < palette->count; ++i) {
        remap[i] = static_cast<std::uint8_t>(i);
        if (palette->entries[i].a < 128) {
            if (transparent < 0) transparent = static_cast<int>(i);
            remap[i] = static_cast<std::uint8_t>(transparent);
        }
    }
    if (transparent >= 0)
        for (auto& index : indices) index = remap[index];
    int bits = 1;
    while ((1u << bits) < palette->count) ++bits;
    std::unique_ptr<ColorMapObject, void (*)(ColorMapObject*)> map(
        GifMakeMapObject(1 << bits, nullptr), GifFreeMapObject);
    if (!map) return why = "out of memory", false;
    for (int i = 0; i < (1 << bits); ++i) {
        GifColorType c{0, 0, 0};
        if (static_cast<unsigned>(i) < palette->count)
            c = {palette->entries[i].r, palette->entries[i].g, palette->entries[i].b};
        map->Colors[i] = c;
    }
    int error = 0;
    GifFileType* g = EGifOpen(file, writeBytes, &error);
    if (!g) return why = "cannot start the GIF", false;
    bool ok = EGifPutScreenDesc(g, width, height, bits, 0, map.get()) != GIF_ERROR;
    if (ok && transparent >= 0) {
        GraphicsControlBlock gcb{DISPOSAL_UNSPECIFIED, false, 0, transparent};
        GifByteType ext[4];
        EGifGCBToExtension(&gcb, ext);
        ok = EGifPutExtension(g, GRAPHICS_EXT_FUNC_CODE, 4, ext) != GIF_ERROR;
    }
    ok = ok && EGifPutImageDesc(g, 0, 0, width, height, false, nullptr) != GIF_ERROR;
    for (int y = 0; ok && y < height; ++y)
        ok = EGifPutLine(g, indices.data() + static_cast<std::size_t>(y) * width, width) !=
             GIF_ERROR;
    if (!ok) why = GifErrorString(g->Error) ? GifErrorString(g->Error) : "write failed";
    if (EGifCloseFile(g, &error) == GIF_ERROR && ok) {
        why = GifErrorString(error) ? GifErrorString(error) : "write failed";
        ok = false;
    }
    return ok;
}

}  // namespace platform::codecs
