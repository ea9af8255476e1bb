// Rescans that race another writer: whatever lands between the walk of the root and the
// catalogue's write lock is neither dropped nor invented.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "platform/PhotoLibrary.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "platform/linux/PhotoLibraryLinux.h"
#include "support/TestHome.h"

using namespace platform;
using namespace photolibrary_test;
using testing_support::TestHome;
namespace fs = std::filesystem;

namespace {

photolibrary::FolderPhotoLibrary& folderLibrary(PhotoLibrary& library) {
    return dynamic_cast<photolibrary::FolderPhotoLibrary&>(library);
}

std::vector<std::string> albumTitles(PhotoLibrary& library) {
    std::vector<std::string> titles;
    auto albums = library.fetchAlbums();
    for (std::size_t i = 0; i < albums.count(); ++i)
        titles.push_back(albums.objectAtIndex(i)->localizedTitle);
    std::sort(titles.begin(), titles.end());
    return titles;
}

}  // namespace

TEST(PhotoLibraryRace, ChangesBetweenWalkAndLockAreKeptAsTheyAre) {
    struct Case {
        const char* name;
        // Before the rescan, in the folder only.
        std::function<void(TestHome&)> before;
        // Between the walk and the lock; `other` is a second library on the same home.
        std::function<void(TestHome&, PhotoLibrary& other)> meanwhile;
        std::vector<std::string> albums;
        std::size_t assets;
    };
    const std::vector<Case> cases = {
        {"album made by another library",
         [](TestHome&) {},
         [](TestHome&, PhotoLibrary& other) {
             ASSERT_FALSE(other.performChangesAndWait({"Uwrp photos", {}, {}}).error);
         },
         {"DCIM", "Uwrp photos"},
         1},
        {"photo saved into a new album by another library",
         [](TestHome& home) { makeJpeg(home.path("src/shot.jpg"), 16, 16); },
         [](TestHome& home, PhotoLibrary& other) {
             auto result = other.performChangesAndWait(
                 {"Results", {{PHAssetResourceTypePhoto, home.path("src/shot.jpg"), ""}}, {}});
             ASSERT_FALSE(result.error) << result.error->description();
         },
         {"DCIM", "Results"},
         2},
        {"folder removed after the walk saw it",
         [](TestHome& home) { fs::create_directories(home.path("Pictures/Brief")); },
         [](TestHome& home, PhotoLibrary&) { fs::remove(home.path("Pictures/Brief")); },
         {"DCIM"},
         1},
        {"new photo removed after the walk saw it",
         [](TestHome& home) { makeJpeg(home.path("Pictures/DCIM/brief.jpg"), 16, 16); },
         [](TestHome& home, PhotoLibrary&) { fs::remove(home.path("Pictures/DCIM/brief.jpg")); },
         {"DCIM"},
         1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHome home;
        makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 32);
        auto library = openLibrary(home);
        auto other = openLibrary(home);
        ASSERT_TRUE(library && other);
        c.before(home);
        int calls = 0;
        folderLibrary(*library).setAfterWalkForTesting([&] {
            ++calls;
            c.meanwhile(home, *other);
        });
        ASSERT_FALSE(library->rescan());
        folderLibrary(*library).setAfterWalkForTesting(nullptr);
        ASSERT_EQ(calls, 1);
        EXPECT_EQ(albumTitles(*library), c.albums);
        EXPECT_EQ(library->fetchAssetsWithOptions({}).count(), c.assets);
        // The other library and a later rescan agree.
        ASSERT_FALSE(other->rescan());
        EXPECT_EQ(albumTitles(*other), c.albums);
        ASSERT_FALSE(library->rescan());
        EXPECT_EQ(albumTitles(*library), c.albums);
        EXPECT_EQ(library->fetchAssetsWithOptions({}).count(), c.assets);
    }
}

// The same with the album made by another process: the rescan pauses after its walk until the
// other process has committed the album.
TEST(PhotoLibraryRace, AlbumOfAnotherProcessSurvivesARescan) {
    TestHome home;
    makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 32);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    int go[2], done[2];
    ASSERT_EQ(pipe(go), 0);
    ASSERT_EQ(pipe(done), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        close(go[1]);
        close(done[0]);
        auto other = PhotoLibrary::open(locationsIn(home));
        char byte;
        if (!other || read(go[0], &byte, 1) != 1) _exit(3);
        if (other->performChangesAndWait({"Uwrp photos", {}, {}}).error) _exit(4);
        _exit(write(done[1], "d", 1) == 1 ? 0 : 5);
    }
    close(go[0]);
    close(done[1]);
    folderLibrary(*library).setAfterWalkForTesting([&] {
        char byte;
        ASSERT_EQ(write(go[1], "g", 1), 1);
        ASSERT_EQ(read(done[0], &byte, 1), 1);
    });
    EXPECT_FALSE(library->rescan());
    close(go[1]);
    close(done[0]);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    EXPECT_EQ(albumTitles(*library), (std::vector<std::string>{"DCIM", "Uwrp photos"}));
}

// A file manager may take the name a save found free before the save places its file there:
// the save moves on to the next name, and the other file stays as it was.
TEST(PhotoLibraryRace, NameTakenBeforeThePlaceMovesToTheNextName) {
    struct Case {
        const char* name;
        bool addExisting;  // add the library's photo to the album, else save a new photo there
    };
    for (const Case& c : {Case{"new photo saved into an album", false},
                          Case{"library photo added to an album", true}}) {
        SCOPED_TRACE(c.name);
        TestHome home;
        makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 32);
        makeJpeg(home.path("src/orig.jpg"), 16, 16);
        fs::create_directories(home.path("Pictures/Saved"));
        auto library = openLibrary(home);
        ASSERT_TRUE(library);
        auto assets = library->fetchAssetsWithOptions({});
        ASSERT_EQ(assets.count(), 1u);
        std::vector<std::string> targets;
        folderLibrary(*library).setBeforePlaceForTesting([&](const std::string& target) {
            if (targets.empty()) {
                std::FILE* f = std::fopen(target.c_str(), "wb");
                ASSERT_TRUE(f);
                std::fputs("theirs", f);
                std::fclose(f);
            }
            targets.push_back(target);
        });
        PHChangeRequest request{"Saved", {}, {}};
        if (c.addExisting)
            request.addAssetLocalIdentifiers = {assets.objectAtIndex(0)->localIdentifier};
        else
            request.resources = {{PHAssetResourceTypePhoto, home.path("src/orig.jpg"), ""}};
        auto result = library->performChangesAndWait(request);
        folderLibrary(*library).setBeforePlaceForTesting(nullptr);
        ASSERT_FALSE(result.error) << result.error->description();
        EXPECT_EQ(targets, (std::vector<std::string>{home.path("Pictures/Saved/orig.jpg"),
                                                     home.path("Pictures/Saved/orig 2.jpg")}));
        EXPECT_EQ(fs::file_size(home.path("Pictures/Saved/orig.jpg")), 6u);
        EXPECT_GT(fs::file_size(home.path("Pictures/Saved/orig 2.jpg")), 100u);
        // The saved photo is the album's one member; the other file is left to a rescan.
        auto album = library->albumWithTitle("Saved");
        ASSERT_TRUE(album);
        EXPECT_EQ(library->fetchAssetsInAssetCollection(album->localIdentifier, {}).count(), 1u);
    }
}
