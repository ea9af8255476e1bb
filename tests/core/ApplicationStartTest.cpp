#include "core/ApplicationStart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/UserDefaults.h"
#include "storage/VRFileStorage.h"
#include "support/TestHome.h"

using platform::FileManager;

namespace {

using testing_support::namesIn;
using testing_support::touch;

// The clean-ups of a start: temporary images (not while a file is being opened), temporary
// videos, old "-vid" files once, import and camera assets, and ended processes' temporaries;
// never the temporaries of a process that runs.
TEST(ApplicationStart, CleanUpsLeaveOnlyWhatIsKeptOrInUse) {
    testing_support::TestHome home;
    const std::string documents = home.path("documents");
    touch(documents + "/_vrtempimagedir/opened.jpg");
    touch(documents + "/_vrtempvideodir/IMG_1.mov");
    touch(documents + "/_vrtempvideodir/_vrowner-21-gone/IMG_2.mov");
    const std::string running = VRFileStorage::ownTemporaryFolder(documents + "/_vrtempvideodir");
    touch(running + "/IMG_3.mov");
    touch(documents + "/_vrowner-21-gone/IMG_4.jpg");
    for (const char* name : {"IMG_5-vid.mov", "a-vid.mp4", "-vid.mov", "IMG_6.mov", "vid.mov"})
        touch(documents + "/" + name);
    touch(documents + "/user/assets/camera.mov");
    touch(documents + "/user/assets/kept.jpg");
    touch(documents + "/user/assets/import/item/IMG_7.heic");

    ApplicationStart::removeTemporaryFiles(true);
    EXPECT_EQ(namesIn(documents + "/_vrtempimagedir"), std::vector<std::string>{"opened.jpg"});
    EXPECT_EQ(namesIn(documents + "/_vrtempvideodir"),
              std::vector<std::string>{FileManager::lastPathComponent(running)});
    EXPECT_EQ(namesIn(running), std::vector<std::string>{"IMG_3.mov"});
    EXPECT_EQ(namesIn(documents),
              (std::vector<std::string>{"-vid.mov", "IMG_6.mov", "_vrtempimagedir",
                                        "_vrtempvideodir", "user", "vid.mov"}));
    EXPECT_EQ(namesIn(documents + "/user/assets"), std::vector<std::string>{"kept.jpg"});
    EXPECT_TRUE(
        platform::UserDefaults::standardUserDefaults().boolForKey("VRFixInstalledCachedVidFiles"));

    // The old "-vid" files are looked for once only; the temporary images go without a file
    // being opened.
    touch(documents + "/IMG_8-vid.mov");
    ApplicationStart::removeTemporaryFiles();
    EXPECT_TRUE(namesIn(documents + "/_vrtempimagedir").empty());
    EXPECT_TRUE(FileManager::fileExistsAtPath(documents + "/IMG_8-vid.mov"));
    EXPECT_EQ(namesIn(running), std::vector<std::string>{"IMG_3.mov"});
    VRFileStorage::removeOwnTemporaries();
}

// A fresh home stays as it is: a start lists and removes, and makes no folders there.
TEST(ApplicationStart, CleanUpsMakeNothingInAFreshHome) {
    testing_support::TestHome home;
    ApplicationStart::removeTemporaryFiles();
    EXPECT_FALSE(FileManager::fileExistsAtPath(home.path("documents")));
    EXPECT_FALSE(FileManager::fileExistsAtPath(home.path("tmp")));
}

}  // namespace
