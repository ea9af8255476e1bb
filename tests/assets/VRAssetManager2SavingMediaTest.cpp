#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "../platform/PhotoLibraryTestSupport.h"
#include "SavingFixture.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRURLAsset.h"
#include "storage/VRSettings.h"
#include "support/Signal.h"
#include "support/TestHome.h"

namespace {

using photolibrary_test::inodeOf;
using photolibrary_test::makeJpeg;
using photolibrary_test::makeMovie;
using testing_support::namesIn;
using testing_support::Signal;
using testing_support::TestHome;

class VRAssetManager2SavingMedia : public saving_test::ManagerWithLibrary {
  protected:
    // Saves and waits: the new asset's identifier, empty on failure.
    std::string save(const VRAssetResource& resource, const VRAssetRef& original) {
        Signal done;
        std::string identifier;
        bool saved = false;
        manager.saveToPhotoLibrary(resource, original,
                                   [&](bool success, const std::string& localIdentifier) {
                                       saved = success;
                                       identifier = localIdentifier;
                                       done.notify();
                                   });
        EXPECT_TRUE(done.waitFor());
        EXPECT_EQ(saved, !identifier.empty());
        return identifier;
    }
    std::optional<platform::PHAsset> assetWithIdentifier(const std::string& id) {
        auto found = library->fetchAssetsWithLocalIdentifiers({id}, {});
        if (!found.firstObject()) return std::nullopt;
        return *found.firstObject();
    }
};

TEST_F(VRAssetManager2SavingMedia, ResultsGoToTheirAlbumAndOriginalsAreLinkedNotCopied) {
    makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 24);
    makeJpeg(home.path("out/orig-uwrp.jpg"), 48, 24);
    makeMovie(home.path("out/clip-uwrp.mp4"));
    openLibrary();
    auto originalID = library->fetchAssetsWithOptions({}).firstObject()->localIdentifier;
    VRAssetRef original = manager.assetWithPhotoAssetIdentifier(originalID);
    ASSERT_TRUE(original);
    const std::string photo = home.path("out/orig-uwrp.jpg");
    const std::string movie = home.path("out/clip-uwrp.mp4");
    struct Row {
        bool resultsAlbums;
        bool originalsAlbum;
        std::string autoSave;
        std::string source;
        std::string file;
        VRFormatMediaType mediaType;
        std::string expectedAlbum;  // empty: the library's root
        std::size_t originalsLinked;
    } rows[] = {
        {true, true, "", "", photo, VRFormatMediaTypePhoto, "Uwrp photos 2", 1},
        // A batch keeps saving into the album of its first result; linked once only.
        {true, true, "Uwrp photos 2", "", photo, VRFormatMediaTypePhoto, "Uwrp photos 2", 1},
        {true, false, "", "", photo, VRFormatMediaTypePhoto, "Uwrp photos 3", 1},
        {true, false, "", "", movie, VRFormatMediaTypeVideo, "Uwrp videos 2", 1},
        {true, false, "", "Trip 4", photo, VRFormatMediaTypePhoto, "Trip 5", 1},
        {false, false, "", "", photo, VRFormatMediaTypePhoto, "", 1},
    };
    for (const auto& row : rows) {
        const std::string what = row.file + " into \"" + row.expectedAlbum + "\"";
        VRSettings::setAlbumsForResultsEnabled(row.resultsAlbums);
        VRSettings::setAlbumForOriginalsEnabled(row.originalsAlbum);
        manager.setAutoSaveAlbumName(row.autoSave);
        manager.setSourceAlbumName(row.source);
        const std::string id =
            save(VRAssetResource::resourceWithURL(row.file, row.mediaType), original);
        ASSERT_FALSE(id.empty()) << what;
        auto saved = assetWithIdentifier(id);
        ASSERT_TRUE(saved) << what;
        ASSERT_EQ(saved->resources.size(), 1u) << what;
        const std::string expectedFolder = row.expectedAlbum.empty()
                                               ? home.path("Pictures")
                                               : home.path("Pictures/" + row.expectedAlbum);
        EXPECT_EQ(std::filesystem::path(saved->resources[0].path).parent_path().string(),
                  expectedFolder)
            << what;
        EXPECT_EQ(namesIn(home.path("Pictures/Uwrp originals")).size(), row.originalsLinked)
            << what;
        EXPECT_TRUE(std::filesystem::exists(row.file)) << what;  // the caller's file stays
    }
    // One file on disk behind both album entries of the original.
    EXPECT_EQ(inodeOf(home.path("Pictures/Uwrp originals/orig.jpg")),
              inodeOf(home.path("Pictures/DCIM/orig.jpg")));
    auto originals = library->albumWithTitle("Uwrp originals");
    ASSERT_TRUE(originals);
    auto members = library->fetchAssetsInAssetCollection(originals->localIdentifier, {});
    ASSERT_EQ(members.count(), 1u);
    EXPECT_EQ(members.firstObject()->localIdentifier, originalID);
    EXPECT_EQ(namesIn(home.path("Pictures/Uwrp photos 2")),
              (std::vector<std::string>{"orig-uwrp 2.jpg", "orig-uwrp.jpg"}));
}

