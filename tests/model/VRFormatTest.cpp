#include "model/VRFormat.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

#include <string>
#include <vector>

#include "model/TypeIdentifiers.h"
#include "model/VRImageFormat.h"
#include "platform/ImageSource.h"

namespace {

std::vector<std::uint64_t> types(const std::vector<VRFormat>& formats) {
    std::vector<std::uint64_t> out;
    for (const auto& f : formats) out.push_back(f.rawType());
    return out;
}

}  // namespace

TEST(VRFormat, TypeTable) {
    struct Case {
        std::uint64_t type, mediaTypeGiven;
        const char *name, *extension, *uti;
        std::uint64_t mediaType;
        float compression;
        bool livePhoto;
    } cases[] = {
        {0, 1, "Auto", "jpg", kUTTypeJPEG, 1, 1.0f, true},
        {0, 2, "Auto", "mov", kUTTypeQuickTimeMovie, 2, 1.0f, true},
        {0, 0, "Auto", "jpg", kUTTypeJPEG, 0, 1.0f, true},
        {1, 2, "JPEG", "jpg", kUTTypeJPEG, 1, 0.85f, true},
        {2, 1, "TIFF", "tif", kUTTypeTIFF, 1, 1.0f, false},
        {3, 1, "PNG", "png", kUTTypePNG, 1, 1.0f, false},
        {4, 1, "GIF", "gif", kUTTypeGIF, 1, 1.0f, false},
        {5, 1, "HEIC", "heic", "public.heic", 1, 0.85f, true},
        {6, 1, "MP4", "mp4", kUTTypeMPEG4, 2, 1.0f, false},
        {7, 1, "MOV", "mov", kUTTypeQuickTimeMovie, 2, 1.0f, false},
        {8, 1, "M4V", "m4v", "com.apple.m4v-video", 2, 1.0f, false},
        {9, 1, "3GP", "3gp", "public.3gpp", 2, 1.0f, false},
        {10, 1, "3G2", "3g2", "public.3gpp2", 2, 1.0f, false},
        {11, 2, "", "mov", kUTTypeQuickTimeMovie, 2, 1.0f, false},
        {VRFormatTypeWebP, 2, "WebP", "webp", kUTTypeWebP, 1, 0.85f, false},
        {99, 1, "", "jpg", kUTTypeJPEG, 1, 1.0f, false},
    };
    for (const auto& c : cases) {
        const VRFormat f = VRFormat::formatWithTypeMediaType(c.type, c.mediaTypeGiven);
        EXPECT_EQ(f.name(), c.name) << c.type;
        EXPECT_EQ(f.extension(), c.extension) << c.type;
        EXPECT_EQ(f.UTI(), c.uti) << c.type;
        EXPECT_EQ(f.mediaType(), c.mediaType) << c.type;
        EXPECT_EQ(f.compression(), c.compression) << c.type;
        EXPECT_EQ(f.supportsLivePhoto(), c.livePhoto) << c.type;
    }
    EXPECT_EQ(VRFormat::formatWithType(7).mediaType(), VRFormatMediaTypeVideo);
    EXPECT_EQ(VRFormat::formatWithType(0).mediaType(), VRFormatMediaTypePhoto);
    EXPECT_EQ(VRFormat(6, 0.5f).mediaType(), VRFormatMediaTypeVideo);
}

TEST(VRFormat, MediaTypeTitles) {
    EXPECT_EQ(titleForMediaType(VRFormatMediaTypePhoto), "Photo");
    EXPECT_EQ(titleForMediaType(VRFormatMediaTypeVideo), "Video");
    EXPECT_EQ(titleForMediaType(VRFormatMediaTypePhoto, true), "P");
    EXPECT_EQ(titleForMediaType(VRFormatMediaTypeVideo, true), "V");
    EXPECT_EQ(titleForMediaType(0), "");
    EXPECT_EQ(titleForMediaType(3, true), "");
}

