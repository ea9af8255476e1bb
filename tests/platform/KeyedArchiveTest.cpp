#include "platform/KeyedArchive.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "platform/PropertyListSerialization.h"
#include "support/TestHome.h"

using namespace platform;
using Kind = ArchiveObject::Kind;

namespace {

std::string debugDescription(const ErrorRef& error) {
    if (!error) return "(no error)";
    auto it = error->userInfo().find(NSDebugDescriptionErrorKey);
    return it != error->userInfo().end() && it->second.string() ? *it->second.string() : "";
}

// The first difference between two object trees, or "" when they are the same. Fields are
// compared by key: an archive keeps no order among them.
std::string difference(const ArchiveObject& a, const ArchiveObject& b, const std::string& at) {
    if (a.kind() != b.kind()) return at + ": kind";
    if (a.className() != b.className()) return at + ": class " + b.className();
    if (a.classes() != b.classes()) return at + ": class chain";
    if (a.isMutable() != b.isMutable()) return at + ": mutability";
    if (!(a.value() == b.value())) return at + ": value " + b.value().debugDescription();
    if (!(a.size() == b.size())) return at + ": size";
    if (a.elements().size() != b.elements().size()) return at + ": element count";
    for (std::size_t i = 0; i < a.elements().size(); ++i) {
        auto d = difference(a.elements()[i], b.elements()[i], at + "[" + std::to_string(i) + "]");
        if (!d.empty()) return d;
    }
    if (a.entries().size() != b.entries().size()) return at + ": entry count";
    for (std::size_t i = 0; i < a.entries().size(); ++i) {
        auto d = difference(a.entries()[i].first, b.entries()[i].first, at + " key");
        if (d.empty()) d = difference(a.entries()[i].second, b.entries()[i].second, at + " value");
        if (!d.empty()) return d;
    }
    if (a.fields().size() != b.fields().size()) return at + ": field count";
    for (const ArchiveObject::Field& f : a.fields()) {
        const ArchiveObject::Field* g = nullptr;
        for (const ArchiveObject::Field& candidate : b.fields())
            if (candidate.key == f.key) g = &candidate;
        if (!g || g->isInline != f.isInline) return at + "." + f.key + ": missing or not inline";
        if (f.isInline && !(f.scalar == g->scalar)) return at + "." + f.key + ": scalar";
        if (!f.isInline) {
            auto d = difference(*f.object, *g->object, at + "." + f.key);
            if (!d.empty()) return d;
        }
    }
    return {};
}

ArchiveObject sizeEntry(double width, double height, std::int64_t type, CGSize target) {
    ArchiveObject e = ArchiveObject::instance("VRSizeEntry");
    e.encodeDouble("VRSizeEntryWidthKey", width);
    e.encodeDouble("VRSizeEntryHeightKey", height);
    e.encodeInteger("VRSizeEntryTypeKey", type);
    e.encodeInteger("VRSizeEntryRoundingKey", 2);
    e.encodeObject("VRSizeEntryTargetSizeKey", ArchiveObject::sizeValue(target));
    e.encodeInteger("VRSizeEntryZeroSizeBehaviorKey", 1);
    return e;
}

ArchiveObject format(std::int64_t type, std::int64_t mediaType) {
    ArchiveObject f = ArchiveObject::instance("VRFormat");
    f.encodeInteger("VRFormatTypeKey", type);
    f.encodeInteger("VRFormatMediaTypeKey", mediaType);
    f.encodeDouble("VRFormatCompressionKey", static_cast<double>(type));
    return f;
}

ArchiveObject templateRecord() {
    using N = ArchiveObject;
    ArchiveObject t = ArchiveObject::instance("VXTemplate");
    t.encodeObject("VRTemplateNameKey", N::string("Anamorphic 1.33x"));
    t.encodeBool("VRTemplateLockedKey", true);
    t.encodeObject("VRTemplateSizeEntryKey",
                   N::dictionary({{N::number(1), sizeEntry(133, 100, 1, {1920, 1080})},
                                  {N::number(2), sizeEntry(0, 1080, 0, {3840, 2160.5})}},
                                 true));
    t.encodeObject(
        "VRTemplateFormatKey",
        N::dictionary({{N::number(1), format(1, 1)}, {N::number(2), format(7, 2)}}, true));
    t.encodeObject("VRTemplateOptionsKey",
                   N::dictionary({{N::number(1), N::array({N::number(5), N::number(0)}, true)},
                                  {N::number(2), N::array({}, true)}},
                                 true));
    return t;
}

void registerRecordClasses() {
    for (const char* name : {"VXTemplate", "VRSizeEntry", "VRFormat"})
        KeyedUnarchiver::registerClassName(name);
    KeyedUnarchiver::setClassForClassName("VXTemplate", "VRTemplate");
}

// An archive as an older version of the system wrote it: the class is "VRTemplate".
PlistValue handBuiltArchive() {
    auto classEntry = [](const char* name) {
        return PlistDictionary{{"$classname", name}, {"$classes", PlistArray{name, "NSObject"}}};
    };
    PlistArray objects = {
        "$null",
        PlistDictionary{{"$class", PlistUID{3}},
                        {"VRTemplateNameKey", PlistUID{2}},
                        {"VRTemplateLockedKey", false},
                        {"VRTemplateSizeEntryKey", PlistUID{4}}},
        "Wide",
        classEntry("VRTemplate"),
        PlistDictionary{{"NS.keys", PlistArray{PlistUID{5}}},
                        {"NS.objects", PlistArray{PlistUID{6}}},
                        {"$class", PlistUID{7}}},
        1,
        PlistDictionary{{"$class", PlistUID{8}},
                        {"VRSizeEntryWidthKey", 1.5},
                        {"VRSizeEntryTypeKey", 2},
                        {"VRSizeEntryTargetSizeKey", PlistUID{9}}},
        PlistDictionary{
            {"$classname", "NSMutableDictionary"},
            {"$classes", PlistArray{"NSMutableDictionary", "NSDictionary", "NSObject"}}},
        classEntry("VRSizeEntry"),
        PlistDictionary{
            {"NS.sizeval", "{4000, 3000}"}, {"NS.special", 2}, {"$class", PlistUID{10}}},
        classEntry("NSValue"),
    };
    return PlistDictionary{{"$archiver", "NSKeyedArchiver"},
                           {"$version", 100000},
                           {"$top", PlistDictionary{{"root", PlistUID{1}}}},
                           {"$objects", std::move(objects)}};
}

PlistData binary(const PlistValue& tree) {
    auto bytes =
        PropertyListSerialization::dataWithPropertyList(tree, NSPropertyListBinaryFormat_v1_0, 0);
    EXPECT_TRUE(bytes);
    return bytes ? *bytes : PlistData{};
}

// An NSArray entry of $objects.
PlistValue arrayObject(const std::vector<std::uint64_t>& references, std::uint64_t classUID) {
    PlistArray uids;
    for (std::uint64_t r : references) uids.emplace_back(PlistUID{r});
    PlistDictionary entry;
    entry.emplace("NS.objects", std::move(uids));
    entry.emplace("$class", PlistUID{classUID});
    return entry;
}

PlistArray& objectsOf(PlistValue& archive) {
    return *(*archive.mutableDictionary())["$objects"].mutableArray();
}

PlistDictionary& objectAt(PlistValue& archive, std::size_t i) {
    return *objectsOf(archive)[i].mutableDictionary();
}

}  // namespace