TEST_F(VRAssetManager2SavingMedia, LivePhotoResultIsOneCreationReadBackAsAPair) {
    makeJpeg(home.path("out/live-uwrp.jpg"), 40, 30);
    makeMovie(home.path("out/live-uwrp.mov"));
    openLibrary();
    VRSettings::setAlbumsForResultsEnabled(true);
    const std::string id = save(
        VRAssetResource::resourceWithURL(home.path("out/live-uwrp.jpg"),
                                         home.path("out/live-uwrp.mov"), VRFormatMediaTypePhoto),
        nullptr);
    ASSERT_FALSE(id.empty());
    EXPECT_EQ(namesIn(home.path("Pictures/Uwrp photos 2")),
              (std::vector<std::string>{"live-uwrp.jpg", "live-uwrp.mov"}));
    // Read back by a library opened afresh from the files.
    for (int reopen = 0; reopen < 2; ++reopen) {
        auto all = library->fetchAssetsWithOptions({});
        ASSERT_EQ(all.count(), 1u) << reopen;
        const auto& asset = *all.firstObject();
        EXPECT_EQ(asset.localIdentifier, id) << reopen;
        EXPECT_TRUE(asset.isLivePhoto()) << reopen;
        ASSERT_EQ(asset.resources.size(), 2u) << reopen;
        EXPECT_EQ(asset.resources[0].type, platform::PHAssetResourceTypePhoto);
        EXPECT_EQ(asset.resources[1].type, platform::PHAssetResourceTypePairedVideo);
        manager.setPhotoLibrary(nullptr);
        library.reset();
        openLibrary();
    }
}

TEST_F(VRAssetManager2SavingMedia, CameraPictureJoinsTheLibraryAndTheCameraAssets) {
    makeJpeg(home.path("assets/camera.jpg"), 32, 32);
    openLibrary();
    std::vector<std::string> heard;
    Signal ended;
    manager.addListenerWithKey(
        "screen", [&] { heard.push_back("begin"); },
        [&] {
            heard.push_back("end");
            ended.notify();
        });
    const std::size_t before = manager.cameraAssets().size();
    bool failed = false;
    manager.saveImageFromCamera(home.path("assets/camera.jpg"),
                                [&](const platform::ErrorRef&) { failed = true; });
    ASSERT_TRUE(ended.waitFor());
    manager.removeListenerWithKey("screen");
    EXPECT_FALSE(failed);
    EXPECT_EQ(heard, (std::vector<std::string>{"begin", "end"}));
    auto cameraAssets = manager.cameraAssets();
    ASSERT_EQ(cameraAssets.size(), before + 1);
    const auto& asset = cameraAssets.back();
    EXPECT_EQ(asset->flag(), 0u);
    EXPECT_EQ(asset->type(), VRAssetIdentifierTypeLibrary);
    EXPECT_EQ(asset->pixelSize(), (CGSize{32, 32}));
    EXPECT_TRUE(std::filesystem::exists(home.path("Pictures/camera.jpg")));
}

TEST_F(VRAssetManager2SavingMedia, AlbumsTakeLibraryAssetsAsLinksAndFilesAsCopies) {
    makeJpeg(home.path("Pictures/DCIM/a.jpg"), 16, 16);
    makeJpeg(home.path("out/b.jpg"), 16, 16);
    makeJpeg(home.path("out/c.jpg"), 16, 16);
    makeMovie(home.path("out/d.mp4"));
    openLibrary();
    auto libraryAsset = manager.assetWithPhotoAssetIdentifier(
        library->fetchAssetsWithOptions({}).firstObject()->localIdentifier);
    auto fileAsset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("out/b.jpg")));
    auto missing = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("out/none.jpg")));

    Signal done;
    bool allAdded = true;
    std::vector<std::string> added;
    platform::ErrorRef failure;
    manager.addToAlbum(
        "Picks", {libraryAsset, fileAsset, missing},
        [&](bool success, std::vector<std::string> identifiers, const platform::ErrorRef& error) {
            allAdded = success;
            added = std::move(identifiers);
            failure = error;
            done.notify();
        });
    ASSERT_TRUE(done.waitFor());
    EXPECT_FALSE(allAdded);  // the missing file
    EXPECT_TRUE(failure);
    ASSERT_EQ(added.size(), 2u);
    EXPECT_EQ(added[0], libraryAsset->objectIdentifier());
    EXPECT_EQ(namesIn(home.path("Pictures/Picks")), (std::vector<std::string>{"a.jpg", "b.jpg"}));
    EXPECT_EQ(inodeOf(home.path("Pictures/Picks/a.jpg")),
              inodeOf(home.path("Pictures/DCIM/a.jpg")));
    EXPECT_NE(inodeOf(home.path("Pictures/Picks/b.jpg")), inodeOf(home.path("out/b.jpg")));

    Signal saved;
    manager.saveToAlbum(
        "Picks",
        {VRAssetResource::resourceWithURL(home.path("out/c.jpg"), VRFormatMediaTypePhoto),
         VRAssetResource::resourceWithURL(home.path("out/d.mp4"), VRFormatMediaTypeVideo)},
        [&](bool success, std::vector<std::string> identifiers, const platform::ErrorRef& error) {
            allAdded = success;
            added = std::move(identifiers);
            failure = error;
            saved.notify();
        });
    ASSERT_TRUE(saved.waitFor());
    EXPECT_TRUE(allAdded);
    EXPECT_FALSE(failure);
    ASSERT_EQ(added.size(), 2u);
    auto picks = library->albumWithTitle("Picks");
    ASSERT_TRUE(picks);
    EXPECT_EQ(library->fetchAssetsInAssetCollection(picks->localIdentifier, {}).count(), 4u);
    auto movie = assetWithIdentifier(added[1]);
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->mediaType, platform::PHAssetMediaTypeVideo);
}

}  // namespace
