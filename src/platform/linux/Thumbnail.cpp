#include "platform/linux/Thumbnail.h"

#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include "platform/BitmapContext.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"

extern "C" {
#include <libavutil/md5.h>
}

namespace platform::thumbnails {
namespace {

constexpr const char* kThumbURI = "Thumb::URI";
constexpr const char* kThumbMTime = "Thumb::MTime";

std::string md5Hex(const std::string& text) {
    std::uint8_t digest[16];
    av_md5_sum(digest, reinterpret_cast<const std::uint8_t*>(text.data()),
               static_cast<size_t>(text.size()));
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (std::uint8_t b : digest) {
        out += hex[b >> 4];
        out += hex[b & 15];
    }
    return out;
}

ErrorRef thumbnailError(const std::string& path, const std::string& why) {
    return Error::errorWithDomain(
        NSCocoaErrorDomain, NSFileReadCorruptFileError,
        {{NSFilePathErrorKey, path},
         {NSLocalizedDescriptionKey, "No thumbnail of " + path + ": " + why}});
}

// The Thumb::URI and Thumb::MTime of a cached PNG, read from its header chunks only.
bool cachedKeysMatch(const std::string& pngPath, const std::string& uri, const std::string& mtime) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(pngPath.c_str(), "rb"), std::fclose);
    if (!file) return false;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return false;
    }
    volatile bool match = false;
    if (!setjmp(png_jmpbuf(png))) {
        png_init_io(png, file.get());
        png_read_info(png, info);
        png_textp texts = nullptr;
        int count = png_get_text(png, info, &texts, nullptr);
        bool uriOk = false, mtimeOk = false;
        for (int i = 0; i < count; ++i) {
            std::string key = texts[i].key, value(texts[i].text, texts[i].text_length);
            if (key == kThumbURI) uriOk = value == uri;
            if (key == kThumbMTime) mtimeOk = value == mtime;
        }
        match = uriOk && mtimeOk;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return match;
}

