#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/TestHome.h"
#include "templates/TemplatePictureSource.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VRTemplateListItem.h"
#include "templates/VRTemplateListSection.h"

namespace {

platform::PlistData bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

VRTemplateListItem item(std::string identifier, std::optional<std::string> title,
                        std::vector<std::string> subtitles, std::vector<std::string> keywords = {},
                        std::optional<std::string> description = std::nullopt) {
    return VRTemplateListItem(std::move(identifier), std::move(title), std::move(description),
                              {1, 2}, TemplatePictureSource::empty(),
                              TemplatePictureSource::empty(), std::move(subtitles),
                              std::move(keywords));
}

TEST(VRTemplateListTest, ItemsRoundTripThroughJSONWithEveryPictureSource) {
    const std::vector<VRTemplateListItem> items = {
        VRTemplateListItem("ig-square", "Instagram Square", std::nullopt, {1, 2},
                           TemplatePictureSource::bundle("tpl-ig-square"),
                           TemplatePictureSource::bundle("ig-icon"), {"1080 x 1080 PX", " "}),
        VRTemplateListItem("A-1", std::nullopt, "a line", {2},
                           TemplatePictureSource::templateIdentifier(),
                           TemplatePictureSource::empty(), {}, {"wide", "cinema"}),
    };
    auto read = VRTemplateListCoding::decodeItems(VRTemplateListCoding::encodeItems(items));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, items);

    // The form the platform's JSON coder writes: enumeration cases as keyed objects, the
    // bundle name under "_0", absent optionals left out.
    const std::string text = R"([{"identifier":"x","title":"T","mediaTypes":[2,1],
        "imageSource":{"bundle":{"_0":"tpl-x"}},"iconSource":{"empty":{}},
        "subtitles":["a"],"keywords":[]}])";
    auto decoded = VRTemplateListCoding::decodeItems(bytes(text));
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), 1u);
    EXPECT_EQ((*decoded)[0].imageSource(), TemplatePictureSource::bundle("tpl-x"));
    EXPECT_EQ((*decoded)[0].iconSource(), TemplatePictureSource::empty());
    EXPECT_EQ((*decoded)[0].mediaTypes(), (std::set<std::uint64_t>{1, 2}));
    EXPECT_FALSE((*decoded)[0].description());
    // Stored subtitles are taken as they are.
    EXPECT_EQ((*decoded)[0].subtitles(), std::vector<std::string>{"a"});

    auto strings = VRTemplateListCoding::decodeStrings(
        VRTemplateListCoding::encodeStrings({"uw-133", "fb-cover"}));
    ASSERT_TRUE(strings);
    EXPECT_EQ(*strings, (std::vector<std::string>{"uw-133", "fb-cover"}));
}

TEST(VRTemplateListTest, OneSubtitleGetsABlankSecondLine) {
    EXPECT_EQ(item("a", "A", {"x"}).subtitles(), (std::vector<std::string>{"x", " "}));
    EXPECT_EQ(item("a", "A", {"x", "y"}).subtitles(), (std::vector<std::string>{"x", "y"}));
    EXPECT_TRUE(item("a", "A", {}).subtitles().empty());
}

