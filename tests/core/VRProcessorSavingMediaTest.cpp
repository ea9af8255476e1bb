// The saving tail of the processor with real codecs: results into the library's albums (a Live
// Photo as one pair), the "Stored locally" fallback, local results, and what a refusing store
// leaves behind.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "../platform/MediaTestSupport.h"
#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "core/VRBatchServices.h"
#include "core/VRProcessor.h"
#include "core/VRResultController.h"
#include "platform/Dispatch.h"
#include "results/ResultManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"
#include "templates/TemplateManager.h"

namespace {

using media_test::has;
using media_test::probe;
using photolibrary_test::makeJpeg;
using photolibrary_test::makeMovie;
using testing_support::namesIn;

struct Outcome {
    bool finished = false;
    VRAssetRef result;
    VRErrorRef error;
};

class VRProcessorSavingMedia : public ::testing::Test {
  protected:
    void SetUp() override { VRSettings::setLivePhotoEnabled(true); }
    void TearDown() override {
        manager.setAutoSaveAlbumName("");
        manager.setPhotoLibrary(nullptr);
    }
    void openLibrary() {
        library = photolibrary_test::openLibrary(home);
        ASSERT_TRUE(library);
        manager.setPhotoLibrary(library);
    }
    // A 400 by 300 still and a movie in "in", as a Live Photo pair of files.
    VRAssetRef livePair(const std::string& stem) {
        makeJpeg(home.path("in/" + stem + ".jpg"), 400, 300);
        makeMovie(home.path("in/" + stem + ".mov"));
        return VRAsset::assetWithObject(VRURLAsset::livePhotoAssetWithURL(
            home.path("in/" + stem + ".jpg"), home.path("in/" + stem + ".mov")));
    }
    VRAssetRef still(const std::string& stem) {
        makeJpeg(home.path("in/" + stem + ".jpg"), 400, 300);
        return VRAsset::assetWithObject(
            VRURLAsset::urlAssetWithURL(home.path("in/" + stem + ".jpg")));
    }
    Outcome process(const VRAssetRef& asset) {
        auto outcome = std::make_shared<Outcome>();
        VRProcessor::mainProcessor().processAsset(
            asset, TemplateManager::shared().templateWithKey("uw-133"), nullptr, CGSizeZero,
            nullptr, [outcome](VRAssetRef result, VRErrorRef error) {
                outcome->finished = true;
                outcome->result = std::move(result);
                outcome->error = std::move(error);
            });
        platform::MainRunLoop::runUntil([&] { return outcome->finished; },
                                        std::chrono::seconds(60));
        EXPECT_TRUE(outcome->finished);
        ResultManager::shared().waitUntilStored();
        return *outcome;
    }
    // Every file the stages wrote and left in this process's temporary folders.
    std::vector<std::string> leftovers() const {
        std::vector<std::string> files;
        for (const auto& place : VRFileStorage::temporaryPlaces()) {
            std::error_code ec;
            const std::string own = VRFileStorage::ownTemporaryFolder(place);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(own, ec))
                if (entry.is_regular_file()) files.push_back(entry.path().string());
        }
        return files;
    }

    testing_support::TestHome home;
    VRAssetManager2& manager = VRAssetManager2::defaultManager();
    std::shared_ptr<platform::PhotoLibrary> library;
};

// A Live Photo of files and one of the library both come out as one library Live Photo: the
// still and its movie (at the still's size) paired as the library reads them back from its
// folders, a reference in the result store, and no output file left behind.
TEST_F(VRProcessorSavingMedia, LivePhotoBecomesOneLibraryPairAndLeavesNoFile) {
    VRSettings::setAutoSaveEnabled(true);
    openLibrary();
    makeJpeg(home.path("in/lib.jpg"), 400, 300);
    makeMovie(home.path("in/lib.mov"));
    library->requestAuthorizationForAccessLevel(platform::PHAccessLevelAddOnly);
    platform::PHChangeRequest importPair;
    importPair.resources = {
        {platform::PHAssetResourceTypePhoto, home.path("in/lib.jpg"), ""},
        {platform::PHAssetResourceTypePairedVideo, home.path("in/lib.mov"), ""}};
    const auto imported = library->performChangesAndWait(importPair);
    ASSERT_FALSE(imported.error) << imported.error->description();
    VRAssetRef fromLibrary =
        manager.assetWithPhotoAssetIdentifier(imported.placeholderLocalIdentifier);
    ASSERT_TRUE(fromLibrary && fromLibrary->livePhoto());

    struct Row {
        const char* what;
        VRAssetRef asset;
    } rows[] = {{"files", livePair("files")}, {"library", fromLibrary}};
    std::vector<std::string> saved;
    for (const auto& row : rows) {
        Outcome out = process(row.asset);
        ASSERT_FALSE(out.error) << row.what << ": " << out.error->description();
        ASSERT_TRUE(out.result) << row.what;
        EXPECT_EQ(out.result->flag(), 0u) << row.what;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << row.what;
        saved.push_back(out.result->objectIdentifier());
    }
    // Read back by a library opened afresh from its files.
    manager.setPhotoLibrary(nullptr);
    openLibrary();
    for (std::size_t i = 0; i < saved.size(); ++i) {
        auto asset = manager.assetWithPhotoAssetIdentifier(saved[i]);
        ASSERT_TRUE(asset) << rows[i].what;
        EXPECT_TRUE(asset->livePhoto()) << rows[i].what;
        EXPECT_EQ(asset->pixelSize(), (CGSize{532, 300})) << rows[i].what;
        platform::PlistDictionary info;
        manager.requestInfoForAsset(asset, [&](platform::PlistDictionary d) { info = d; });
        const std::string* paired =
            info.count("pairedPath") ? info.at("pairedPath").string() : nullptr;
        ASSERT_TRUE(paired) << rows[i].what;
        EXPECT_TRUE(has(probe(*paired, "-select_streams v -show_entries stream=width,height"),
                        "width=532\nheight=300"))
            << rows[i].what;
    }
    // Both results of this run share the album its first save opened.
    EXPECT_EQ(namesIn(home.path("Pictures/Uwrp photos 2")).size(), 4u);
    const auto stored = ResultManager::shared().results();
    ASSERT_EQ(stored.size(), 2u);
    for (std::size_t i = 0; i < stored.size(); ++i) {
        EXPECT_EQ(stored[i].resultType, ResultType::photoAsset);
        auto asset = ResultManager::shared().assetAt(static_cast<std::int64_t>(i));
        ASSERT_TRUE(asset);
        EXPECT_EQ(asset->objectIdentifier(), saved[i]);
    }
}

