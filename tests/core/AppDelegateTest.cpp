#include "core/AppDelegate.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/VRLaunchManager.h"
#include "core/VRReleaseNotes.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperState.h"
#include "support/TestHome.h"

using platform::FileManager;
using testing_support::namesIn;
using testing_support::touch;

namespace {

enum class Library { missing, denied, granted };

void makeLibrary(const testing_support::TestHome& home, Library library) {
    // The library is the pictures folder: missing is undecided, a file in its place is refused.
    if (library == Library::granted) std::filesystem::create_directories(home.path("Pictures"));
    if (library == Library::denied) touch(home.path("Pictures"));
}

}  // namespace

// The first screen by the stored launch state, the release notes, the library's access and the
// home-screen choice: access is asked for only once the walk reached step 2, release notes show
// after an upgrade from a version that stored none but not on a fresh install.
TEST(AppDelegate, LaunchNeedsPickTheFirstScreen) {
    struct Case {
        const char* name;
        bool launchComplete;
        std::int64_t launchStep;
        std::optional<std::string> notesVersion;
        Library library;
        bool choice;
        bool showsHome;
        std::int64_t step;
        std::string notesStored;
    };
    const std::string current = VRReleaseNotes::lastVersion();
    const std::vector<Case> cases = {
        {"fresh install", false, 0, std::nullopt, Library::missing, true, false, 0, current},
        {"all done", true, 3, current, Library::granted, false, true, 0, current},
        {"access refused later", true, 3, current, Library::denied, false, false, 10, current},
        {"access undecided later", true, 2, current, Library::missing, true, false, 9, current},
        {"access refused before step 2", false, 1, current, Library::denied, false, false, 1,
         current},
        {"upgrade without notes version", true, 3, std::nullopt, Library::granted, false, false, 4,
         "1.0.0"},
        {"older notes", true, 3, "0.0.1", Library::granted, false, false, 4, "0.0.1"},
        {"choice after the walk", true, 4, current, Library::granted, true, false, 3, current},
        {"choice with notes due", true, 1, "0.0.1", Library::granted, true, false, 4, "0.0.1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testing_support::TestHome home;
        VRLaunchManager::defaultManager()._reset();
        VXHelper::setLaunchComplete(c.launchComplete);
        VXHelper::setLaunchStep(c.launchStep);
        if (c.notesVersion) VXHelper::setReleaseNotesVersion(*c.notesVersion);
        VRSettings::setHomeScreenChoiceRequired(c.choice);
        makeLibrary(home, c.library);

        const VRLaunchNeeds needs = AppDelegate::shared().didFinishLaunchingWithOptions({});
        EXPECT_EQ(needs.showsHomeScreen, c.showsHome);
        EXPECT_EQ(needs.step, c.step);
        EXPECT_FALSE(needs.staticMode);
        EXPECT_EQ(VXHelper::releaseNotesVersion(), c.notesStored);
    }
}

// A new version resets the rate counters; the same version again leaves them.
TEST(AppDelegate, NewVersionResetsRateCounters) {
    testing_support::TestHome home;
    VXHelper::setRateComplete(true);
    VXHelper::setRateEndAttempt(2);
    VXHelper::setRateInfo({{"ratekey0", platform::PlistValue(std::int64_t{5})}});
    AppDelegate::shared().didFinishLaunchingWithOptions({});
    EXPECT_EQ(VXHelper::storedAppVersion(), platform::Environment::appVersion());
    EXPECT_FALSE(VXHelper::isRateComplete());
    EXPECT_EQ(VXHelper::rateEndAttempt(), 0);
    EXPECT_TRUE(VXHelper::rateInfo().empty());
    VXHelper::setRateComplete(true);
    AppDelegate::shared().didFinishLaunchingWithOptions({});
    EXPECT_TRUE(VXHelper::isRateComplete());
}

// A start that opens a file keeps the temporary images (the copy lies there) and still empties
// the temporary videos; a plain start empties both.
TEST(AppDelegate, StartWithFileKeepsTemporaryImages) {
    for (const bool opening : {true, false}) {
        SCOPED_TRACE(opening ? "opening a file" : "plain start");
        testing_support::TestHome home;
        const std::string images = VRFileStorage::temporaryImageDirectory();
        const std::string videos = VRFileStorage::temporaryVideoDirectory();
        touch(images + "/opened.jpg");
        touch(videos + "/IMG_1-vid.mov");
        AppDelegate::shared().didFinishLaunchingWithOptions({opening});
        EXPECT_EQ(namesIn(images),
                  opening ? std::vector<std::string>{"opened.jpg"} : std::vector<std::string>{});
        EXPECT_TRUE(namesIn(videos).empty());
    }
}

// An opened file is copied into this process's temporary images and handed on; when the copy
// fails (a second file of the same name, or a file that can't be read) the source itself is.
TEST(AppDelegate, OpenedFileIsCopiedOrFallsBackToSource) {
    testing_support::TestHome home;
    VRLaunchManager::defaultManager()._reset();
    touch(home.path("a/IMG_1.jpg"));
    touch(home.path("b/IMG_1.jpg"));
    const std::string copy = AppDelegate::shared().openURL(home.path("a/IMG_1.jpg"));
    EXPECT_EQ(FileManager::stringByDeletingLastPathComponent(
                  FileManager::stringByDeletingLastPathComponent(copy)),
              VRFileStorage::temporaryImageDirectory());
    EXPECT_EQ(FileManager::lastPathComponent(copy), "IMG_1.jpg");
    EXPECT_TRUE(FileManager::fileExistsAtPath(copy));
    EXPECT_EQ(VRLaunchManager::defaultManager().externalURL(), copy);
    EXPECT_EQ(AppDelegate::shared().openURL(home.path("b/IMG_1.jpg")), home.path("b/IMG_1.jpg"));
    EXPECT_EQ(AppDelegate::shared().openURL(home.path("c/gone.jpg")), home.path("c/gone.jpg"));
    EXPECT_TRUE(FileManager::fileExistsAtPath(copy));
    VRFileStorage::removeOwnTemporaries();
    VRLaunchManager::defaultManager()._reset();
}

// Access taken away while in the background asks for it again in a single step, unless the
// first launch has not yet reached the step that asks.
TEST(AppDelegate, ForegroundAsksAgainForAccessTakenAway) {
    struct Case {
        bool launchComplete;
        std::int64_t launchStep;
        Library library;
        std::optional<std::int64_t> step;
    };
    const std::vector<Case> cases = {
        {true, 3, Library::denied, 10},
        {true, 3, Library::granted, std::nullopt},
        {false, 1, Library::denied, std::nullopt},
        {false, 2, Library::missing, 9},
    };
    for (const auto& c : cases) {
        testing_support::TestHome home;
        VXHelper::setLaunchComplete(c.launchComplete);
        VXHelper::setLaunchStep(c.launchStep);
        makeLibrary(home, c.library);
        const auto needs = AppDelegate::shared().applicationWillEnterForeground();
        ASSERT_EQ(needs.has_value(), c.step.has_value()) << c.launchStep;
        if (needs) {
            EXPECT_EQ(needs->step, *c.step);
            EXPECT_TRUE(needs->staticMode);
        }
    }
}