TEST(KeyedArchive, TemplateRecordRoundTrips) {
    registerRecordClasses();
    ArchiveObject record = templateRecord();
    ErrorRef error;
    auto bytes = KeyedArchiver::archivedDataWithRootObject(record, &error);
    ASSERT_TRUE(bytes) << debugDescription(error);
    auto back = KeyedUnarchiver::unarchiveObjectWithData(*bytes, &error);
    ASSERT_TRUE(back) << debugDescription(error);
    EXPECT_EQ(difference(record, *back, "root"), "");

    const ArchiveObject* sizes = back->decodeObjectForKey("VRTemplateSizeEntryKey");
    ASSERT_TRUE(sizes);
    EXPECT_TRUE(sizes->isMutable());
    ASSERT_EQ(sizes->entries().size(), 2u);
    EXPECT_EQ(sizes->entries()[0].first.value(), PlistValue(1));
    const ArchiveObject& video = sizes->entries()[1].second;
    EXPECT_EQ(video.decodeObjectForKey("VRSizeEntryTargetSizeKey")->size(), (CGSize{3840, 2160.5}));
    EXPECT_EQ(video.decodeIntegerForKey("VRSizeEntryRoundingKey"), 2);
    EXPECT_TRUE(back->decodeBoolForKey("VRTemplateLockedKey"));
}

