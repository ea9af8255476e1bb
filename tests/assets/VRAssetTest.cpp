#include <gtest/gtest.h>

#include <fstream>
#include <future>

#include "assets/VRAsset.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRDataAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/Environment.h"
#include "storage/VXHelperFiles.h"
#include "support/TestHome.h"

using platform::PlistDictionary;
using platform::PlistValue;

namespace {

TEST(VRAssetIdentifier, ArchivesRoundTripAndUrlPathsMoveWithTheDocumentsDirectory) {
    PlistDictionary archive;
    {
        testing_support::TestHome first;
        const std::string path = VXHelper::documentDirectory() + "/_vrunsaveditemsdir01/a.jpg";
        VRAssetIdentifier identifier(path, VRAssetIdentifierTypeURL, 2);
        archive = identifier.identifierArchive();
        EXPECT_EQ(archive[VRAssetIdentifierObjectIdentifierKey],
                  PlistValue("__vrdocumentdir__/_vrunsaveditemsdir01/a.jpg"));
        EXPECT_EQ(archive[VRAssetIdentifierTypeKey], PlistValue("2"));
        EXPECT_EQ(archive[VRAssetIdentifierFlagKey], PlistValue("2"));
    }
    testing_support::TestHome second;
    auto restored = VRAssetIdentifier::assetIdentifierFromArchive(archive);
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->objectIdentifier(),
              VXHelper::documentDirectory() + "/_vrunsaveditemsdir01/a.jpg");
    EXPECT_EQ(restored->type(), 2u);
    EXPECT_EQ(restored->flag(), 2u);

    // Other kinds keep their identifier as it is.
    VRAssetIdentifier data("00ff", VRAssetIdentifierTypeData);
    auto back = VRAssetIdentifier::assetIdentifierFromArchive(data.identifierArchive());
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->isEqualToIdentifier(data));

    // Every key must be a string of the right form.
    const std::vector<PlistDictionary> wrong = {
        {{"ObjectIdentifierKey", "x"}, {"TypeKey", 2}, {"FlagKey", "0"}},
        {{"ObjectIdentifierKey", "x"}, {"TypeKey", "2"}},
        {{"ObjectIdentifierKey", 7}, {"TypeKey", "2"}, {"FlagKey", "0"}},
        {{"ObjectIdentifierKey", "x"}, {"TypeKey", "two"}, {"FlagKey", "0"}},
        {{"ObjectIdentifierKey", "x"}, {"TypeKey", "-1"}, {"FlagKey", "0"}},
    };
    for (const auto& w : wrong)
        EXPECT_FALSE(VRAssetIdentifier::assetIdentifierFromArchive(w))
            << PlistValue(w).debugDescription();
}

