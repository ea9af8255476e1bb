#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "ResultStoreSupport.h"
#include "assets/VRLocalAsset.h"
#include "results/ResultManager.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;
using resultstore_test::addAndWait;
using resultstore_test::writeFile;

TEST(ResultManager, ReadsOnlyFoldersNamedForTheirKind) {
    testing_support::TestHome home;
    const std::string root = home.path("results");
    struct Entry {
        std::string path;  // under results; a trailing "/" makes an empty folder
        bool counts;
    };
    const Entry entries[] = {
        {"B1/main/shot.jpg", true},    // a local result
        {"A2/main/phasset", true},     // a photo result
        {"Bempty/", true},             // an emptied local folder still counts
        {"C3/main/shot.jpg", false},   // neither kind
        {"xB4/main/shot.jpg", false},  // the kind is the first character only
        {"Bplain", false},             // a plain file
        {".B5/main/shot.jpg", false},  // hidden
    };
    std::size_t expected = 0;
    for (const auto& e : entries) {
        if (e.path.back() == '/')
            fs::create_directories(root + "/" + e.path);
        else
            writeFile(root + "/" + e.path, "L-1");
        expected += e.counts;
    }
    ResultManager store(root);
    EXPECT_EQ(store.numberOfAssets(), expected);
    std::set<std::string> identifiers;
    for (const auto& r : store.results()) identifiers.insert(r.identifier);
    EXPECT_EQ(identifiers, (std::set<std::string>{"A2", "B1", "Bempty"}));
    // Only the local result with a file is an asset here: there is no library item L-1.
    auto assets = store.assets();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0]->originalFilename(), "shot.jpg");
}

TEST(ResultManager, AssetAtAnswersNullOutsideTheList) {
    testing_support::TestHome home;
    ResultManager store(home.path("results"));
    writeFile(home.path("out/a.txt"));
    ASSERT_TRUE(addAndWait(store, home.path("out/a.txt")).success);
    const struct {
        std::int64_t index;
        bool found;
    } cases[] = {{-1, false}, {0, true}, {1, false}, {INT64_MAX, false}, {INT64_MIN, false}};
    for (const auto& c : cases) EXPECT_EQ(store.assetAt(c.index) != nullptr, c.found) << c.index;
}

TEST(ResultManager, LocalResultsMoveInAndKeepTheirOrderAcrossALoad) {
    testing_support::TestHome home;
    const std::string root = home.path("results");
    std::vector<std::string> names;
    {
        ResultManager store(root);
        // Added within one second: the order of adding is the order in the list.
        for (int i = 0; i < 5; ++i) {
            const std::string name = "r" + std::to_string(4 - i) + ".txt";
            writeFile(home.path("out/" + name), name);
            auto answer = addAndWait(store, home.path("out/" + name));
            EXPECT_TRUE(answer.success);
            EXPECT_EQ(answer.index, static_cast<std::size_t>(i));
            EXPECT_FALSE(fs::exists(home.path("out/" + name))) << "moved, not copied";
            names.push_back(name);
        }
        ASSERT_EQ(store.numberOfAssets(), 5u);
        for (std::size_t i = 0; i < names.size(); ++i)
            EXPECT_EQ(store.assetAt(static_cast<std::int64_t>(i))->originalFilename(), names[i]);
    }
    // A new process reads the same order from the folders' dates.
    ResultManager again(root);
    auto assets = again.assets();
    ASSERT_EQ(assets.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(assets[i]->originalFilename(), names[i]);
        auto* local = dynamic_cast<const VRLocalAsset*>(assets[i]->object().get());
        ASSERT_TRUE(local);
        EXPECT_EQ(local->identifier().front(), 'B');
    }
}

TEST(ResultManager, ResultsStoredWithinOneClockTickKeepTheirOrderAfterALoad) {
    testing_support::TestHome home;
    const std::string root = home.path("results");
    // Photo results are stored in well under a millisecond, so several share the coarse
    // clock's tick that birth times come from.
    std::vector<std::string> references;
    {
        ResultManager store(root);
        // Queued back to back, as a batch's results are.
        for (int i = 0; i < 30; ++i) {
            references.push_back("item-" + std::to_string(i));
            store.addPhotoAssetResultWith(references.back());
        }
        store.waitUntilStored();
    }
    ResultManager again(root);
    std::vector<std::string> read;
    for (const auto& record : again.results())
        read.push_back(
            resultstore_test::contentsOf(again.folderURLForResult(record) + "/main/phasset"));
    EXPECT_EQ(read, references);
}

TEST(ResultManager, AFailedMoveAnswersFalseAndTheRecordIsLeftOut) {
    testing_support::TestHome home;
    ResultManager store(home.path("results"));
    auto answer = addAndWait(store, home.path("out/missing.jpg"));
    EXPECT_TRUE(answer.answered);
    EXPECT_FALSE(answer.success);
    // The record stays for this run, but reads as nothing.
    EXPECT_EQ(store.numberOfAssets(), 1u);
    EXPECT_TRUE(store.assets().empty());
    EXPECT_FALSE(store.assetAt(0));
}

TEST(ResultManager, RemovalTakesRecordsFromTheTopAndTheirFolders) {
    testing_support::TestHome home;
    const std::string root = home.path("results");
    ResultManager store(root);
    for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt"}) {
        writeFile(home.path(std::string("out/") + name));
        ASSERT_TRUE(addAndWait(store, home.path(std::string("out/") + name)).success);
    }
    const auto before = store.results();
    // Out-of-range indexes are not removed; the others go from the highest down, so the
    // indexes name the records as they were before the call.
    EXPECT_EQ(store.removeAssetsAt({0, 2, 9}), (std::set<std::size_t>{0, 2}));
    store.waitUntilStored();
    ASSERT_EQ(store.numberOfAssets(), 2u);
    EXPECT_EQ(store.assetAt(0)->originalFilename(), "b.txt");
    EXPECT_EQ(store.assetAt(1)->originalFilename(), "d.txt");
    EXPECT_FALSE(fs::exists(store.folderURLForResult(before[0])));
    EXPECT_FALSE(fs::exists(store.folderURLForResult(before[2])));
    EXPECT_TRUE(fs::exists(store.folderURLForResult(before[1])));
    ResultManager again(root);
    EXPECT_EQ(again.numberOfAssets(), 2u);
}

TEST(ResultManager, ReloadSeesWhatAnotherStoreAddedAndRemoved) {
    testing_support::TestHome home;
    const std::string root = home.path("results");
    ResultManager first(root);
    ResultManager second(root);
    EXPECT_EQ(first.numberOfAssets(), 0u);
    writeFile(home.path("out/x.txt"));
    ASSERT_TRUE(addAndWait(second, home.path("out/x.txt")).success);
    // Loaded once, the first keeps its list until it reloads.
    EXPECT_EQ(first.numberOfAssets(), 0u);
    first.reload();
    ASSERT_EQ(first.numberOfAssets(), 1u);
    second.removeAssetsAt({0});
    second.waitUntilStored();
    first.reload();
    EXPECT_EQ(first.numberOfAssets(), 0u);
}

}  // namespace
