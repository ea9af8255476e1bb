#include <gtest/gtest.h>

#include <filesystem>

#include "../platform/PhotoLibraryTestSupport.h"
#include "ResultStoreSupport.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLocalAsset.h"
#include "results/ResultManager.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;
using resultstore_test::addAndWait;

// Three library photos stored as results, the store and library both under the home.
struct LibraryResults {
    testing_support::TestHome home;
    std::shared_ptr<platform::PhotoLibrary> library;
    std::vector<std::string> ids;

    LibraryResults() {
        for (const char* name : {"p1.jpg", "p2.jpg", "p3.jpg"})
            photolibrary_test::makeJpeg(home.path(std::string("Pictures/Uwrp photos/") + name), 32,
                                        24);
        library = photolibrary_test::openLibrary(home);
        VRAssetManager2::defaultManager().setPhotoLibrary(library);
        for (const auto& asset : library->fetchAssetsWithOptions({}).objects())
            ids.push_back(asset.localIdentifier);
    }
    ~LibraryResults() { VRAssetManager2::defaultManager().setPhotoLibrary(nullptr); }
};

TEST(ResultManagerMedia, APhotoResultWhoseItemIsGoneCountsButIsNoAsset) {
    LibraryResults f;
    ASSERT_EQ(f.ids.size(), 3u);
    ResultManager store(f.home.path("results"));
    for (const auto& id : f.ids) ASSERT_TRUE(addAndWait(store, id, true).success);
    EXPECT_EQ(store.assets().size(), 3u);

    const std::string gone = f.library->fetchAssetsWithLocalIdentifiers({f.ids[1]}, {})
                                 .firstObject()
                                 ->resources.front()
                                 .path;
    fs::remove(gone);
    ASSERT_FALSE(f.library->rescan());
    ResultManager again(f.home.path("results"));
    EXPECT_EQ(again.numberOfAssets(), 3u);
    auto assets = again.assets();
    ASSERT_EQ(assets.size(), 2u);
    EXPECT_EQ(assets[0]->objectIdentifier(), f.ids[0]);
    EXPECT_EQ(assets[1]->objectIdentifier(), f.ids[2]);
    EXPECT_FALSE(again.assetAt(1));
    EXPECT_TRUE(again.assetAt(2));
}

TEST(ResultManagerMedia, RemovingAPhotoResultLeavesTheLibraryItem) {
    LibraryResults f;
    ResultManager store(f.home.path("results"));
    ASSERT_TRUE(addAndWait(store, f.ids[0], true).success);
    const auto record = store.results().at(0);
    EXPECT_EQ(record.identifier.front(), 'A');
    EXPECT_EQ(store.removeAssetsAt({0}), (std::set<std::size_t>{0}));
    store.waitUntilStored();
    EXPECT_FALSE(fs::exists(store.folderURLForResult(record)));
    ASSERT_FALSE(f.library->rescan());
    EXPECT_EQ(f.library->fetchAssetsWithLocalIdentifiers({f.ids[0]}, {}).count(), 1u);
    EXPECT_TRUE(VRAssetManager2::defaultManager().assetWithPhotoAssetIdentifier(f.ids[0]));
}

TEST(ResultManagerMedia, LocalPhotosAndMoviesGetThumbnails) {
    testing_support::TestHome home;
    photolibrary_test::makeJpeg(home.path("out/shot.jpg"), 400, 300);
    photolibrary_test::makeMovie(home.path("out/clip.mp4"));
    ResultManager store(home.path("results"));
    ASSERT_TRUE(addAndWait(store, home.path("out/shot.jpg")).success);
    ASSERT_TRUE(addAndWait(store, home.path("out/clip.mp4")).success);
    auto assets = store.assets();
    ASSERT_EQ(assets.size(), 2u);
    auto* photo = dynamic_cast<const VRLocalAsset*>(assets[0]->object().get());
    auto* movie = dynamic_cast<const VRLocalAsset*>(assets[1]->object().get());
    ASSERT_TRUE(photo && movie);
    EXPECT_EQ(photo->mediaType(), VRFormatMediaTypePhoto);
    EXPECT_EQ(movie->mediaType(), VRFormatMediaTypeVideo);
    EXPECT_EQ(photo->pixelSize(), (CGSize{400, 300}));
    auto thumbnail = photo->thumbnailImage();
    ASSERT_TRUE(thumbnail);
    EXPECT_LT(thumbnail->width(), 400u);
    EXPECT_EQ(photolibrary_test::nameOf(photo->thumbnailURL()), "thumbnail.jpg");
    // A movie's thumbnail is its frame (64 x 48), never enlarged.
    auto frame = movie->thumbnailImage();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), 64u);
    EXPECT_FALSE(fs::exists(home.path("out/shot.jpg")));
}

}  // namespace