// Writes 8-bit RGB or RGBA rows (straight alpha) as PNG with the standard's keys, through a
// unique temporary name renamed over the cache entry, so that readers never see half a file.
bool writePng(const std::string& path, const Bitmap& image, bool alpha, const std::string& uri,
              const std::string& mtime) {
    std::random_device rd;
    std::string tmp = path + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(rd());
    FILE* file = std::fopen(tmp.c_str(), "wb");
    if (!file) return false;
    fchmod(fileno(file), 0600);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    volatile bool ok = false;
    if (info && !setjmp(png_jmpbuf(png))) {
        png_init_io(png, file);
        png_set_IHDR(png, info, static_cast<png_uint_32>(image.width()),
                     static_cast<png_uint_32>(image.height()), 8,
                     alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        // Small pictures read often: fast compression and one filter rather than trying all five.
        png_set_compression_level(png, 2);
        png_set_filter(png, 0, PNG_FILTER_SUB);
        std::string software = "unwarp";
        png_text texts[3] = {};
        const char* keys[3] = {kThumbURI, kThumbMTime, "Software"};
        const std::string* values[3] = {&uri, &mtime, &software};
        for (int i = 0; i < 3; ++i) {
            texts[i].compression = PNG_TEXT_COMPRESSION_NONE;
            texts[i].key = const_cast<char*>(keys[i]);
            texts[i].text = const_cast<char*>(values[i]->c_str());
        }
        png_set_text(png, info, texts, 3);
        png_write_info(png, info);
        if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
        std::vector<std::uint8_t> row(image.width() * 4);
        for (std::size_t y = 0; y < image.height(); ++y) {
            std::memcpy(row.data(), image.row(y), row.size());
            if (alpha) {
                for (std::size_t x = 0; x < image.width(); ++x) {
                    std::uint8_t* p = &row[x * 4];
                    if (p[3] == 0 || p[3] == 255) continue;
                    for (int c = 0; c < 3; ++c)
                        p[c] = static_cast<std::uint8_t>(
                            std::min(255, (p[c] * 255 + p[3] / 2) / p[3]));
                }
            }
            png_write_row(png, row.data());
        }
        png_write_end(png, info);
        ok = true;
    }
    png_destroy_write_struct(&png, &info);
    const bool closed = std::fclose(file) == 0;
    if (closed && ok && std::rename(tmp.c_str(), path.c_str()) == 0) return true;
    unlink(tmp.c_str());
    return false;
}

// Turns the drawn pixels upright for an EXIF orientation (2 to 8).
Bitmap oriented(const Bitmap& src, int orientation) {
    if (orientation < 2 || orientation > 8) return src;
    const std::size_t sw = src.width(), sh = src.height();
    const bool swap = orientation >= 5;
    const std::size_t w = swap ? sh : sw, h = swap ? sw : sh;
    std::vector<std::uint8_t> pixels(w * h * 4);
    for (std::size_t y = 0; y < h; ++y) {
        for (std::size_t x = 0; x < w; ++x) {
            std::size_t sx = x, sy = y;
            switch (orientation) {
                case 2:
                    sx = sw - 1 - x;
                    break;
                case 3:
                    sx = sw - 1 - x;
                    sy = sh - 1 - y;
                    break;
                case 4:
                    sy = sh - 1 - y;
                    break;
                case 5:
                    sx = y;
                    sy = x;
                    break;
                case 6:
                    sx = y;
                    sy = sh - 1 - x;
                    break;
                case 7:
                    sx = sw - 1 - y;
                    sy = sh - 1 - x;
                    break;
                case 8:
                    sx = sw - 1 - y;
                    sy = x;
                    break;
            }
            std::memcpy(&pixels[(y * w + x) * 4], src.row(sy) + sx * 4, 4);
        }
    }
    return Bitmap(w, h, src.layout(), src.colorSpace(), std::move(pixels), w * 4);
}

struct Made {
    Bitmap image;
    bool alpha = false;
};

// The picture to draw from, with its full size and orientation: a JPEG shrunk on load, or
// anything else through the image source.
struct Source {
    Bitmap image;
    std::uint32_t width = 0, height = 0;
    int orientation = 1;
};

std::optional<Source> loadSource(const std::string& path, std::uint32_t side, ErrorRef* error) {
    if (auto jpeg = decodeJpegShrunk(path, side)) {
        // The scale is chosen against the longer side of the stored picture, which the
        // thumbnail's longer side becomes whatever the orientation.
        return Source{std::move(jpeg->image), jpeg->pixelWidth, jpeg->pixelHeight,
                      jpeg->orientation};
    }
    auto source = ImageSource::createWithURL(path, error);
    if (!source) return std::nullopt;
    Source out{{}, source->pixelWidth(), source->pixelHeight(), 1};
    if (auto props = source->copyPropertiesAtIndex(0)) {
        auto it = props->find(kCGImagePropertyOrientation);
        if (it != props->end() && it->second.isNumber())
            out.orientation = static_cast<int>(it->second.integerValue());
    }
    auto decoded = source->createImageAtIndex(0, error);
    if (!decoded) return std::nullopt;
    out.image = std::move(*decoded);
    return out;
}

std::optional<Made> makeThumbnail(const std::string& path, std::uint32_t side, ErrorRef* error) {
    auto source = loadSource(path, side, error);
    if (!source) return std::nullopt;
    const std::uint32_t longSide = std::max(source->width, source->height);
    if (longSide == 0 || source->image.isNull()) {
        if (error) *error = thumbnailError(path, "the picture is empty");
        return std::nullopt;
    }
    const Bitmap* decoded = &source->image;
    const int orientation = source->orientation;
    const double scale = std::min(1.0, double(side) / double(longSide));
    const auto w = std::max<std::size_t>(1, std::size_t(source->width * scale + 0.5));
    const auto h = std::max<std::size_t>(1, std::size_t(source->height * scale + 0.5));
    const bool alpha = decoded->layout().hasAlpha();
    PixelLayout layout{8, 3, alpha ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNoneSkipLast};
    auto context = BitmapContext::create(w, h, 8, ColorSpace::deviceRGB(),
                                         Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->setInterpolationQuality(kCGInterpolationMedium);
    if (!context->drawImage(CGRect{{0, 0}, {double(w), double(h)}}, *decoded, error))
        return std::nullopt;
    return Made{oriented(context->createImage(), orientation), alpha};
}

}  // namespace

std::string fileURIForPath(const std::string& absolutePath) {
    static const char* hex = "0123456789ABCDEF";
    std::string uri = "file://";
    for (unsigned char c : absolutePath) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            uri += static_cast<char>(c);
        } else {
            uri += '%';
            uri += hex[c >> 4];
            uri += hex[c & 15];
        }
    }
    return uri;
}

