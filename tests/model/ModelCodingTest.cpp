#include "model/ModelCoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ModelPrinters.h"
#include "platform/PropertyListSerialization.h"

using platform::ArchiveObject;
using platform::KeyedArchiver;
using platform::KeyedUnarchiver;
using platform::PlistArray;
using platform::PlistData;
using platform::PlistDictionary;
using platform::PlistUID;
using platform::PlistValue;

namespace {

// Through the bytes of a real archive and back.
ArchiveObject throughArchive(const ArchiveObject& object) {
    ModelCoding::registerArchiveClasses();
    platform::ErrorRef error;
    auto data = KeyedArchiver::archivedDataWithRootObject(object, &error);
    EXPECT_TRUE(data) << (error ? error->description() : "");
    if (!data) return {};
    auto decoded = KeyedUnarchiver::unarchiveObjectWithData(*data, &error);
    EXPECT_TRUE(decoded) << (error ? error->description() : "");
    return decoded ? *decoded : ArchiveObject();
}

std::vector<std::string> keys(const ArchiveObject& object) {
    std::vector<std::string> out;
    for (const auto& field : object.fields()) out.push_back(field.key);
    return out;
}

// A keyed archive built by hand, as the platform's archiver lays one out: one instance of
// `className` with the given fields at index 1, its class entry last.
PlistData handMadeArchive(const std::string& className, PlistDictionary fields,
                          std::vector<PlistValue> extraObjects = {}) {
    PlistArray objects{PlistValue("$null")};
    const std::uint64_t classIndex = 2 + extraObjects.size();
    fields["$class"] = PlistUID{classIndex};
    objects.push_back(std::move(fields));
    for (auto& extra : extraObjects) objects.push_back(std::move(extra));
    objects.push_back(
        PlistDictionary{{"$classname", className},
                        {"$classes", PlistArray{PlistValue(className), PlistValue("NSObject")}}});
    PlistDictionary root{{"$archiver", "NSKeyedArchiver"},
                         {"$version", 100000},
                         {"$top", PlistDictionary{{"root", PlistUID{1}}}},
                         {"$objects", std::move(objects)}};
    auto data = platform::PropertyListSerialization::dataWithPropertyList(
        root, platform::NSPropertyListBinaryFormat_v1_0, 0);
    EXPECT_TRUE(data);
    return data.value_or(PlistData{});
}

ArchiveObject unarchive(const PlistData& data) {
    ModelCoding::registerArchiveClasses();
    platform::ErrorRef error;
    auto object = KeyedUnarchiver::unarchiveObjectWithData(data, &error);
    EXPECT_TRUE(object) << (error ? error->description() : "");
    return object.value_or(ArchiveObject());
}

}  // namespace

TEST(ModelCoding, SizeEntryRoundTripsInArchiveOrder) {
    VRSizeEntry entry = VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent);
    entry.setOutputRounding(2);
    entry.setTargetSize({4032, 3024});
    entry.setZeroSizeBehavior(VRZeroSizeProportional);

    const ArchiveObject encoded = ModelCoding::encodeSizeEntry(entry);
    EXPECT_EQ(encoded.className(), "VRSizeEntry");
    EXPECT_EQ(keys(encoded), (std::vector<std::string>{
                                 "VRSizeEntryWidthKey", "VRSizeEntryHeightKey",
                                 "VRSizeEntryTypeKey", "VRSizeEntryRoundingKey",
                                 "VRSizeEntryTargetSizeKey", "VRSizeEntryZeroSizeBehaviorKey"}));

    const auto decoded = ModelCoding::decodeSizeEntry(throughArchive(encoded));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, entry);
    EXPECT_EQ(decoded->outputSize(), (CGSize{5362, 3024}));  // 5362.56 rounded to even

    // An unset target is written as its getter reads it.
    const ArchiveObject fresh = ModelCoding::encodeSizeEntry(VRSizeEntry());
    const ArchiveObject* target = fresh.decodeObjectForKey(VRSizeEntryTargetSizeKey);
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(target->size(), (CGSize{100, 100}));
}

