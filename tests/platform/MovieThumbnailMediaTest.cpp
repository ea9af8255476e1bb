// Thumbnails of the library's movies: the frame they are taken from, their size and turn as
// ffmpeg shows the movie, and the freedesktop cache that a second request reads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <fstream>

#include "platform/ImageSource.h"
#include "platform/PhotoLibrary.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "platform/linux/Thumbnail.h"
#include "support/TestHome.h"

using namespace platform;
using namespace photolibrary_test;
using testing_support::TestHome;

namespace {

enum class Colour { red, blue, other };

Colour colourAt(const Bitmap& image, std::size_t x, std::size_t y) {
    const auto p = image.pixelAt(x, y);
    if (p.r > 40000 && p.b < 20000) return Colour::red;
    if (p.b > 40000 && p.r < 20000) return Colour::blue;
    return Colour::other;
}

// A red movie of `seconds` at 10 frames a second, drawn blue over `blue` (an ffmpeg drawbox
// option list), or only red for an empty one.
void makeColourMovie(const std::string& path, double seconds, const std::string& blue,
                     const std::string& extra = "") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    run("ffmpeg -nostdin -v error -y -f lavfi -i color=c=red:s=160x120:r=10:d=" +
        std::to_string(seconds) +
        (blue.empty() ? "" : " -vf \"drawbox=c=blue:t=fill:" + blue + "\"") + " -pix_fmt yuv420p " +
        extra + " '" + path + "'");
}

std::string onlyAssetIn(PhotoLibrary& library) {
    auto all = library.fetchAssetsWithOptions({});
    EXPECT_EQ(all.count(), 1u);
    return all.firstObject() ? all.firstObject()->localIdentifier : "";
}

TEST(MovieThumbnails, TakeTheFrameAtATenthOfTheMovieAtMostOneSecondIn) {
    struct Row {
        const char* what;
        double seconds;
        const char* blueFrom;
        Colour expected;
    } rows[] = {
        // A tenth is 0.4 s: past a first picture that would be red.
        {"4 s, blue from 0.3 s", 4, "enable='gte(t,0.3)'", Colour::blue},
        // ... and not much later.
        {"4 s, blue from 0.6 s", 4, "enable='gte(t,0.6)'", Colour::red},
        // A tenth would be 2 s; one second is the latest.
        {"20 s, blue from 1.5 s", 20, "enable='gte(t,1.5)'", Colour::red},
        {"20 s, blue from 0.9 s", 20, "enable='gte(t,0.9)'", Colour::blue},
        // Shorter than a frame's tenth: the first frame.
        {"0.1 s, all red", 0.1, "", Colour::red},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TestHome home;
        makeColourMovie(home.path("Pictures/clip.mov"), row.seconds, row.blueFrom);
        auto library = openLibrary(home);
        ASSERT_TRUE(library);
        ErrorRef error;
        auto image = library->requestThumbnail(onlyAssetIn(*library), 128, &error);
        ASSERT_TRUE(image) << (error ? error->description() : "");
        EXPECT_EQ(image->width(), 128u);
        EXPECT_EQ(image->height(), 96u);
        EXPECT_EQ(colourAt(*image, 64, 48), row.expected);
    }
}

TEST(MovieThumbnails, AreTurnedAsFfmpegShowsTheMovie) {
    TestHome home;
    // Left half red, right half blue, stored flat and shown turned by the display matrix.
    const std::string flat = home.path("flat.mov");
    makeColourMovie(flat, 1, "x=80:y=0:w=80:h=120");
    const std::string turned = home.path("Pictures/turned.mov");
    std::filesystem::create_directories(home.path("Pictures"));
    run("ffmpeg -nostdin -v error -y -i '" + flat + "' -c copy -metadata:s:v:0 rotate=90 '" +
        turned + "'");
    // ffmpeg applies the display matrix when it decodes; its picture is the reference.
    const std::string reference = home.path("reference.png");
    run("ffmpeg -nostdin -v error -y -i '" + turned + "' -frames:v 1 '" + reference + "'");
    auto expected = ImageSource::createWithURL(reference);
    ASSERT_TRUE(expected);
    auto shown = expected->createImageAtIndex(0);
    ASSERT_TRUE(shown);
    ASSERT_EQ(shown->width(), 120u);

    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    ErrorRef error;
    auto image = library->requestThumbnail(onlyAssetIn(*library), 200, &error);
    ASSERT_TRUE(image) << (error ? error->description() : "");
    // Never enlarged past the movie's own size.
    EXPECT_EQ(image->width(), 120u);
    EXPECT_EQ(image->height(), 160u);
    for (std::size_t y : {10, 150}) {
        EXPECT_EQ(colourAt(*image, 60, y), colourAt(*shown, 60, y)) << y;
        EXPECT_NE(colourAt(*image, 60, y), Colour::other) << y;
    }
}

TEST(MovieThumbnails, ASecondRequestReadsTheCacheUntilTheMovieChanges) {
    TestHome home;
    const std::string movie = home.path("Pictures/clip.mov");
    makeColourMovie(movie, 1, "");
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    const std::string id = onlyAssetIn(*library);
    ErrorRef error;
    ASSERT_TRUE(library->requestThumbnail(id, 100, &error)) << (error ? error->description() : "");
    const std::string cached =
        thumbnails::cachePathForFile(home.path("cache/thumbnails"), movie, 100);
    struct stat st {};
    ASSERT_EQ(stat(cached.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // The movie's bytes are spoilt behind the cache's back, its time kept: only the cache can
    // answer now.
    struct stat movieStat {};
    ASSERT_EQ(stat(movie.c_str(), &movieStat), 0);
    std::ofstream(movie, std::ios::trunc) << "not a movie any more";
    const utimbuf kept{movieStat.st_atime, movieStat.st_mtime};
    ASSERT_EQ(utime(movie.c_str(), &kept), 0);
    auto again = library->requestThumbnail(id, 100, &error);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->width(), 128u);
    EXPECT_EQ(colourAt(*again, 64, 48), Colour::red);

    // A new time makes the entry stale, and the spoilt movie gives no thumbnail.
    const utimbuf later{movieStat.st_atime, movieStat.st_mtime + 10};
    ASSERT_EQ(utime(movie.c_str(), &later), 0);
    error = nullptr;
    EXPECT_FALSE(library->requestThumbnail(id, 100, &error));
    EXPECT_TRUE(error);
}

}  // namespace