TEST(VRTemplateListTest, MalformedListFilesAreRefusedWithAReason) {
    const std::string good = R"("identifier":"k","mediaTypes":[1],"imageSource":{"empty":{}},)"
                             R"("iconSource":{"empty":{}},"subtitles":[],"keywords":[])";
    struct Case {
        const char* what;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"empty file", ""},
        {"not JSON", "hello"},
        {"truncated", "[{" + good},
        {"an object, not an array", "{" + good + "}"},
        {"an item that is a string", R"(["k"])"},
        {"missing identifier", R"([{"mediaTypes":[1],"imageSource":{"empty":{}},)"
                               R"("iconSource":{"empty":{}},"subtitles":[],"keywords":[]}])"},
        {"missing keywords", R"([{"identifier":"k","mediaTypes":[1],"imageSource":{"empty":{}},)"
                             R"("iconSource":{"empty":{}},"subtitles":[]}])"},
        {"identifier is a number", "[{" + good + R"(,"identifier":5}])"},
        {"negative media type", R"([{"identifier":"k","mediaTypes":[-1],)"
                                R"("imageSource":{"empty":{}},"iconSource":{"empty":{}},)"
                                R"("subtitles":[],"keywords":[]}])"},
        {"unknown picture case", R"([{"identifier":"k","mediaTypes":[1],)"
                                 R"("imageSource":{"url":{}},"iconSource":{"empty":{}},)"
                                 R"("subtitles":[],"keywords":[]}])"},
        {"bundle without a name", R"([{"identifier":"k","mediaTypes":[1],)"
                                  R"("imageSource":{"bundle":{}},"iconSource":{"empty":{}},)"
                                  R"("subtitles":[],"keywords":[]}])"},
        {"subtitle that is a number",
         "[{" + good.substr(0, good.find("\"subtitles\"")) + R"("subtitles":[1],"keywords":[]}])"},
        {"deep nesting", std::string(100000, '[') + std::string(100000, ']')},
        {"invalid UTF-8", "[\"\xff\xfe\"]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform::ErrorRef error;
        EXPECT_FALSE(VRTemplateListCoding::decodeItems(bytes(c.text), &error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), platform::NSFileReadCorruptFileError);
    }
    // The same input reads when it is well formed.
    EXPECT_TRUE(VRTemplateListCoding::decodeItems(bytes("[{" + good + "}]")));
    EXPECT_FALSE(VRTemplateListCoding::decodeStrings(bytes(R"(["a", 1])")));
    EXPECT_FALSE(VRTemplateListCoding::decodeItems(
        platform::PlistData(VRTemplateListCoding::kMaxFileBytes + 1, ' ')));
}

TEST(VRTemplateListTest, SearchMatchesTitleSubtitlesOrKeywordsCaseInsensitively) {
    VRTemplateListSection section(
        "S", "s", {},
        {item("ig-square", "Instagram Square", {"1080 x 1080 PX"}),
         item("untitled", std::nullopt, {"820 x 462 PX"}), item("kw", "Poster", {}, {"cinema"}),
         item("hidden", "Plain", {}, {}, "instagram in the description only"),
         item("insta-key", "Other", {}), item("elan", "\xc3\x89lan Vital", {}),
         item("strasse", "STRASSE", {}), item("decomposed", "Cafe\xcc\x81", {})});
    struct Case {
        std::string query;
        std::vector<std::string> keys;
    };
    const std::vector<Case> cases = {
        {"INSTA", {"ig-square"}},
        {"square", {"ig-square"}},
        {"462", {"untitled"}},
        {"CINEMA", {"kw"}},
        {"  poster \n", {"kw"}},
        {"x", {"ig-square", "untitled"}},
        {"nothing like it", {}},
        {"description", {}},
        // Case folds beyond ASCII, fully, and a decomposed accent equals the composed one.
        {"\xc3\xa9lan", {"elan"}},
        {"\xc3\x89LAN", {"elan"}},
        {"stra\xc3\x9f"
         "e",
         {"strasse"}},
        {"caf\xc3\xa9", {"decomposed"}},
        {"\xc3\xa9", {"elan", "decomposed"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query);
        section.search(c.query);
        ASSERT_TRUE(section.isSearching());
        std::vector<std::string> keys;
        for (const auto& found : section.visibleItems()) keys.push_back(found.identifier());
        EXPECT_EQ(keys, c.keys);
    }
    section.search("   ");
    EXPECT_FALSE(section.isSearching());
    EXPECT_EQ(section.visibleItems().size(), 8u);
    section.search("insta");
    section.clearSearch();
    EXPECT_EQ(section.visibleItems().size(), 8u);
}

TEST(VRTemplateListTest, PicturesFallBackToTheSampleImage) {
    testing_support::TestHome home;
    const std::string resources = home.path("resources");
    std::filesystem::create_directories(resources);
    std::ofstream(resources + "/tpl-uw-133.png") << "png";
    std::ofstream(home.path("thumbnail")) << "jpg";
    const std::string fallback = resources + "/sample-landscape.jpg";
    struct Case {
        TemplatePictureSource source;
        std::string thumbnail;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {TemplatePictureSource::bundle("tpl-uw-133"), "", resources + "/tpl-uw-133.png"},
        {TemplatePictureSource::bundle("tpl-unknown"), "", fallback},
        {TemplatePictureSource::bundle("../thumbnail"), "", fallback},
        {TemplatePictureSource::empty(), home.path("thumbnail"), fallback},
        {TemplatePictureSource::templateIdentifier(), home.path("thumbnail"),
         home.path("thumbnail")},
        {TemplatePictureSource::templateIdentifier(), home.path("missing"), fallback},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.source.resolvedPath(resources, c.thumbnail), c.expected);
    }
}

}  // namespace
