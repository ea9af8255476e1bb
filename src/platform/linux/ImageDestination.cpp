#include "platform/ImageDestination.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "platform/ImagePropertyKeys.h"
#include "platform/Log.h"
#include "platform/linux/ImageCodecs.h"

namespace platform {
namespace {

using codecs::ImageCodec;
using codecs::MetadataRoute;

ErrorRef writeError(std::int64_t code, const std::string& text, const std::string& path) {
    return Error::errorWithDomain(NSCocoaErrorDomain, code,
                                  {{NSLocalizedDescriptionKey, text},
                                   {NSDebugDescriptionErrorKey, text},
                                   {NSFilePathErrorKey, path}});
}

bool isOutOfSpace(int e) {
    return e == ENOSPC || e == EDQUOT || e == EFBIG;
}

ErrorRef errnoError(int e, const std::string& what, const std::string& path) {
    if (isOutOfSpace(e))
        return writeError(NSFileWriteOutOfSpaceError,
                          "The image could not be written because there is not enough space (" +
                              std::string(std::strerror(e)) + ").",
                          path);
    return writeError(NSFileWriteUnknownError,
                      "The image could not be written: " + what + ": " + std::strerror(e), path);
}

std::string temporaryPath(const std::string& path) {
    std::size_t slash = path.rfind('/');
    std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    static thread_local std::mt19937_64 random{std::random_device{}()};
    char suffix[24];
    std::snprintf(suffix, sizeof suffix, "%016llx", static_cast<unsigned long long>(random()));
    return folder + "." + name + "." + suffix + ".part";
}

std::optional<double> number(const PlistDictionary& p, const char* key) {
    auto it = p.find(key);
    if (it == p.end() || !it->second.isNumber()) return std::nullopt;
    return it->second.doubleValue();
}

bool hasFamilies(const PlistDictionary& p) {
    for (const char* key : {kCGImagePropertyTIFFDictionary, kCGImagePropertyExifDictionary,
                            kCGImagePropertyGPSDictionary, kCGImagePropertyIPTCDictionary,
                            kImagePropertyXMPDictionary})
        if (p.count(key)) return true;
    return false;
}

// Writing past the file-size limit raises SIGXFSZ, which would end the process; the write
// should fail with EFBIG instead and be reported as a full disk.
void ignoreFileSizeSignal() {
    static bool done = [] {
        struct sigaction sa {};
        sa.sa_handler = SIG_IGN;
        sigaction(SIGXFSZ, &sa, nullptr);
        return true;
    }();
    (void)done;
}

}  // namespace

std::vector<std::string> ImageDestination::typeIdentifiers() {
    std::vector<std::string> types;
    for (const ImageCodec* codec : codecs::imageCodecs())
        if (codec->listedWriter && codecs::canWrite(*codec))
            types.push_back(codec->format.typeIdentifier);
    return types;
}

std::unique_ptr<ImageDestination> ImageDestination::createWithURL(const std::string& path,
                                                                  const std::string& type,
                                                                  std::size_t count,
                                                                  ErrorRef* error) {
    const ImageCodec* codec = codecs::imageCodecForType(type);
    if (!codec || !codecs::canWrite(*codec)) {
        if (error)
            *error = writeError(NSFileWriteUnknownError,
                                "Images of type \"" + type + "\" cannot be written.", path);
        return nullptr;
    }
    if (count != 1) {
        if (error)
            *error = writeError(
                NSFileWriteUnknownError,
                "Only one image per file can be written, not " + std::to_string(count) + ".", path);
        return nullptr;
    }
    if (path.empty() || path.back() == '/') {
        if (error) *error = writeError(NSFileWriteUnknownError, "No file name given.", path);
        return nullptr;
    }
    std::unique_ptr<ImageDestination> d(new ImageDestination());
    d->_path = path;
    d->_type = type;
    return d;
}

ImageDestination::~ImageDestination() = default;

void ImageDestination::addImage(const Bitmap& image, const PlistDictionary& properties) {
    _image = image;
    _properties = properties;
}

bool ImageDestination::canWriteRows(const std::string& type) {
    const ImageCodec* codec = codecs::imageCodecForType(type);
    return codec && codec->writesRows && codecs::canWrite(*codec);
}

void ImageDestination::addImageRows(const Bitmap& shape,
                                    std::function<const Bitmap*(std::size_t)> rows,
                                    const PlistDictionary& properties) {
    _image = shape;
    _rows = std::move(rows);
    _properties = properties;
}

bool ImageDestination::finalize(ErrorRef* error) {
    auto fail = [&](ErrorRef e) {
        if (error) *error = std::move(e);
        return false;
    };
    if (_finalized) return fail(writeError(NSFileWriteUnknownError, "Already finalised.", _path));
    _finalized = true;
    if (!_image || _image->isNull())
        return fail(writeError(NSFileWriteUnknownError, "No image to write.", _path));
    ignoreFileSizeSignal();
    const ImageCodec& codec = *codecs::imageCodecForType(_type);
    const Bitmap& image = *_image;

    if (_rows && !codec.writesRows)
        return fail(writeError(NSFileWriteUnknownError,
                               "Images of type \"" + _type + "\" cannot be written row by row.",
                               _path));
    codecs::EncodeOptions options;
    options.properties = &_properties;
    if (_rows) options.rows = &_rows;
    options.quality = std::clamp(
        number(_properties, kCGImageDestinationLossyCompressionQuality).value_or(1.0), 0.0, 1.0);
    auto it = _properties.find(kCGImagePropertyHasAlpha);
    options.keepAlpha = it == _properties.end() ? true : it->second.boolValue();
    auto dpiX = number(_properties, kCGImagePropertyDPIWidth);
    auto dpiY = number(_properties, kCGImagePropertyDPIHeight);
    if (dpiX && dpiY && *dpiX > 0 && *dpiY > 0) options.dpiX = dpiX, options.dpiY = dpiY;
    if (codec.metadata == MetadataRoute::Blocks) {
        options.exif = codecs::encodeExifBlock(_properties);
        options.xmp = codecs::encodeXmpPacket(_properties);
    }

    std::string temp = temporaryPath(_path);
    std::string why;
    bool encoded = false;
    int savedErrno = 0;
    if (codec.encodeToPath) {
        errno = 0;
        encoded = codec.encodeToPath(image, options, temp, why);
        savedErrno = errno;
    } else {
        int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0) return fail(errnoError(errno, "create " + temp, _path));
        std::FILE* file = ::fdopen(fd, "wb");
        if (!file) {
            int e = errno;
            ::close(fd);
            ::unlink(temp.c_str());
            return fail(errnoError(e, "open", _path));
        }
        errno = 0;
        encoded = codec.encodeToFile(image, options, file, why);
        int encodeErrno = errno;
        errno = 0;
        bool flushed = std::fflush(file) == 0 && !std::ferror(file);
        int flushErrno = errno;
        errno = 0;
        if (std::fclose(file) != 0) flushed = false;
        int closeErrno = errno;
        // The first out-of-space report wins: encoders lose errno in their own clean-up.
        savedErrno = 0;
        for (int e : {encodeErrno, flushErrno, closeErrno})
            if (isOutOfSpace(e) && !savedErrno) savedErrno = e;
        for (int e : {encodeErrno, flushErrno, closeErrno})
            if (e && !savedErrno) savedErrno = e;
        if (!flushed) encoded = false;
    }
    if (encoded && codec.metadata == MetadataRoute::Exiv2File &&
        (hasFamilies(_properties) || _properties.count(kCGImagePropertyOrientation))) {
        errno = 0;
        encoded = codecs::writeMetadataToFile(temp, _properties, why);
        savedErrno = errno;
    }
    if (!encoded) {
        ::unlink(temp.c_str());
        if (isOutOfSpace(savedErrno)) return fail(errnoError(savedErrno, why, _path));
        return fail(writeError(NSFileWriteUnknownError,
                               "The image could not be written: " +
                                   (why.empty() ? std::string(std::strerror(savedErrno)) : why),
                               _path));
    }
    if (::rename(temp.c_str(), _path.c_str()) != 0) {
        int e = errno;
        ::unlink(temp.c_str());
        return fail(errnoError(e, "rename", _path));
    }
    return true;
}

}  // namespace platform
