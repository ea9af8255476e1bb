#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/DecoderLimits.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"
#include "support/TestHome.h"

using namespace platform;
using testing_support::runCommand;
using testing_support::TestHome;

namespace {

// Runs ImageMagick; a "PNG48:"-style prefix of the name picks the encoder's variant.
std::string make(const TestHome& home, std::string name, const std::string& convertArgs) {
    std::string prefix;
    if (auto colon = name.find(':'); colon != std::string::npos) {
        prefix = name.substr(0, colon + 1);
        name = name.substr(colon + 1);
    }
    std::string path = home.path(name);
    EXPECT_EQ(runCommand("convert " + convertArgs + " '" + prefix + path + "' 2>&1"), 0)
        << convertArgs;
    return path;
}

std::vector<std::uint8_t> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(ImageSourceMedia, FormatsOpenWithTypeSizeDepthAndAlphaAndDecodeKeepingThem) {
    TestHome home;
    struct Case {
        const char* name;
        const char* args;
        const char* type;
        std::int64_t width, height, depth;
        bool hasAlpha;
        int colorComponents;
        CGImageAlphaInfo decodedAlpha;
    } cases[] = {
        {"plain.jpg", "-size 40x30 gradient:red-blue", "public.jpeg", 40, 30, 8, false, 3,
         kCGImageAlphaNoneSkipLast},
        {"progressive.jpg", "-size 41x31 gradient:red-blue -interlace JPEG", "public.jpeg", 41, 31,
         8, false, 3, kCGImageAlphaNoneSkipLast},
        {"gray.jpg", "-size 20x10 gradient:black-white -colorspace Gray", "public.jpeg", 20, 10, 8,
         false, 1, kCGImageAlphaNone},
        {"cmyk.jpg", "-size 20x10 xc:red -colorspace CMYK", "public.jpeg", 20, 10, 8, false, 3,
         kCGImageAlphaNoneSkipLast},
        {"PNG48:deep.png", "-size 32x16 gradient:red-blue -depth 16", "public.png", 32, 16, 16,
         false, 3, kCGImageAlphaNoneSkipLast},
        {"alpha.png", "-size 10x12 xc:none -fill red -draw 'rectangle 0,0 4,4' -depth 8",
         "public.png", 10, 12, 8, true, 3, kCGImageAlphaLast},
        {"PNG64:deepalpha.png", "-size 10x12 xc:'rgba(255,0,0,0.5)' -depth 16", "public.png", 10,
         12, 16, true, 3, kCGImageAlphaLast},
        {"PNG8:palette.png", "-size 9x9 xc:red -fill blue -draw 'point 1,1'", "public.png", 9, 9, 8,
         false, 3, kCGImageAlphaNoneSkipLast},
        {"gray.png", "-size 9x7 gradient:black-white -colorspace Gray -depth 8", "public.png", 9, 7,
         8, false, 1, kCGImageAlphaNone},
        {"image.tif", "-size 15x11 gradient:red-blue -depth 16", "public.tiff", 15, 11, 16, false,
         3, kCGImageAlphaNoneSkipLast},
        {"image.gif", "-size 13x9 xc:none -fill red -draw 'point 2,2'", "com.compuserve.gif", 13, 9,
         8, true, 3, kCGImageAlphaLast},
        {"one.png", "-size 1x1 xc:red", "public.png", 1, 1, 8, false, 3, kCGImageAlphaNoneSkipLast},
    };
    // A tiled TIFF made by libvips (ImageMagick's tiles are refused by libtiff itself).
    std::string flat = make(home, "flat.png", "-size 40x40 gradient:red-blue -depth 8");
    ASSERT_EQ(runCommand("vips copy '" + flat + "' '" + home.path("tiled.tif") +
                         "[tile,tile-width=16,tile-height=16,compression=lzw]'"),
              0);
    auto tiled = ImageSource::createWithURL(home.path("tiled.tif"));
    ASSERT_TRUE(tiled);
    auto tiledBitmap = tiled->createImageAtIndex(0);
    ASSERT_TRUE(tiledBitmap);
    EXPECT_EQ(tiledBitmap->width(), 40u);
    EXPECT_GT(tiledBitmap->pixelAt(0, 0).r, 60000) << "the gradient starts red at the top";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // The file name says nothing: the type comes from the signature.
        std::string path = make(home, c.name, c.args);
        std::string renamed = path + ".bin";
        std::rename(path.c_str(), renamed.c_str());
        ErrorRef error;
        auto source = ImageSource::createWithURL(renamed, &error);
        ASSERT_TRUE(source) << (error ? error->description() : "");
        EXPECT_EQ(source->type(), c.type);
        auto p = source->copyPropertiesAtIndex(0);
        ASSERT_TRUE(p);
        EXPECT_EQ((*p)[kCGImagePropertyPixelWidth].integerValue(), c.width);
        EXPECT_EQ((*p)[kCGImagePropertyPixelHeight].integerValue(), c.height);
        EXPECT_EQ((*p)[kCGImagePropertyDepth].integerValue(), c.depth);
        EXPECT_EQ((*p)[kCGImagePropertyHasAlpha].boolValue(), c.hasAlpha);
        auto bitmap = source->createImageAtIndex(0, &error);
        ASSERT_TRUE(bitmap) << (error ? error->description() : "");
        EXPECT_EQ(bitmap->width(), static_cast<std::size_t>(c.width));
        EXPECT_EQ(bitmap->height(), static_cast<std::size_t>(c.height));
        EXPECT_EQ(bitmap->bitsPerComponent(), static_cast<std::size_t>(c.depth));
        EXPECT_EQ(bitmap->layout().colorComponents, c.colorComponents);
        EXPECT_EQ(bitmap->alphaInfo(), c.decodedAlpha);
    }
}

