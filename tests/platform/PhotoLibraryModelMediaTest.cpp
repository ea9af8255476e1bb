// The catalogue against a plain model of the library under random changes made through the
// library and behind its back, with reopens, and two processes writing at once.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "platform/PhotoLibrary.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "support/TestHome.h"

using namespace platform;
using namespace photolibrary_test;
using testing_support::TestHome;
namespace fs = std::filesystem;

namespace {

// What the library should show: each asset's identifier, its files and the albums they lie in.
struct ModelAsset {
    std::set<std::string> files;  // every name of the asset: resource and further names
};

std::string albumOf(const std::string& root, const std::string& path) {
    std::string relative = path.substr(root.size() + 1);
    auto slash = relative.find('/');
    return slash == std::string::npos ? "" : relative.substr(0, slash);
}

class LibraryModel {
  public:
    explicit LibraryModel(const TestHome& home) : _root(home.path("Pictures")) {}

    std::map<std::string, ModelAsset> assets;  // by local identifier
    std::vector<std::string> pendingPaths;     // added outside, identifier not seen yet

    // Checks the library against the model and learns the identifiers of new outside files.
    void check(PhotoLibrary& library, const std::string& step) {
        auto all = library.fetchAssetsWithOptions({});
        std::map<std::string, const PHAsset*> byId;
        for (const auto& a : all.objects()) byId[a.localIdentifier] = &a;
        for (const auto& path : pendingPaths) {
            bool found = false;
            for (const auto& a : all.objects()) {
                if (a.resources.size() == 1 && a.resources[0].path == path &&
                    !assets.count(a.localIdentifier)) {
                    assets[a.localIdentifier].files = {path};
                    found = true;
                }
            }
            ASSERT_TRUE(found) << step << ": the new file " << path << " is not listed";
        }
        pendingPaths.clear();
        ASSERT_EQ(byId.size(), assets.size()) << step;
        std::map<std::string, std::set<std::string>> albumMembers;
        for (const auto& [id, model] : assets) {
            auto it = byId.find(id);
            ASSERT_NE(it, byId.end()) << step << ": " << id << " lost its identifier";
            ASSERT_EQ(it->second->resources.size(), 1u) << step;
            EXPECT_TRUE(model.files.count(it->second->resources[0].path))
                << step << ": " << it->second->resources[0].path << " is not a file of " << id;
            for (const auto& f : model.files) albumMembers[albumOf(_root, f)].insert(id);
        }
        auto albums = library.fetchAlbums();
        std::set<std::string> folders;
        for (const auto& entry : fs::directory_iterator(_root))
            if (entry.is_directory()) folders.insert(entry.path().filename().string());
        std::set<std::string> titles;
        for (const auto& album : albums.objects()) {
            titles.insert(album.localizedTitle);
            auto members = library.fetchAssetsInAssetCollection(album.localIdentifier, {});
            std::set<std::string> ids;
            for (const auto& a : members.objects()) ids.insert(a.localIdentifier);
            EXPECT_EQ(ids, albumMembers[album.localizedTitle])
                << step << ": album " << album.localizedTitle;
            EXPECT_EQ(album.estimatedAssetCount, ids.size()) << step;
        }
        EXPECT_EQ(titles, folders) << step;
    }

    // The asset a file belongs to.
    std::string owner(const std::string& path) const {
        for (const auto& [id, model] : assets)
            if (model.files.count(path)) return id;
        return {};
    }

  private:
    std::string _root;
};

std::vector<std::string> allFiles(const std::string& root) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.is_regular_file() && entry.path().filename().string()[0] != '.')
            files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

