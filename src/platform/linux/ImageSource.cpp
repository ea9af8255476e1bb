#include "platform/ImageSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/BitmapStripQueue.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageRowReader.h"
#include "platform/linux/ImageCodecs.h"

namespace platform {
namespace {

using codecs::ImageCodec;
using codecs::ImageInfo;

ErrorRef readError(std::int64_t code, const std::string& description) {
    return Error::errorWithDomain(
        NSCocoaErrorDomain, code,
        {{NSLocalizedDescriptionKey, description}, {NSDebugDescriptionErrorKey, description}});
}

void setError(ErrorRef* out, ErrorRef error) {
    if (out) *out = std::move(error);
}

// A decoder's answer as the picture, or none with the reason the decoder gave.
std::optional<Bitmap> decodedOrError(std::optional<Bitmap> bitmap, const std::string& type,
                                     const std::string& why, ErrorRef* error) {
    if (bitmap && !bitmap->isNull()) return bitmap;
    setError(error, readError(NSFileReadCorruptFileError,
                              "The " + type + " image could not be decoded: " +
                                  (why.empty() ? std::string("no pixels") : why)));
    return std::nullopt;
}

class LinuxImageSource final : public ImageSource {
  public:
    LinuxImageSource(std::vector<std::uint8_t> bytes, const ImageCodec* codec, ImageInfo info)
        : _bytes(std::move(bytes)), _codec(codec), _info(std::move(info)) {
        _type = codec->format.typeIdentifier;
        _width = _info.width;
        _height = _info.height;
    }

    const std::vector<std::uint8_t>& bytes() const { return _bytes; }
    const ImageCodec* codec() const { return _codec; }
    const ImageInfo& info() const { return _info; }