Bucket bucketForSide(std::uint32_t maxSide) {
    if (maxSide <= 128) return {"normal", 128};
    if (maxSide <= 256) return {"large", 256};
    return {"x-large", 512};
}

std::string cachePathForFile(const std::string& cacheRoot, const std::string& absolutePath,
                             std::uint32_t maxSide) {
    return cacheRoot + "/" + bucketForSide(maxSide).folder + "/" +
           md5Hex(fileURIForPath(absolutePath)) + ".png";
}

std::optional<Bitmap> thumbnailForFile(const std::string& cacheRoot,
                                       const std::string& absolutePath, std::uint32_t maxSide,
                                       ErrorRef* error) {
    struct stat st {};
    if (stat(absolutePath.c_str(), &st) != 0) {
        if (error) *error = Error::posixError(errno, "stat", absolutePath);
        return std::nullopt;
    }
    const std::string uri = fileURIForPath(absolutePath);
    const std::string mtime = std::to_string(static_cast<long long>(st.st_mtim.tv_sec));
    const std::string cached = cachePathForFile(cacheRoot, absolutePath, maxSide);
    if (cachedKeysMatch(cached, uri, mtime)) {
        if (auto png = ImageSource::createWithURL(cached)) {
            if (auto image = png->createImageAtIndex(0)) return image;
        }
    }
    auto made = makeThumbnail(absolutePath, bucketForSide(maxSide).side, error);
    if (!made) return std::nullopt;
    const std::string folder = cached.substr(0, cached.rfind('/'));
    for (std::size_t slash = 1; slash != std::string::npos; slash = folder.find('/', slash + 1))
        mkdir(folder.substr(0, slash).c_str(), 0700);
    mkdir(folder.c_str(), 0700);
    // A cache that can't be written still gives the picture; the next request makes it again.
    writePng(cached, made->image, made->alpha, uri, mtime);
    return made->image;
}

std::optional<Bitmap> cachedThumbnailForFile(const std::string& cacheRoot,
                                             const std::string& absolutePath, std::uint32_t maxSide,
                                             const ThumbnailMaker& make, ErrorRef* error) {
    struct stat st {};
    if (stat(absolutePath.c_str(), &st) != 0) {
        if (error) *error = Error::posixError(errno, "stat", absolutePath);
        return std::nullopt;
    }
    const std::string uri = fileURIForPath(absolutePath);
    const std::string mtime = std::to_string(static_cast<long long>(st.st_mtim.tv_sec));
    const std::string cached = cachePathForFile(cacheRoot, absolutePath, maxSide);
    if (cachedKeysMatch(cached, uri, mtime)) {
        if (auto png = ImageSource::createWithURL(cached)) {
            if (auto image = png->createImageAtIndex(0)) return image;
        }
    }
    auto drawn = make(bucketForSide(maxSide).side, error);
    if (!drawn) return std::nullopt;
    const Bitmap image = oriented(drawn->image, drawn->orientation);
    const std::string folder = cached.substr(0, cached.rfind('/'));
    for (std::size_t slash = 1; slash != std::string::npos; slash = folder.find('/', slash + 1))
        mkdir(folder.substr(0, slash).c_str(), 0700);
    mkdir(folder.c_str(), 0700);
    writePng(cached, image, image.layout().hasAlpha(), uri, mtime);
    return image;
}

}  // namespace platform::thumbnails
