#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "ResultStoreSupport.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "results/ExportManager.h"
#include "results/VRFolderExportActivity.h"
#include "results/VXHelperNames.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;
using resultstore_test::writeFile;

ino_t inodeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

std::vector<VRAssetRef> urlAssets(const std::vector<std::string>& paths) {
    std::vector<VRAssetRef> assets;
    for (const auto& p : paths)
        assets.push_back(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(p)));
    return assets;
}

// Shares the assets and answers the sheet with `answer` (which sees the request); runs the
// main queue until the share has finished and returns its status.
struct ShareRun {
    std::optional<VRExportShareStatus> status;
    ShareSheetRequest request;
    bool began = false;
};

using SheetAnswer = std::function<void(const ShareSheetRequest&, ShareSheetCompletion)>;

ShareRun share(ExportManager& manager, const std::vector<VRAssetRef>& assets,
               std::optional<std::string> baseName, std::int64_t filenameType,
               const SheetAnswer& answer) {
    ShareRun run;
    manager.setSheetPresenter([&](const ShareSheetRequest& request, ShareSheetCompletion done) {
        run.request = request;
        answer(request, std::move(done));
    });
    manager.shareWithAssets(
        assets, std::move(baseName), [&] { run.began = true; },
        [&](VRExportShareStatus status) { run.status = status; }, {filenameType});
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return run.status.has_value(); },
                                                std::chrono::seconds(30)));
    return run;
}

std::vector<std::string> names(const std::vector<std::string>& paths) {
    std::vector<std::string> out;
    for (const auto& p : paths) out.push_back(fs::path(p).filename().string());
    return out;
}

TEST(ExportManager, SharingNamesFollowTheCustomAndOriginalRules) {
    auto numbered = [](std::size_t count, std::string base) {
        std::vector<std::string> out;
        SharingNaming naming{true, std::move(base), VXHelper::digitsForCount(count), count > 1};
        for (std::size_t i = 0; i < count; ++i)
            out.push_back(sharingTargetName(naming, "/x/src.jpg", "IMG_9.HEIC", i));
        return out;
    };
    EXPECT_EQ(numbered(1, "a"), (std::vector<std::string>{"a.jpg"}));
    EXPECT_EQ(numbered(2, "a"), (std::vector<std::string>{"a1.jpg", "a2.jpg"}));
    auto eleven = numbered(11, "a");
    EXPECT_EQ(eleven.front(), "a01.jpg");
    EXPECT_EQ(eleven.back(), "a11.jpg");
    EXPECT_EQ(numbered(2, "t%x").back(), "t2x.jpg");

    // Original names: the original name's stem, through the suffix rule without moving its
    // number on, with the extension of the file that is shared.
    const struct {
        std::string original;
        bool suffix;
        std::string expected;
    } cases[] = {
        {"IMG_1.HEIC", true, "IMG_1-uwrp.jpg"},
        {"IMG_1.HEIC", false, "IMG_1.jpg"},
        {"IMG_1-uwrp-2.jpg", true, "IMG_1-uwrp-2.jpg"},
        {"IMG_1-uwrp-2.jpg", false, "IMG_1-2.jpg"},
    };
    for (const auto& c : cases) {
        SharingNaming naming;
        naming.suffixEnabled = c.suffix;
        EXPECT_EQ(sharingTargetName(naming, "/x/out.jpg", c.original, 0), c.expected) << c.original;
    }
}