TEST(ModelCoding, SizeEntryFromAnIndependentlyBuiltArchive) {
    struct Case {
        const char* what;
        PlistDictionary fields;
        std::vector<PlistValue> extra;
        VRSizeEntry expected;
    };
    VRSizeEntry withTarget = VRSizeEntry::sizeEntryWithWidth(1920, 0, VRSizeTypePixels);
    withTarget.setTargetSize({640, 480});
    withTarget.setZeroSizeBehavior(VRZeroSizeProportional);
    VRSizeEntry rounded = VRSizeEntry::sizeEntryWithWidth(16, 9, VRSizeTypeRatioUp);
    rounded.setOutputRounding(0xFF);
    const Case cases[] = {
        {"all keys, target as an NSValue",
         {{"VRSizeEntryWidthKey", 1920.0},
          {"VRSizeEntryHeightKey", 0.0},
          {"VRSizeEntryTypeKey", 0},
          {"VRSizeEntryRoundingKey", 0},
          {"VRSizeEntryTargetSizeKey", PlistUID{2}},
          {"VRSizeEntryZeroSizeBehaviorKey", 1}},
         {PlistDictionary{{"NS.sizeval", "{640, 480}"}, {"NS.special", 2}, {"$class", PlistUID{3}}},
          PlistDictionary{{"$classname", "NSValue"},
                          {"$classes", PlistArray{PlistValue("NSValue"), PlistValue("NSObject")}}}},
         withTarget},
        {"no target, rounding beyond 8 bits",
         {{"VRSizeEntryWidthKey", 16.0},
          {"VRSizeEntryHeightKey", 9},
          {"VRSizeEntryTypeKey", 2},
          {"VRSizeEntryRoundingKey", 0x1FF}},
         {},
         rounded},
        {"nothing at all", {}, {}, VRSizeEntry()},
    };
    for (const auto& c : cases) {
        // The extra objects sit between the instance and its class entry, so the class of the
        // instance comes after them.
        const auto decoded = ModelCoding::decodeSizeEntry(
            unarchive(handMadeArchive("VRSizeEntry", c.fields, c.extra)));
        ASSERT_TRUE(decoded) << c.what;
        EXPECT_EQ(*decoded, c.expected) << c.what;
        EXPECT_EQ(decoded->targetSize(), c.expected.targetSize()) << c.what;
    }
}

TEST(ModelCoding, FormatStoresItsTypeUnderTheCompressionKey) {
    struct Case {
        VRFormat format;
        std::uint64_t type, mediaType;
        float compression;
    } cases[] = {
        {VRFormat(VRFormatTypeJPEG, 0.5f), 1, 1, 1.0f},
        {VRFormat::formatWithType(VRFormatTypePNG), 3, 1, 1.0f},
        {VRFormat::formatWithType(VRFormatTypeAuto), 0, 1, 0.0f},
        {VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, 2), 0, 2, 0.0f},
        {VRFormat::formatWithType(VRFormatTypeMOV), 7, 2, 1.0f},
        {VRFormat::formatWithType(VRFormatTypeHEIC), 5, 1, 1.0f},
    };
    for (const auto& c : cases) {
        const ArchiveObject encoded = ModelCoding::encodeFormat(c.format);
        EXPECT_EQ(keys(encoded),
                  (std::vector<std::string>{"VRFormatTypeKey", "VRFormatMediaTypeKey",
                                            "VRFormatCompressionKey"}));
        EXPECT_EQ(encoded.decodeDoubleForKey(VRFormatCompressionKey), static_cast<double>(c.type));
        const auto decoded = ModelCoding::decodeFormat(throughArchive(encoded));
        ASSERT_TRUE(decoded) << c.format;
        EXPECT_EQ(decoded->rawType(), c.type);
        EXPECT_EQ(decoded->mediaType(), c.mediaType);
        EXPECT_EQ(decoded->compression(), c.compression) << c.format;
    }

    // A reader takes whatever number it finds under the key, clamped.
    const auto older = ModelCoding::decodeFormat(unarchive(handMadeArchive(
        "VRFormat",
        {{"VRFormatTypeKey", 1}, {"VRFormatMediaTypeKey", 2}, {"VRFormatCompressionKey", 0.85}})));
    ASSERT_TRUE(older);
    EXPECT_EQ(older->type(), VRFormatTypeJPEG);
    EXPECT_EQ(older->mediaType(), VRFormatMediaTypePhoto);  // the type decides
    EXPECT_FLOAT_EQ(older->compression(), 0.85f);
}

TEST(ModelCoding, OrientationAndPositionRoundTrip) {
    for (const auto& o : {VROrientation::orientationWithFlipedX(true, false, -1),
                          VROrientation::orientationWithFlipedX(false, true, 6), VROrientation()}) {
        const ArchiveObject encoded = ModelCoding::encodeOrientation(o);
        EXPECT_EQ(keys(encoded),
                  (std::vector<std::string>{"_VROrientationFlippedX", "_VROrientationFlippedY",
                                            "_VROrientationRotation"}));
        EXPECT_EQ(ModelCoding::decodeOrientation(throughArchive(encoded)), o);
    }
    const VRPosition position(3, 9);
    const ArchiveObject encoded = ModelCoding::encodePosition(position);
    EXPECT_EQ(keys(encoded), (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(ModelCoding::decodePosition(throughArchive(encoded)), position);
}

TEST(ModelCoding, OtherObjectsDecodeToNothing) {
    const ArchiveObject format = ModelCoding::encodeFormat(VRFormat::formatWithType(1));
    EXPECT_FALSE(ModelCoding::decodeSizeEntry(format));
    EXPECT_FALSE(ModelCoding::decodeFormat(ModelCoding::encodeSizeEntry(VRSizeEntry())));
    EXPECT_FALSE(ModelCoding::decodeOrientation(ArchiveObject::string("VROrientation")));
    EXPECT_FALSE(ModelCoding::decodePosition(ArchiveObject()));
}