TEST(VRFormat, CompressionClampsAndEqualityIgnoresMediaType) {
    VRFormat f = VRFormat::formatWithType(VRFormatTypeJPEG);
    EXPECT_EQ(f.compressionPercent(), 85u);
    f.setCompression(1.5f);
    EXPECT_EQ(f.compression(), 1.0f);
    f.setCompression(-0.1f);
    EXPECT_EQ(f.compression(), 0.0f);
    EXPECT_EQ(VRFormat(1, 1, 7.0f).compression(), 1.0f);
    EXPECT_EQ(VRFormat(1, 1, 0.555f).compressionPercent(), 56u);
    EXPECT_EQ(VRFormat::formatWithType(VRFormatTypeJPEG).description(), "JPEG 0.850000");

    EXPECT_EQ(VRFormat(7, 1, 0.5f), VRFormat(7, 2, 0.5f));
    EXPECT_EQ(VRFormat::formatWithTypeMediaType(0, 1), VRFormat::formatWithTypeMediaType(0, 2));
    EXPECT_EQ(VRFormat::formatWithTypeMediaType(0, 1).hash(),
              VRFormat::formatWithTypeMediaType(0, 2).hash());
    EXPECT_NE(VRFormat(7, 2, 0.5f), VRFormat(7, 2, 0.6f));
    EXPECT_NE(VRFormat(6, 2, 1.0f), VRFormat(7, 2, 1.0f));
}

TEST(VRFormat, RecognisesTypeIdentifiersAndExtensions) {
    struct Case {
        std::string uti;
        std::uint64_t type;
    } utis[] = {
        {"public.jpeg", 1},
        {"public.png", 3},
        {"com.compuserve.gif", 4},
        {"public.tiff", 2},
        {"public.heif", 5},
        {"public.heic", 5},
        {"com.apple.quicktime-movie", 7},
        {"com.apple.m4v-video", 8},
        {"public.mpeg-4", 6},
        {"public.3gpp", 9},
        {"public.3gpp2", 10},
        {"public.image", 0},
        {"public.avif", 0},
        {"org.webmproject.webp", 0},
        {"", 0},
        {"com.example.unknown", 0},
    };
    for (const auto& c : utis) {
        const VRFormat f = VRFormat::formatFromUTI(c.uti);
        EXPECT_EQ(f.rawType(), c.type) << c.uti;
        EXPECT_EQ(f, VRFormat::formatWithType(c.type)) << c.uti;  // default compression
    }

    struct PathCase {
        std::string path;
        std::uint64_t type;
    } paths[] = {
        {"/a/b/IMG_0001.JPG", 1},
        {"x.jpeg", 1},
        {"x.png", 3},
        {"x.tif", 2},
        {"x.TIFF", 2},
        {"x.gif", 4},
        {"x.heic", 5},
        {"x.HEIF", 5},
        {"clip.MOV", 7},
        {"clip.mp4", 6},
        {"clip.m4v", 8},
        {"clip.3gp", 9},
        {"clip.3g2", 10},
        {"/dir.mov/noext", 0},
        {".mov", 0},
        {"x.webp", 0},
        {"", 0},
    };
    for (const auto& c : paths)
        EXPECT_EQ(VRFormat::formatFromURL(c.path).rawType(), c.type) << c.path;
}

