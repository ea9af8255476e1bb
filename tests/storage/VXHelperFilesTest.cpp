#include "storage/VXHelperFiles.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <fstream>
#include <iterator>
#include <set>

#include "platform/FileManager.h"
#include "storage/VRFileStorage.h"
#include "support/TestHome.h"

using platform::FileManager;
using platform::PlistData;

namespace {

bool marked(const std::string& path) {
    return FileManager::isExcludedFromBackup(path);
}

void unmark(const std::string& path) {
    removexattr(path.c_str(), "user.xdg.robots.backup");
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

const PlistData kBytes{'u', 'w', 'r', 'p'};

}  // namespace

TEST(VXHelperFiles, SaveIntoNewDirectoryCreatesAndMarksIt) {
    testing_support::TestHome home;
    auto path = VXHelper::saveData(kBytes, "photo.jpg", "_vrdataassetsdir01");
    ASSERT_TRUE(path);
    EXPECT_EQ(*path, home.path("documents/_vrdataassetsdir01/photo.jpg"));
    EXPECT_EQ(readFile(*path), "uwrp");
    EXPECT_TRUE(marked(home.path("documents/_vrdataassetsdir01")));
    EXPECT_TRUE(marked(*path));

    // A parent whose place is taken by a file cannot be made.
    ASSERT_TRUE(VXHelper::saveData(kBytes, home.path("documents/blocker")));
    EXPECT_FALSE(VXHelper::saveData(kBytes, "x.jpg", "blocker"));
    EXPECT_FALSE(VXHelper::saveData(kBytes, home.path("documents/blocker/x.jpg")));
}

TEST(VXHelperFiles, DirectoriesAreCreatedAndMarkedOnlyOnce) {
    testing_support::TestHome home;
    const std::string documents = VXHelper::documentDirectory();
    ASSERT_EQ(documents, home.path("documents"));

    // A directory made here is marked; once the mark is gone it is not put back, because the
    // directory now exists.
    ASSERT_TRUE(VXHelper::saveData(kBytes, documents + "/made/one"));
    EXPECT_TRUE(marked(documents + "/made"));
    unmark(documents + "/made");
    ASSERT_TRUE(VXHelper::saveData(kBytes, documents + "/made/two"));
    EXPECT_FALSE(marked(documents + "/made"));
    EXPECT_TRUE(marked(documents + "/made/two")) << "files are marked each time they are saved";

    // A directory that was there before is never marked.
    ASSERT_TRUE(FileManager::createDirectoryAtPath(documents + "/existing", false));
    EXPECT_TRUE(VXHelper::_createDirectoriesAtPath(documents + "/existing/file"));
    EXPECT_FALSE(marked(documents + "/existing"));

    // With intermediates, only the file's own parent is marked.
    EXPECT_TRUE(VXHelper::_createDirectoriesAtPath(documents + "/outer/inner/file"));
    EXPECT_TRUE(marked(documents + "/outer/inner"));
    EXPECT_FALSE(marked(documents + "/outer"));
    EXPECT_FALSE(FileManager::fileExistsAtPath(documents + "/outer/inner/file"));
}

TEST(VXHelperFiles, MoveCreatesTheTargetFolderAndNeverReplaces) {
    testing_support::TestHome home;
    const std::string documents = VXHelper::documentDirectory();
    ASSERT_TRUE(VXHelper::saveData(kBytes, documents + "/source"));
    ASSERT_TRUE(
        VXHelper::moveFileAtPath(documents + "/source", documents + "/_vrtempvideodir/moved"));
    EXPECT_FALSE(FileManager::fileExistsAtPath(documents + "/source"));
    EXPECT_EQ(readFile(documents + "/_vrtempvideodir/moved"), "uwrp");
    EXPECT_TRUE(marked(documents + "/_vrtempvideodir"));
    EXPECT_TRUE(marked(documents + "/_vrtempvideodir/moved"));

    ASSERT_TRUE(VXHelper::saveData(PlistData{'n', 'e', 'w'}, documents + "/other"));
    EXPECT_FALSE(
        VXHelper::moveFileAtPath(documents + "/other", documents + "/_vrtempvideodir/moved"));
    EXPECT_EQ(readFile(documents + "/_vrtempvideodir/moved"), "uwrp");
    EXPECT_EQ(readFile(documents + "/other"), "new");
    EXPECT_FALSE(VXHelper::moveFileAtPath(documents + "/absent", documents + "/elsewhere"));
}

TEST(VXHelperFiles, PathsWithAndWithoutNames) {
    testing_support::TestHome home;
    // Results lie in this process's own folder in the documents, so that another process on
    // the same home never writes the same file.
    const std::string documents = VRFileStorage::ownTemporaryFolder(home.path("documents"));
    ASSERT_EQ(FileManager::stringByDeletingLastPathComponent(documents), home.path("documents"));
    const struct {
        std::optional<std::string> filename;
        const char* extension;
        std::string expectedName;  // empty: a unique name is expected
        const char* expectedSuffix;
    } cases[] = {
        {"IMG_1234-uwrp", "jpg", "IMG_1234-uwrp.jpg", ""},
        {"IMG_1234-uwrp", "", "IMG_1234-uwrp", ""},
        {"archive.tar", "gz", "archive.tar.gz", ""},
        {std::nullopt, "mov", "", ".mov"},
        {"", "png", "", ".png"},
        {std::nullopt, "", "", ""},
    };
    for (const auto& c : cases) {
        const std::string path = VXHelper::pathWithFilename(c.filename, c.extension);
        ASSERT_EQ(FileManager::stringByDeletingLastPathComponent(path), documents);
        const std::string name = FileManager::lastPathComponent(path);
        if (!c.expectedName.empty()) {
            EXPECT_EQ(name, c.expectedName);
            continue;
        }
        EXPECT_EQ(name.rfind("file-", 0), 0u) << name;
        const std::string suffix = c.expectedSuffix;
        ASSERT_GT(name.size(), 5 + suffix.size() + 8) << name;
        EXPECT_EQ(name.substr(name.size() - suffix.size()), suffix) << name;
        EXPECT_EQ(name.find('.'), suffix.empty() ? std::string::npos : name.size() - suffix.size())
            << name;
    }
    EXPECT_EQ(
        FileManager::stringByDeletingLastPathComponent(VXHelper::uniquePathWithExtension("heic")),
        documents);
    EXPECT_EQ(FileManager::pathExtension(VXHelper::uniquePathWithExtension("heic")), "heic");

    std::set<std::string> names;
    for (int i = 0; i < 2000; ++i) names.insert(VXHelper::uniqueFilename());
    EXPECT_EQ(names.size(), 2000u);
}

TEST(VXHelperFiles, LocationsAndFreeSpace) {
    testing_support::TestHome home;
    EXPECT_EQ(VXHelper::temporaryDirectory(), home.path("tmp"));
    bool isDirectory = false;
    EXPECT_TRUE(FileManager::fileExistsAtPath(home.path("tmp"), &isDirectory) && isDirectory);
    EXPECT_TRUE(marked(home.path("tmp")));
    auto space = VXHelper::freeDiskSpace();
    ASSERT_TRUE(space);
    EXPECT_GT(*space, 0u);
}