// One run's results share one numbered album; the next run opens the next one.
TEST_F(VRProcessorSavingMedia, EachBatchLandsInItsOwnNumberedAlbum) {
    VRSettings::setAutoSaveEnabled(true);
    openLibrary();
    auto batch = [&] {
        // A run, as the batch run makes it, forgets the album of the run before.
        VRResultController run({}, VXTemplate::create(), nullptr, {}, VRBatchServices::standard());
        for (const char* stem : {"a", "b"}) {
            Outcome out = process(still(stem));
            ASSERT_TRUE(out.result) << stem;
        }
    };
    batch();
    EXPECT_EQ(namesIn(home.path("Pictures/Uwrp photos 2")).size(), 2u);
    batch();
    EXPECT_EQ(namesIn(home.path("Pictures/Uwrp photos 3")).size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures/Uwrp photos 4")));
}

// A library that refuses (its folder is a file) leaves the result in the store, flagged as
// stored locally, without the movie of a Live Photo; without auto-save a still is stored the
// same way, unflagged.
TEST_F(VRProcessorSavingMedia, RefusedOrNotSavedResultsAreStoredLocally) {
    testing_support::touch(home.path("Pictures"));
    openLibrary();
    struct Row {
        const char* what;
        bool autoSave;
        VRAssetRef asset;
        std::uint64_t flag;
    } rows[] = {
        {"refused Live Photo", true, livePair("live"), 2},
        {"not saved", false, still("plain"), 0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& row = rows[i];
        VRSettings::setAutoSaveEnabled(row.autoSave);
        Outcome out = process(row.asset);
        ASSERT_FALSE(out.error) << row.what << ": " << out.error->description();
        ASSERT_TRUE(out.result) << row.what;
        EXPECT_EQ(out.result->flag(), row.flag) << row.what;
        auto* local = dynamic_cast<const VRLocalAsset*>(out.result->object().get());
        ASSERT_TRUE(local) << row.what;
        EXPECT_FALSE(local->pairedVideoURL()) << row.what;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << row.what;
        // The store holds the still alone, under the result's name.
        const std::string folder =
            std::filesystem::path(local->url()).parent_path().parent_path().string();
        EXPECT_EQ(std::filesystem::path(folder).parent_path(), home.path("documents/results"));
        EXPECT_EQ(namesIn(folder + "/main").size(), 1u) << row.what;
        EXPECT_EQ(ResultManager::shared().numberOfAssets(), i + 1) << row.what;
        EXPECT_EQ(ResultManager::shared().results().back().resultType, ResultType::localAsset);
    }
}

// A store that can't keep the result ("results" is a file) fails with code 2 and removes the
// output, the Live Photo's movie too.
TEST_F(VRProcessorSavingMedia, AStoreThatRefusesGivesCode2AndRemovesTheOutput) {
    testing_support::touch(home.path("documents/results"));
    testing_support::touch(home.path("Pictures"));
    openLibrary();
    struct Row {
        const char* what;
        bool autoSave;
        VRAssetRef asset;
    } rows[] = {{"still", false, still("plain")}, {"Live Photo", true, livePair("live")}};
    for (const auto& row : rows) {
        VRSettings::setAutoSaveEnabled(row.autoSave);
        Outcome out = process(row.asset);
        EXPECT_FALSE(out.result) << row.what;
        ASSERT_TRUE(out.error) << row.what;
        EXPECT_EQ(out.error->code(), 2) << row.what;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << row.what;
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(home.path("documents/results")));
}

}  // namespace
