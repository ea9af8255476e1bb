// The per-format readers and writers behind ImageSource and ImageDestination, the table that
// holds one row per format, and the metadata bridge to exiv2. Internal to the Linux platform
// layer; each codec keeps its library's error mechanism (setjmp/longjmp, global handlers)
// inside its own file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/ImageFormats.h"
#include "platform/PlistValue.h"

namespace platform::codecs {

// What a header tells without decoding the pixels.
struct ImageInfo {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int bitsPerComponent = 8;
    bool hasAlpha = false;
    ColorSpace::Model model = ColorSpace::Model::RGB;
    std::vector<std::uint8_t> icc;
    // Format-specific properties: "DPIWidth"/"DPIHeight", "{JFIF}", "{PNG}", "{HEICS}", "{GIF}".
    PlistDictionary properties;
    // Metadata blocks the codec found itself (HEIF, PNG eXIf): a TIFF-structured EXIF block
    // and an XMP packet. Left empty where exiv2 reads the file directly.
    std::vector<std::uint8_t> exif;
    std::string xmp;
    // HEIF pixels come out already turned by the container's own transformations.
    bool orientationApplied = false;
};

// Rows that arrive while an encoder runs: the bitmap that holds row `y` (the whole picture or
// a strip of it), asked for top to bottom; null when no more rows come (the encode then fails).
using RowSupply = std::function<const Bitmap*(std::size_t y)>;

// What the writers need beyond the pixels.
struct EncodeOptions {
    double quality = 1.0;  // 0..1
    bool keepAlpha = true;
    std::optional<double> dpiX, dpiY;
    const PlistDictionary* properties = nullptr;  // the whole dictionary given to the destination
    std::vector<std::uint8_t> exif;               // for encoders that embed EXIF themselves
    std::string xmp;
    // When set, the writer reads its rows from here, and the image it is given holds only the
    // picture's size, layout and colour space. Only codecs with `writesRows` take it.
    const RowSupply* rows = nullptr;
};

using Bytes = const std::uint8_t*;

// A decoder that gives its rows one at a time, top first, in the layout the format's whole
// decode gives. Made by the codecs whose library reads row by row.
class RowDecoder {
  public:
    virtual ~RowDecoder() = default;
    // Size, layout and colour space: a strip without rows.
    virtual const Bitmap& shape() const = 0;
    // The next row into `out` (shape().bytesPerRow() bytes); false with the reason on damage.
    virtual bool readRow(std::uint8_t* out, std::string& why) = 0;
};

// How a format's metadata families travel.
enum class MetadataRoute {
    None,       // the format carries none of them
    Exiv2File,  // exiv2 reads them from the file, and writes them into it after the encode
    Blocks,     // the codec reads and embeds an EXIF block and an XMP packet itself
};

// One row of the codec table: the public description and the functions behind it.
struct ImageCodec {
    ImageFormat format;
    bool (*readInfo)(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
    std::optional<Bitmap> (*decode)(Bytes data, std::size_t size, std::string& why);
    // The writer, into an open file or (for libraries that open the file themselves) a path;
    // both null for a format that is only read.
    bool (*encodeToFile)(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                         std::string& why);
    bool (*encodeToPath)(const Bitmap& image, const EncodeOptions& options, const std::string& path,
                         std::string& why);
    // The pictures in the file, counted up to `stopAt` without decoding them; null for the
    // formats that hold one.
    std::size_t (*frameCount)(Bytes data, std::size_t size, std::size_t stopAt);
    // Whether this build's library has the encoder; null when it always has.
    bool (*canEncode)();
    MetadataRoute metadata;
    // Named among the writable types; false for an alias that another row already names.
    bool listedWriter;
    // The writer takes EncodeOptions::rows.
    bool writesRows = false;
};

// Every row, in sniffing order; the row of a type identifier, or null.
const std::vector<const ImageCodec*>& imageCodecs();
const ImageCodec* imageCodecForType(std::string_view typeIdentifier);
// True when the row has an encoder this build can run.
bool canWrite(const ImageCodec& codec);

bool jpegSniff(Bytes data, std::size_t size);
bool pngSniff(Bytes data, std::size_t size);
bool tiffSniff(Bytes data, std::size_t size);
bool gifSniff(Bytes data, std::size_t size);
bool heicSniff(Bytes data, std::size_t size);
bool heifSniff(Bytes data, std::size_t size);

bool jpegReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> jpegDecode(Bytes data, std::size_t size, std::string& why);
// The pixels at 1/`denominator` (1, 2, 4 or 8) of each side, rounded up, by the scaled
// inverse DCT: far less work than the whole picture.
std::optional<Bitmap> jpegDecodeReduced(Bytes data, std::size_t size, unsigned denominator,
                                        std::string& why);
// Null without a reason for a CMYK file, whose whole picture is converted at once.
std::unique_ptr<RowDecoder> jpegRowDecoder(Bytes data, std::size_t size, unsigned denominator,
                                           std::string& why);
bool jpegEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why);

// A key of the "{PNG}" family that only this platform's writer reads: a dictionary of PNG
// keywords to texts, each written as a tEXt chunk before the pixels, as it is, beside the
// chunks of the standard keys. Carries the freedesktop thumbnail keys (Thumb::URI,
// Thumb::MTime); readers never produce it, so a copied family does not carry it along.
inline constexpr const char* kPNGTextChunks = "TextChunks";
// Every text chunk before the pixels, keyword to text, in that form; read from the chunks
// alone, without the pixels. Empty for a file that is no PNG or is damaged there.
PlistDictionary pngTextChunks(Bytes data, std::size_t size);

bool pngReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> pngDecode(Bytes data, std::size_t size, std::string& why);
// Null without a reason for an interlaced file, whose rows come in seven passes.
std::unique_ptr<RowDecoder> pngRowDecoder(Bytes data, std::size_t size, std::string& why);
bool pngEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
               std::string& why);

