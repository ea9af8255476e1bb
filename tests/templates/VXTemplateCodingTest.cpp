#include "templates/VXTemplateCoding.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/ApplicationStart.h"
#include "model/ModelCoding.h"
#include "platform/PropertyListSerialization.h"
#include "support/TestHome.h"

namespace {

using platform::PlistArray;
using platform::PlistDictionary;
using platform::PlistUID;
using platform::PlistValue;

VXTemplateRef sampleTemplate() {
    auto tpl = VXTemplate::create();
    tpl->setName("Cinema");
    tpl->setLocked(true);
    tpl->setIdentifier("should-not-be-written");
    tpl->setStored(true);
    tpl->setTemplateDescription("nor this");
    tpl->setBundleImageName("nor-this");
    auto photo = VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent);
    photo.setTargetSize({4032, 3024});
    photo.setOutputRounding(2);
    photo.setZeroSizeBehavior(VRZeroSizeProportional);
    tpl->setSizeEntry(photo, VRFormat::formatWithType(VRFormatTypeJPEG, 0.5f),
                      VRSizeOptions{VRSizeOptionSmart, VRSizeOptionStretch},
                      VRFormatMediaTypePhoto);
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(21, 9, VRSizeTypeRatioDown),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypeVideo),
                      VRSizeOptions{VRSizeOptionRatioClip}, VRFormatMediaTypeVideo);
    return tpl;
}

void expectSameRecipe(const VXTemplate& read) {
    EXPECT_EQ(read.name(), "Cinema");
    EXPECT_TRUE(read.locked());
    EXPECT_FALSE(read.identifier());
    EXPECT_FALSE(read.stored());
    EXPECT_FALSE(read.templateDescription());
    EXPECT_FALSE(read.bundleImageName());
    auto photo = read.sizeEntryForMediaType(VRFormatMediaTypePhoto);
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->size(), (CGSize{133, 100}));
    EXPECT_EQ(photo->type(), VRSizeTypePercent);
    EXPECT_EQ(photo->outputRounding(), 2);
    EXPECT_EQ(photo->zeroSizeBehavior(), VRZeroSizeProportional);
    EXPECT_EQ(photo->targetSize(), (CGSize{4032, 3024}));
    auto video = read.sizeEntryForMediaType(VRFormatMediaTypeVideo);
    ASSERT_TRUE(video);
    EXPECT_EQ(video->size(), (CGSize{21, 9}));
    EXPECT_EQ(video->type(), VRSizeTypeRatioDown);
    // The writer stores the type under the compression key.
    VRFormat jpeg = read.formatForMediaType(VRFormatMediaTypePhoto);
    EXPECT_EQ(jpeg.type(), VRFormatTypeJPEG);
    EXPECT_FLOAT_EQ(jpeg.compression(), 1.0f);
    VRFormat automatic = read.formatForMediaType(VRFormatMediaTypeVideo);
    EXPECT_EQ(automatic.type(), VRFormatTypeAuto);
    EXPECT_FLOAT_EQ(automatic.compression(), 0.0f);
    EXPECT_EQ(read.optionsForMediaType(VRFormatMediaTypePhoto),
              (VRSizeOptions{VRSizeOptionSmart, VRSizeOptionStretch}));
    EXPECT_EQ(read.optionsForMediaType(VRFormatMediaTypeVideo),
              VRSizeOptions{VRSizeOptionRatioClip});
}

TEST(VXTemplateCodingTest, ArchiveRoundTripKeepsTheFiveArchivedFields) {
    auto data = VXTemplateCoding::archivedDataWithTemplate(*sampleTemplate());
    ASSERT_TRUE(data);
    platform::ErrorRef error;
    auto read = VXTemplateCoding::templateWithArchivedData(*data, &error);
    ASSERT_TRUE(read) << (error ? error->description() : "");
    expectSameRecipe(*read);
}

