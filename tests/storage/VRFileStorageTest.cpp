#include "storage/VRFileStorage.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VXHelperFiles.h"
#include "support/TestHome.h"

using platform::FileManager;

namespace {

std::vector<std::string> namesIn(const std::string& directory) {
    auto names = FileManager::contentsOfDirectoryAtPath(directory).value_or(
        std::vector<std::string>{"<unreadable>"});
    std::sort(names.begin(), names.end());
    return names;
}

void collectLine(const std::string& line, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
}

}  // namespace

TEST(VRFileStorage, ProjectURLsFollowTheDocumentsDirectory) {
    VRFileStorage::ProjectURLs first;
    {
        testing_support::TestHome home;
        first = VRFileStorage::projectURLs();
        EXPECT_EQ(first.userURL, home.path("documents/user"));
        EXPECT_EQ(first.assetsURL, home.path("documents/user/assets"));
        EXPECT_EQ(first.appfilesURL, home.path("documents/user/_vrfiles"));
        EXPECT_EQ(VRFileStorage::projectURLs(), first);
    }
    testing_support::TestHome other;
    EXPECT_EQ(VRFileStorage::projectURLs().userURL, other.path("documents/user"));
}

TEST(VRFileStorage, AppfileFoldersAndTheirClearing) {
    testing_support::TestHome home;
    const auto urls = VRFileStorage::projectURLs();
    VRFileStorage::ProjectURLs::AppfileCoordinator coordinator(
        "3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    EXPECT_EQ(coordinator.url, urls.appfilesURL + "/3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    bool isDirectory = false;
    ASSERT_TRUE(FileManager::fileExistsAtPath(coordinator.url, &isDirectory) && isDirectory);
    EXPECT_TRUE(FileManager::isExcludedFromBackup(coordinator.url));
    ASSERT_TRUE(VXHelper::saveData({1, 2, 3}, coordinator.url + "/120"));
    // Making it again keeps what the folder holds.
    VRFileStorage::ProjectURLs::AppfileCoordinator again("3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    EXPECT_EQ(namesIn(again.url), std::vector<std::string>{"120"});

    VRFileStorage::createAssetsFolder();
    VRFileStorage::clearApplicationFiles();
    EXPECT_FALSE(FileManager::fileExistsAtPath(urls.appfilesURL));
    EXPECT_EQ(namesIn(urls.userURL), std::vector<std::string>{"assets"});
    VRFileStorage::clearApplicationFiles();  // nothing left to clear is fine
}

TEST(VRFileStorage, RemoveByPrefixInTheAssetsFolder) {
    testing_support::TestHome home;
    VRFileStorage::createAssetsFolder();
    const std::string assets = VRFileStorage::projectURLs().assetsURL;
    for (const char* name : {"camera.jpg", "camera.mov", "camera", "cameraroll.png", "xcamera.jpg",
                             "Camera.jpg", "import"}) {
        ASSERT_TRUE(VXHelper::saveData({0}, assets + "/" + name));
    }
    ASSERT_TRUE(FileManager::createDirectoryAtPath(assets + "/camera-dir/inner", true));

    std::vector<std::string> lines;
    platform::setLogSink(collectLine, &lines);
    VRFileStorage::removeFilesWithPrefix("camera");
    platform::setLogSink(nullptr, nullptr);

    EXPECT_EQ(namesIn(assets), (std::vector<std::string>{"Camera.jpg", "import", "xcamera.jpg"}));
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines,
              (std::vector<std::string>{"~~ removed file camera", "~~ removed file camera-dir",
                                        "~~ removed file camera.jpg", "~~ removed file camera.mov",
                                        "~~ removed file cameraroll.png"}));

    // Without an assets folder there is nothing to do and nothing fails.
    ASSERT_TRUE(FileManager::removeItemAtPath(assets));
    VRFileStorage::removeFilesWithPrefix("camera");
    EXPECT_FALSE(FileManager::fileExistsAtPath(assets));
}
