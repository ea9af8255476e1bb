#include <gtest/gtest.h>
#include <sys/resource.h>

#include <dirent.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
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

// A test picture: a gradient with noise, in the given depth, with or without alpha.
Bitmap picture(std::size_t w, std::size_t h, int bits = 8, bool alpha = false, unsigned seed = 1) {
    PixelLayout layout{bits, 3, alpha ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
    Bitmap b(w, h, layout, ColorSpace::deviceRGB());
    std::vector<std::uint8_t> px(w * h * layout.bytesPerPixel());
    std::mt19937 random(seed);
    for (std::size_t y = 0; y < h; ++y)
        for (std::size_t x = 0; x < w; ++x) {
            double v[4] = {double(x) / w, double(y) / h, double((x + y) % 17) / 17,
                           alpha ? (x < w / 2 ? 1.0 : 0.25) : 1.0};
            for (int k = 0; k < 4; ++k) {
                double n = k < 3 ? v[k] * 0.9 + (random() % 100) / 1000.0 : v[k];
                std::size_t at = (y * w + x) * 4 + k;
                if (bits == 16) {
                    std::uint16_t s = static_cast<std::uint16_t>(std::lround(n * 65535));
                    std::memcpy(&px[at * 2], &s, 2);
                } else {
                    px[at] = static_cast<std::uint8_t>(std::lround(n * 255));
                }
            }
        }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

bool write(const std::string& path, const std::string& type, const Bitmap& image,
           const PlistDictionary& properties, ErrorRef* error = nullptr) {
    auto d = ImageDestination::createWithURL(path, type, 1, error);
    if (!d) return false;
    d->addImage(image, properties);
    return d->finalize(error);
}

std::string output(const std::string& command) {
    std::string out;
    EXPECT_EQ(runCommand(command + " 2>/dev/null", &out), 0) << command;
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* d = opendir(folder.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.' ||
                (std::string(e->d_name) != "." && std::string(e->d_name) != ".."))
                names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

long fileSize(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return static_cast<long>(in.tellg());
}

}  // namespace

TEST(ImageDestinationMedia, EveryTypeIsReadBackBySizeBandsAndFormat) {
    TestHome home;
    struct Case {
        const char* name;
        const char* type;
        int bits;
        bool alpha;
        const char* vipsFormat;
        int bands;
    } cases[] = {
        {"a.jpg", "public.jpeg", 8, false, "UCHAR", 3},
        {"b.jpg", "public.jpeg", 16, true, "UCHAR", 3},
        {"c.png", "public.png", 8, true, "UCHAR", 4},
        {"d.png", "public.png", 16, false, "USHORT", 3},
        {"e.png", "public.png", 16, true, "USHORT", 4},
        {"f.tif", "public.tiff", 16, true, "USHORT", 4},
        {"g.tif", "public.tiff", 8, false, "UCHAR", 3},
        {"h.gif", "com.compuserve.gif", 8, true, "UCHAR", 4},
        {"i.heic", "public.heic", 8, false, "UCHAR", 3},
        {"j.heic", "public.heic", 16, true, "UCHAR", 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = home.path(c.name);
        ErrorRef error;
        ASSERT_TRUE(write(path, c.type, picture(37, 23, c.bits, c.alpha), {}, &error))
            << (error ? error->description() : "");
        EXPECT_EQ(output("vipsheader -f width '" + path + "'"), "37");
        EXPECT_EQ(output("vipsheader -f height '" + path + "'"), "23");
        EXPECT_NE(output("vipsheader -f format '" + path + "'").find(c.vipsFormat),
                  std::string::npos);
        EXPECT_EQ(output("vipsheader -f bands '" + path + "'"), std::to_string(c.bands));
        auto source = ImageSource::createWithURL(path);
        ASSERT_TRUE(source);
        EXPECT_EQ(source->type(), c.type);
    }
    EXPECT_EQ(filesIn(home.root()).size(), std::size(cases)) << "no temporary file is left";
}

TEST(ImageDestinationMedia, PixelsSurviveLosslessFormatsAndHasAlphaFalseDropsAlpha) {
    TestHome home;
    Bitmap original = picture(16, 8, 16, true);
    for (const char* type : {"public.png", "public.tiff"}) {
        std::string path = home.path(std::string("lossless.") + (type[7] == 'p' ? "png" : "tif"));
        ASSERT_TRUE(write(path, type, original, {}));
        auto back = ImageSource::createWithURL(path)->createImageAtIndex(0);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->bitsPerComponent(), 16u);
        for (std::size_t x = 0; x < 16; x += 5) {
            auto a = original.pixelAt(x, 3), b = back->pixelAt(x, 3);
            EXPECT_EQ(a.r, b.r) << type << " x " << x;
            EXPECT_EQ(a.a, b.a) << type << " x " << x;
        }
    }
    std::string flat = home.path("flat.png");
    ASSERT_TRUE(write(flat, "public.png", original, {{kCGImagePropertyHasAlpha, false}}));
    EXPECT_EQ(output("vipsheader -f bands '" + flat + "'"), "3");
}

TEST(ImageDestinationMedia, LossyQualityIsHonoured) {
    TestHome home;
    Bitmap image = picture(160, 120);
    struct Case {
        const char* type;
        const char* ext;
    } cases[] = {{"public.jpeg", "jpg"}, {"public.heic", "heic"}};
    for (const auto& c : cases) {
        long previous = 0;
        for (double q : {0.3, 0.6, 0.95}) {
            std::string path = home.path("q" + std::to_string(int(q * 100)) + "." + c.ext);
            ASSERT_TRUE(
                write(path, c.type, image, {{kCGImageDestinationLossyCompressionQuality, q}}));
            long size = fileSize(path);
            EXPECT_GT(size, previous) << c.type << " quality " << q;
            previous = size;
        }
    }
    // ImageMagick estimates the JPEG quality from the quantisation tables.
    EXPECT_EQ(output("identify -format %Q '" + home.path("q30.jpg") + "'"), "30");
    EXPECT_EQ(output("identify -format %Q '" + home.path("q95.jpg") + "'"), "95");
}

TEST(ImageDestinationMedia, MetadataReachesTheFileAsExiftoolReadsIt) {
    TestHome home;
    PlistDictionary properties = {
        {kCGImagePropertyOrientation, 1},
        {kCGImagePropertyDPIWidth, 299.6},
        {kCGImagePropertyDPIHeight, 299.6},
        {kCGImagePropertyTIFFDictionary,
         PlistDictionary{
             {"Software", "unwarp v1.0"}, {"DateTime", "2019:05:06 07:08:09"}, {"Make", "Acme"}}},
        {kCGImagePropertyExifDictionary,
         PlistDictionary{{"DateTimeOriginal", "2019:05:06 07:08:09"},
                         {"PixelXDimension", 37},
                         {"ExposureTime", 0.01},
                         {"ISOSpeedRatings", PlistArray{200}}}},
        {kCGImagePropertyGPSDictionary, PlistDictionary{{"Latitude", 48.8584},
                                                        {"LatitudeRef", "N"},
                                                        {"Longitude", 2.2945},
                                                        {"LongitudeRef", "W"}}},
        {kCGImagePropertyIPTCDictionary, PlistDictionary{{"Keywords", PlistArray{"one", "two"}},
                                                         {"DateCreated", "20190506"},
                                                         {"TimeCreated", "070809"}}},
        {kCGImagePropertyJFIFDictionary,
         PlistDictionary{{"XDensity", 300}, {"YDensity", 300}, {"DensityUnit", 1}}},
        {kCGImagePropertyPNGDictionary,
         PlistDictionary{{"Software", "unwarp v1.0"}, {"CreationTime", "2019:05:06 07:08:09"}}},
        {kImagePropertyXMPDictionary, PlistDictionary{{"Xmp.dc.creator", "Someone"}}},
    };
    struct Case {
        const char* name;
        const char* type;
        std::vector<std::pair<std::string, std::string>> tags;  // exiftool -s -s -s -TAG
    } cases[] = {
        {"m.jpg",
         "public.jpeg",
         {{"EXIF:Orientation#", "1"},
          {"EXIF:DateTimeOriginal", "2019:05:06 07:08:09"},
          {"EXIF:Software", "unwarp v1.0"},
          {"EXIF:Make", "Acme"},
          {"EXIF:ExposureTime", "1/100"},
          {"EXIF:ISO", "200"},
          {"EXIF:XResolution", "299.6"},
          {"GPS:GPSLatitude#", "48.8584"},
          {"GPS:GPSLongitudeRef", "West"},
          {"IPTC:Keywords", "one, two"},
          {"IPTC:DateCreated", "2019:05:06"},
          {"JFIF:XResolution", "300"},
          {"XMP:Creator", "Someone"}}},
        {"m.png",
         "public.png",
         {{"EXIF:DateTimeOriginal", "2019:05:06 07:08:09"},
          {"PNG:Software", "unwarp v1.0"},
          {"PNG:CreationTime", "2019:05:06 07:08:09"},
          {"GPS:GPSLatitude#", "48.8584"},
          {"IPTC:Keywords", "one, two"},
          {"PNG:PixelsPerUnitX", "11795"}}},
        {"m.tif",
         "public.tiff",
         {{"EXIF:DateTimeOriginal", "2019:05:06 07:08:09"},
          {"IFD0:Software", "unwarp v1.0"},
          {"GPS:GPSLatitude#", "48.8584"},
          {"IFD0:XResolution#", "299.6"}}},
        {"m.heic",
         "public.heic",
         {{"EXIF:DateTimeOriginal", "2019:05:06 07:08:09"},
          {"EXIF:Orientation#", "1"},
          {"GPS:GPSLatitude#", "48.8584"},
          {"XMP:Creator", "Someone"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = home.path(c.name);
        ErrorRef error;
        ASSERT_TRUE(write(path, c.type, picture(37, 23), properties, &error))
            << (error ? error->description() : "");
        for (const auto& [tag, value] : c.tags) {
            std::string got = output("exiftool -s -s -s -" + tag + " '" + path + "'");
            if (tag.back() == '#') {
                EXPECT_NEAR(std::atof(got.c_str()), std::atof(value.c_str()), 1e-3) << tag;
            } else {
                EXPECT_EQ(got, value) << tag;
            }
        }
        // What we wrote reads back through our own source as well.
        auto p = *ImageSource::createWithURL(path)->copyPropertiesAtIndex(0);
        EXPECT_NEAR(p[kCGImagePropertyGPSDictionary]["Latitude"].doubleValue(), 48.8584, 1e-4);
        EXPECT_EQ(p[kCGImagePropertyOrientation].integerValue(),
                  c.type == std::string("public.heic") ? 0 : 1);
    }
}

TEST(ImageDestinationMedia, GifIsQuantisedToAPaletteWithTransparency) {
    TestHome home;
    std::string path = home.path("q.gif");
    ASSERT_TRUE(write(path, "com.compuserve.gif", picture(64, 32, 8, true), {}));
    EXPECT_EQ(output("identify -format %r '" + path + "'").find("PseudoClass"), 0u);
    int colours = std::atoi(output("identify -format %k '" + path + "'").c_str());
    EXPECT_GT(colours, 16);
    EXPECT_LE(colours, 256);
    auto back = ImageSource::createWithURL(path)->createImageAtIndex(0);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->pixelAt(60, 5).a, 0) << "quarter-opaque half becomes transparent";
    EXPECT_EQ(back->pixelAt(3, 5).a, 65535);
}

TEST(ImageDestinationMedia, FailuresLeaveNoFileAndKeepWhatWasThere) {
    TestHome home;
    ErrorRef error;
    EXPECT_FALSE(
        ImageDestination::createWithURL(home.path("x.bmp"), "com.microsoft.bmp", 1, &error));
    ASSERT_TRUE(error);
    EXPECT_FALSE(ImageDestination::createWithURL(home.path("x.jpg"), "public.jpeg", 2, &error));
    auto empty = ImageDestination::createWithURL(home.path("x.jpg"), "public.jpeg", 1);
    EXPECT_FALSE(empty->finalize(&error)) << "no image added";
    EXPECT_FALSE(write(home.path("missing/x.jpg"), "public.jpeg", picture(8, 8), {}, &error));
    EXPECT_EQ(error->code(), NSFileWriteUnknownError);
    EXPECT_TRUE(filesIn(home.root()).empty());

    // A full disk, simulated by a file-size limit: a clear error, no file, no temporary.
    std::string existing = home.path("keep.png");
    std::ofstream(existing) << "previous";
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 20000;
    setrlimit(RLIMIT_FSIZE, &small);
    bool written = write(existing, "public.png", picture(300, 300, 16), {}, &error);
    bool writtenTiff =
        write(home.path("big.tif"), "public.tiff", picture(300, 300, 16), {}, nullptr);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(written);
    EXPECT_FALSE(writtenTiff);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSFileWriteOutOfSpaceError) << error->description();
    EXPECT_EQ(filesIn(home.root()), std::vector<std::string>{"keep.png"});
    std::ifstream in(existing);
    std::string content;
    in >> content;
    EXPECT_EQ(content, "previous");

    // Writing over an existing file replaces it whole.
    EXPECT_TRUE(write(existing, "public.png", picture(8, 8), {}));
    EXPECT_EQ(output("vipsheader -f width '" + existing + "'"), "8");
}

TEST(ImageDestinationMedia, TypeIdentifiersListTheWriters) {
    auto types = ImageDestination::typeIdentifiers();
    for (const char* t : {"public.jpeg", "public.png", "public.tiff", "com.compuserve.gif",
                          "public.heic", "org.webmproject.webp"})
        EXPECT_NE(std::find(types.begin(), types.end(), t), types.end()) << t;
}