TEST(VRFormat, RecognisesFileSignatures) {
    auto bytes = [](std::string s) { return std::vector<std::uint8_t>(s.begin(), s.end()); };
    auto ftyp = [&](std::string major, std::string compatible) {
        std::string box = major + std::string("\0\0\0\0", 4) + compatible;
        std::string size(4, '\0');
        size[3] = static_cast<char>(8 + box.size());
        return bytes(size + "ftyp" + box);
    };
    struct Case {
        const char* what;
        std::vector<std::uint8_t> data;
        std::string uti;
        std::uint64_t imageType;  // what formatFromData gives: still images only
    } cases[] = {
        {"jpeg", bytes("\xFF\xD8\xFF\xE0\x00\x10JFIF"), kUTTypeJPEG, 1},
        {"png", bytes("\x89PNG\r\n\x1A\n\0\0\0\rIHDR"), kUTTypePNG, 3},
        {"tiff le", bytes(std::string("II*\0\x08\0\0\0", 8)), kUTTypeTIFF, 2},
        {"tiff be", bytes(std::string("MM\0*\0\0\0\x08", 8)), kUTTypeTIFF, 2},
        {"gif87", bytes("GIF87a\x01\0"), kUTTypeGIF, 4},
        {"gif89", bytes("GIF89a"), kUTTypeGIF, 4},
        {"heic", ftyp("heic", "mif1heic"), "public.heic", 5},
        {"heif mif1", ftyp("mif1", "mif1"), "public.heif", 5},
        {"heif image sequence", ftyp("msf1", "hevc"), "public.heif", 5},
        // The image source once called this HEIC and the model HEIF: the major brand decides.
        {"heif with an heic brand", ftyp("mif1", "mif1heic"), "public.heif", 5},
        {"webp", bytes(std::string("RIFF\x1a\0\0\0WEBPVP8L", 16)), "org.webmproject.webp", 0},
        {"riff but wave", bytes(std::string("RIFF\x1a\0\0\0WAVEfmt ", 16)), "", 0},
        {"avif", ftyp("avif", "mif1avif"), "public.avif", 0},
        {"mp4", ftyp("isom", "isomiso2avc1mp41"), kUTTypeMPEG4, 0},
        {"mov", ftyp("qt  ", "qt  "), kUTTypeQuickTimeMovie, 0},
        {"m4v", ftyp("M4V ", "M4V M4A mp42isom"), "com.apple.m4v-video", 0},
        {"3gp", ftyp("3gp4", "isom3gp4"), "public.3gpp", 0},
        {"3g2", ftyp("3g2a", "3g2a"), "public.3gpp2", 0},
        {"mp4 by compatible brand", ftyp("XXXX", "zzzzmp42"), kUTTypeMPEG4, 0},
        {"old quicktime", bytes(std::string("\0\0\0\x08wide\0\0\0\0mdat", 16)),
         kUTTypeQuickTimeMovie, 0},
        {"short jpeg", bytes("\xFF\xD8"), "", 0},
        {"truncated ftyp",
         bytes(std::string("\0\0\0\x18"
                           "ftyphe",
                           10)),
         "", 0},
        {"ftyp claiming a huge box",
         bytes(std::string("\xFF\xFF\xFF\xFF"
                           "ftypabcd",
                           12)),
         "", 0},
        {"text", bytes("hello world"), "", 0},
        {"empty", {}, "", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TypeIdentifiers::identifierForData(c.data.data(), c.data.size()), c.uti)
            << c.what;
        EXPECT_EQ(VRFormat::formatFromData(c.data.data(), c.data.size()).rawType(), c.imageType)
            << c.what;
        // One sniffer: the image source names the same type where it has a reader for it.
        const bool readable = c.uti == kUTTypeJPEG || c.uti == kUTTypePNG || c.uti == kUTTypeTIFF ||
                              c.uti == kUTTypeGIF || c.uti == "public.heic" ||
                              c.uti == "public.heif" || c.uti == kUTTypeWebP;
        EXPECT_EQ(platform::ImageSource::typeIdentifierForData(c.data.data(), c.data.size()),
                  readable ? c.uti : "")
            << c.what;
    }
    EXPECT_EQ(TypeIdentifiers::identifierForData(nullptr, 10), "");
}

TEST(VRFormat, Conformance) {
    using TypeIdentifiers::typeConformsTo;
    EXPECT_TRUE(typeConformsTo("public.jpeg", "public.image"));
    EXPECT_TRUE(typeConformsTo("public.heic", "public.image"));
    EXPECT_TRUE(typeConformsTo("com.apple.m4v-video", "public.movie"));
    EXPECT_TRUE(typeConformsTo("public.3gpp2", "public.data"));
    EXPECT_FALSE(typeConformsTo("public.image", "public.jpeg"));
    EXPECT_FALSE(typeConformsTo("public.mpeg-4", "public.image"));
    EXPECT_FALSE(typeConformsTo("", ""));
    // A photo codec row without a line of its own in the hierarchy is an image.
    EXPECT_TRUE(typeConformsTo(kUTTypeWebP, "public.image"));
    EXPECT_TRUE(typeConformsTo(kUTTypeWebP, "public.data"));
    EXPECT_FALSE(typeConformsTo(kUTTypeWebP, "public.movie"));
    EXPECT_FALSE(typeConformsTo("com.example.unknown", "public.image"));
    // Extensions of the codec rows and of the other known types, any case.
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("WebP"), kUTTypeWebP);
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("HIF"), kUTTypeHEIF);
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("jfif"), kUTTypeJPEG);
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("M4V"), "com.apple.m4v-video");
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("avif"), "public.avif");
    EXPECT_EQ(TypeIdentifiers::preferredIdentifierForExtension("txt"), "");
}