TEST(ExportManager, RenamedItemsAreHardLinksAndTheSessionFolderGoesAfterwards) {
    testing_support::TestHome home;
    ExportManager manager;
    manager.setSharingRoot(home.path("tmp/sharing"));
    writeFile(home.path("out/x.jpg"), "x");
    writeFile(home.path("out/y.jpg"), "y");
    std::vector<ino_t> inodes;
    auto run = share(manager, urlAssets({home.path("out/x.jpg"), home.path("out/y.jpg")}), "a", 1,
                     [&](const ShareSheetRequest& request, ShareSheetCompletion done) {
                         for (const auto& item : request.items) inodes.push_back(inodeOf(item));
                         done(nullptr, true, nullptr);
                     });
    EXPECT_TRUE(run.began);
    EXPECT_EQ(run.status, std::optional(VRExportShareStatusDone));
    EXPECT_EQ(names(run.request.items), (std::vector<std::string>{"a1.jpg", "a2.jpg"}));
    EXPECT_EQ(inodes, (std::vector<ino_t>{inodeOf(home.path("out/x.jpg")),
                                          inodeOf(home.path("out/y.jpg"))}));
    EXPECT_TRUE(testing_support::namesIn(home.path("tmp/sharing")).empty());
    EXPECT_EQ(testing_support::namesIn(home.path("out")),
              (std::vector<std::string>{"x.jpg", "y.jpg"}));
}

TEST(ExportManager, AFileThatAlreadyHasItsNameIsSharedAsItIs) {
    testing_support::TestHome home;
    ExportManager manager;
    manager.setSharingRoot(home.path("tmp/sharing"));
    writeFile(home.path("out/a.jpg"), "a");
    auto run = share(
        manager, urlAssets({home.path("out/a.jpg")}), "a", 1,
        [](const ShareSheetRequest&, ShareSheetCompletion done) { done(nullptr, true, nullptr); });
    EXPECT_EQ(run.status, std::optional(VRExportShareStatusDone));
    EXPECT_EQ(run.request.items, (std::vector<std::string>{home.path("out/a.jpg")}));
    EXPECT_TRUE(testing_support::namesIn(home.path("tmp/sharing")).empty());
    EXPECT_EQ(testing_support::namesIn(home.path("out")), (std::vector<std::string>{"a.jpg"}));
}

TEST(ExportManager, ACancelOrADismissalReportsCancelledAndRemovesTheFolder) {
    testing_support::TestHome home;
    ExportManager manager;
    manager.setSharingRoot(home.path("tmp/sharing"));
    writeFile(home.path("out/x.jpg"));
    const auto assets = urlAssets({home.path("out/x.jpg")});
    // The sheet is still up (its folder holds the link) when it is cancelled.
    std::size_t filesWhileShown = 0;
    auto cancelled = share(manager, assets, "b", 1,
                           [&](const ShareSheetRequest& request, ShareSheetCompletion done) {
                               filesWhileShown = fs::exists(request.items.at(0));
                               done(nullptr, false, nullptr);
                           });
    EXPECT_EQ(filesWhileShown, 1u);
    EXPECT_EQ(cancelled.status, std::optional(VRExportShareStatusCancelled));
    EXPECT_TRUE(testing_support::namesIn(home.path("tmp/sharing")).empty());

    auto dismissed =
        share(manager, assets, "b", 1, [&](const ShareSheetRequest&, ShareSheetCompletion) {
            platform::DispatchQueue::main().async(
                [&] { manager.presentationControllerDidDismiss(); });
        });
    EXPECT_EQ(dismissed.status, std::optional(VRExportShareStatusCancelled));
    EXPECT_TRUE(testing_support::namesIn(home.path("tmp/sharing")).empty());
    EXPECT_FALSE(manager.hasSession());
}

