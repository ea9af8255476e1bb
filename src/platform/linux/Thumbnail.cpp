#include "platform/linux/Thumbnail.h"

#include <png.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/BitmapContext.h"
#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"
#include "platform/linux/ImageCodecs.h"

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

// Stores the picture as the cache entry with the standard's keys, through the program's PNG
// writer, which encodes under a unique name and renames it over the entry, so that readers
// never see half a file. The entry is then made private; the cache folder is private too, so
// nobody else sees it in between.
bool storeThumbnail(const std::string& path, const Bitmap& image, const std::string& uri,
                    const std::string& mtime) {
    auto destination = ImageDestination::createWithURL(path, "public.png", 1);
    if (!destination) return false;
    PlistDictionary texts{{kThumbURI, uri}, {kThumbMTime, mtime}};
    PlistDictionary png{{kCGImagePropertyPNGSoftware, std::string("unwarp")},
                        {codecs::kPNGTextChunks, std::move(texts)}};
    destination->addImage(image, {{kCGImagePropertyPNGDictionary, std::move(png)}});
    return destination->finalize() && chmod(path.c_str(), 0600) == 0;
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

std::optional<Bitmap> makeThumbnail(const std::string& path, std::uint32_t side, ErrorRef* error) {
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
    return oriented(context->createImage(), orientation);
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
    storeThumbnail(cached, *made, uri, mtime);
    return made;
}

}  // namespace platform::thumbnails
