#include "platform/ImageSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/ImagePropertyKeys.h"
#include "platform/linux/ImageCodecs.h"

namespace platform {
namespace {

using codecs::ImageInfo;

struct Codec {
    const char* type;
    bool (*readInfo)(codecs::Bytes, std::size_t, ImageInfo&, std::string&);
    std::optional<Bitmap> (*decode)(codecs::Bytes, std::size_t, std::string&);
    bool exiv2Metadata;  // exiv2 reads the file's metadata blocks itself
};

const Codec kCodecs[] = {
    {"public.jpeg", codecs::jpegReadInfo, codecs::jpegDecode, true},
    {"public.png", codecs::pngReadInfo, codecs::pngDecode, true},
    {"public.tiff", codecs::tiffReadInfo, codecs::tiffDecode, true},
    {"com.compuserve.gif", codecs::gifReadInfo, codecs::gifDecode, false},
    {"public.heic", codecs::heifReadInfo, codecs::heifDecode, false},
    {"public.heif", codecs::heifReadInfo, codecs::heifDecode, false},
};

const Codec* codecForType(const std::string& type) {
    for (const auto& c : kCodecs)
        if (type == c.type) return &c;
    return nullptr;
}

ErrorRef readError(std::int64_t code, const std::string& description) {
    return Error::errorWithDomain(
        NSCocoaErrorDomain, code,
        {{NSLocalizedDescriptionKey, description}, {NSDebugDescriptionErrorKey, description}});
}

void setError(ErrorRef* out, ErrorRef error) {
    if (out) *out = std::move(error);
}

class LinuxImageSource final : public ImageSource {
  public:
    LinuxImageSource(std::vector<std::uint8_t> bytes, const Codec* codec, ImageInfo info)
        : _bytes(std::move(bytes)), _codec(codec), _info(std::move(info)) {
        _type = codec->type;
        _width = _info.width;
        _height = _info.height;
    }

    const std::vector<std::uint8_t>& bytes() const { return _bytes; }
    const Codec* codec() const { return _codec; }
    const ImageInfo& info() const { return _info; }