TEST(KeyedArchive, ArchiveHasTheKeyedArchiverLayout) {
    auto bytes = KeyedArchiver::archivedDataWithRootObject(templateRecord());
    ASSERT_TRUE(bytes);
    PropertyListFormat format{};
    auto tree = PropertyListSerialization::propertyListWithData(*bytes, &format);
    ASSERT_TRUE(tree);
    EXPECT_EQ(format, NSPropertyListBinaryFormat_v1_0);
    EXPECT_EQ((*tree)["$archiver"], PlistValue("NSKeyedArchiver"));
    EXPECT_EQ((*tree)["$version"], PlistValue(100000));
    const PlistArray& objects = *(*tree)["$objects"].array();
    EXPECT_EQ(objects[0], PlistValue("$null"));
    auto root = (*tree)["$top"]["root"].uid();
    ASSERT_TRUE(root && root->value < objects.size());

    const PlistValue& record = objects[root->value];
    EXPECT_EQ(record["VRTemplateLockedKey"], PlistValue(true));  // inline, not a reference
    auto name = record["VRTemplateNameKey"].uid();
    ASSERT_TRUE(name);
    EXPECT_EQ(objects[name->value], PlistValue("Anamorphic 1.33x"));
    auto recordClass = record["$class"].uid();
    ASSERT_TRUE(recordClass);
    EXPECT_EQ(objects[recordClass->value]["$classname"], PlistValue("VXTemplate"));

    std::map<std::string, int> classEntries;
    int sizeValues = 0;
    for (const PlistValue& o : objects) {
        if (auto* n = o["$classname"].string()) ++classEntries[*n];
        if (o["NS.sizeval"] == PlistValue("{1920, 1080}") && o["NS.special"] == PlistValue(2))
            ++sizeValues;
        if (o["$classname"] == PlistValue("NSMutableDictionary")) {
            EXPECT_EQ(o["$classes"],
                      PlistValue(PlistArray{"NSMutableDictionary", "NSDictionary", "NSObject"}));
        }
    }
    // One class entry per class, shared by its three dictionaries, two entries, two formats.
    EXPECT_EQ(classEntries, (std::map<std::string, int>{{"NSMutableArray", 1},
                                                        {"NSMutableDictionary", 1},
                                                        {"NSValue", 1},
                                                        {"VRFormat", 1},
                                                        {"VRSizeEntry", 1},
                                                        {"VXTemplate", 1}}));
    EXPECT_EQ(sizeValues, 1);
}

TEST(KeyedArchive, PythonReadsOurArchive) {
    auto bytes = KeyedArchiver::archivedDataWithRootObject(templateRecord());
    ASSERT_TRUE(bytes);
    testing_support::TestHome home;
    std::string path = home.path("template-data");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes->data()),
               static_cast<std::streamsize>(bytes->size()));
    std::string seen;
    int status = testing_support::runCommand(
        "python3 -c \"import plistlib,sys; d=plistlib.load(open(sys.argv[1],'rb')); "
        "o=d['\\$objects']; r=o[d['\\$top']['root'].data]; "
        "print(d['\\$archiver'], d['\\$version'], type(d['\\$top']['root']).__name__, o[0], "
        "r['VRTemplateLockedKey'] is True, o[r['VRTemplateNameKey'].data])\" " +
            path,
        &seen);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(seen, "NSKeyedArchiver 100000 UID $null True Anamorphic 1.33x\n");
}