TEST(VRFormat, AvailableFormatsByDeviceClassAndWriters) {
    const std::vector<std::string> all{kUTTypeJPEG, kUTTypePNG, kUTTypeTIFF, kUTTypeGIF,
                                       kUTTypeHEIC};
    EXPECT_EQ(types(VRFormat::availableFormats(0, all)),
              (std::vector<std::uint64_t>{0, 3, 1, 7, 8, 6}));
    EXPECT_EQ(types(VRFormat::availableFormats(4, all)),
              (std::vector<std::uint64_t>{0, 3, 1, 7, 8, 6, 2, 5}));
    EXPECT_EQ(types(VRFormat::availableFormats(1, {kUTTypeHEIC})),
              (std::vector<std::uint64_t>{0, 3, 1, 7, 8, 6, 5}));
    EXPECT_EQ(types(VRFormat::availableFormatsWithMediaType(2, VRFormat::availableFormats(0, all))),
              (std::vector<std::uint64_t>{0, 7, 8, 6}));
    EXPECT_EQ(types(VRFormat::availableFormatsWithMediaType(1, VRFormat::availableFormats(4, all))),
              (std::vector<std::uint64_t>{0, 3, 1, 2, 5}));
    EXPECT_EQ(types(VRFormat::availableFormats(2, {})),
              (std::vector<std::uint64_t>{0, 3, 1, 7, 8, 6}));
}

TEST(VRFormat, AvailableFormatsOnThisMachine) {
    // Class 4 (no device model) with every writer of this build, HEIC included.
    EXPECT_EQ(types(VRFormat::availableFormats()),
              (std::vector<std::uint64_t>{0, 3, 1, 7, 8, 6, 2, 5}));
    EXPECT_EQ(&VRFormat::availableFormats(), &VRFormat::availableFormats());
    EXPECT_EQ(types(VRFormat::availableFormatsWithMediaType(VRFormatMediaTypeVideo)),
              (std::vector<std::uint64_t>{0, 7, 8, 6}));
}

TEST(VRImageFormat, DescriptionsAndTypeLookup) {
    using FT = VRImageFormat::FormatType;
    struct Case {
        FT type;
        const char *name, *uti, *ext;
        float compression;
    } cases[] = {
        {FT::autoType, "Auto", kUTTypeJPEG, "jpg", 0.85f},
        {FT::jpeg, "JPEG", kUTTypeJPEG, "jpg", 0.85f},
        {FT::tiff, "TIFF", kUTTypeTIFF, "tif", 1.0f},
        {FT::png, "PNG", kUTTypePNG, "png", 1.0f},
        {FT::gif, "GIF", kUTTypeGIF, "gif", 1.0f},
        {FT::heic, "HEIC", "public.heic", "heic", 0.85f},
    };
    for (const auto& c : cases) {
        const VRImageFormat f(c.type);
        EXPECT_EQ(f.name(), c.name);
        EXPECT_EQ(f.utType(), c.uti);
        EXPECT_EQ(f.ext(), c.ext);
        EXPECT_EQ(f.compression(), c.compression);
    }
    EXPECT_EQ(VRImageFormat(FT::jpeg, 0.5f).compression(), 0.5f);
    EXPECT_EQ(VRImageFormat::formatTypeForUTType("public.heif"), FT::heic);
    EXPECT_EQ(VRImageFormat::formatTypeForUTType("public.png"), FT::png);
    EXPECT_EQ(VRImageFormat::formatTypeForUTType("com.apple.quicktime-movie"), FT::autoType);
    VRImageFormat copy = VRImageFormat(FT::gif);
    EXPECT_EQ(copy, VRImageFormat(FT::gif));
    copy.setCompression(0.1f);
    EXPECT_NE(copy, VRImageFormat(FT::gif));
}
