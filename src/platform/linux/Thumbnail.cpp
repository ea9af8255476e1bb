#include "platform/linux/Thumbnail.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "platform/BitmapContext.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"
#include "platform/linux/ImageCodecs.h"

#include <md5.h>

namespace platform::thumbnails {
namespace {

constexpr const char* kThumbURI = "Thumb::URI";
constexpr const char* kThumbMTime = "Thumb::MTime";

std::string md5Hex(const std::string& text) {
    // libmd's digest is a few kilobytes; FFmpeg's or OpenSSL's would bring a library of
    // megabytes into every start.
    std::uint8_t digest[MD5_DIGEST_LENGTH];
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    MD5Final(digest, &context);
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

// The cached picture, when the entry's Thumb::URI and Thumb::MTime name the file as it is.
std::optional<Bitmap> cachedThumbnail(const std::string& pngPath, const std::string& uri,
                                      const std::string& mtime) {
    // No entry of the standard's sizes comes near this; a larger file is no entry of ours.
    constexpr std::size_t kMaxEntryBytes = 16u << 20;
    auto bytes = FileManager::contentsAtPath(pngPath, nullptr, kMaxEntryBytes);
    if (!bytes) return std::nullopt;
    const PlistDictionary texts = codecs::pngTextChunks(bytes->data(), bytes->size());
    const PlistValue& storedURI = codecs::valueForKey(texts, kThumbURI);
    const PlistValue& storedMTime = codecs::valueForKey(texts, kThumbMTime);
    if (!storedURI.string() || *storedURI.string() != uri || !storedMTime.string() ||
        *storedMTime.string() != mtime)
        return std::nullopt;
    auto png = ImageSource::createWithData(std::move(*bytes));
    return png ? png->createImageAtIndex(0) : std::nullopt;
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

// The transform that shows a picture drawn into [0, w] x [0, h] as its EXIF orientation says,
// in the context's bottom-left space; from 5 on the shown picture has its sides swapped.
CGAffineTransform transformForOrientation(int orientation, double w, double h) {
    switch (orientation) {
        case 2:  // mirrored left to right
            return {-1, 0, 0, 1, w, 0};
        case 3:  // half a turn
            return {-1, 0, 0, -1, w, h};
        case 4:  // mirrored top to bottom
            return {1, 0, 0, -1, 0, h};
        case 5:  // mirrored along the main diagonal
            return {0, -1, -1, 0, h, w};
        case 6:  // a quarter turn clockwise
            return {0, -1, 1, 0, 0, w};
        case 7:  // mirrored along the other diagonal
            return {0, 1, 1, 0, 0, 0};
        case 8:  // a quarter turn counter-clockwise
            return {0, 1, -1, 0, h, 0};
        default:
            return CGAffineTransformIdentity;
    }
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
    const bool swapped = orientation >= 5 && orientation <= 8;
    PixelLayout layout{8, 3, alpha ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNoneSkipLast};
    auto context =
        BitmapContext::create(swapped ? h : w, swapped ? w : h, 8, ColorSpace::deviceRGB(),
                              Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->setInterpolationQuality(kCGInterpolationMedium);
    // Scaled and turned upright in one draw.
    context->concatCTM(transformForOrientation(orientation, double(w), double(h)));
    if (!context->drawImage(CGRect{{0, 0}, {double(w), double(h)}}, *decoded, error))
        return std::nullopt;
    return context->createImage();
}

// A drawn picture turned upright by its EXIF orientation, at its own scale.
std::optional<Bitmap> upright(const Bitmap& image, int orientation, ErrorRef* error) {
    if (orientation <= 1 || orientation > 8) return image;
    const std::size_t w = image.width(), h = image.height();
    const bool swapped = orientation >= 5;
    const bool alpha = image.layout().hasAlpha();
    PixelLayout layout{8, 3, alpha ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNoneSkipLast};
    auto context =
        BitmapContext::create(swapped ? h : w, swapped ? w : h, 8, ColorSpace::deviceRGB(),
                              Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->concatCTM(transformForOrientation(orientation, double(w), double(h)));
    if (!context->drawImage(CGRect{{0, 0}, {double(w), double(h)}}, image, error))
        return std::nullopt;
    return context->createImage();
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
    // makeThumbnail turns the picture upright as it scales it.
    return cachedThumbnailForFile(
        cacheRoot, absolutePath, maxSide,
        [&absolutePath](std::uint32_t side, ErrorRef* why) -> std::optional<DrawnThumbnail> {
            auto made = makeThumbnail(absolutePath, side, why);
            if (!made) return std::nullopt;
            return DrawnThumbnail{std::move(*made), 1};
        },
        error);
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
    if (auto image = cachedThumbnail(cached, uri, mtime)) return image;
    auto drawn = make(bucketForSide(maxSide).side, error);
    if (!drawn) return std::nullopt;
    auto image = upright(drawn->image, drawn->orientation, error);
    if (!image) return std::nullopt;
    const std::string folder = cached.substr(0, cached.rfind('/'));
    for (std::size_t slash = 1; slash != std::string::npos; slash = folder.find('/', slash + 1))
        mkdir(folder.substr(0, slash).c_str(), 0700);
    mkdir(folder.c_str(), 0700);
    // A cache that can't be written still gives the picture; the next request makes it again.
    storeThumbnail(cached, *image, uri, mtime);
    return image;
}

}  // namespace platform::thumbnails