// The archive as the platform's keyed archiver lays it out, built by hand from the classes and
// keys of the record, under the older class name that the start-up maps.
PlistValue handBuiltArchive() {
    auto uid = [](std::uint64_t v) { return PlistValue(PlistUID{v}); };
    auto classEntry = [](const char* name, PlistArray chain) {
        return PlistValue(PlistDictionary{{"$classname", name}, {"$classes", chain}});
    };
    PlistArray objects = {
        "$null",
        // 1: the template
        PlistDictionary{{"$class", uid(2)},
                        {"VRTemplateNameKey", uid(3)},
                        {"VRTemplateLockedKey", true},
                        {"VRTemplateSizeEntryKey", uid(4)},
                        {"VRTemplateFormatKey", uid(12)},
                        {"VRTemplateOptionsKey", uid(17)}},
        classEntry("VRTemplate", {"VRTemplate", "NSObject"}),
        "Cinema",
        // 4: sizes {1: 5, 2: 9}
        PlistDictionary{{"$class", uid(11)},
                        {"NS.keys", PlistArray{uid(6), uid(7)}},
                        {"NS.objects", PlistArray{uid(5), uid(9)}}},
        PlistDictionary{{"$class", uid(10)},
                        {"VRSizeEntryWidthKey", 133.0},
                        {"VRSizeEntryHeightKey", 100.0},
                        {"VRSizeEntryTypeKey", 1},
                        {"VRSizeEntryRoundingKey", 2},
                        {"VRSizeEntryTargetSizeKey", uid(8)},
                        {"VRSizeEntryZeroSizeBehaviorKey", 1}},
        1,
        2,
        PlistDictionary{{"$class", uid(16)}, {"NS.special", 2}, {"NS.sizeval", "{4032, 3024}"}},
        PlistDictionary{{"$class", uid(10)},
                        {"VRSizeEntryWidthKey", 21.0},
                        {"VRSizeEntryHeightKey", 9.0},
                        {"VRSizeEntryTypeKey", 3},
                        {"VRSizeEntryRoundingKey", 0},
                        {"VRSizeEntryZeroSizeBehaviorKey", 0}},
        classEntry("VRSizeEntry", {"VRSizeEntry", "NSObject"}),
        classEntry("NSMutableDictionary", {"NSMutableDictionary", "NSDictionary", "NSObject"}),
        // 12: formats {1: 13, 2: 14}
        PlistDictionary{{"$class", uid(11)},
                        {"NS.keys", PlistArray{uid(6), uid(7)}},
                        {"NS.objects", PlistArray{uid(13), uid(14)}}},
        PlistDictionary{{"$class", uid(15)},
                        {"VRFormatTypeKey", 1},
                        {"VRFormatMediaTypeKey", 1},
                        {"VRFormatCompressionKey", 1.0}},
        PlistDictionary{{"$class", uid(15)},
                        {"VRFormatTypeKey", 0},
                        {"VRFormatMediaTypeKey", 2},
                        {"VRFormatCompressionKey", 0.0}},
        classEntry("VRFormat", {"VRFormat", "NSObject"}),
        classEntry("NSValue", {"NSValue", "NSObject"}),
        // 17: options {1: [1, 5], 2: [3]}
        PlistDictionary{{"$class", uid(11)},
                        {"NS.keys", PlistArray{uid(6), uid(7)}},
                        {"NS.objects", PlistArray{uid(18), uid(21)}}},
        PlistDictionary{{"$class", uid(19)}, {"NS.objects", PlistArray{uid(6), uid(20)}}},
        classEntry("NSArray", {"NSArray", "NSObject"}),
        5,
        PlistDictionary{{"$class", uid(19)}, {"NS.objects", PlistArray{uid(22)}}},
        3,
    };
    return PlistDictionary{{"$archiver", "NSKeyedArchiver"},
                           {"$version", 100000},
                           {"$top", PlistDictionary{{"root", uid(1)}}},
                           {"$objects", objects}};
}

TEST(VXTemplateCodingTest, IndependentlyBuiltArchiveUnderTheOldClassNameDecodes) {
    ApplicationStart::prepareUnarchiver();
    auto data = platform::PropertyListSerialization::dataWithPropertyList(
        handBuiltArchive(), platform::NSPropertyListBinaryFormat_v1_0, 0);
    ASSERT_TRUE(data);
    platform::ErrorRef error;
    auto read = VXTemplateCoding::templateWithArchivedData(*data, &error);
    ASSERT_TRUE(read) << (error ? error->description() : "");
    expectSameRecipe(*read);
}

TEST(VXTemplateCodingTest, PythonPlistlibReadsTheArchiveWithItsClassesAndKeys) {
    testing_support::TestHome home;
    auto data = VXTemplateCoding::archivedDataWithTemplate(*sampleTemplate());
    ASSERT_TRUE(data);
    const std::string path = home.path("template-data");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data->data()),
               static_cast<std::streamsize>(data->size()));
    const std::string script = R"PY(
