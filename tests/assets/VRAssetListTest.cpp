#include <gtest/gtest.h>

#include "assets/VRAssetList.h"
#include "assets/VRURLAsset.h"
#include "platform/Log.h"

namespace {

using platform::PHAsset;

// Stands in for the library kind: a library asset by its identifier.
class TestLibraryAsset : public VRAssetObject {
  public:
    explicit TestLibraryAsset(PHAsset asset) : _asset(std::move(asset)) {}
    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeLibrary; }
    std::string uniqueID() const override { return _asset.localIdentifier; }
    std::string originalFilename() const override { return ""; }
    std::optional<platform::PlistDate> creationDate() const override { return std::nullopt; }
    std::optional<platform::PlistDate> modificationDate() const override { return std::nullopt; }
    VRFormatMediaType mediaType() const override { return VRFormatMediaTypePhoto; }
    CGSize pixelSize() const override { return {0, 0}; }
    double duration() const override { return 0; }
    bool isEqual(const VRAssetObject& other) const override {
        return other.assetType() == assetType() && other.uniqueID() == uniqueID();
    }
    std::size_t hash() const override { return std::hash<std::string>{}(uniqueID()); }

  private:
    PHAsset _asset;
};

VRAssetRef wrapLibraryAsset(const PHAsset& asset, std::uint64_t flag) {
    return VRAsset::assetWithObject(std::make_shared<TestLibraryAsset>(asset), flag);
}

PHAsset libraryAsset(const std::string& identifier) {
    PHAsset asset;
    asset.localIdentifier = identifier;
    return asset;
}

// Oldest first, as the library fetches by default.
platform::PHFetchResult<PHAsset> fetchOf(const std::vector<std::string>& identifiers) {
    std::vector<PHAsset> assets;
    for (const auto& identifier : identifiers) assets.push_back(libraryAsset(identifier));
    return platform::PHFetchResult<PHAsset>(std::move(assets));
}

VRAssetRef urlAsset(const std::string& path, std::uint64_t flag = 0) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path), flag);
}

std::vector<std::string> identifiersOf(const std::vector<VRAssetRef>& assets) {
    std::vector<std::string> identifiers;
    for (const auto& asset : assets) identifiers.push_back(asset ? asset->objectIdentifier() : "-");
    return identifiers;
}

std::vector<std::string> loggedLines(const std::function<void()>& action) {
    std::vector<std::string> lines;
    platform::setLogSink(
        [](const std::string& line, void* context) {
            static_cast<std::vector<std::string>*>(context)->push_back(line);
        },
        &lines);
    action();
    platform::setLogSink(nullptr, nullptr);
    return lines;
}

TEST(VRAssetList, FetchResultIsNewestFirstAndMapsIndexesBothWays) {
    VRAssetList list(fetchOf({"old", "middle", "new"}), 2, wrapLibraryAsset);
    ASSERT_EQ(list.count(), 3u);
    EXPECT_TRUE(list.reversed());

    struct Row {
        std::size_t index;
        std::string identifier;
        std::size_t fetchIndex;
    };
    const Row rows[] = {{0, "new", 2}, {1, "middle", 1}, {2, "old", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.index);
        VRAssetRef asset = list.assetAtIndex(row.index);
        ASSERT_TRUE(asset);
        EXPECT_EQ(asset->objectIdentifier(), row.identifier);
        EXPECT_EQ(asset->flag(), 2u);
        EXPECT_EQ(list.indexOfAsset(*asset), row.index);
        EXPECT_EQ(list.indexForPhotoAssetAtIndex(row.index), row.fetchIndex);
    }
    EXPECT_FALSE(list.assetAtIndex(3));
    EXPECT_EQ(identifiersOf(list.allAssets()), (std::vector<std::string>{"new", "middle", "old"}));
    // The list's last item is the fetch result's first.
    ASSERT_TRUE(list.lastAsset());
    EXPECT_EQ(list.lastAsset()->objectIdentifier(), "old");

    // Not found: another library asset, an asset of another kind with a matching key, and
    // the flag doesn't matter for a found one.
    EXPECT_EQ(list.indexOfAsset(*wrapLibraryAsset(libraryAsset("elsewhere"), 2)),
              VRAssetList::NSNotFound);
    EXPECT_EQ(list.indexOfAsset(*urlAsset("new")), VRAssetList::NSNotFound);
    EXPECT_EQ(list.indexOfAsset(*wrapLibraryAsset(libraryAsset("middle"), 0)), 1u);

    // Raw objects by fetch index, skipping those past the end.
    auto raw = list.photoAssetsAtPhotoIndexes({0, 2, 7});
    ASSERT_EQ(raw.size(), 2u);
    EXPECT_EQ(raw[0].localIdentifier, "old");
    EXPECT_EQ(raw[1].localIdentifier, "new");

    // The array operations don't apply to a fetch result.
    EXPECT_TRUE(list.assetsStartingIndex(0).empty());
    list.removeAssetAtIndex(0);
    list.addAssets({urlAsset("/a.jpg")});
    list.replaceAssetAtIndex(0, urlAsset("/b.jpg"));
    EXPECT_EQ(list.count(), 3u);
    EXPECT_EQ(list.assetAtIndex(0)->objectIdentifier(), "new");
}