  private:
    std::vector<std::uint8_t> _bytes;
    const Codec* _codec;
    ImageInfo _info;
};

bool startsWith(const std::uint8_t* bytes, std::size_t size, const char* magic, std::size_t n,
                std::size_t at = 0) {
    return size >= at + n && std::memcmp(bytes + at, magic, n) == 0;
}

std::string heifType(const std::uint8_t* bytes, std::size_t size) {
    if (!startsWith(bytes, size, "ftyp", 4, 4) || size < 16) return {};
    std::uint32_t boxSize = (std::uint32_t(bytes[0]) << 24) | (std::uint32_t(bytes[1]) << 16) |
                            (std::uint32_t(bytes[2]) << 8) | bytes[3];
    std::size_t end = std::min<std::size_t>(size, boxSize < 16 ? 16 : boxSize);
    auto brand = [&](std::size_t at) {
        return std::string(reinterpret_cast<const char*>(bytes + at), 4);
    };
    bool heic = false, heif = false;
    for (std::size_t at = 8; at + 4 <= end; at += 4) {
        if (at == 12) continue;  // minor version
        std::string b = brand(at);
        if (b == "heic" || b == "heix" || b == "heim" || b == "heis" || b == "hevc" || b == "hevx")
            heic = true;
        if (b == "mif1" || b == "msf1") heif = true;
    }
    return heic ? "public.heic" : heif ? "public.heif" : "";
}

std::string describe(std::uint64_t value) {
    return std::to_string(value);
}

// Refuses what the limits exclude, naming the limit, the value found and what to do.
ErrorRef checkLimits(const ImageInfo& info, const ImageSourceLimits& limits) {
    std::string found = describe(info.width) + " x " + describe(info.height);
    if (info.width == 0 || info.height == 0)
        return readError(NSFileReadCorruptFileError,
                         "The image is " + found + " pixels; a side of 0 is a damaged file.");
    if (info.width > limits.maxSide || info.height > limits.maxSide)
        return readError(NSFileReadTooLargeError,
                         "The image is " + found + " pixels, but a side may not exceed " +
                             describe(limits.maxSide) +
                             " pixels (the maximum side). Possibly corrupt input; resize it "
                             "with another tool first.");
    std::uint64_t pixels = std::uint64_t(info.width) * info.height;
    if (pixels > limits.maxPixels)
        return readError(NSFileReadTooLargeError,
                         "The image is " + found + " = " + describe(pixels) +
                             " pixels, but the area may not exceed " + describe(limits.maxPixels) +
                             " pixels (the maximum area). Possibly corrupt input; resize it with "
                             "another tool first.");
    return nullptr;
}

}  // namespace

std::string ImageSource::typeIdentifierForData(const std::uint8_t* bytes, std::size_t size) {
    if (!bytes) return {};
    if (startsWith(bytes, size, "\xFF\xD8\xFF", 3)) return "public.jpeg";
    if (startsWith(bytes, size, "\x89PNG\r\n\x1A\n", 8)) return "public.png";
    if (startsWith(bytes, size, "II*\0", 4) || startsWith(bytes, size, "MM\0*", 4))
        return "public.tiff";
    if (startsWith(bytes, size, "GIF87a", 6) || startsWith(bytes, size, "GIF89a", 6))
        return "com.compuserve.gif";
    return heifType(bytes, size);
}

std::shared_ptr<ImageSource> ImageSource::createWithData(std::vector<std::uint8_t> bytes,
                                                         ErrorRef* error,
                                                         const ImageSourceLimits& limits) {
    if (bytes.empty()) {
        setError(error, readError(NSFileReadCorruptFileError, "The image data are empty."));
        return nullptr;
    }
    if (bytes.size() > limits.maxBytes) {
        setError(error, readError(NSFileReadTooLargeError,
                                  "The image file has " + describe(bytes.size()) +
                                      " bytes, above the limit of " + describe(limits.maxBytes) +
                                      " bytes (the maximum file size)."));
        return nullptr;
    }
    std::string type = typeIdentifierForData(bytes.data(), bytes.size());
    const Codec* codec = codecForType(type);
    if (!codec) {
        setError(error, readError(NSFileReadCorruptFileError,
                                  "The data are not an image of a known type (JPEG, PNG, TIFF, "
                                  "GIF, HEIC or HEIF)."));
        return nullptr;
    }
    ImageInfo info;
    std::string why;
    if (!codec->readInfo(bytes.data(), bytes.size(), info, why)) {
        setError(error, readError(NSFileReadCorruptFileError,
                                  "The " + type + " image could not be read: " + why));
        return nullptr;
    }
    if (ErrorRef refused = checkLimits(info, limits)) {
        setError(error, refused);
        return nullptr;
    }
    return std::make_shared<LinuxImageSource>(std::move(bytes), codec, std::move(info));
}

std::shared_ptr<ImageSource> ImageSource::createWithURL(const std::string& path, ErrorRef* error,
                                                        const ImageSourceLimits& limits) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        setError(error, Error::posixError(errno, "open", path));
        return nullptr;
    }
    struct stat st {};
    std::vector<std::uint8_t> bytes;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        setError(error, readError(NSFileReadUnknownError, "Not a regular file: " + path));
        return nullptr;
    }
    if (static_cast<std::uint64_t>(st.st_size) > limits.maxBytes) {
        ::close(fd);
        setError(error, readError(NSFileReadTooLargeError,
                                  "The image file has " +
                                      describe(static_cast<std::uint64_t>(st.st_size)) +
                                      " bytes, above the limit of " + describe(limits.maxBytes) +
                                      " bytes (the maximum file size)."));
        return nullptr;
    }
    bytes.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    int readErrno = errno;
    ::close(fd);
    if (done != bytes.size()) {
        setError(error, Error::posixError(readErrno ? readErrno : EIO, "read", path));
        return nullptr;
    }
    return createWithData(std::move(bytes), error, limits);
}

