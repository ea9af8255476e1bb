#include "platform/PropertyListSerialization.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <limits>
#include <string>

#include "support/TestHome.h"

using namespace platform;

namespace {

using Bytes = std::vector<std::uint8_t>;

// A binary property list assembled from encoded objects, with references of `refSize` bytes and
// two-byte offsets; object 0 is the top unless told otherwise.
PlistData binaryPlist(const std::vector<Bytes>& objects, std::uint64_t top = 0,
                      std::uint8_t refSize = 1) {
    PlistData out = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    std::vector<std::size_t> offsets;
    for (const Bytes& o : objects) {
        offsets.push_back(out.size());
        out.insert(out.end(), o.begin(), o.end());
    }
    std::uint64_t table = out.size();
    for (std::size_t o : offsets) {
        out.push_back(static_cast<std::uint8_t>(o >> 8));
        out.push_back(static_cast<std::uint8_t>(o));
    }
    auto put64 = [&](std::uint64_t v) {
        for (int i = 7; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    };
    out.insert(out.end(), {0, 0, 0, 0, 0, 0, 2, refSize});
    put64(objects.size());
    put64(top);
    put64(table);
    return out;
}

PlistData text(const std::string& s) {
    return PlistData(s.begin(), s.end());
}

std::string debugDescription(const ErrorRef& error) {
    if (!error) return "(no error)";
    const PlistValue& d = error->userInfo().count(NSDebugDescriptionErrorKey)
                              ? error->userInfo().at(NSDebugDescriptionErrorKey)
                              : PlistValue();
    return d.string() ? *d.string() : "";
}

PlistValue nested(int depth) {
    PlistValue v = PlistArray{};
    for (int i = 1; i < depth; ++i) v = PlistArray{v};
    return v;
}

PlistValue sample() {
    PlistData bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<std::uint8_t>(i));
    return PlistDictionary{
        {"bool", true},
        {"int", 1},
        {"real", 1.0},
        {"mixed", PlistArray{1, 1.0, true, 0, 0.0, false}},
        {"text", "h\xC3\xA9llo <&> \xF0\x9F\x98\x80"},
        {"data", bytes},
        {"date", PlistDate{86400.0 * 365}},
        {"nested", PlistDictionary{{"empty array", PlistArray{}}, {"", PlistDictionary{}}}},
    };
}

}  // namespace

TEST(PropertyListSerialization, RoundTripsKeepTypeAndValueInBothForms) {
    const PlistValue values[] = {
        true,
        false,
        0,
        1,
        -1,
        std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min(),
        0.0,
        1.0,
        -2.5,
        0.1,
        1e300,
        5e-324,
        std::numeric_limits<double>::infinity(),
        "",
        "plain",
        "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 <tag> & \"quotes\"",
        PlistData{},
        PlistData{0, 0xFF, 0x80},
        PlistDate{0},
        PlistDate{-86400.0 * 365 * 30},
        PlistArray{},
        PlistDictionary{},
        sample(),
    };
    for (PropertyListFormat format :
         {NSPropertyListXMLFormat_v1_0, NSPropertyListBinaryFormat_v1_0}) {
        for (const PlistValue& value : values) {
            ErrorRef error;
            auto bytes = PropertyListSerialization::dataWithPropertyList(value, format, 0, &error);
            ASSERT_TRUE(bytes) << value.debugDescription() << ": " << debugDescription(error);
            PropertyListFormat found{};
            auto back = PropertyListSerialization::propertyListWithData(*bytes, &found, &error);
            ASSERT_TRUE(back) << value.debugDescription() << ": " << debugDescription(error);
            EXPECT_EQ(*back, value) << "format " << format << ": " << value.debugDescription()
                                    << " came back as " << back->debugDescription();
            EXPECT_EQ(found, format);
        }
    }
}