import plistlib, sys
a = plistlib.load(open(sys.argv[1], 'rb'), fmt=plistlib.FMT_BINARY)
o = a['$objects']
def deref(v): return o[v.data] if isinstance(v, plistlib.UID) else v
root = deref(a['$top']['root'])
print(a['$archiver'], a['$version'])
print(deref(root['$class'])['$classname'], deref(root['VRTemplateNameKey']), root['VRTemplateLockedKey'])
print(sorted(k for k in root if k != '$class'))
sizes = deref(root['VRTemplateSizeEntryKey'])
for k, v in zip(sizes['NS.keys'], sizes['NS.objects']):
    e = deref(v)
    print(deref(k), deref(e['$class'])['$classname'], e['VRSizeEntryWidthKey'], e['VRSizeEntryHeightKey'], e['VRSizeEntryTypeKey'])
formats = deref(root['VRTemplateFormatKey'])
for k, v in zip(formats['NS.keys'], formats['NS.objects']):
    f = deref(v)
    print(deref(k), deref(f['$class'])['$classname'], f['VRFormatTypeKey'], f['VRFormatMediaTypeKey'], f['VRFormatCompressionKey'])
)PY";
    std::ofstream(home.path("read.py")) << script;
    std::string output;
    ASSERT_EQ(testing_support::runCommand("python3 " + home.path("read.py") + " " + path, &output),
              0);
    EXPECT_EQ(output,
              "NSKeyedArchiver 100000\n"
              "VXTemplate Cinema True\n"
              "['VRTemplateFormatKey', 'VRTemplateLockedKey', 'VRTemplateNameKey', "
              "'VRTemplateOptionsKey', 'VRTemplateSizeEntryKey']\n"
              "1 VRSizeEntry 133.0 100.0 1\n"
              "2 VRSizeEntry 21.0 9.0 3\n"
              "1 VRFormat 1 1 1.0\n"
              "2 VRFormat 0 2 0.0\n");
}

TEST(VXTemplateCodingTest, AbsentDictionariesReadAsEmpty) {
    auto root = platform::ArchiveObject::instance("VXTemplate");
    root.encodeBool(VRTemplateLockedKey, true);
    auto data = platform::KeyedArchiver::archivedDataWithRootObject(root);
    ASSERT_TRUE(data);
    auto read = VXTemplateCoding::templateWithArchivedData(*data);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->locked());
    EXPECT_FALSE(read->name());
    EXPECT_TRUE(read->mediaTypes().empty());
    EXPECT_TRUE(read->formatDictionary().empty());
}

TEST(VXTemplateCodingTest, MalformedArchivesFailWithACoderErrorAndNeverCrash) {
    using platform::ArchiveObject;
    auto archive = [](const ArchiveObject& root) {
        return *platform::KeyedArchiver::archivedDataWithRootObject(root);
    };
    auto withSizes = [](ArchiveObject dictionary) {
        auto root = ArchiveObject::instance("VXTemplate");
        root.encodeObject(VRTemplateSizeEntryKey, std::move(dictionary));
        return root;
    };
    auto goodData = *VXTemplateCoding::archivedDataWithTemplate(*sampleTemplate());
    auto truncated = goodData;
    truncated.resize(truncated.size() / 2);
    auto nameNumber = ArchiveObject::instance("VXTemplate");
    nameNumber.encodeObject(VRTemplateNameKey, ArchiveObject::number(7));

    struct Case {
        const char* what;
        platform::PlistData data;
    };
    const std::vector<Case> cases = {
        {"empty", {}},
        {"not a property list", {'h', 'e', 'l', 'l', 'o'}},
        {"truncated", truncated},
        {"root of another class", archive(ArchiveObject::instance("VRSizeEntry"))},
        {"root is a string", archive(ArchiveObject::string("VXTemplate"))},
        {"sizes is an array", archive(withSizes(ArchiveObject::array({})))},
        {"sizes keyed by a string",
         archive(withSizes(ArchiveObject::dictionary(
             {{ArchiveObject::string("1"),
               ModelCoding::encodeSizeEntry(
                   VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypePixels))}})))},
        {"sizes keyed by a negative number",
         archive(withSizes(ArchiveObject::dictionary(
             {{ArchiveObject::number(-1),
               ModelCoding::encodeSizeEntry(
                   VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypePixels))}})))},
        {"a size that is a format",
         archive(withSizes(ArchiveObject::dictionary(
             {{ArchiveObject::number(1),
               ModelCoding::encodeFormat(VRFormat::formatWithType(VRFormatTypeJPEG))}})))},
        {"name is a number", archive(nameNumber)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform::ErrorRef error;
        EXPECT_FALSE(VXTemplateCoding::templateWithArchivedData(c.data, &error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain(), platform::NSCocoaErrorDomain);
    }
}

}  // namespace