TEST(KeyedArchive, OlderClassNameDecodesThroughTheMapping) {
    registerRecordClasses();
    ErrorRef error;
    auto root = KeyedUnarchiver::unarchiveObjectWithData(binary(handBuiltArchive()), &error);
    ASSERT_TRUE(root) << debugDescription(error);
    EXPECT_EQ(root->kind(), Kind::Instance);
    EXPECT_EQ(root->className(), "VXTemplate");
    ASSERT_TRUE(root->decodeObjectForKey("VRTemplateNameKey"));
    EXPECT_EQ(root->decodeObjectForKey("VRTemplateNameKey")->value(), PlistValue("Wide"));
    EXPECT_TRUE(root->containsValueForKey("VRTemplateLockedKey"));
    EXPECT_FALSE(root->decodeBoolForKey("VRTemplateLockedKey"));

    const ArchiveObject* sizes = root->decodeObjectForKey("VRTemplateSizeEntryKey");
    ASSERT_TRUE(sizes);
    EXPECT_EQ(sizes->kind(), Kind::Dictionary);
    EXPECT_TRUE(sizes->isMutable());
    ASSERT_EQ(sizes->entries().size(), 1u);
    EXPECT_EQ(sizes->entries()[0].first.value(), PlistValue(1));
    const ArchiveObject& entry = sizes->entries()[0].second;
    EXPECT_EQ(entry.className(), "VRSizeEntry");
    // Inline scalars convert between number types; absent keys read as nothing.
    struct Case {
        const char* key;
        double asDouble;
        std::int64_t asInteger;
        bool asBool;
    } cases[] = {
        {"VRSizeEntryWidthKey", 1.5, 1, true},
        {"VRSizeEntryTypeKey", 2.0, 2, true},
        {"VRSizeEntryHeightKey", 0.0, 0, false},
        {"VRSizeEntryTargetSizeKey", 0.0, 0, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(entry.decodeDoubleForKey(c.key), c.asDouble) << c.key;
        EXPECT_EQ(entry.decodeIntegerForKey(c.key), c.asInteger) << c.key;
        EXPECT_EQ(entry.decodeBoolForKey(c.key), c.asBool) << c.key;
    }
    EXPECT_FALSE(entry.containsValueForKey("VRSizeEntryHeightKey"));
    EXPECT_FALSE(entry.decodeObjectForKey("VRSizeEntryHeightKey"));
    ASSERT_TRUE(entry.decodeObjectForKey("VRSizeEntryTargetSizeKey"));
    EXPECT_EQ(entry.decodeObjectForKey("VRSizeEntryTargetSizeKey")->size(), (CGSize{4000, 3000}));
}

TEST(KeyedArchive, MalformedArchivesAreRejected) {
    registerRecordClasses();
    auto uid = [](std::uint64_t v) { return PlistValue(PlistUID{v}); };
    // Arrays from index 11 on, each referring twice to the next, so that the root expands to
    // 2^41 objects; and a chain of single references deeper than allowed.
    auto appendShared = [&](PlistValue& a) {
        PlistArray& objects = objectsOf(a);
        objects.push_back(PlistDictionary{{"$classname", "NSArray"}});  // index 11
        for (std::uint64_t i = 12; i < 52; ++i) objects.push_back(arrayObject({i + 1, i + 1}, 11));
        objects.push_back(1);
        (*a.mutableDictionary())["$top"] = PlistDictionary{{"root", uid(12)}};
    };
    auto appendChain = [&](PlistValue& a) {
        PlistArray& objects = objectsOf(a);
        objects.push_back(PlistDictionary{{"$classname", "NSArray"}});
        for (std::uint64_t i = 12; i < 12 + KeyedUnarchiver::kMaxDepth + 5; ++i)
            objects.push_back(arrayObject({i + 1}, 11));
        objects.push_back(1);
        (*a.mutableDictionary())["$top"] = PlistDictionary{{"root", uid(12)}};
    };
    struct Case {
        const char* name;
        std::function<void(PlistValue&)> spoil;
        const char* because;
    } cases[] = {
        {"wrong archiver",
         [](PlistValue& a) { (*a.mutableDictionary())["$archiver"] = "NSArchiver"; }, "$archiver"},
        {"wrong version", [](PlistValue& a) { (*a.mutableDictionary())["$version"] = 99999; },
         "$version"},
        {"version as text", [](PlistValue& a) { (*a.mutableDictionary())["$version"] = "100000"; },
         "$version"},
        {"no top", [](PlistValue& a) { a.mutableDictionary()->erase("$top"); }, "$top"},
        {"root out of range",
         [&](PlistValue& a) {
             (*a.mutableDictionary())["$top"] = PlistDictionary{{"root", uid(99)}};
         },
         "out of range"},
        {"no $null", [](PlistValue& a) { objectsOf(a)[0] = "null"; }, "$null"},
        {"objects not an array", [](PlistValue& a) { (*a.mutableDictionary())["$objects"] = 1; },
         "$objects"},
        {"cycle", [&](PlistValue& a) { objectAt(a, 6)["VRSizeEntryTargetSizeKey"] = uid(1); },
         "cycle"},
        {"self reference",
         [&](PlistValue& a) { objectAt(a, 4)["NS.objects"] = PlistArray{uid(4)}; }, "cycle"},
        {"field out of range",
         [&](PlistValue& a) { objectAt(a, 1)["VRTemplateNameKey"] = uid(77); }, "out of range"},
        {"NS.objects not an array", [](PlistValue& a) { objectAt(a, 4)["NS.objects"] = 3; },
         "NS.objects"},
        {"NS.objects holds a number",
         [](PlistValue& a) { objectAt(a, 4)["NS.objects"] = PlistArray{6}; }, "non-reference"},
        {"keys and objects differ",
         [&](PlistValue& a) {
             objectAt(a, 4)["NS.keys"] = PlistArray{uid(5), uid(5)};
         },
         "differ in length"},
        {"no $class", [](PlistValue& a) { objectAt(a, 6).erase("$class"); }, "$class"},
        {"$class out of range", [&](PlistValue& a) { objectAt(a, 6)["$class"] = uid(50); },
         "$class reference"},
        {"class entry without name", [](PlistValue& a) { objectAt(a, 8).erase("$classname"); },
         "$classname"},
        {"unknown class", [](PlistValue& a) { objectAt(a, 8)["$classname"] = "VRNeverRegistered"; },
         "cannot decode object of class (VRNeverRegistered)"},
        {"inline text field", [](PlistValue& a) { objectAt(a, 6)["VRSizeEntryWidthKey"] = "wide"; },
         "wrong type"},
        {"object is an array", [](PlistValue& a) { objectsOf(a)[2] = PlistArray{}; }, "wrong type"},
        {"unsupported NSValue", [](PlistValue& a) { objectAt(a, 9)["NS.special"] = 1; },
         "unsupported"},
        {"size value without text", [](PlistValue& a) { objectAt(a, 9)["NS.sizeval"] = 3.0; },
         "NS.sizeval"},
        {"shared references expanding", appendShared, "more than"},
        {"chain too deep", appendChain, "nested deeper"},
    };
    for (const Case& c : cases) {
        PlistValue archive = handBuiltArchive();
        c.spoil(archive);
        ErrorRef error;
        auto start = std::chrono::steady_clock::now();
        auto root = KeyedUnarchiver::unarchiveObjectWithData(binary(archive), &error);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << c.name;
        EXPECT_FALSE(root) << c.name;
        ASSERT_TRUE(error) << c.name;
        EXPECT_EQ(error->domain(), NSCocoaErrorDomain) << c.name;
        EXPECT_EQ(error->code(), NSCoderReadCorruptError) << c.name;
        EXPECT_NE(debugDescription(error).find(c.because), std::string::npos)
            << c.name << ": " << debugDescription(error);
    }
}

TEST(KeyedArchive, DamagedBytesAreRejected) {
    auto bytes = KeyedArchiver::archivedDataWithRootObject(templateRecord());
    ASSERT_TRUE(bytes);
    struct Case {
        const char* name;
        PlistData data;
    } cases[] = {
        {"empty", {}},
        {"truncated", PlistData(bytes->begin(), bytes->begin() + bytes->size() / 2)},
        {"last byte cut", PlistData(bytes->begin(), bytes->end() - 1)},
        {"not an archive", binary(PlistArray{1, 2})},
    };
    for (const Case& c : cases) {
        ErrorRef error;
        EXPECT_FALSE(KeyedUnarchiver::unarchiveObjectWithData(c.data, &error)) << c.name;
        ASSERT_TRUE(error) << c.name;
        EXPECT_EQ(error->code(), NSCoderReadCorruptError) << c.name;
        EXPECT_FALSE(debugDescription(error).empty()) << c.name;
    }
}

TEST(KeyedArchive, FoundationValuesAndEscapedKeysRoundTrip) {
    KeyedUnarchiver::registerClassName("VRProbe");
    using N = ArchiveObject;
    ArchiveObject probe = N::instance("VRProbe", {"VRProbe", "VRBase", "NSObject"});
    probe.encodeObject("$dollar", N::string("kept"));
    probe.encodeObject("list",
                       N::array({N::number(true), N::number(1), N::number(1.0), N::data({1, 2, 3}),
                                 N::date(PlistDate{12.5}), N::null(), N::string("kept")}));
    probe.encodeObject("map", N::dictionary({{N::string("k"), N::sizeValue({0.5, -2})}}));
    probe.encodeObject("nothing", N::null());
    probe.encodeInteger("big", std::numeric_limits<std::int64_t>::min());
    ErrorRef error;
    auto bytes = KeyedArchiver::archivedDataWithRootObject(probe, &error);
    ASSERT_TRUE(bytes) << debugDescription(error);
    auto back = KeyedUnarchiver::unarchiveObjectWithData(*bytes, &error);
    ASSERT_TRUE(back) << debugDescription(error);
    EXPECT_EQ(difference(probe, *back, "probe"), "");
    EXPECT_TRUE(back->containsValueForKey("nothing"));
    EXPECT_EQ(back->decodeObjectForKey("nothing"), nullptr);

    auto tree = PropertyListSerialization::propertyListWithData(*bytes);
    ASSERT_TRUE(tree);
    const PlistValue& root = (*(*tree)["$objects"].array())[(*tree)["$top"]["root"].uid()->value];
    EXPECT_TRUE(root["$$dollar"].isUID());
}

TEST(KeyedArchive, ArchiverRefusesWhatCannotBeRead) {
    ArchiveObject deep = ArchiveObject::array({});
    for (int i = 0; i < KeyedUnarchiver::kMaxDepth; ++i) deep = ArchiveObject::array({deep});
    ArchiveObject badNumber = ArchiveObject::instance("VRProbe");
    badNumber.encodeObject("n", ArchiveObject::number("seven"));
    struct Case {
        const char* name;
        ArchiveObject root;
    } cases[] = {
        {"too deep", deep},
        {"number holding text", badNumber},
        {"nameless class", ArchiveObject::instance("")},
        {"string not UTF-8", ArchiveObject::string("\xFF")},
    };
    for (const Case& c : cases) {
        ErrorRef error;
        EXPECT_FALSE(KeyedArchiver::archivedDataWithRootObject(c.root, &error)) << c.name;
        ASSERT_TRUE(error) << c.name;
        EXPECT_EQ(error->code(), NSPropertyListWriteInvalidError) << c.name;
    }
}

TEST(KeyedArchive, ClassTablesServeSeveralThreads) {
    registerRecordClasses();
    PlistData archive = binary(handBuiltArchive());
    std::vector<std::thread> threads;
    std::vector<int> decoded(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                KeyedUnarchiver::registerClassName("VRThread" + std::to_string(t));
                KeyedUnarchiver::setClassForClassName("VXTemplate", "VRTemplate");
                auto root = KeyedUnarchiver::unarchiveObjectWithData(archive);
                if (root && root->className() == "VXTemplate") ++decoded[t];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(decoded, std::vector<int>(4, 50));
}