TEST(ImageSourceMedia, DecodedPixelsMatchTheFile) {
    TestHome home;
    struct Case {
        const char* name;
        const char* args;
        std::size_t x, y;
        Bitmap::Pixel16 expected;
        int tolerance;
    } cases[] = {
        {"red.jpg", "-size 16x16 xc:red -quality 100", 8, 8, {65535, 0, 0, 65535}, 600},
        {"cmyk.jpg",
         "-size 16x16 xc:red -colorspace CMYK -quality 100",
         8,
         8,
         {65535, 0, 0, 65535},
         8000},
        {"PNG48:deep.png",
         "-size 4x4 xc:'#03E807D00BB8' -depth 16",
         1,
         1,
         {1000, 2000, 3000, 65535},
         0},
        {"alpha.png", "-size 4x4 xc:'rgba(255,0,0,0.5)'", 1, 1, {65535, 0, 0, 128 * 257}, 0},
        {"palette.gif", "-size 4x4 xc:blue", 3, 3, {0, 0, 65535, 65535}, 0},
        {"image.tif",
         "-size 4x4 xc:'rgb(10,20,30)' -depth 8",
         2,
         2,
         {10 * 257, 20 * 257, 30 * 257, 65535},
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto source = ImageSource::createWithURL(make(home, c.name, c.args));
        ASSERT_TRUE(source);
        auto bitmap = source->createImageAtIndex(0);
        ASSERT_TRUE(bitmap);
        auto p = bitmap->pixelAt(c.x, c.y);
        EXPECT_NEAR(p.r, c.expected.r, c.tolerance);
        EXPECT_NEAR(p.g, c.expected.g, c.tolerance);
        EXPECT_NEAR(p.b, c.expected.b, c.tolerance);
        EXPECT_NEAR(p.a, c.expected.a, c.tolerance);
    }
}

TEST(ImageSourceMedia, PropertiesCarryOrientationGpsDpiExifIptcAndPngText) {
    TestHome home;
    std::string jpeg =
        make(home, "tagged.jpg", "-size 64x48 gradient:red-blue -density 300 -units PixelsPerInch");
    ASSERT_EQ(runCommand("exiftool -q -overwrite_original -Orientation#=6 -GPSLatitude=48.8584 "
                         "-GPSLatitudeRef=S -GPSLongitude=2.2945 -GPSLongitudeRef=W "
                         "-DateTimeOriginal='2019:05:06 07:08:09' -Make=Acme -Model=Box "
                         "-IPTC:Keywords=one -IPTC:Keywords=two -IPTC:Caption-Abstract=Hello "
                         "-XMP-dc:Title=Titled '" +
                         jpeg + "'"),
              0);
    auto source = ImageSource::createWithURL(jpeg);
    ASSERT_TRUE(source);
    auto p = *source->copyPropertiesAtIndex(0);
    EXPECT_EQ(p[kCGImagePropertyOrientation].integerValue(), 6);
    EXPECT_EQ(p[kCGImagePropertyTIFFDictionary][kCGImagePropertyTIFFOrientation].integerValue(), 6);
    EXPECT_DOUBLE_EQ(p[kCGImagePropertyDPIWidth].doubleValue(), 300);
    EXPECT_DOUBLE_EQ(p[kCGImagePropertyDPIHeight].doubleValue(), 300);
    EXPECT_EQ(p[kCGImagePropertyJFIFDictionary][kCGImagePropertyJFIFXDensity].integerValue(), 300);
    const PlistValue& gps = p[kCGImagePropertyGPSDictionary];
    EXPECT_NEAR(gps[kCGImagePropertyGPSLatitude].doubleValue(), 48.8584, 1e-4);
    EXPECT_EQ(*gps[kCGImagePropertyGPSLatitudeRef].string(), "S");
    EXPECT_NEAR(gps[kCGImagePropertyGPSLongitude].doubleValue(), 2.2945, 1e-4);
    EXPECT_EQ(*gps[kCGImagePropertyGPSLongitudeRef].string(), "W");
    EXPECT_EQ(*p[kCGImagePropertyExifDictionary][kCGImagePropertyExifDateTimeOriginal].string(),
              "2019:05:06 07:08:09");
    EXPECT_EQ(*p[kCGImagePropertyTIFFDictionary][kCGImagePropertyTIFFMake].string(), "Acme");
    const PlistValue& iptc = p[kCGImagePropertyIPTCDictionary];
    EXPECT_EQ(iptc[kCGImagePropertyIPTCKeywords], PlistValue(PlistArray{"one", "two"}));
    EXPECT_EQ(*iptc[kCGImagePropertyIPTCCaptionAbstract].string(), "Hello");
    EXPECT_NE(p[kImagePropertyXMPDictionary]["Xmp.dc.title"].string()->find("Titled"),
              std::string::npos);

    std::string png = make(home, "text.png",
                           "-size 8x8 xc:red -density 118.11 -units PixelsPerCentimeter "
                           "-set Software Painter -set Title Hello");
    auto pngSource = ImageSource::createWithURL(png);
    ASSERT_TRUE(pngSource);
    auto q = *pngSource->copyPropertiesAtIndex(0);
    EXPECT_NEAR(q[kCGImagePropertyDPIWidth].doubleValue(), 300, 0.01);
    EXPECT_EQ(q[kCGImagePropertyPNGDictionary][kCGImagePropertyPNGXPixelsPerMeter].integerValue(),
              11811);
    EXPECT_EQ(*q[kCGImagePropertyPNGDictionary]["Title"].string(), "Hello");
    EXPECT_FALSE(q.count(kCGImagePropertyOrientation));
}

TEST(ImageSourceMedia, BadInputGivesAClearErrorNotACrash) {
    TestHome home;
    std::vector<std::uint8_t> jpeg =
        readAll(make(home, "whole.jpg", "-size 200x150 plasma:fractal -quality 90"));
    std::vector<std::uint8_t> png =
        readAll(make(home, "whole.png", "-size 200x150 plasma:fractal"));
    std::vector<std::uint8_t> gif =
        readAll(make(home, "whole.gif", "-size 200x150 plasma:fractal"));
    std::vector<std::uint8_t> tif =
        readAll(make(home, "whole.tif", "-size 200x150 plasma:fractal"));
    std::mt19937 random(7);
    std::vector<std::uint8_t> noise(4096);
    for (auto& b : noise) b = static_cast<std::uint8_t>(random());
    auto half = [](std::vector<std::uint8_t> v) {
        v.resize(v.size() / 2);
        return v;
    };
    auto corruptBody = [&](std::vector<std::uint8_t> v) {
        for (std::size_t i = v.size() / 3; i < v.size(); i += 7) v[i] ^= 0x5A;
        return v;
    };
    std::vector<std::uint8_t> text = {'h', 'e', 'l', 'l', 'o', '\n'};
    std::vector<std::uint8_t> fakeHeic = {0, 0, 0, 24, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c',
                                          0, 0, 0, 0,  'm', 'i', 'f', '1', 'h', 'e', 'i', 'c'};
    struct Case {
        const char* name;
        std::vector<std::uint8_t> bytes;
        bool opens;  // the header may be fine while the pixels are not
    } cases[] = {
        {"empty", {}, false},
        {"random bytes", noise, false},
        {"text", text, false},
        {"heic signature only", fakeHeic, false},
        {"truncated jpeg", half(jpeg), true},
        {"truncated png", half(png), true},
        {"truncated gif", half(gif), true},
        {"truncated tiff", half(tif), false},  // its directory is at the end
        {"jpeg header only", std::vector<std::uint8_t>(jpeg.begin(), jpeg.begin() + 20), false},
        {"damaged jpeg", corruptBody(jpeg), true},
        {"damaged png", corruptBody(png), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ErrorRef error;
        auto source = ImageSource::createWithData(c.bytes, &error);
        if (!source) {
            ASSERT_TRUE(error);
            EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
            EXPECT_FALSE(error->localizedDescription().empty());
            EXPECT_FALSE(c.opens) << error->description();
            continue;
        }
        source->copyPropertiesAtIndex(0);
        auto bitmap = source->createImageAtIndex(0, &error);
        // A damaged body either fails with an error or decodes to a bitmap of the right size
        // (some damage is invisible to a decoder); a truncated file always fails.
        if (std::string(c.name).rfind("truncated", 0) == 0) {
            EXPECT_FALSE(bitmap) << "truncated data decoded";
        }
        if (!bitmap) {
            ASSERT_TRUE(error);
            EXPECT_EQ(error->code(), NSFileReadCorruptFileError);
        } else {
            EXPECT_EQ(bitmap->width(), 200u);
        }
    }

    // A text file named .heic is refused by its bytes.
    std::string fake = home.path("note.heic");
    std::ofstream(fake) << "not a picture\n";
    ErrorRef error;
    EXPECT_FALSE(ImageSource::createWithURL(fake, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSFileReadCorruptFileError);
    EXPECT_FALSE(ImageSource::createWithURL(home.path("missing.jpg"), &error));
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
}

TEST(ImageSourceMedia, LimitsRefuseHugeButValidImagesNamingTheLimit) {
    TestHome home;
    std::string wide = home.path("wide.png");
    ASSERT_EQ(runCommand("vips black '" + wide + "' 70000 1"), 0);
    std::string square = make(home, "square.png", "-size 300x300 xc:red");
    struct Case {
        std::string path;
        ImageSourceLimits limits;
        const char* mentions;
    } cases[] = {
        {wide, {}, "70000 x 1"},
        {square, {1ull << 30, 65535, 1000}, "90000"},
        {square, {100, 65535, 1000000}, "bytes"},
        {square, {1ull << 30, 299, 1000000}, "299"},
    };
    for (const auto& c : cases) {
        ErrorRef error;
        EXPECT_FALSE(ImageSource::createWithURL(c.path, &error, c.limits));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), NSFileReadTooLargeError);
        EXPECT_NE(error->localizedDescription().find(c.mentions), std::string::npos)
            << error->localizedDescription();
    }
    EXPECT_TRUE(ImageSource::createWithURL(square, nullptr, {1ull << 30, 300, 90000}));
}

// The fuzzer bounds the side of every picture libheif decodes and keeps the decoders on its
// own thread; a picture within the bound decodes whole, and the defaults come back.
TEST(ImageSourceMedia, DecoderLimitsBoundTheSidesOfHeifPictures) {
    TestHome home;
    const std::string heic = make(home, "photo.heic", "-size 100x80 gradient:red-blue");
    struct Row {
        std::uint32_t heifMaxSide;
        bool singleThreaded;
        bool decodes;
    } rows[] = {{64, true, false}, {101, true, true}, {64, false, false}, {20000, false, true}};
    for (const auto& row : rows) {
        setDecoderLimits({row.singleThreaded, row.heifMaxSide});
        ErrorRef error;
        auto source = ImageSource::createWithURL(heic, &error);
        std::optional<Bitmap> bitmap;
        if (source) bitmap = source->createImageAtIndex(0, &error);
        EXPECT_EQ(bitmap.has_value(), row.decodes) << row.heifMaxSide;
        if (bitmap) {
            EXPECT_EQ(bitmap->width(), 100u);
            EXPECT_GT(bitmap->pixelAt(50, 0).r, 50000) << "the gradient starts red at the top";
        } else {
            EXPECT_TRUE(error) << row.heifMaxSide;
        }
    }
    setDecoderLimits({});
    EXPECT_TRUE(ImageSource::createWithURL(heic));
}

namespace {

// The peak resident memory in KiB since the last reset (VmHWM), or -1.
long peakKiB() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

long residentKiB() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

// Writing 5 to clear_refs starts the peak anew at the present size.
bool resetPeak() {
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

}  // namespace

// Files the fuzzers found, kept as seeds of their corpus: each fails with the decoder's
// reason, quickly and without the memory that its headers claim.
TEST(ImageSourceMedia, FuzzerFindingsFailFastWithLittleMemory) {
    struct Case {
        const char* file;
        const char* fault;  // what the file does
        const char* reason;
    } cases[] = {
        {"png-itxt-claims-1.6gb.png",
         "198 bytes; an iTXt chunk before the pixels claims 1,667,244,039 bytes, which libpng "
         "allocated and zeroed before finding the file truncated",
         "iTXt chunk claims 1667244039 bytes"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + ": " + c.fault);
        const auto bytes = readAll(std::string(UNWARP_FUZZ_SEEDS) + "/ImageSourceFuzzer/" + c.file);
        ASSERT_FALSE(bytes.empty());
        const bool reset = resetPeak();
        const long before = reset ? residentKiB() : peakKiB();
        ErrorRef error;
        auto source = ImageSource::createWithData(bytes, &error);
        std::optional<Bitmap> bitmap;
        if (source) bitmap = source->createImageAtIndex(0, &error);
        const long grown = peakKiB() - before;
        EXPECT_FALSE(bitmap);
        ASSERT_TRUE(error);
        EXPECT_NE(error->localizedDescription().find(c.reason), std::string::npos)
            << error->localizedDescription();
        EXPECT_LT(grown, 64 * 1024) << "KiB";
    }
}
