// The codec table: one row per photo format. A new format is its codec file and one row here.
#include <algorithm>
#include <cctype>

#include "platform/linux/ImageCodecs.h"

namespace platform {
namespace codecs {
namespace {

constexpr unsigned kAllFamilies = kImageMetadataTIFF | kImageMetadataExif | kImageMetadataGPS |
                                  kImageMetadataIPTC | kImageMetadataXMP | kImageMetadataICC;
constexpr unsigned kBlockFamilies =
    kImageMetadataExif | kImageMetadataGPS | kImageMetadataXMP | kImageMetadataICC;

// Built on first use, so that a reader called during static initialisation finds it whole.
const std::vector<ImageCodec>& table() {
    // clang-format off
    static const std::vector<ImageCodec> rows{
    // format {type, name, extensions, sniff, {depth, alpha, lossy, frames, metadata}}, readers,
    // writers, frame counter, encoder check, metadata route, listed writer
    {{"public.jpeg", "JPEG", {"jpg", "jpeg", "jpe", "jfif"}, jpegSniff, {8, false, true, false, kAllFamilies}},
     jpegReadInfo, jpegDecode, jpegEncode, nullptr, nullptr, nullptr, MetadataRoute::Exiv2File, true, true},
    {{"public.png", "PNG", {"png"}, pngSniff, {16, true, false, false, kAllFamilies}},
     pngReadInfo, pngDecode, pngEncode, nullptr, nullptr, nullptr, MetadataRoute::Exiv2File, true, true},
    {{"public.tiff", "TIFF", {"tif", "tiff"}, tiffSniff, {16, true, false, true, kAllFamilies}},
     tiffReadInfo, tiffDecode, nullptr, tiffEncode, nullptr, nullptr, MetadataRoute::Exiv2File, true},
    {{"com.compuserve.gif", "GIF", {"gif"}, gifSniff, {8, true, false, true, kImageMetadataNone}},
     gifReadInfo, gifDecode, gifEncode, nullptr, gifFrameCount, nullptr, MetadataRoute::None, true},
    {{"public.heic", "HEIC", {"heic", "heics"}, heicSniff, {16, true, true, true, kBlockFamilies}},
     heifReadInfo, heifDecode, heifEncode, nullptr, nullptr, heifCanEncode, MetadataRoute::Blocks, true},
    {{"public.heif", "HEIF", {"heif", "heifs", "hif"}, heifSniff, {16, true, true, true, kBlockFamilies}},
     heifReadInfo, heifDecode, heifEncode, nullptr, nullptr, heifCanEncode, MetadataRoute::Blocks, false},
    {{"org.webmproject.webp", "WebP", {"webp"}, webpSniff, {8, true, true, true, kBlockFamilies}},
     webpReadInfo, webpDecode, webpEncode, nullptr, webpFrameCount, nullptr, MetadataRoute::Blocks, true},
    };
    // clang-format on
    return rows;
}

}  // namespace

const std::vector<const ImageCodec*>& imageCodecs() {
    static const std::vector<const ImageCodec*> rows = [] {
        std::vector<const ImageCodec*> all;
        for (const auto& codec : table()) all.push_back(&codec);
        return all;
    }();
    return rows;
}

const ImageCodec* imageCodecForType(std::string_view typeIdentifier) {
    for (const auto& codec : table())
        if (typeIdentifier == codec.format.typeIdentifier) return &codec;
    return nullptr;
}

bool canWrite(const ImageCodec& codec) {
    if (!codec.encodeToFile && !codec.encodeToPath) return false;
    return !codec.canEncode || codec.canEncode();
}

}  // namespace codecs

const std::vector<const ImageFormat*>& imageFormats() {
    static const std::vector<const ImageFormat*> formats = [] {
        std::vector<const ImageFormat*> all;
        for (const auto* codec : codecs::imageCodecs()) all.push_back(&codec->format);
        return all;
    }();
    return formats;
}

const ImageFormat* imageFormatForType(std::string_view typeIdentifier) {
    const auto* codec = codecs::imageCodecForType(typeIdentifier);
    return codec ? &codec->format : nullptr;
}

const ImageFormat* imageFormatForExtension(std::string_view extension) {
    std::string lower(extension);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const ImageFormat* format : imageFormats())
        if (std::find(format->extensions.begin(), format->extensions.end(), lower) !=
            format->extensions.end())
            return format;
    return nullptr;
}

}  // namespace platform
