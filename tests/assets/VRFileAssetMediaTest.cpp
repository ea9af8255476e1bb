#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <future>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAsset.h"
#include "assets/VRFileAsset.h"
#include "platform/Dispatch.h"
#include "storage/VRFileStorage.h"
#include "support/Signal.h"
#include "support/TestHome.h"

namespace {

using photolibrary_test::run;

// A JPEG of one flat colour, so that a thumbnail tells which file it was drawn from.
void makeFlatJpeg(const std::string& path, int width, int height, const std::string& colour) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    run("convert -size " + std::to_string(width) + "x" + std::to_string(height) + " xc:" + colour +
        " 'jpg:" + path + "'");
}

enum class Colour { red, green, other };

Colour centreColour(const platform::Bitmap& image) {
    const auto& layout = image.layout();
    if (layout.bitsPerComponent != 8 || layout.colorComponents != 3) return Colour::other;
    const std::uint8_t* pixel = image.data() + image.height() / 2 * image.bytesPerRow() +
                                image.width() / 2 * layout.bytesPerPixel() + layout.colorOffset();
    if (pixel[0] > 180 && pixel[1] < 80) return Colour::red;
    if (pixel[1] > 180 && pixel[0] < 80) return Colour::green;
    return Colour::other;
}

std::optional<platform::Bitmap> thumbnailOf(VRFileAsset& asset, double width) {
    auto promise = std::make_shared<std::promise<std::optional<platform::Bitmap>>>();
    auto future = promise->get_future();
    asset.createThumbnailOfSize({width, width}, [promise](std::optional<platform::Bitmap> image) {
        promise->set_value(std::move(image));
    });
    if (future.wait_for(testing_support::kPatience) != std::future_status::ready) {
        ADD_FAILURE() << "no thumbnail completion for width " << width;
        return std::nullopt;
    }
    return future.get();
}

// The folder of the only file asset with thumbnails in the test home.
std::string onlyThumbnailFolder() {
    const std::string appfiles = VRFileStorage::projectURLs().appfilesURL;
    auto names = testing_support::namesIn(appfiles);
    EXPECT_EQ(names.size(), 1u);
    return names.empty() ? appfiles : appfiles + "/" + names.front();
}

TEST(VRFileAsset, UrlIsThereOnlyWhileAnAccessIsOpen) {
    testing_support::TestHome home;
    const std::string photo = home.path("outside/shot.jpg");
    makeFlatJpeg(photo, 40, 30, "red");
    auto file = VRFileAsset::fileAssetWithURL(photo);

    EXPECT_FALSE(file->url());
    auto first = file->startAccessing();
    ASSERT_TRUE(first);
    EXPECT_EQ(file->url(), std::optional(photo));
    auto second = file->startAccessing();
    ASSERT_TRUE(second);
    EXPECT_NE(*first, *second);
    // Two accesses, one closed: still reachable.
    file->stopAccessingWithAccessID(*first);
    EXPECT_EQ(file->url(), std::optional(photo));
    // Closing an ID twice doesn't close the other access.
    file->stopAccessingWithAccessID(*first);
    EXPECT_EQ(file->url(), std::optional(photo));
    file->stopAccessingWithAccessID(*second);
    EXPECT_FALSE(file->url());

    // Its own temporary accesses are given back.
    EXPECT_TRUE(file->isDataExist());
    EXPECT_EQ(file->pixelSize(), (CGSize{40, 30}));
    EXPECT_FALSE(file->url());

    // Through the wrapper, as every user of an asset's bytes brackets its work.
    auto asset = VRAsset::assetWithObject(file, 0);
    auto accessID = asset->startAccessing();
    ASSERT_TRUE(accessID);
    EXPECT_EQ(file->url(), std::optional(photo));
    asset->stopAccessing(accessID);
    EXPECT_FALSE(file->url());
    EXPECT_EQ(asset->type(), VRAssetIdentifierTypeFile);
    EXPECT_EQ(asset->objectIdentifier(), photo);
    EXPECT_EQ(asset->originalFilename(), "shot.jpg");
}

TEST(VRFileAsset, ReadsItsAttributesUnderATemporaryAccessAndCopiesItsState) {
    testing_support::TestHome home;
    const std::string photo = home.path("outside/turned.jpg");
    photolibrary_test::makeJpeg(photo, 60, 40, "-Orientation=6 -n");
    const std::string movie = home.path("outside/clip.mov");
    photolibrary_test::makeMovie(movie);

    auto still = VRFileAsset::fileAssetWithURL(photo);
    EXPECT_EQ(still->mediaType(), VRFormatMediaTypePhoto);
    EXPECT_EQ(still->pixelSize(), (CGSize{40, 60}));
    EXPECT_EQ(still->duration(), 0);
    EXPECT_TRUE(still->creationDate());
    auto clip = VRFileAsset::fileAssetWithURL(movie);
    EXPECT_EQ(clip->mediaType(), VRFormatMediaTypeVideo);
    EXPECT_EQ(clip->pixelSize(), (CGSize{64, 48}));
    EXPECT_NEAR(clip->duration(), 0.5, 0.05);

    // A copy carries the open accesses and is the same asset.
    auto accessID = still->startAccessing();
    ASSERT_TRUE(accessID);
    auto copy = still->copy();
    EXPECT_EQ(copy->url(), std::optional(photo));
    EXPECT_TRUE(copy->isEqual(*still));
    EXPECT_EQ(copy->hash(), still->hash());
    EXPECT_FALSE(copy->isEqual(*clip));
    copy->stopAccessingWithAccessID(*accessID);
    EXPECT_FALSE(copy->url());
    EXPECT_EQ(still->url(), std::optional(photo));
    still->stopAccessingWithAccessID(*accessID);
}