TEST(VRAssetList, ArrayKeepsItsOrderAndItsCountThroughChanges) {
    VRAssetList list({urlAsset("/p/a.jpg"), urlAsset("/p/b.jpg"), urlAsset("/p/c.jpg")});
    EXPECT_FALSE(list.reversed());
    EXPECT_EQ(list.assetFlag(), 0u);
    EXPECT_EQ(list.assetAtIndex(0)->objectIdentifier(), "/p/a.jpg");
    EXPECT_FALSE(list.assetAtIndex(3));
    EXPECT_EQ(list.lastAsset()->objectIdentifier(), "/p/c.jpg");
    // Found by equality of the source, whatever the flag; absent answers NSNotFound.
    EXPECT_EQ(list.indexOfAsset(*urlAsset("/p/b.jpg", 2)), 1u);
    EXPECT_EQ(list.indexOfAsset(*urlAsset("/p/z.jpg")), VRAssetList::NSNotFound);
    EXPECT_EQ(list.indexForPhotoAssetAtIndex(2), 2u);
    EXPECT_TRUE(list.photoAssetsAtPhotoIndexes({0}).empty());

    struct Tail {
        std::size_t from;
        std::vector<std::string> identifiers;
    };
    const Tail tails[] = {{0, {"/p/a.jpg", "/p/b.jpg", "/p/c.jpg"}},
                          {2, {"/p/c.jpg"}},
                          {3, {}},
                          {VRAssetList::NSNotFound, {}}};
    for (const Tail& tail : tails)
        EXPECT_EQ(identifiersOf(list.assetsStartingIndex(tail.from)), tail.identifiers)
            << tail.from;

    list.addAssets({urlAsset("/p/d.jpg"), urlAsset("/p/e.jpg")});
    EXPECT_EQ(list.count(), 5u);
    list.replaceAssetAtIndex(1, urlAsset("/p/B.jpg"));
    list.replaceAssetAtIndex(9, urlAsset("/p/X.jpg"));
    list.removeAssetsAtIndexes({0, 2, 9});
    EXPECT_EQ(identifiersOf(list.allAssets()),
              (std::vector<std::string>{"/p/B.jpg", "/p/d.jpg", "/p/e.jpg"}));
    EXPECT_EQ(list.count(), 3u);
    list.removeAssetAtIndex(2);
    list.removeAssetAtIndex(7);
    EXPECT_EQ(list.count(), 2u);
    EXPECT_EQ(list.lastAsset()->objectIdentifier(), "/p/d.jpg");
    EXPECT_FALSE(list.assetAtIndex(2));
}

TEST(VRAssetList, EmptyListsAnswerNothingAndEachFormLogsItsCount) {
    std::optional<VRAssetList> fetch, array;
    auto lines = loggedLines([&] {
        fetch.emplace(fetchOf({}), 1, wrapLibraryAsset);
        array.emplace(std::vector<VRAssetRef>{urlAsset("/a.jpg"), urlAsset("/b.jpg")});
    });
    EXPECT_EQ(lines, (std::vector<std::string>{"~~~FETCH 0", "~~~ARRAY 2"}));
    EXPECT_EQ(fetch->count(), 0u);
    EXPECT_FALSE(fetch->assetAtIndex(0));
    EXPECT_FALSE(fetch->lastAsset());
    EXPECT_TRUE(fetch->allAssets().empty());
    array->removeAssetsAtIndexes({0, 1});
    EXPECT_FALSE(array->lastAsset());
    EXPECT_EQ(array->count(), 0u);
}

}  // namespace