bool tiffReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> tiffDecode(Bytes data, std::size_t size, std::string& why);
// Null without a reason for a layout whose whole picture is decoded at once (CMYK, depths
// other than 8 and 16 bits, files stored bottom up).
std::unique_ptr<RowDecoder> tiffRowDecoder(Bytes data, std::size_t size, std::string& why);
bool tiffEncode(const Bitmap& image, const EncodeOptions& options, const std::string& path,
                std::string& why);

std::size_t gifFrameCount(Bytes data, std::size_t size, std::size_t stopAt);
bool gifReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> gifDecode(Bytes data, std::size_t size, std::string& why);
bool gifEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
               std::string& why);

bool heifReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> heifDecode(Bytes data, std::size_t size, std::string& why);
bool heifEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why);
bool heifCanEncode();
// The libheif quality (0..100) for a compression quality (0..1).
int heifQualityForCompression(double compression);

bool webpSniff(Bytes data, std::size_t size);
std::size_t webpFrameCount(Bytes data, std::size_t size, std::size_t stopAt);
bool webpReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why);
std::optional<Bitmap> webpDecode(Bytes data, std::size_t size, std::string& why);
bool webpEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why);
// True when quality 1.0 asks for the lossless encoder.
bool webpIsLossless(double quality);

// Metadata through exiv2. Readers add "{TIFF}", "{Exif}", "{GPS}", "{IPTC}", "{XMP}" and the
// top-level "Orientation" to `properties`; they never fail, a damaged block is left out.
void readMetadataFromFile(Bytes data, std::size_t size, PlistDictionary& properties);
void readExifBlock(Bytes data, std::size_t size, PlistDictionary& properties);
void readXmpPacket(const std::string& packet, PlistDictionary& properties);
// Writes the families of `properties` (and "Orientation", DPI) into a JPEG, PNG or TIFF file.
bool writeMetadataToFile(const std::string& path, const PlistDictionary& properties,
                         std::string& why);
// For encoders that carry the blocks themselves.
std::vector<std::uint8_t> encodeExifBlock(const PlistDictionary& properties);
std::string encodeXmpPacket(const PlistDictionary& properties);

// Row conversion for encoders: row `y` as interleaved 8- or 16-bit samples, grey or RGB as
// `gray` says, with straight alpha appended when `alpha`. Premultiplied input is divided out;
// input without alpha gets full alpha. `out` holds width * (gray?1:3 + alpha) samples.
void unpackRow8(const Bitmap& image, std::size_t y, bool gray, bool alpha, std::uint8_t* out);
void unpackRow16(const Bitmap& image, std::size_t y, bool gray, bool alpha, std::uint16_t* out);

// An embedded ICC profile that lcms cannot read, or that describes another colour model than
// the pixels', is dropped with a log line: the picture is then read, drawn and written as
// sRGB (or its grey), as other readers do, instead of carrying a profile that no reader of
// the result could open.
void dropUnusableProfile(std::vector<std::uint8_t>& icc, ColorSpace::Model model);

// Small helpers shared by the codecs.
// The value under `key`, or a null value.
const PlistValue& valueForKey(const PlistDictionary& dictionary, const std::string& key);
double dpiFromPixelsPerMeter(std::uint32_t ppm);

}  // namespace platform::codecs