TEST(VRDataAsset, UniqueIdSamplesTheBytesAndTheFirstByteDecidesTheMediaType) {
    struct Case {
        std::size_t length;
        std::size_t digits;
    };
    for (const Case c : {Case{1, 2}, Case{10, 20}, Case{16, 32}, Case{17, 32}, Case{23, 32},
                         Case{24, 32}, Case{5000, 32}}) {
        std::vector<std::uint8_t> bytes(c.length);
        for (std::size_t i = 0; i < c.length; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
        EXPECT_EQ(VRDataAsset::uniqueIDForData(bytes).size(), c.digits) << c.length;
    }
    // 17 to 23 bytes: the last 16; above: 4 at n/4, 8 at n/2, 4 at 3n/4.
    std::vector<std::uint8_t> seventeen(17);
    for (int i = 0; i < 17; ++i) seventeen[i] = static_cast<std::uint8_t>(i);
    EXPECT_EQ(VRDataAsset::uniqueIDForData(seventeen), "0102030405060708090a0b0c0d0e0f10");
    std::vector<std::uint8_t> hundred(100);
    for (int i = 0; i < 100; ++i) hundred[i] = static_cast<std::uint8_t>(i);
    EXPECT_EQ(VRDataAsset::uniqueIDForData(hundred), "191a1b1c32333435363738394b4c4d4e");

    struct Kind {
        std::uint8_t first;
        VRFormatMediaType type;
    };
    for (const Kind k : {Kind{0xFF, VRFormatMediaTypePhoto}, Kind{0x89, VRFormatMediaTypePhoto},
                         Kind{0x47, VRFormatMediaTypePhoto}, Kind{0x00, VRFormatMediaTypeVideo},
                         Kind{0x52, VRFormatMediaTypeVideo}})
        EXPECT_EQ(VRDataAsset::mediaTypeForData({k.first, 1, 2, 3}), k.type) << int(k.first);
}

TEST(VRAsset, IdentityIsKindAndObjectWhateverTheFlag) {
    testing_support::TestHome home;
    auto a = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL("/photos/IMG_1.JPG"), 0);
    auto b = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL("/photos/IMG_1.JPG"), 2);
    auto c = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL("/photos/IMG_2.JPG"), 0);
    auto d = VRAsset::assetWithObject(VRDataAsset::dataAssetWithData({0xFF, 0xD8, 0xFF}), 0);
    ASSERT_TRUE(a && b && c && d);
    EXPECT_TRUE(a->isEqual(*b));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(a->isEqual(*c));
    EXPECT_FALSE(a->isEqual(*d));
    EXPECT_EQ(a->type(), VRAssetIdentifierTypeURL);
    EXPECT_EQ(a->objectIdentifier(), "/photos/IMG_1.JPG");
    EXPECT_EQ(d->type(), VRAssetIdentifierTypeData);
    EXPECT_FALSE(VRAsset::assetWithObject(nullptr));
    EXPECT_FALSE(VRDataAsset::dataAssetWithData({}));

    struct Case {
        std::string path;
        std::string name;
        VRFormatMediaType type;
    };
    for (const auto& k : std::vector<Case>{{"/x/IMG_1.HEIC", "IMG_1.HEIC", VRFormatMediaTypePhoto},
                                           {"/x/clip.mov", "clip.mov", VRFormatMediaTypeVideo},
                                           {"/x/notes.txt", "notes.txt", VRFormatMediaTypeNone},
                                           {"", "img", VRFormatMediaTypeNone}}) {
        auto asset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(k.path));
        EXPECT_EQ(asset->originalFilename(), k.name) << k.path;
        EXPECT_EQ(asset->mediaType(), k.type) << k.path;
    }
    EXPECT_EQ(d->originalFilename(), "img");
    EXPECT_EQ(d->modificationDate()->timeIntervalSince1970(), 0);
    EXPECT_FALSE(d->creationDate());
}

TEST(VRAssetManager2, ImageDataComesOnTheGivenQueueOrNotAtAll) {
    testing_support::TestHome home;
    const std::string path = home.path("photo.jpg");
    std::ofstream(path, std::ios::binary) << "\xFF\xD8\xFF\xE0 not really a jpeg";
    platform::OperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);

    struct Answer {
        std::optional<std::vector<std::uint8_t>> data;
        std::string uti;
    };
    auto request = [&](VRAssetRef asset) {
        std::promise<Answer> promise;
        VRAssetManager2::defaultManager().requestImageDataAsyncForAsset(
            asset, &queue, [&](std::optional<std::vector<std::uint8_t>> data, std::string uti) {
                promise.set_value({std::move(data), std::move(uti)});
            });
        return promise.get_future().get();
    };
    Answer url = request(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path)));
    ASSERT_TRUE(url.data);
    EXPECT_EQ(url.data->size(), 22u);
    EXPECT_EQ(url.uti, "public.jpeg");

    Answer data = request(VRAsset::assetWithObject(
        VRDataAsset::dataAssetWithData({0x89, 'P', 'N', 'G', 13, 10, 26, 10})));
    ASSERT_TRUE(data.data);
    EXPECT_EQ(data.data->size(), 8u);
    EXPECT_EQ(data.uti, "public.png");

    EXPECT_FALSE(
        request(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("gone.jpg")))).data);
    EXPECT_FALSE(
        request(VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path + ".txt"))).data);
    EXPECT_FALSE(request(nullptr).data);
}

}  // namespace
