#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "../platform/PhotoLibraryTestSupport.h"
#include "SavingFixture.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "storage/VRSettings.h"
#include "support/Signal.h"
#include "support/TestHome.h"

namespace {

using testing_support::namesIn;
using testing_support::Signal;
using testing_support::TestHome;

using VRAssetManager2Saving = saving_test::ManagerWithLibrary;

TEST_F(VRAssetManager2Saving, NextAlbumNameCountsFromTheLastDigitAndSkipsTakenTitles) {
    struct Row {
        std::vector<std::string> existing;
        std::string name;
        std::string expected;
    } rows[] = {
        // The repeated digit group keeps only its last digit: 19 counts on from 9.
        {{}, "Album 19", "Album 10"},
        {{"Album 10", "Album 11"}, "Album 19", "Album 12"},
        {{}, "Album", "Album 2"},
        {{"Album 2", "Album 3"}, "Album", "Album 4"},
        {{}, "Trip 0", "Trip 2"},  // 0 counts as 1
        {{}, "Trip 5", "Trip 6"},
        {{}, "My Trip 2023", "My Trip 4"},
        {{}, "Album19", "Album19 2"},  // no blank before the number: no number
        {{"Uwrp photos 2"}, "Uwrp photos", "Uwrp photos 3"},
        {{"Album 3"}, "Album 2", "Album 4"},
        // Longer than any folder name: taken whole, and no crash on a huge name.
        {{}, std::string(100000, 'x') + " 5", std::string(100000, 'x') + " 5 2"},
    };
    openLibrary();
    for (const auto& row : rows) {
        std::filesystem::remove_all(home.path("Pictures"));
        for (const auto& title : row.existing)
            std::filesystem::create_directories(home.path("Pictures/" + title));
        ASSERT_FALSE(library->rescan());
        EXPECT_EQ(manager.requestNextAlbumNameFor(row.name), row.expected)
            << row.name.substr(0, 40);
    }
}

TEST_F(VRAssetManager2Saving, OnlyTheProgramsAlbumsFollowTheirSettings) {
    struct Row {
        bool results;
        bool originals;
        std::vector<std::pair<std::string, bool>> answers;
    } rows[] = {
        {true,
         false,
         {{"Uwrp photos", true},
          {"Uwrp videos", true},
          {"Uwrp originals", false},
          {"Trip", false},
          {"uwrp photos", false},
          {"Uwrp photos 2", false}}},
        {false,
         true,
         {{"Uwrp photos", false},
          {"Uwrp videos", false},
          {"Uwrp originals", true},
          {"Trip", false},
          {"", false}}},
    };
    for (const auto& row : rows) {
        VRSettings::setAlbumsForResultsEnabled(row.results);
        VRSettings::setAlbumForOriginalsEnabled(row.originals);
        for (const auto& [name, enabled] : row.answers)
            EXPECT_EQ(manager._isAlbumWithNameEnabled(name), enabled)
                << name << " results " << row.results << " originals " << row.originals;
    }
}

TEST_F(VRAssetManager2Saving, SyncKeepsUnsavedItemsAndEmptiesTheStoreForNone) {
    const std::string store = VRAssetManager2::unsavedItemsDirectory();
    for (const char* name : {"a.jpg", "b.mov", "c.png", "d.jpg"})
        testing_support::touch(store + "/" + name);
    std::filesystem::create_directories(store + "/folder");
    testing_support::touch(store + "/folder/inside.jpg");
    auto urlAsset = [](const std::string& path, std::uint64_t flag) {
        return VRAssetRef(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path), flag));
    };
    manager.syncUnsavedAssets({
        urlAsset(store + "/a.jpg", 2),
        urlAsset(store + "/b.mov", 0),              // not marked unsaved
        urlAsset(home.path("elsewhere/c.png"), 2),  // kept by its name
        urlAsset(home.path("elsewhere/d.jpg"), 1),
        nullptr,
    });
    EXPECT_EQ(namesIn(store), (std::vector<std::string>{"a.jpg", "c.png", "folder"}));

    manager.syncUnsavedAssets({});
    EXPECT_EQ(namesIn(store), (std::vector<std::string>{"folder"}));
    EXPECT_EQ(namesIn(store + "/folder"), (std::vector<std::string>{"inside.jpg"}));
}