  private:
    std::vector<std::uint8_t> _bytes;
    const ImageCodec* _codec;
    ImageInfo _info;
};

std::string describe(std::uint64_t value) {
    return std::to_string(value);
}

// The readable formats by name, for the error of an unknown type: "JPEG, PNG, ... or WebP".
std::string knownTypes() {
    const auto& formats = imageFormats();
    std::string text;
    for (std::size_t i = 0; i < formats.size(); ++i)
        text += (i == 0                    ? ""
                 : i + 1 == formats.size() ? " or "
                                           : ", ") +
                std::string(formats[i]->name);
    return text;
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
    std::string type = platform::typeIdentifierForData(bytes, size);
    return codecs::imageCodecForType(type) ? type : std::string();
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
    const ImageCodec* codec = codecs::imageCodecForType(type);
    if (!codec) {
        setError(error,
                 readError(NSFileReadCorruptFileError,
                           "The data are not an image of a known type (" + knownTypes() + ")."));
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
    if (self.codec()->metadata == codecs::MetadataRoute::Exiv2File)
        codecs::readMetadataFromFile(bytes.data(), bytes.size(), p);
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
    return decodedOrError(std::move(bitmap), _type, why, error);
}

bool ImageSource::canDecodeReduced(std::uint32_t denominator) const {
    const bool supported = denominator == 2 || denominator == 4 || denominator == 8;
    return supported && _type == "public.jpeg" && _width % denominator == 0 &&
           _height % denominator == 0;
}

std::optional<Bitmap> ImageSource::createReducedImage(std::uint32_t denominator,
                                                      ErrorRef* error) const {
    if (!canDecodeReduced(denominator)) {
        setError(error,
                 readError(NSFileReadUnknownError, "The image cannot be decoded at 1/" +
                                                       describe(denominator) + " of its size."));
        return std::nullopt;
    }
    const auto& self = static_cast<const LinuxImageSource&>(*this);
    std::string why;
    auto bitmap =
        codecs::jpegDecodeReduced(self.bytes().data(), self.bytes().size(), denominator, why);
    return decodedOrError(std::move(bitmap), _type, why, error);
}

std::unique_ptr<ImageRowReader> ImageRowReader::create(std::shared_ptr<const ImageSource> source,
                                                       std::uint32_t denominator, ErrorRef* error) {
    if (!source) return nullptr;
    if (denominator != 1 && !source->canDecodeReduced(denominator)) return nullptr;
    const auto& self = static_cast<const LinuxImageSource&>(*source);
    std::string why;
    std::unique_ptr<codecs::RowDecoder> decoder;
    if (self.type() == "public.jpeg")
        decoder =
            codecs::jpegRowDecoder(self.bytes().data(), self.bytes().size(), denominator, why);
    else if (self.type() == "public.png" && denominator == 1)
        decoder = codecs::pngRowDecoder(self.bytes().data(), self.bytes().size(), why);
    else if (self.type() == "public.tiff" && denominator == 1)
        decoder = codecs::tiffRowDecoder(self.bytes().data(), self.bytes().size(), why);
    if (!decoder) {
        if (!why.empty())
            setError(error,
                     readError(NSFileReadCorruptFileError,
                               "The " + self.type() + " image could not be decoded: " + why));
        return nullptr;
    }
    std::unique_ptr<ImageRowReader> reader(new ImageRowReader());
    reader->_shape = decoder->shape();
    reader->_stride = reader->_shape.bytesPerRow();
    reader->_decoder = std::move(decoder);
    reader->_source = std::move(source);
    reader->_buffer = std::make_shared<std::vector<std::uint8_t>>();
    // Two bands wait beside the one being read: the decoder stays ahead of a drawing that
    // takes its rows in bursts, and holds little.
    reader->_ahead = std::make_unique<BitmapStripQueue>(2);
    try {
        reader->_thread = std::thread([r = reader.get()] { r->decodeAhead(); });
    } catch (const std::system_error&) {
        reader->_ahead.reset();  // no thread to be had: rows() decodes them itself
    }
    return reader;
}

ImageRowReader::~ImageRowReader() {
    if (_ahead) _ahead->close();  // a decoder waiting for room stops
    if (_thread.joinable()) _thread.join();
}

void ImageRowReader::decodeAhead() {
    const std::size_t height = _shape.height();
    bool complete = true;
    for (std::size_t y0 = 0; y0 < height; y0 += kAheadRows) {
        const std::size_t count = std::min(kAheadRows, height - y0);
        auto pixels = std::make_shared<std::vector<std::uint8_t>>(count * _stride);
        std::string why;
        std::size_t read = 0;
        while (read < count && _decoder->readRow(pixels->data() + read * _stride, why)) ++read;
        // The rows before a damaged one still go out, as a decoder without a thread ahead
        // would give them, and only then the failure.
        if (read > 0 && !_ahead->push(Bitmap::strip(_shape.width(), height, _shape.layout(),
                                                    _shape.sharedColorSpace(), y0, read,
                                                    std::move(pixels), _stride)))
            return;  // the reader is going away
        if (read < count) {
            _why = why;
            complete = false;
            break;
        }
    }
    _ahead->finish(complete);
}

bool ImageRowReader::nextRow(std::uint8_t* out, ErrorRef* error) {
    std::string why;
    bool read = false;
    if (_ahead) {
        if (const Bitmap* band = _ahead->rowsFor(_decoded)) {
            std::memcpy(out, band->row(_decoded), _stride);
            read = true;
        } else {
            why = _why.empty() ? std::string("no more rows") : _why;
        }
    } else {
        read = _decoder->readRow(out, why);
    }
    if (!read)
        setError(error,
                 readError(NSFileReadCorruptFileError,
                           "The " + _source->type() + " image could not be decoded: " + why));
    return read;
}

const Bitmap* ImageRowReader::rows(std::size_t first, std::size_t end, ErrorRef* error) {
    const std::size_t height = _shape.height();
    end = std::min(end, height);
    first = std::min(first, end);
    if (first < _base) {
        setError(error,
                 readError(NSFileReadUnknownError, "Rows of the image were asked for again."));
        return nullptr;
    }
    if (end > _decoded) {
        // Rows above `first` are dropped to make room, the others move to the front.
        const std::size_t keep = _decoded > first ? _decoded - first : 0;
        const std::size_t from = _decoded > first ? first : _decoded;
        const std::size_t needed = end - from;
        if (_buffer->size() < needed * _stride) {
            auto grown = std::make_shared<std::vector<std::uint8_t>>(needed * _stride);
            // The first window has nothing to keep, and its empty buffer no data pointer.
            if (keep)
                std::memcpy(grown->data(), _buffer->data() + (from - _base) * _stride,
                            keep * _stride);
            _buffer = std::move(grown);
        } else if (from > _base && keep) {
            std::memmove(_buffer->data(), _buffer->data() + (from - _base) * _stride,
                         keep * _stride);
        }
        _base = from;
        while (_decoded < end) {
            if (!nextRow(_buffer->data() + (_decoded - _base) * _stride, error)) return nullptr;
            ++_decoded;
        }
    }
    _strip = Bitmap::strip(_shape.width(), height, _shape.layout(), _shape.sharedColorSpace(),
                           _base, _decoded - _base, _buffer, _stride);
    return &_strip;
}

}  // namespace platform
