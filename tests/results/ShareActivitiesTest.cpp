#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "ResultStoreSupport.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "results/ExportManager.h"
#include "results/VRFolderExportActivity.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;
using resultstore_test::contentsOf;
using resultstore_test::writeFile;
using MediaType = VRImageSaveActivity::MediaType;
using SaveError = VRImageSaveActivity::SaveError;

TEST(ShareActivities, SaveTitleNamesTheMediaAndCount) {
    const struct {
        std::vector<std::string> items;
        std::string title;
    } cases[] = {
        {{"a.jpg"}, "Save image"},
        {{"a.mov"}, "Save video"},
        {{"a.jpg", "b.png", "c.heic"}, "Save 3 images"},
        {{"a.mp4", "b.mov"}, "Save 2 videos"},
        {{"a.jpg", "b.mov"}, "Save 2 items"},
    };
    for (const auto& c : cases) {
        VRImageSaveActivity activity({}, nullptr);
        activity.prepareWithActivityItems(c.items);
        EXPECT_EQ(activity.activityTitle(), c.title) << c.items.size();
    }
}

TEST(ShareActivities, TheSaveOutcomeDecidesTheShareStatus) {
    testing_support::TestHome home;
    VRSettings::setAlbumsForResultsEnabled(true);
    writeFile(home.path("out/x.jpg"));
    writeFile(home.path("out/y.mov"));
    const struct {
        std::optional<SaveError> outcome;
        VRExportShareStatus status;
    } cases[] = {
        {std::nullopt, VRExportShareStatusDone},
        {SaveError{SaveError::Kind::noAccess, nullptr}, VRExportShareStatusNoLibraryAccess},
        {SaveError{SaveError::Kind::photosError,
                   platform::Error::errorWithDomain("PHPhotosErrorDomain", 3302)},
         VRExportShareStatusFailed},
    };
    for (const auto& c : cases) {
        ExportManager manager;
        manager.setSharingRoot(home.path("tmp/sharing"));
        std::vector<VRImageSaveActivity::Item> saved;
        std::map<MediaType, std::string> albums;
        manager.setImageSaver([&](const std::vector<VRImageSaveActivity::Item>& items,
                                  const std::map<MediaType, std::string>& albumNames) {
            saved = items;
            albums = albumNames;
            return c.outcome;
        });
        manager.setSheetPresenter([](const ShareSheetRequest& request, ShareSheetCompletion done) {
            for (const auto& activity : request.applicationActivities) {
                if (activity->activityType() != VRImageSaveActivity::kActivityType) continue;
                activity->perform([activity, done](bool completed, platform::ErrorRef error) {
                    done(activity, completed, error);
                });
                return;
            }
            done(nullptr, false, nullptr);
        });
        std::optional<VRExportShareStatus> status;
        std::vector<VRAssetRef> assets;
        for (const char* p : {"out/x.jpg", "out/y.mov"})
            assets.push_back(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path(p))));
        manager.shareWithAssets(assets, std::nullopt, nullptr,
                                [&](VRExportShareStatus s) { status = s; }, {0});
        ASSERT_TRUE(platform::MainRunLoop::runUntil([&] { return status.has_value(); },
                                                    std::chrono::seconds(30)));
        EXPECT_EQ(*status, c.status);
        ASSERT_EQ(saved.size(), 2u);
        EXPECT_EQ(saved[0].mediaType, MediaType::photo);
        EXPECT_EQ(saved[1].mediaType, MediaType::video);
        EXPECT_EQ(albums[MediaType::photo], "Uwrp photos");
        EXPECT_EQ(albums[MediaType::video], "Uwrp videos");
    }
}

TEST(ShareActivities, TheSaveActionIsOfferedOnlyWithAlbumsForResults) {
    testing_support::TestHome home;
    writeFile(home.path("out/x.jpg"));
    for (bool enabled : {false, true}) {
        VRSettings::setAlbumsForResultsEnabled(enabled);
        ExportManager manager;
        manager.setSharingRoot(home.path("tmp/sharing"));
        std::vector<std::string> types;
        manager.setSheetPresenter([&](const ShareSheetRequest& request, ShareSheetCompletion done) {
            for (const auto& a : request.applicationActivities) types.push_back(a->activityType());
            done(nullptr, false, nullptr);
        });
        bool finished = false;
        manager.shareWithAssets(
            {VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("out/x.jpg")))},
            std::nullopt, nullptr, [&](VRExportShareStatus) { finished = true; }, {0});
        ASSERT_TRUE(
            platform::MainRunLoop::runUntil([&] { return finished; }, std::chrono::seconds(30)));
        EXPECT_EQ(std::count(types.begin(), types.end(), VRImageSaveActivity::kActivityType),
                  enabled ? 1 : 0);
        EXPECT_EQ(std::count(types.begin(), types.end(), VRFolderExportActivity::kActivityType), 1);
    }
}

TEST(ShareActivities, FolderExportNeverReplacesAFile) {
    testing_support::TestHome home;
    writeFile(home.path("out/a.jpg"), "new");
    writeFile(home.path("dest/a.jpg"), "old");
    writeFile(home.path("dest/a-1.jpg"), "older");
    platform::ErrorRef error;
    auto first =
        VRFolderExportActivity::exportItem(home.path("out/a.jpg"), home.path("dest"), &error);
    auto second =
        VRFolderExportActivity::exportItem(home.path("out/a.jpg"), home.path("dest"), &error);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(fs::path(*first).filename(), "a-2.jpg");
    EXPECT_EQ(fs::path(*second).filename(), "a-3.jpg");
    EXPECT_EQ(contentsOf(home.path("dest/a.jpg")), "old");
    EXPECT_EQ(contentsOf(home.path("dest/a-1.jpg")), "older");
    EXPECT_EQ(contentsOf(*first), "new");
    struct stat a {
    }, b{};
    ASSERT_EQ(stat(first->c_str(), &a), 0);
    ASSERT_EQ(stat(home.path("out/a.jpg").c_str(), &b), 0);
    EXPECT_EQ(a.st_ino, b.st_ino) << "a link on one file system";
    EXPECT_FALSE(
        VRFolderExportActivity::exportItem(home.path("out/none.jpg"), home.path("dest"), &error));
    EXPECT_TRUE(error);
    // No hidden partial copy is left behind.
    EXPECT_EQ(testing_support::namesIn(home.path("dest")).size(), 4u);
}

}  // namespace