std::optional<PlistDictionary> ImageSource::copyPropertiesAtIndex(std::size_t index,
                                                                  ErrorRef* error) const {
    if (index != 0) {
        setError(error, readError(NSFileReadUnknownError, "Only image 0 can be read."));
        return std::nullopt;
    }
    const auto& self = static_cast<const LinuxImageSource&>(*this);
    const ImageInfo& info = self.info();
    PlistDictionary p = info.properties;
    const auto& bytes = self.bytes();
    if (self.codec()->exiv2Metadata) codecs::readMetadataFromFile(bytes.data(), bytes.size(), p);
    if (!info.exif.empty() && !p.count(kCGImagePropertyExifDictionary))
        codecs::readExifBlock(info.exif.data(), info.exif.size(), p);
    if (!info.xmp.empty() && !p.count(kImagePropertyXMPDictionary))
        codecs::readXmpPacket(info.xmp, p);
    if (info.orientationApplied) {
        // The container's own transformations already turned the pixels; an EXIF orientation
        // would turn them twice.
        p.erase(kCGImagePropertyOrientation);
        auto tiff = p.find(kCGImagePropertyTIFFDictionary);
        if (tiff != p.end())
            if (auto* family = tiff->second.mutableDictionary()) {
                family->erase(kCGImagePropertyTIFFOrientation);
                if (family->empty()) p.erase(tiff);
            }
    }
    p[kCGImagePropertyPixelWidth] = static_cast<std::int64_t>(info.width);
    p[kCGImagePropertyPixelHeight] = static_cast<std::int64_t>(info.height);
    p[kCGImagePropertyDepth] = info.bitsPerComponent;
    p[kCGImagePropertyHasAlpha] = info.hasAlpha;
    p[kCGImagePropertyFileSize] = static_cast<std::int64_t>(bytes.size());
    ColorSpace space(info.model, info.icc);
    p[kCGImagePropertyColorModel] = space.colorModelName();
    if (std::string name = space.name(); !name.empty()) p[kCGImagePropertyProfileName] = name;
    // Without a density of its own, the EXIF resolution in inches stands for the DPI.
    if (!p.count(kCGImagePropertyDPIWidth)) {
        const PlistDictionary& constP = p;
        const PlistValue& tiff = constP.count(kCGImagePropertyTIFFDictionary)
                                     ? constP.at(kCGImagePropertyTIFFDictionary)
                                     : PlistValue();
        const PlistValue& x = tiff[kCGImagePropertyTIFFXResolution];
        const PlistValue& y = tiff[kCGImagePropertyTIFFYResolution];
        const PlistValue& unit = tiff[kCGImagePropertyTIFFResolutionUnit];
        if (x.isNumber() && y.isNumber() && x.doubleValue() > 0 && y.doubleValue() > 0 &&
            (unit.isNull() || unit.integerValue() == 2)) {
            p[kCGImagePropertyDPIWidth] = x.doubleValue();
            p[kCGImagePropertyDPIHeight] = y.doubleValue();
        }
    }
    return p;
}

std::optional<Bitmap> ImageSource::createImageAtIndex(std::size_t index, ErrorRef* error) const {
    if (index != 0) {
        setError(error, readError(NSFileReadUnknownError, "Only image 0 can be read."));
        return std::nullopt;
    }
    const auto& self = static_cast<const LinuxImageSource&>(*this);
    std::string why;
    auto bitmap = self.codec()->decode(self.bytes().data(), self.bytes().size(), why);
    if (!bitmap || bitmap->isNull()) {
        setError(error, readError(NSFileReadCorruptFileError,
                                  "The " + _type + " image could not be decoded: " +
                                      (why.empty() ? std::string("no pixels") : why)));
        return std::nullopt;
    }
    return bitmap;
}

}  // namespace platform