TEST(PropertyListSerialization, BinaryKeepsFractionalDatesAndNaN) {
    // Dates before the reference date with a fraction are where libplist's reader goes wrong.
    for (double seconds : {0.5, -4.75, 1234567.125, -987654321.25}) {
        auto bytes = PropertyListSerialization::dataWithPropertyList(
            PlistDate{seconds}, NSPropertyListBinaryFormat_v1_0, 0);
        ASSERT_TRUE(bytes);
        auto back = PropertyListSerialization::propertyListWithData(*bytes);
        ASSERT_TRUE(back && back->date());
        EXPECT_EQ(back->date()->sinceReferenceDate, seconds);
    }
    for (PropertyListFormat format :
         {NSPropertyListXMLFormat_v1_0, NSPropertyListBinaryFormat_v1_0}) {
        auto bytes = PropertyListSerialization::dataWithPropertyList(std::nan(""), format, 0);
        ASSERT_TRUE(bytes);
        auto back = PropertyListSerialization::propertyListWithData(*bytes);
        ASSERT_TRUE(back && back->isReal());
        EXPECT_TRUE(std::isnan(back->doubleValue()));
    }
}

TEST(PropertyListSerialization, XmlFormIsXmlPropertyListTextThatPythonReads) {
    auto bytes =
        PropertyListSerialization::dataWithPropertyList(sample(), NSPropertyListXMLFormat_v1_0, 0);
    ASSERT_TRUE(bytes);
    std::string xml(bytes->begin(), bytes->end());
    EXPECT_EQ(xml.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u) << xml;
    EXPECT_NE(xml.find("<!DOCTYPE plist"), std::string::npos);
    EXPECT_NE(xml.find("<plist version=\"1.0\">"), std::string::npos);
    EXPECT_NE(xml.find("<key>int</key>\n\t<integer>1</integer>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<key>bool</key>\n\t<true/>"), std::string::npos);
    EXPECT_NE(xml.find("<key>real</key>\n\t<real>1"), std::string::npos);
    EXPECT_NE(xml.find("&lt;&amp;&gt;"), std::string::npos);
    EXPECT_NE(xml.find("<date>2002-01-01T00:00:00Z</date>"), std::string::npos);

    testing_support::TestHome home;
    std::string path = home.path("sample.plist");
    std::ofstream(path, std::ios::binary)
        .write(xml.data(), static_cast<std::streamsize>(xml.size()));
    std::string seen;
    int status = testing_support::runCommand(
        "python3 -c \"import plistlib,sys; d=plistlib.load(open(sys.argv[1],'rb')); "
        "print([type(x).__name__ for x in d['mixed']], d['int'], d['text'] == "
        "'h\\u00e9llo <&> \\U0001F600', len(d['data']), d['date'].year)\" " +
            path,
        &seen);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(seen, "['int', 'float', 'bool', 'int', 'float', 'bool'] 1 True 256 2002\n");
}

TEST(PropertyListSerialization, ReadsWhatPythonWrites) {
    testing_support::TestHome home;
    for (const char* form : {"FMT_BINARY", "FMT_XML"}) {
        std::string path = home.path(std::string(form) + ".plist");
        bool binary = std::string(form) == "FMT_BINARY";
        // Python writes UIDs only in the binary form.
        int status = testing_support::runCommand(
            std::string("python3 -c \"import plistlib,sys,datetime; v = {'b': True, 'i': -5, "
                        "'big': 2**64 - 1, 'r': 1.0, 's': 'x\\u00e9', 'd': "
                        "datetime.datetime(2001, 1, 1, 0, 0, 10), 'a': [1, 1.5, False, "
                        "b'\\x00\\x01']}; v.update({'u': plistlib.UID(3)} if sys.argv[2] == "
                        "'FMT_BINARY' else {}); plistlib.dump(v, open(sys.argv[1], 'wb'), "
                        "fmt=getattr(plistlib, sys.argv[2]))\" ") +
            path + " " + form);
        ASSERT_EQ(status, 0);
        std::ifstream in(path, std::ios::binary);
        PlistData bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        PropertyListFormat found{};
        ErrorRef error;
        auto value = PropertyListSerialization::propertyListWithData(bytes, &found, &error);
        ASSERT_TRUE(value) << form << ": " << debugDescription(error);
        EXPECT_EQ(found, binary ? NSPropertyListBinaryFormat_v1_0 : NSPropertyListXMLFormat_v1_0);
        PlistValue expected = PlistDictionary{
            {"b", true},
            {"i", -5},
            {"big", static_cast<std::int64_t>(-1)},  // 2^64-1 keeps its bits
            {"r", 1.0},
            {"s", "x\xC3\xA9"},
            {"d", PlistDate{10}},
            {"a", PlistArray{1, 1.5, false, PlistData{0, 1}}},
        };
        if (binary) (*expected.mutableDictionary())["u"] = PlistUID{3};
        EXPECT_EQ(*value, expected) << form << ": " << value->debugDescription();
        EXPECT_EQ((*value)["big"].unsignedIntegerValue(), ~std::uint64_t{0});
    }
}

