// WebP in and out through the codec table: files made by ImageMagick and libvips are read, what
// we write is read back by vips, quality orders the sizes, 1.0 keeps every pixel, and damaged
// files are refused with the usual words.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"
#include "support/TestHome.h"

using namespace platform;
using testing_support::runCommand;
using testing_support::TestHome;

namespace {

constexpr const char* kWebP = "org.webmproject.webp";

std::string output(const std::string& command) {
    std::string out;
    EXPECT_EQ(runCommand(command + " 2>/dev/null", &out), 0) << command;
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::vector<std::uint8_t> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// Noise over a gradient, 8-bit, the right half a quarter opaque when `alpha`.
Bitmap noisy(std::size_t w, std::size_t h, bool alpha) {
    PixelLayout layout{8, 3, alpha ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
    std::vector<std::uint8_t> px(w * h * 4);
    std::mt19937 random(7);
    for (std::size_t y = 0; y < h; ++y)
        for (std::size_t x = 0; x < w; ++x) {
            std::uint8_t* p = &px[(y * w + x) * 4];
            p[0] = static_cast<std::uint8_t>(x * 255 / w * 9 / 10 + random() % 25);
            p[1] = static_cast<std::uint8_t>(y * 255 / h * 9 / 10 + random() % 25);
            p[2] = static_cast<std::uint8_t>(random() % 256);
            p[3] = alpha && x >= w / 2 ? 64 : 255;
        }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

bool write(const std::string& path, const Bitmap& image, const PlistDictionary& properties,
           ErrorRef* error = nullptr) {
    auto d = ImageDestination::createWithURL(path, kWebP, 1, error);
    if (!d) return false;
    d->addImage(image, properties);
    return d->finalize(error);
}

long fileSize(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return static_cast<long>(in.tellg());
}

}  // namespace

TEST(WebpCodecMedia, ReadsStillsAlphaAndTheFirstFrameOfAnAnimationByTheirSignature) {
    TestHome home;
    struct Case {
        const char* name;
        const char* make;  // an ImageMagick command line, the output path appended
        std::size_t width, height;
        bool hasAlpha;
        std::size_t x, y;  // a pixel and its colour
        Bitmap::Pixel16 expected;
        int tolerance;
    } cases[] = {
        {"lossy",
         "convert -size 40x30 xc:red -quality 80",
         40,
         30,
         false,
         20,
         15,
         {65535, 0, 0, 65535},
         3000},
        {"lossless alpha",
         "convert -size 10x12 xc:none -fill blue -draw 'rectangle 0,0 4,4' -define "
         "webp:lossless=true",
         10,
         12,
         true,
         8,
         10,
         {0, 0, 0, 0},
         0},
        {"lossless alpha, opaque corner",
         "convert -size 10x12 xc:none -fill blue -draw 'rectangle 0,0 4,4' -define "
         "webp:lossless=true",
         10,
         12,
         true,
         1,
         1,
         {0, 0, 65535, 65535},
         0},
        {"animation",
         "convert -delay 10 -size 8x6 xc:red xc:blue -loop 0",
         8,
         6,
         true,
         4,
         3,
         {65535, 0, 0, 65535},
         3000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // The name says nothing: the type comes from the signature.
        const std::string path = home.path("picture.bin");
        ASSERT_EQ(runCommand(std::string(c.make) + " 'webp:" + path + "'"), 0);
        ErrorRef error;
        auto source = ImageSource::createWithURL(path, &error);
        ASSERT_TRUE(source) << (error ? error->description() : "");
        EXPECT_EQ(source->type(), kWebP);
        auto p = source->copyPropertiesAtIndex(0);
        ASSERT_TRUE(p);
        EXPECT_EQ((*p)[kCGImagePropertyPixelWidth].integerValue(), std::int64_t(c.width));
        EXPECT_EQ((*p)[kCGImagePropertyHasAlpha].boolValue(), c.hasAlpha);
        auto bitmap = source->createImageAtIndex(0, &error);
        ASSERT_TRUE(bitmap) << (error ? error->description() : "");
        EXPECT_EQ(bitmap->width(), c.width);
        EXPECT_EQ(bitmap->height(), c.height);
        EXPECT_EQ(bitmap->layout().hasAlpha(), c.hasAlpha);
        auto got = bitmap->pixelAt(c.x, c.y);
        EXPECT_NEAR(got.r, c.expected.r, c.tolerance);
        EXPECT_NEAR(got.g, c.expected.g, c.tolerance);
        EXPECT_NEAR(got.b, c.expected.b, c.tolerance);
        EXPECT_NEAR(got.a, c.expected.a, c.tolerance);
    }
}

TEST(WebpCodecMedia, RoundTripKeepsSizeAndAlphaAndQualityOrdersTheSizes) {
    TestHome home;
    const Bitmap image = noisy(96, 64, true);
    long previous = 0;
    for (double q : {0.2, 0.6, 0.95}) {
        const std::string path = home.path("q" + std::to_string(int(q * 100)) + ".webp");
        ErrorRef error;
        ASSERT_TRUE(write(path, image, {{kCGImageDestinationLossyCompressionQuality, q}}, &error))
            << (error ? error->description() : "");
        EXPECT_GT(fileSize(path), previous) << "quality " << q;
        previous = fileSize(path);
        EXPECT_EQ(output("vipsheader -f width '" + path + "'"), "96");
        EXPECT_EQ(output("vipsheader -f bands '" + path + "'"), "4") << "alpha kept";
    }

    // 1.0 is lossless: every sample comes back as it went in.
    const std::string exact = home.path("exact.webp");
    ASSERT_TRUE(write(exact, image, {{kCGImageDestinationLossyCompressionQuality, 1.0}}));
    auto back = ImageSource::createWithURL(exact)->createImageAtIndex(0);
    ASSERT_TRUE(back);
    int differing = 0;
    for (std::size_t y = 0; y < 64; ++y)
        for (std::size_t x = 0; x < 96; ++x) {
            auto a = image.pixelAt(x, y), b = back->pixelAt(x, y);
            differing += a.r != b.r || a.g != b.g || a.b != b.b || a.a != b.a;
        }
    EXPECT_EQ(differing, 0);

    // Alpha asked away, or never there, gives an opaque file.
    const std::string flat = home.path("flat.webp");
    ASSERT_TRUE(write(flat, image, {{kCGImagePropertyHasAlpha, false}}));
    EXPECT_EQ(output("vipsheader -f bands '" + flat + "'"), "3");
    const std::string opaque = home.path("opaque.webp");
    ASSERT_TRUE(write(opaque, noisy(20, 10, false), {}));
    EXPECT_EQ(output("vipsheader -f bands '" + opaque + "'"), "3");
    EXPECT_FALSE(
        (*ImageSource::createWithURL(opaque)->copyPropertiesAtIndex(0))[kCGImagePropertyHasAlpha]
            .boolValue());
}

TEST(WebpCodecMedia, ProfileAndMetadataTravelAsOtherReadersSeeThem) {
    TestHome home;
    // A JPEG with libvips' own sRGB profile gives us a real profile to carry.
    const std::string png = home.path("p.png"), jpeg = home.path("p.jpg");
    ASSERT_EQ(runCommand("convert -size 24x16 xc:orange '" + png + "'"), 0);
    ASSERT_EQ(runCommand("vips icc_transform '" + png + "' '" + jpeg + "' srgb --embedded"), 0);
    auto profiled = ImageSource::createWithURL(jpeg)->createImageAtIndex(0);
    ASSERT_TRUE(profiled);
    const auto icc = profiled->colorSpace().iccProfile();
    ASSERT_FALSE(icc.empty());

    const std::string path = home.path("m.webp");
    PlistDictionary properties = {
        {kCGImagePropertyOrientation, 1},
        {kCGImagePropertyTIFFDictionary, PlistDictionary{{"Make", "Acme"}}},
        {kCGImagePropertyExifDictionary,
         PlistDictionary{{"DateTimeOriginal", "2019:05:06 07:08:09"}}},
        {kCGImagePropertyGPSDictionary,
         PlistDictionary{{"Latitude", 48.8584}, {"LatitudeRef", "N"}}},
        {kImagePropertyXMPDictionary, PlistDictionary{{"Xmp.dc.creator", "Someone"}}},
        {kCGImageDestinationLossyCompressionQuality, 0.8},
    };
    ErrorRef error;
    ASSERT_TRUE(write(path, *profiled, properties, &error)) << (error ? error->description() : "");
    struct Tag {
        const char* name;
        const char* value;
    } tags[] = {{"EXIF:Make", "Acme"},
                {"EXIF:DateTimeOriginal", "2019:05:06 07:08:09"},
                {"GPS:GPSLatitudeRef", "North"},
                {"XMP:Creator", "Someone"}};
    for (const auto& t : tags)
        EXPECT_EQ(output(std::string("exiftool -s -s -s -") + t.name + " '" + path + "'"), t.value)
            << t.name;
    EXPECT_NE(output("exiftool -s -s -s -ICC_Profile:ProfileDescription '" + path + "'"), "");

    auto source = ImageSource::createWithURL(path);
    ASSERT_TRUE(source);
    auto p = *source->copyPropertiesAtIndex(0);
    EXPECT_EQ(p[kCGImagePropertyTIFFDictionary]["Make"].string()
                  ? *p[kCGImagePropertyTIFFDictionary]["Make"].string()
                  : "",
              "Acme");
    EXPECT_NEAR(p[kCGImagePropertyGPSDictionary]["Latitude"].doubleValue(), 48.8584, 1e-4);
    EXPECT_EQ(source->createImageAtIndex(0)->colorSpace().iccProfile(), icc);
}

TEST(WebpCodecMedia, DamagedFilesAreRefusedWithTheUsualWords) {
    TestHome home;
    const std::string path = home.path("whole.webp");
    ASSERT_TRUE(
        write(path, noisy(64, 48, true), {{kCGImageDestinationLossyCompressionQuality, 0.7}}));
    const std::vector<std::uint8_t> whole = readAll(path);
    ASSERT_GT(whole.size(), 100u);
    struct Case {
        const char* what;
        std::vector<std::uint8_t> bytes;
    } cases[] = {
        {"the signature alone", {whole.begin(), whole.begin() + 16}},
        {"cut in the header", {whole.begin(), whole.begin() + 30}},
        {"cut in half", {whole.begin(), whole.begin() + whole.size() / 2}},
        {"one byte short", {whole.begin(), whole.end() - 1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ErrorRef error;
        auto source = ImageSource::createWithData(c.bytes, &error);
        EXPECT_FALSE(source);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), NSFileReadCorruptFileError);
        EXPECT_NE(error->localizedDescription().find(kWebP), std::string::npos)
            << error->localizedDescription();
    }
    // A canvas within WebP's sides but over the source's area limit is refused before any
    // pixel is decoded.
    ImageSourceLimits limits;
    limits.maxPixels = 64 * 47;
    ErrorRef error;
    EXPECT_FALSE(ImageSource::createWithData(whole, &error, limits));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSFileReadTooLargeError);
}