TEST(ExportManager, AcrossFileSystemsItemsAreCopied) {
    testing_support::TestHome home;
    struct stat shm {
    }, ours{};
    if (stat("/dev/shm", &shm) != 0 || stat(home.root().c_str(), &ours) != 0 ||
        shm.st_dev == ours.st_dev || access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "no second file system to copy to";
    std::string other = "/dev/shm/unwarp-share-XXXXXX";
    ASSERT_TRUE(mkdtemp(other.data()));
    ExportManager manager;
    manager.setSharingRoot(other);
    writeFile(home.path("out/x.jpg"), "payload");
    std::string copied;
    ino_t copiedInode = 0;
    auto run = share(manager, urlAssets({home.path("out/x.jpg")}), "c", 1,
                     [&](const ShareSheetRequest& request, ShareSheetCompletion done) {
                         copied = resultstore_test::contentsOf(request.items.at(0));
                         copiedInode = inodeOf(request.items.at(0));
                         done(nullptr, true, nullptr);
                     });
    EXPECT_EQ(run.status, std::optional(VRExportShareStatusDone));
    EXPECT_EQ(copied, "payload");
    EXPECT_NE(copiedInode, inodeOf(home.path("out/x.jpg")));
    EXPECT_TRUE(testing_support::namesIn(other).empty());
    fs::remove_all(other);
}

TEST(ExportManager, LowDiskAlertOffersTryAgain) {
    testing_support::TestHome home;
    ExportManager manager;
    // A plain file where the sharing folder should be: no folder can be made inside it.
    writeFile(home.path("blocked"));
    manager.setSharingRoot(home.path("blocked/sharing"));
    writeFile(home.path("out/x.jpg"));
    const auto assets = urlAssets({home.path("out/x.jpg")});
    for (std::size_t button : {0u, 1u}) {
        std::vector<VRAlert> alerts;
        manager.setAlertPresenter(
            [&](const VRAlert& alert, std::function<void(std::size_t)> answer) {
                alerts.push_back(alert);
                // "Try again" after space was freed (the folder can be made now).
                if (button == 1) manager.setSharingRoot(home.path("tmp/sharing"));
                answer(button);
            });
        auto run =
            share(manager, assets, "d", 1, [](const ShareSheetRequest&, ShareSheetCompletion done) {
                done(nullptr, true, nullptr);
            });
        ASSERT_EQ(alerts.size(), 1u);
        EXPECT_EQ(alerts[0].title, "Export Failed");
        EXPECT_EQ(alerts[0].buttons, (std::vector<std::string>{"Cancel", "Try again"}));
        EXPECT_EQ(run.status, std::optional(button == 1 ? VRExportShareStatusDone
                                                        : VRExportShareStatusCancelled));
        EXPECT_EQ(run.began, button == 1);
    }
}

TEST(ExportManager, NothingToShareIsAnEmptySelection) {
    testing_support::TestHome home;
    ExportManager manager;
    manager.setSharingRoot(home.path("tmp/sharing"));
    bool presented = false;
    auto run = share(manager, {}, std::nullopt, 0,
                     [&](const ShareSheetRequest&, ShareSheetCompletion done) {
                         presented = true;
                         done(nullptr, true, nullptr);
                     });
    EXPECT_EQ(run.status, std::optional(VRExportShareStatusEmptySelection));
    EXPECT_FALSE(presented);
    EXPECT_EQ(VRExportShareStatusMessage(VRExportShareStatusNoLibraryAccess, "Unwarp"),
              "An error occurred while sharing: No access to Photos (Settings / Unwarp / Photos).");
}

TEST(ExportManager, ANewShareReplacesTheOldOneWithoutCallingIt) {
    testing_support::TestHome home;
    ExportManager manager;
    manager.setSharingRoot(home.path("tmp/sharing"));
    writeFile(home.path("out/x.jpg"));
    const auto assets = urlAssets({home.path("out/x.jpg")});
    ShareSheetCompletion firstSheet;
    manager.setSheetPresenter(
        [&](const ShareSheetRequest&, ShareSheetCompletion done) { firstSheet = done; });
    int oldCalls = 0;
    manager.shareWithAssets(assets, "e", nullptr, [&](VRExportShareStatus) { ++oldCalls; }, {1});
    ASSERT_TRUE(platform::MainRunLoop::runUntil([&] { return bool(firstSheet); },
                                                std::chrono::seconds(30)));
    auto second = share(
        manager, assets, "f", 1,
        [](const ShareSheetRequest&, ShareSheetCompletion done) { done(nullptr, true, nullptr); });
    firstSheet(nullptr, true, nullptr);  // the old sheet answers late
    platform::MainRunLoop::drain();
    EXPECT_EQ(second.status, std::optional(VRExportShareStatusDone));
    EXPECT_EQ(oldCalls, 0);
    EXPECT_TRUE(platform::MainRunLoop::runUntil(
        [&] { return testing_support::namesIn(home.path("tmp/sharing")).empty(); },
        std::chrono::seconds(30)));
}

}  // namespace
