// Thumbnails in the freedesktop cache, checked as a file manager would read them: the file
// name from the MD5 of the URI (computed by md5sum here), the text keys through libpng.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <utime.h>

#include <cstdio>
#include <filesystem>
#include <map>

#include "platform/PhotoLibrary.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "platform/linux/Thumbnail.h"
#include "support/TestHome.h"

using namespace platform;
using namespace photolibrary_test;
using testing_support::TestHome;

namespace {

struct PngFacts {
    bool read = false;
    png_uint_32 width = 0, height = 0;
    std::map<std::string, std::string> text;
};

PngFacts readPng(const std::string& path) {
    PngFacts facts;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return facts;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (!setjmp(png_jmpbuf(png))) {
        png_init_io(png, file);
        png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
        facts.width = png_get_image_width(png, info);
        facts.height = png_get_image_height(png, info);
        png_textp texts = nullptr;
        int count = png_get_text(png, info, &texts, nullptr);
        for (int i = 0; i < count; ++i)
            facts.text[texts[i].key] = std::string(texts[i].text, texts[i].text_length);
        facts.read = true;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return facts;
}

std::string md5sum(const std::string& text) {
    std::string out;
    testing_support::runCommand("printf '%s' '" + text + "' | md5sum", &out);
    return out.substr(0, 32);
}

std::string mtimeOf(const std::string& path) {
    struct stat st {};
    stat(path.c_str(), &st);
    return std::to_string(st.st_mtim.tv_sec);
}

}  // namespace

TEST(Thumbnails, URIsAndBucketsFollowTheStandard) {
    struct UriRow {
        const char* path;
        const char* uri;
    } uris[] = {
        {"/home/u/a.jpg", "file:///home/u/a.jpg"},
        {"/home/u/My Pictures/a b.jpg", "file:///home/u/My%20Pictures/a%20b.jpg"},
        {"/p/\xC3\xA9t\xC3\xA9.jpg", "file:///p/%C3%A9t%C3%A9.jpg"},
        {"/p/100%#?.jpg", "file:///p/100%25%23%3F.jpg"},
        {"/p/a-b_c~d.jpg", "file:///p/a-b_c~d.jpg"},
    };
    for (const auto& row : uris) EXPECT_EQ(thumbnails::fileURIForPath(row.path), row.uri);

    struct BucketRow {
        std::uint32_t side;
        std::string folder;
        std::uint32_t size;
    } buckets[] = {{1, "normal", 128},  {128, "normal", 128},  {129, "large", 256},
                   {256, "large", 256}, {257, "x-large", 512}, {4000, "x-large", 512}};
    for (const auto& row : buckets) {
        EXPECT_EQ(thumbnails::bucketForSide(row.side).folder, row.folder) << row.side;
        EXPECT_EQ(thumbnails::bucketForSide(row.side).side, row.size) << row.side;
    }
}

TEST(Thumbnails, CachedAsAFileManagerReadsThem) {
    TestHome home;
    const std::string photo = home.path("Pictures/Holiday/sea view.jpg");
    makeJpeg(photo, 600, 400);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    const std::string id = library->fetchAssetsWithOptions({}).firstObject()->localIdentifier;
    const std::string uri = "file://" + home.path("Pictures/Holiday/sea%20view.jpg");

    struct Row {
        std::uint32_t request;
        const char* folder;
        png_uint_32 width, height;
    } rows[] = {{100, "normal", 128, 85}, {256, "large", 256, 171}, {400, "x-large", 512, 341}};
    for (const auto& row : rows) {
        ErrorRef error;
        auto image = library->requestThumbnail(id, row.request, &error);
        ASSERT_TRUE(image) << (error ? error->description() : "");
        EXPECT_EQ(image->width(), row.width);
        EXPECT_EQ(image->height(), row.height);
        const std::string png =
            home.path(std::string("cache/thumbnails/") + row.folder + "/" + md5sum(uri) + ".png");
        PngFacts facts = readPng(png);
        ASSERT_TRUE(facts.read) << png;
        EXPECT_EQ(facts.width, row.width);
        EXPECT_EQ(facts.height, row.height);
        EXPECT_EQ(facts.text["Thumb::URI"], uri);
        EXPECT_EQ(facts.text["Thumb::MTime"], mtimeOf(photo));
        struct stat st {};
        stat(png.c_str(), &st);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
    }
}

TEST(Thumbnails, StaleEntriesAreRemadeAndSmallPicturesKeptSmall) {
    TestHome home;
    const std::string photo = home.path("Pictures/a.jpg");
    makeJpeg(photo, 300, 200);
    makeJpeg(home.path("Pictures/tiny.jpg"), 40, 30);
    makeJpeg(home.path("Pictures/turned.jpg"), 300, 200, "-Orientation#=6");
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    std::map<std::string, std::string> ids;
    auto all = library->fetchAssetsWithOptions({});
    for (const auto& a : all.objects()) ids[nameOf(a.resources[0].path)] = a.localIdentifier;

    ErrorRef error;
    ASSERT_TRUE(library->requestThumbnail(ids["a.jpg"], 128, &error));
    const std::string png = thumbnails::cachePathForFile(home.path("cache/thumbnails"), photo, 128);
    // The photo changes (a different size, a new time): the cached entry no longer fits.
    makeJpeg(photo, 100, 300);
    struct utimbuf later {
        1700000000, 1700000000
    };
    utime(photo.c_str(), &later);
    auto image = library->requestThumbnail(ids["a.jpg"], 128, &error);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 43u);
    EXPECT_EQ(image->height(), 128u);
    EXPECT_EQ(readPng(png).text["Thumb::MTime"], "1700000000");