TEST(PropertyListSerialization, RefusesToWriteWhatItCannotRepresent) {
    PlistValue archiveWithUID = PlistDictionary{{"$archiver", "NSKeyedArchiver"},
                                                {"$top", PlistDictionary{{"root", PlistUID{1}}}}};
    struct Case {
        const char* name;
        PlistValue value;
    } cases[] = {
        {"null root", PlistValue()},
        {"null inside", PlistArray{1, PlistValue()}},
        {"UID outside an archive", PlistDictionary{{"root", PlistUID{1}}}},
        {"NUL in a string", std::string("a\0b", 3)},
        {"invalid UTF-8", "\xFF\xFE"},
        {"invalid UTF-8 key", PlistDictionary{{"\xC3", 1}}},
        {"surrogate in UTF-8", "\xED\xA0\x80"},
        {"date beyond 2069", PlistDate{4e9}},
        {"NaN date", PlistDate{std::nan("")}},
        {"too deep", nested(PropertyListSerialization::kMaxDepth + 1)},
    };
    for (PropertyListFormat format :
         {NSPropertyListXMLFormat_v1_0, NSPropertyListBinaryFormat_v1_0}) {
        for (const Case& c : cases) {
            ErrorRef error;
            auto bytes =
                PropertyListSerialization::dataWithPropertyList(c.value, format, 0, &error);
            EXPECT_FALSE(bytes) << c.name;
            ASSERT_TRUE(error) << c.name;
            EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
            EXPECT_EQ(error->code(), NSPropertyListWriteInvalidError) << c.name;
            EXPECT_FALSE(debugDescription(error).empty()) << c.name;
        }
        EXPECT_TRUE(PropertyListSerialization::dataWithPropertyList(archiveWithUID, format, 0));
        EXPECT_TRUE(PropertyListSerialization::dataWithPropertyList(
            nested(PropertyListSerialization::kMaxDepth), format, 0));
    }
    ErrorRef error;
    EXPECT_FALSE(PropertyListSerialization::dataWithPropertyList(1, NSPropertyListOpenStepFormat, 0,
                                                                 &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSPropertyListWriteInvalidError);
}

TEST(PropertyListSerialization, ReadsTheDeepestAllowedNestingInBothForms) {
    for (PropertyListFormat format :
         {NSPropertyListXMLFormat_v1_0, NSPropertyListBinaryFormat_v1_0}) {
        PlistValue deepest = nested(PropertyListSerialization::kMaxDepth);
        auto bytes = PropertyListSerialization::dataWithPropertyList(deepest, format, 0);
        ASSERT_TRUE(bytes);
        auto back = PropertyListSerialization::propertyListWithData(*bytes);
        ASSERT_TRUE(back) << format;
        EXPECT_EQ(*back, deepest);
    }
}

TEST(PropertyListSerialization, XmlUIDDictionariesReadAsUIDs) {
    auto value = PropertyListSerialization::propertyListWithData(
        text("<plist><array><dict><key>CF$UID</key><integer>7</integer></dict>"
             "<dict><key>CF$UID</key><string>7</string></dict></array></plist>"));
    ASSERT_TRUE(value && value->array());
    EXPECT_EQ((*value->array())[0], PlistValue(PlistUID{7}));
    EXPECT_TRUE((*value->array())[1].isDictionary());
}

TEST(PropertyListSerialization, RejectsCorruptInputWithAnError) {
    std::string deepXml = "<plist>";
    for (int i = 0; i < 200000; ++i) deepXml += "<array>";
    // Quotes that a reader may or may not honour must not hide the nesting from the guard.
    std::string quotedXml = "<plist>";
    for (int i = 0; i < 2000; ++i) quotedXml += "<array x=\"> </array> \">";
    std::string commentXml = "<plist>";
    for (int i = 0; i < 2000; ++i) commentXml += "<array><!-- --></array>";
    commentXml += "</plist>";
    std::vector<Bytes> deepBinary;
    for (int i = 1; i <= 600; ++i)
        deepBinary.push_back(
            {0xA1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)});
    deepBinary.push_back({0x09});
    // Each array refers twice to the next: 2^41 values once expanded.
    std::vector<Bytes> shared;
    for (int i = 0; i < 40; ++i)
        shared.push_back(
            {0xA2, static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(i + 1)});
    shared.push_back({0x09});
    PlistData valid = binaryPlist({{0xA1, 1}, {0x09}});
    PlistData truncated(valid.begin(), valid.end() - 1);
    PlistData badTrailer = valid;
    badTrailer[badTrailer.size() - 26] = 9;  // offset size 9

    struct Case {
        const char* name;
        PlistData bytes;
        const char* because;
    } cases[] = {
        {"empty", {}, "no data"},
        {"text", text("hello"), "not a property list"},
        {"open step", text("{ a = b; }"), "not a property list"},
        {"broken XML", text("<plist><array><true/></dict></plist>"), "XML"},
        {"XML with NUL reference", text("<plist><string>&#0;</string></plist>"), ""},
        {"XML string not UTF-8", text("<plist><string>\xFF</string></plist>"), "UTF-8"},
        {"deep XML", text(deepXml), "nested deeper"},
        {"deep XML behind quotes", text(quotedXml), "nested deeper"},
        {"newer binary version", text("bplist01" + std::string(40, '\0')), "version"},
        {"short binary", text("bplist00"), "too short"},
        {"truncated binary", truncated, ""},
        {"bad offset size", badTrailer, "offset"},
        {"top out of range", binaryPlist({{0x09}}, 1), "top object"},
        {"reference out of range", binaryPlist({{0xA1, 5}, {0x09}}), "out of range"},
        {"cycle", binaryPlist({{0xA1, 0}}), "cycle"},
        {"mutual cycle", binaryPlist({{0xA1, 1}, {0xA1, 0}}), "cycle"},
        {"count beyond data",
         binaryPlist({{0xAF, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}}),
         "beyond the data"},
        {"string beyond data", binaryPlist({{0x5E, 'a'}}), "beyond the data"},
        {"non-string key", binaryPlist({{0xD1, 1, 1}, {0x10, 0x01}}), "key is not a string"},
        {"integer beyond 64 bits",
         binaryPlist({{0x14, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}}), "64 bits"},
        {"non-ASCII ASCII string", binaryPlist({{0x51, 0xE9}}), "non-ASCII"},
        {"null object", binaryPlist({{0x00}}), "unsupported"},
        {"set object", binaryPlist({{0xC0}}), "unsupported"},
        {"deep binary", binaryPlist(deepBinary, 0, 2), "nested deeper"},
        {"shared objects expanding", binaryPlist(shared), "more than"},
    };
    for (const Case& c : cases) {
        ErrorRef error;
        PropertyListFormat format = NSPropertyListOpenStepFormat;
        auto start = std::chrono::steady_clock::now();
        auto value = PropertyListSerialization::propertyListWithData(c.bytes, &format, &error);
        auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_FALSE(value) << c.name << " gave " << value->debugDescription();
        EXPECT_LT(elapsed, std::chrono::seconds(2)) << c.name;
        EXPECT_EQ(format, NSPropertyListOpenStepFormat) << c.name;
        ASSERT_TRUE(error) << c.name;
        EXPECT_EQ(error->domain(), NSCocoaErrorDomain);
        EXPECT_EQ(error->code(), NSPropertyListReadCorruptError) << c.name;
        EXPECT_NE(debugDescription(error).find(c.because), std::string::npos)
            << c.name << ": " << debugDescription(error);
    }
    // Comments hide nothing, so balanced markup around them reads.
    EXPECT_TRUE(PropertyListSerialization::propertyListWithData(text(commentXml)));
}

TEST(PropertyListSerialization, RefusesOversizedInputBeforeParsing) {
    PlistData huge(PropertyListSerialization::kMaxInputBytes + 1, ' ');
    huge[0] = '<';
    ErrorRef error;
    EXPECT_FALSE(PropertyListSerialization::propertyListWithData(huge, nullptr, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSPropertyListReadCorruptError);
    EXPECT_NE(debugDescription(error).find("limit"), std::string::npos);
}
