#include "video/VRVideoMetadataManager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "model/VXHelperDevice.h"

namespace {

using platform::PlistDate;
using platform::PlistValue;

const PlistDate kNow{700'000'000};
const PlistDate kCaptured{600'000'000};
const PlistDate kLater{650'000'000};
const std::string kSoftware = "Unwarp v9";

std::vector<AVMetadataItem> rebuild(const std::vector<AVMetadataItem>& items, bool copyGPS) {
    VRVideoMetadataManager manager(nullptr, VRVideoMetadataOptions{copyGPS});
    return manager.metadataWithItems(items, kSoftware, kNow);
}

const AVMetadataItem* find(const std::vector<AVMetadataItem>& items, const std::string& space,
                           const std::string& key) {
    auto it = std::find_if(items.begin(), items.end(), [&](const AVMetadataItem& i) {
        return i.keySpace() == space && i.stringKey() == key;
    });
    return it == items.end() ? nullptr : &*it;
}

// With nothing to start from, exactly the three added items: creation date and software in the
// Common key space and the recording time in ID3, both dates being now.
TEST(VRVideoMetadataManager, NoSourceItemsGiveTheThreeAddedOnes) {
    const auto items = rebuild({}, false);
    const std::vector<AVMetadataItem> expected = {
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate, kNow},
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeySoftware, kSoftware},
        {AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyRecordingTime, kNow},
    };
    EXPECT_EQ(items, expected);
    // The asset-facing form uses the program's own name and works without an asset.
    const auto real = VRVideoMetadataManager(nullptr, {}).metadata();
    ASSERT_EQ(real.size(), 3u);
    EXPECT_EQ(real[1].stringValue(), VXHelper::appFullName());
}

// Every rewriting rule on one source list, in item order.
TEST(VRVideoMetadataManager, RewritesBySpaceAndKey) {
    const std::vector<AVMetadataItem> source = {
        {AVMetadataKeySpaceQuickTimeMetadata, AVMetadataQuickTimeMetadataKeyCreationDate,
         "2020-01-02T03:04:05Z"},
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate, kLater},
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeyLastModifiedDate, kCaptured},
        {AVMetadataKeySpaceQuickTimeMetadata, AVMetadataQuickTimeMetadataKeySoftware, "Other"},
        {AVMetadataKeySpaceQuickTimeUserData, AVMetadataQuickTimeUserDataKeySoftware, "Other"},
        {AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyEncodedWith, "Other"},
        {AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyYear, "1999"},
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeyTitle, "Holiday"},
    };
    const auto items = rebuild(source, true);
    ASSERT_EQ(items.size(), source.size() + 2) << "software and recording time added";
    // The first date in item order wins: the QuickTime one, for the added recording time.
    const auto captured = AVMetadataParseISO8601("2020-01-02T03:04:05Z");
    ASSERT_TRUE(captured);
    EXPECT_EQ(find(items, AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyRecordingTime)->value(),
              PlistValue(*captured));
    // The Common creation date item stays as it was, and none is added.
    EXPECT_EQ(items[1], source[1]);
    EXPECT_EQ(std::count_if(items.begin(), items.end(),
                            [](const AVMetadataItem& i) {
                                return i.stringKey() == AVMetadataCommonKeyCreationDate;
                            }),
              1);
    EXPECT_EQ(items[2].value(), PlistValue(kNow));
    for (std::size_t i : {3u, 4u, 5u}) EXPECT_EQ(items[i].stringValue(), kSoftware) << i;
    EXPECT_EQ(items[6], source[6]);
    EXPECT_EQ(items[7], source[7]);
    // Only the Common software counts as present: the Common one is added.
    EXPECT_EQ(find(items, AVMetadataKeySpaceCommon, AVMetadataCommonKeySoftware)->stringValue(),
              kSoftware);
}

// A source software tag is overwritten, and an ID3 recording time already there is not added
// again; the user-data date atom given by number is a capture date too.
TEST(VRVideoMetadataManager, PresentItemsAreNotAddedAgain) {
    const std::vector<AVMetadataItem> source = {
        {AVMetadataKeySpaceCommon, AVMetadataCommonKeySoftware, "Other 1.0"},
        {AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyRecordingTime, "2019"},
        {AVMetadataKeySpaceQuickTimeUserData, PlistValue(std::int64_t{0xA9646179}),
         "2018-05-06T07:08:09Z"},
    };
    const auto items = rebuild(source, true);
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].stringValue(), kSoftware);
    EXPECT_EQ(items[1], source[1]);
    EXPECT_EQ(items[2], source[2]);
    EXPECT_EQ(items[3].keySpace(), AVMetadataKeySpaceCommon);
    EXPECT_EQ(items[3].stringKey(), AVMetadataCommonKeyCreationDate);
    EXPECT_EQ(items[3].value(), PlistValue(*AVMetadataParseISO8601("2018-05-06T07:08:09Z")));
}

// Location items of all nine keys go, in whatever key space, when location is not copied; they
// pass unchanged when it is. An item without a key space is never filtered.
TEST(VRVideoMetadataManager, LocationFilter) {
    const char* keys[] = {AVMetadataCommonKeyLocation,
                          AVMetadata3GPUserDataKeyLocation,
                          AVMetadataQuickTimeMetadataKeyLocationBody,
                          AVMetadataQuickTimeMetadataKeyLocationDate,
                          AVMetadataQuickTimeMetadataKeyLocationName,
                          AVMetadataQuickTimeMetadataKeyLocationNote,
                          AVMetadataQuickTimeMetadataKeyLocationRole,
                          AVMetadataQuickTimeMetadataKeyLocationISO6709,
                          AVMetadataQuickTimeUserDataKeyLocationISO6709};
    std::vector<AVMetadataItem> source;
    for (const char* key : keys) {
        for (const char* space : {AVMetadataKeySpaceCommon, AVMetadataKeySpaceQuickTimeMetadata,
                                  AVMetadataKeySpaceISOUserData}) {
            source.emplace_back(space, key, "+48.8577+002.2950/");
        }
    }
    const AVMetadataItem spaceless{"", AVMetadataCommonKeyLocation, "+1+2/"};
    const AVMetadataItem title{AVMetadataKeySpaceCommon, AVMetadataCommonKeyTitle, "Paris"};
    source.push_back(spaceless);
    source.push_back(title);

    const auto dropped = rebuild(source, false);
    ASSERT_EQ(dropped.size(), 2u + 3u);
    EXPECT_EQ(dropped[0], spaceless);
    EXPECT_EQ(dropped[1], title);

    const auto kept = rebuild(source, true);
    ASSERT_EQ(kept.size(), source.size() + 3);
    EXPECT_TRUE(std::equal(source.begin(), source.end(), kept.begin()));
}

}  // namespace