    auto tiny = library->requestThumbnail(ids["tiny.jpg"], 256, &error);
    ASSERT_TRUE(tiny);
    EXPECT_EQ(tiny->width(), 40u);
    auto turned = library->requestThumbnail(ids["turned.jpg"], 128, &error);
    ASSERT_TRUE(turned);
    EXPECT_EQ(turned->width(), 85u);
    EXPECT_EQ(turned->height(), 128u);
}

TEST(Thumbnails, JpegShrinksOnLoadNoSmallerThanAsked) {
    TestHome home;
    makeJpeg(home.path("wide.jpg"), 2000, 1000);
    struct Row {
        std::uint32_t minSide;
        std::size_t width;
    } rows[] = {{100, 250}, {250, 250}, {251, 500}, {600, 1000}, {1500, 2000}};
    for (const auto& row : rows) {
        auto jpeg = thumbnails::decodeJpegShrunk(home.path("wide.jpg"), row.minSide);
        ASSERT_TRUE(jpeg) << row.minSide;
        EXPECT_EQ(jpeg->image.width(), row.width) << row.minSide;
        EXPECT_EQ(jpeg->image.height(), row.width / 2) << row.minSide;
        EXPECT_EQ(jpeg->pixelWidth, 2000u);
        EXPECT_EQ(jpeg->orientation, 1);
    }
    std::ofstream(home.path("broken.jpg")) << "\xFF\xD8\xFF garbage";
    EXPECT_FALSE(thumbnails::decodeJpegShrunk(home.path("broken.jpg"), 100));
    EXPECT_FALSE(thumbnails::decodeJpegShrunk(home.path("missing.jpg"), 100));
}

namespace {

// The colour of a corner quadrant of the test picture: 'R', 'G', 'B', 'W', or '?' for
// anything between (a turn that samples the wrong place).
char colourAt(const Bitmap& image, std::size_t x, std::size_t y) {
    const Bitmap::Pixel16 p = image.pixelAt(x, y);
    auto on = [](std::uint16_t v) { return v > 52000; };
    auto off = [](std::uint16_t v) { return v < 13000; };
    if (on(p.r) && on(p.g) && on(p.b)) return 'W';
    if (on(p.r) && off(p.g) && off(p.b)) return 'R';
    if (off(p.r) && on(p.g) && off(p.b)) return 'G';
    if (off(p.r) && off(p.g) && on(p.b)) return 'B';
    return '?';
}

// Top-left, top-right, bottom-left, bottom-right, 3 pixels in from each corner.
std::string cornersOf(const Bitmap& image) {
    const std::size_t r = image.width() - 4, b = image.height() - 4;
    return {colourAt(image, 3, 3), colourAt(image, r, 3), colourAt(image, 3, b),
            colourAt(image, r, b)};
}

}  // namespace

// A 64x32 picture stored as red | green over blue | white, tagged with each EXIF orientation:
// the thumbnail shows it as the tag says a viewer should, freshly made and read back from the
// cache. JPEGs shrink on load; PNGs come through the image source.
TEST(Thumbnails, TurnedUprightForEveryExifOrientation) {
    TestHome home;
    struct Row {
        int orientation;
        const char* corners;  // as displayed: top-left, top-right, bottom-left, bottom-right
    } rows[] = {
        {1, "RGBW"},  // as stored
        {2, "GRWB"},  // mirrored left to right
        {3, "WBGR"},  // half a turn
        {4, "BWRG"},  // mirrored top to bottom
        {5, "RBGW"},  // mirrored along the main diagonal
        {6, "BRWG"},  // a quarter turn clockwise
        {7, "WGBR"},  // mirrored along the other diagonal
        {8, "GWRB"},  // a quarter turn counter-clockwise
    };
    // One picture per format, copied and tagged once for each orientation (one exiftool run).
    std::filesystem::create_directories(home.path("Pictures"));
    std::string tagging = "exiftool";
    for (const char* format : {"jpg", "png"}) {
        const std::string stored = home.path(std::string("Pictures/stored.") + format);
        run("convert -size 32x16 xc:red xc:lime +append \\( -size 32x16 xc:blue xc:white "
            "+append \\) -append '" +
            stored + "'");
        for (const auto& row : rows) {
            const std::string path =
                home.path("Pictures/o" + std::to_string(row.orientation) + "." + format);
            std::filesystem::copy_file(stored, path);
            tagging +=
                " -Orientation#=" + std::to_string(row.orientation) + " '" + path + "' -execute";
        }
    }
    run(tagging + " -common_args -q -overwrite_original");
    for (const char* format : {"jpg", "png"}) {
        for (const auto& row : rows) {
            const std::string path =
                home.path("Pictures/o" + std::to_string(row.orientation) + "." + format);
            const bool turned = row.orientation >= 5;
            const std::string entry =
                thumbnails::cachePathForFile(home.path("cache/thumbnails"), path, 128);
            ino_t stored = 0;
            for (const char* pass : {"made", "cached"}) {
                ErrorRef error;
                auto image =
                    thumbnails::thumbnailForFile(home.path("cache/thumbnails"), path, 128, &error);
                ASSERT_TRUE(image) << path << " " << (error ? error->description() : "");
                // The second request reads the entry the first one stored, and leaves it be.
                if (!stored) {
                    stored = inodeOf(entry);
                    EXPECT_NE(stored, 0u) << path << ": no cache entry";
                } else {
                    EXPECT_EQ(inodeOf(entry), stored) << path << ": the entry was made again";
                }
                EXPECT_EQ(image->width(), turned ? 32u : 64u) << path << " " << pass;
                EXPECT_EQ(image->height(), turned ? 64u : 32u) << path << " " << pass;
                EXPECT_EQ(cornersOf(*image), row.corners) << path << " " << pass;
            }
        }
    }
}