TEST(VRFileAsset, AFileThatCantBeOpenedGivesNoAccessAndKeepsDefaults) {
    testing_support::TestHome home;
    auto gone = VRFileAsset::fileAssetWithURL(home.path("outside/gone.jpg"));
    EXPECT_FALSE(gone->isDataExist());
    EXPECT_EQ(gone->pixelSize(), (CGSize{640, 480}));
    EXPECT_EQ(gone->originalFilename(), "gone.jpg");
    auto fresh = VRFileAsset::fileAssetWithURL(home.path("outside/gone.jpg"));
    EXPECT_FALSE(fresh->startAccessing());
    EXPECT_FALSE(thumbnailOf(*VRFileAsset::fileAssetWithURL(home.path("outside/gone.jpg")), 100));
}

TEST(VRFileAsset, AnUnreadableFileGivesNoAccess) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads a file whatever its mode";
    testing_support::TestHome home;
    const std::string photo = home.path("outside/locked.jpg");
    makeFlatJpeg(photo, 40, 30, "red");
    ::chmod(photo.c_str(), 0);
    auto file = VRFileAsset::fileAssetWithURL(photo);
    EXPECT_FALSE(file->startAccessing());
    EXPECT_EQ(VRFileAsset::fileAssetWithURL(photo)->pixelSize(), (CGSize{640, 480}));
}

TEST(VRFileAsset, ThumbnailWindowServesOrMakesFromTheRightFile) {
    // The source is red; the stored thumbnail is repainted green, so the colour of the answer
    // to a request of 100 tells which file it was drawn from.
    struct Row {
        int stored;
        int width;         // of the answer
        Colour colour;     // green: the stored file, red: the source
        bool madeNewFile;  // a file named 100 appeared
    };
    const Row rows[] = {
        {85, 85, Colour::green, false},
        {150, 100, Colour::green, true},
        {149, 149, Colour::green, false},
        {80, 100, Colour::red, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("stored " + std::to_string(row.stored));
        testing_support::TestHome home;
        const std::string source = home.path("outside/source.jpg");
        makeFlatJpeg(source, 400, 300, "red");
        auto file = VRFileAsset::fileAssetWithURL(source);

        auto stored = thumbnailOf(*file, row.stored);
        ASSERT_TRUE(stored);
        EXPECT_EQ(stored->width(), static_cast<std::size_t>(row.stored));
        const std::string folder = onlyThumbnailFolder();
        ASSERT_EQ(testing_support::namesIn(folder),
                  std::vector<std::string>{std::to_string(row.stored)});
        makeFlatJpeg(folder + "/" + std::to_string(row.stored), row.stored, row.stored * 3 / 4,
                     "lime");

        auto image = thumbnailOf(*file, 100);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->width(), static_cast<std::size_t>(row.width));
        EXPECT_EQ(centreColour(*image), row.colour);
        EXPECT_EQ(std::filesystem::exists(folder + "/100"), row.madeNewFile);
    }
}

TEST(VRFileAsset, AMadeThumbnailKeepsTheStoredWidthsInOrder) {
    testing_support::TestHome home;
    const std::string source = home.path("outside/source.jpg");
    makeFlatJpeg(source, 400, 300, "red");
    auto file = VRFileAsset::fileAssetWithURL(source);
    ASSERT_TRUE(thumbnailOf(*file, 150));
    const std::string folder = onlyThumbnailFolder();
    makeFlatJpeg(folder + "/150", 150, 112, "lime");
    ASSERT_TRUE(thumbnailOf(*file, 100));  // made from 150, stored behind it

    // 130 is served by 150 (inside 104..195) only if 150 is still looked at first.
    auto image = thumbnailOf(*file, 130);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 150u);
    EXPECT_EQ(testing_support::namesIn(folder), (std::vector<std::string>{"100", "150"}));

    // Cleared application files: the asset draws from its source again.
    VRFileAsset::clearAllResources();
    EXPECT_FALSE(std::filesystem::exists(folder));
    image = thumbnailOf(*file, 100);
    ASSERT_TRUE(image);
    EXPECT_EQ(centreColour(*image), Colour::red);
    EXPECT_TRUE(std::filesystem::exists(folder + "/100"));
}

TEST(VRFileAsset, AThumbnailRequestDoesntKeepItsAssetAlive) {
    testing_support::TestHome home;
    const std::string source = home.path("outside/source.jpg");
    makeFlatJpeg(source, 40, 30, "red");
    auto file = VRFileAsset::fileAssetWithURL(source);
    std::weak_ptr<VRFileAsset> weak = file;

    // Hold the queue so that the request waits behind the release of the asset.
    std::promise<void> gate;
    auto opened = gate.get_future().share();
    VRFileAsset::queue().async([opened] { opened.wait(); });
    bool called = false;
    file->createThumbnailOfSize({20, 20}, [&](std::optional<platform::Bitmap>) { called = true; });
    file.reset();
    EXPECT_TRUE(weak.expired());
    gate.set_value();
    VRFileAsset::queue().sync([] {});
    EXPECT_TRUE(testing_support::namesIn(VRFileStorage::projectURLs().appfilesURL).empty());
    EXPECT_FALSE(called);
}

TEST(VRFileAsset, RequestsThatAreNotWidthsGiveNothing) {
    testing_support::TestHome home;
    const std::string source = home.path("outside/source.jpg");
    makeFlatJpeg(source, 40, 30, "red");
    auto file = VRFileAsset::fileAssetWithURL(source);
    for (double width : {std::nan(""), HUGE_VAL, 1e300, 0.4, -100.0})
        EXPECT_FALSE(thumbnailOf(*file, width)) << width;
    EXPECT_TRUE(testing_support::namesIn(VRFileStorage::projectURLs().appfilesURL).empty());
}

}  // namespace
