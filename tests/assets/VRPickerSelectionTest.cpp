#include <gtest/gtest.h>

#include <set>

#include "assets/VRPickerSelection.h"
#include "assets/VRURLAsset.h"

namespace {

// The library as the tests see it: which identifiers it shows, and what it was asked.
struct FakeLibrary {
    std::set<std::string> visible;
    std::vector<std::vector<std::string>> asked;

    VRFetchAssetsWithLocalIdentifiers fetch() {
        return [this](const std::vector<std::string>& identifiers) {
            asked.push_back(identifiers);
            std::vector<platform::PHAsset> found;
            for (const auto& identifier : identifiers) {
                if (!visible.count(identifier)) continue;
                platform::PHAsset asset;
                asset.localIdentifier = identifier;
                found.push_back(asset);
            }
            return platform::PHFetchResult<platform::PHAsset>(std::move(found));
        };
    }
};

// Any asset will do as the library's wrapper here; it is named after the library asset.
VRAssetRef wrap(const platform::PHAsset& asset, std::uint64_t flag) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL("/lib/" + asset.localIdentifier),
                                    flag);
}

TEST(VRPickerSelection, OnlyItemsTheLibraryShowsAreAccessable) {
    FakeLibrary library{{"L1/L0/001", "L3/L0/001"}, {}};
    const std::vector<VRPickerResult> results = {
        {"/picked/1.jpg", "L1/L0/001"},  {"/picked/2.jpg", "L2/L0/001"},  // hidden from the program
        {"/picked/3.mov", std::nullopt}, {"/picked/4.jpg", "L3/L0/001"},
        {"/picked/5.jpg", std::nullopt},
    };
    auto items = VRImportItemsForPickerResults(results, library.fetch(), wrap);

    struct Row {
        std::string identifier;  // empty: a fresh UUID
        bool accessable;
        std::string photoAsset;  // empty: none
    };
    const Row rows[] = {{"L1/L0/001", true, "/lib/L1/L0/001"},
                        {"L2/L0/001", false, ""},
                        {"", false, ""},
                        {"L3/L0/001", true, "/lib/L3/L0/001"},
                        {"", false, ""}};
    ASSERT_EQ(items.size(), std::size(rows));
    for (std::size_t i = 0; i < items.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(items[i].itemProvider, results[i].itemProvider);
        EXPECT_EQ(items[i].accessable, rows[i].accessable);
        if (rows[i].identifier.empty())
            EXPECT_EQ(items[i].identifier.size(), 36u) << items[i].identifier;
        else
            EXPECT_EQ(items[i].identifier, rows[i].identifier);
        if (rows[i].photoAsset.empty()) {
            EXPECT_FALSE(items[i].photoAsset);
        } else {
            ASSERT_TRUE(items[i].photoAsset);
            EXPECT_EQ(items[i].photoAsset->objectIdentifier(), rows[i].photoAsset);
        }
    }
    // Each item without an identifier gets its own.
    EXPECT_NE(items[2].identifier, items[4].identifier);
    // One question for all identifiers, none when there are none.
    EXPECT_EQ(library.asked,
              (std::vector<std::vector<std::string>>{{"L1/L0/001", "L2/L0/001", "L3/L0/001"}}));
    library.asked.clear();
    VRImportItemsForPickerResults({{"/picked/3.mov", std::nullopt}}, library.fetch(), wrap);
    EXPECT_TRUE(library.asked.empty());
}

TEST(VRPickerSelection, LoadingErrorWordsFollowHowMuchLoaded) {
    const std::string some =
        "Some selected media could not be loaded. Providing limited or full "
        "access to the media may resolve the issue.";
    const std::string none =
        "Unable to load private media. Please provide limited or full "
        "access to the selected media and try again.";
    struct Row {
        std::size_t loaded, total;
        std::optional<std::string> message, button;
    };
    const Row rows[] = {
        {3, 3, std::nullopt, std::nullopt}, {0, 0, std::nullopt, std::nullopt},
        {2, 3, some, "Continue"},           {1, 5, some, "Continue"},
        {0, 1, none, std::nullopt},         {0, 4, none, std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.loaded) + " of " + std::to_string(row.total));
        auto error = VRLoadingErrorForLoadedCount(row.loaded, row.total);
        ASSERT_EQ(error.has_value(), row.message.has_value());
        if (!error) continue;
        EXPECT_EQ(error->title, "Loading Error");
        EXPECT_EQ(error->message, *row.message);
        EXPECT_EQ(error->button, row.button);
    }
}

}  // namespace