TEST(PhotoLibraryModel, RandomChangesAgreeWithTheModel) {
    TestHome home;
    makeJpeg(home.path("src/seed.jpg"), 24, 16);
    const auto seed = bytesOf(home.path("src/seed.jpg"));
    const std::string root = home.path("Pictures");
    fs::create_directories(root);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    LibraryModel model(home);
    std::mt19937 random(20261124);
    const std::vector<std::string> folders = {"", "Trip", "Uwrp photos", "Uwrp originals",
                                              "Family"};
    auto pick = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    auto folderPath = [&](const std::string& album) {
        return album.empty() ? root : root + "/" + album;
    };
    int counter = 0;

    for (int step = 0; step < 240; ++step) {
        auto files = allFiles(root);
        std::string what;
        switch (pick(files.empty() ? 2 : 8)) {
            case 0: {  // a file appears outside the program
                std::string album = folders[pick(folders.size())];
                fs::create_directories(folderPath(album));
                std::string path = folderPath(album) + "/ext" + std::to_string(counter++) + ".jpg";
                std::ofstream(path, std::ios::binary)
                    .write(seed.data(), std::streamsize(seed.size()));
                model.pendingPaths.push_back(path);
                what = "outside add " + path;
                break;
            }
            case 1: {  // the program saves a result
                std::string album = folders[pick(folders.size())];
                auto result = library->performChangesAndWait(
                    {album,
                     {{PHAssetResourceTypePhoto, home.path("src/seed.jpg"), "saved.jpg"}},
                     {}});
                ASSERT_FALSE(result.error) << result.error->description();
                auto fetched = library->fetchAssetsWithLocalIdentifiers(
                    {result.placeholderLocalIdentifier}, {});
                ASSERT_EQ(fetched.count(), 1u);
                model.assets[result.placeholderLocalIdentifier].files = {
                    fetched.firstObject()->resources[0].path};
                what = "save into " + album;
                break;
            }
            case 2:
            case 3: {  // a file is deleted outside
                std::string path = files[pick(files.size())];
                fs::remove(path);
                std::string id = model.owner(path);
                model.assets[id].files.erase(path);
                if (model.assets[id].files.empty()) model.assets.erase(id);
                what = "outside delete " + path;
                break;
            }
            case 4: {  // a file is renamed or moved to another album outside
                std::string from = files[pick(files.size())];
                std::string album = folders[pick(folders.size())];
                fs::create_directories(folderPath(album));
                std::string to = folderPath(album) + "/moved" + std::to_string(counter++) + ".jpg";
                fs::rename(from, to);
                std::string id = model.owner(from);
                model.assets[id].files.erase(from);
                model.assets[id].files.insert(to);
                what = "outside rename " + from + " -> " + to;
                break;
            }
            case 5: {  // a file is rewritten in place
                std::string path = files[pick(files.size())];
                auto bytes = seed;
                bytes.push_back(char(step));  // data after the end of the picture
                std::ofstream(path, std::ios::binary | std::ios::trunc)
                    .write(bytes.data(), std::streamsize(bytes.size()));
                what = "outside rewrite " + path;
                break;
            }
            case 6: {  // an asset is added to another album (a hard link)
                std::string path = files[pick(files.size())];
                std::string id = model.owner(path);
                std::string album = folders[1 + pick(folders.size() - 1)];
                auto result = library->performChangesAndWait({album, {}, {id}});
                ASSERT_FALSE(result.error) << result.error->description();
                for (const auto& f : allFiles(folderPath(album)))
                    if (albumOf(root, f) == album && inodeOf(f) == inodeOf(path))
                        model.assets[id].files.insert(f);
                what = "add " + id + " to " + album;
                break;
            }
            case 7: {  // the program starts again
                library.reset();
                library = openLibrary(home);
                ASSERT_TRUE(library);
                what = "reopen";
                break;
            }
        }
        ASSERT_FALSE(library->rescan());
        model.check(*library, "step " + std::to_string(step) + " (" + what + ")");
        if (HasFatalFailure() || HasNonfatalFailure()) return;
    }
    EXPECT_GT(model.assets.size(), 5u);
}

TEST(PhotoLibraryModel, TwoProcessesWritingAtOnceLoseNothing) {
    TestHome home;
    makeJpeg(home.path("src/shot.jpg"), 16, 16);
    makeJpeg(home.path("Pictures/Shared/existing.jpg"), 16, 16);
    constexpr int kSaves = 15;
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    std::vector<pid_t> children;
    for (int child = 0; child < 2; ++child) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(go[1]);
            char byte;
            if (read(go[0], &byte, 1) != 1) _exit(3);  // both start together
            auto library = PhotoLibrary::open(locationsIn(home));
            if (!library) _exit(4);
            for (int i = 0; i < kSaves; ++i) {
                auto result = library->performChangesAndWait(
                    {"Shared", {{PHAssetResourceTypePhoto, home.path("src/shot.jpg"), ""}}, {}});
                if (result.error) _exit(5);
                // The other process's saves and files appear through rescans meanwhile.
                if (i % 4 == 0 && library->rescan()) _exit(6);
                if (i % 5 == child) {
                    std::string outside =
                        home.path("Pictures/Shared/outside-" + std::to_string(child) + "-" +
                                  std::to_string(i) + ".jpg");
                    fs::copy_file(home.path("src/shot.jpg"), outside);
                }
            }
            _exit(library->rescan() ? 7 : 0);
        }
        children.push_back(pid);
    }
    close(go[0]);
    ASSERT_EQ(write(go[1], "gg", 2), 2);
    close(go[1]);
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    auto all = library->fetchAssetsWithOptions({});
    auto files = allFiles(home.path("Pictures"));
    const std::size_t outside = 2 * 3;  // i % 5 == child for i < 15: three each
    EXPECT_EQ(files.size(), 1 + 2 * kSaves + outside);
    EXPECT_EQ(all.count(), files.size());
    std::set<std::string> listed;
    for (const auto& a : all.objects()) listed.insert(a.resources[0].path);
    EXPECT_EQ(listed, std::set<std::string>(files.begin(), files.end()));
}