TEST_F(VRAssetManager2Saving, SavesFailWhenTheLibraryCannotTakeThem) {
    // A root that is a file can't be written, whoever runs the test.
    testing_support::touch(home.path("Pictures"));
    testing_support::touch(home.path("result.jpg"));
    openLibrary();
    struct Row {
        const char* what;
        std::optional<VRAssetResource> resource;
    } rows[] = {
        {"no resource", std::nullopt},
        {"a resource without a file", VRAssetResource::resourceWithURL("", VRFormatMediaTypePhoto)},
        {"a library that can't be written",
         VRAssetResource::resourceWithURL(home.path("result.jpg"), VRFormatMediaTypePhoto)},
    };
    for (const auto& row : rows) {
        Signal done;
        bool saved = true;
        std::string identifier = "unset";
        manager.saveToPhotoLibrary(row.resource, nullptr,
                                   [&](bool success, const std::string& localIdentifier) {
                                       saved = success;
                                       identifier = localIdentifier;
                                       done.notify();
                                   });
        ASSERT_TRUE(done.waitFor()) << row.what;
        EXPECT_FALSE(saved) << row.what;
        EXPECT_EQ(identifier, "") << row.what;
    }
    Signal albumDone;
    bool albumSaved = true;
    platform::ErrorRef albumError;
    manager.saveToAlbum(
        "Trip", {VRAssetResource::resourceWithURL(home.path("result.jpg"), VRFormatMediaTypePhoto)},
        [&](bool success, std::vector<std::string> identifiers, const platform::ErrorRef& error) {
            albumSaved = success || !identifiers.empty();
            albumError = error;
            albumDone.notify();
        });
    ASSERT_TRUE(albumDone.waitFor());
    EXPECT_FALSE(albumSaved);
    // The refusal reaches the caller with the library's words.
    ASSERT_TRUE(albumError);
    EXPECT_EQ(albumError->domain(), platform::PHPhotosErrorDomain);
    EXPECT_TRUE(std::filesystem::is_regular_file(home.path("Pictures")));
}

TEST_F(VRAssetManager2Saving, CameraListenersHearBeginThenEndAndRemovedOnesNothing) {
    testing_support::touch(home.path("Pictures"));  // saving fails: a root that is a file
    testing_support::touch(home.path("assets/camera.jpg"));
    openLibrary();
    std::mutex lock;
    std::vector<std::string> heard;
    auto hear = [&](std::string what) {
        return [&, what] {
            std::lock_guard guard(lock);
            heard.push_back(what + (manager.cameraAssetSaving() ? " saving" : " idle"));
        };
    };
    manager.addListenerWithKey("first", hear("begin first"), hear("end first"));
    manager.addListenerWithKey("gone", hear("begin gone"), hear("end gone"));
    manager.removeListenerWithKey("gone");
    // The completion listeners run after the error block: wait for them through a listener.
    Signal ended;
    manager.addListenerWithKey("waiter", nullptr, [&] { ended.notify(); });
    platform::ErrorRef error;
    manager.saveImageFromCamera(home.path("assets/camera.jpg"), [&](const platform::ErrorRef& e) {
        error = e;
        std::lock_guard guard(lock);
        heard.push_back("error");
    });
    ASSERT_TRUE(ended.waitFor());
    manager.removeListenerWithKey("first");
    manager.removeListenerWithKey("waiter");
    ASSERT_TRUE(error);
    EXPECT_EQ(heard, (std::vector<std::string>{"begin first saving", "error", "end first idle"}));
    EXPECT_FALSE(manager.cameraAssetSaving());
    EXPECT_TRUE(manager.cameraAssets().empty());
}

TEST_F(VRAssetManager2Saving, PermissionRequestsMakeTheRootOrAnswerNo) {
    struct Row {
        bool rootIsFile;
        bool toSave;
        bool expected;
    } rows[] = {
        {false, false, true}, {false, true, true}, {true, false, false}, {true, true, false}};
    int number = 0;
    for (const auto& row : rows) {
        const std::string place = home.path("row" + std::to_string(++number));
        if (row.rootIsFile) testing_support::touch(place + "/Pictures");
        manager.setPhotoLibrary(platform::PhotoLibrary::open(
            {place + "/Pictures", place + "/library.sqlite", place + "/thumbnails"}));
        std::optional<bool> answer;
        auto completion = [&](bool authorized) {
            EXPECT_TRUE(platform::MainRunLoop::isMainThread());
            answer = authorized;
        };
        if (row.toSave)
            manager.requestPhotoAccessToSavePermissionWithCompletion(completion);
        else
            manager.requestPhotoAccessPermissionWithCompletion(completion);
        ASSERT_TRUE(platform::MainRunLoop::runUntil([&] { return answer.has_value(); },
                                                    testing_support::kPatience));
        EXPECT_EQ(*answer, row.expected) << row.rootIsFile << row.toSave;
        EXPECT_EQ(std::filesystem::is_directory(place + "/Pictures"), !row.rootIsFile);
    }
}

}  // namespace
