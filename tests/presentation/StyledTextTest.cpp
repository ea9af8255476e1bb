#include "presentation/StyledText.h"

#include <gtest/gtest.h>

using platform::PlistDictionary;

namespace {

const PlistDictionary kRed{{"color", "red"}, {"font", "bold"}};
const PlistDictionary kBasic{{"font", "body"}, {"size", 15}};

TEST(StyledText, TagsBecomeRunsAndUnknownOrUnclosedTagsStay) {
    // Tag names of letters with a combining mark, and of another script.
    const std::string accented =
        "re\xcc\x81"
        "d";
    const std::string greek = "\xce\xb1\xce\xb2";
    const PlistDictionary styles{
        {"red", kRed}, {"b", PlistDictionary{{"weight", 7}}}, {accented, kRed}, {greek, kRed}};
    struct Case {
        std::string text;
        std::vector<VRTextRun> runs;
    };
    const Case cases[] = {
        {"", {}},
        {"plain text", {{"plain text", "", {}}}},
        {"Tap [red]Back[/red] button to return to the [red]Main[/red] screen",
         {{"Tap ", "", {}},
          {"Back", "red", kRed},
          {" button to return to the ", "", {}},
          {"Main", "red", kRed},
          {" screen", "", {}}}},
        {"[x]a[/x]", {{"[x]a[/x]", "", {}}}},
        {"[red]a", {{"[red]a", "", {}}}},
        {"[red]a[red]b[/red]", {{"a[red]b", "red", kRed}}},
        {"[b]x[/b][red]y[/red]", {{"x", "b", {{"weight", 7}}}, {"y", "red", kRed}}},
        {"[red][/red]end", {{"end", "", {}}}},
        {"[re d]a[/re d] [] [red]", {{"[re d]a[/re d] [] [red]", "", {}}}},
        // A closing tag in front of its opening tag does not close it.
        {"[/red]a[red]b", {{"[/red]a[red]b", "", {}}}},
        {"[/red]a[red]b[/red]", {{"[/red]a", "", {}}, {"b", "red", kRed}}},
        {"[[red]a[/red]]", {{"[", "", {}}, {"a", "red", kRed}, {"]", "", {}}}},
        {"x[" + accented + "]a[/" + accented + "]", {{"x", "", {}}, {"a", accented, kRed}}},
        {"[" + greek + "]a[/" + greek + "]", {{"a", greek, kRed}}},
        // A symbol is no word character: the tag stays as written.
        {"[\xe2\x82\xac]a[/\xe2\x82\xac]", {{"[\xe2\x82\xac]a[/\xe2\x82\xac]", "", {}}}},
    };
    for (const Case& c : cases) {
        VRAttributedString result = attributedStringWithStyledText(c.text, styles);
        EXPECT_EQ(result.runs, c.runs) << c.text;
    }
}

TEST(StyledText, BasicAttributesCoverEverythingAndWin) {
    const PlistDictionary styles{{"red", kRed}, {VRStyledTextBasicKey, kBasic}};
    VRAttributedString result = attributedStringWithStyledText("a [red]b[/red]", styles);
    ASSERT_EQ(result.runs.size(), 2u);
    EXPECT_EQ(result.runs[0].attributes, kBasic);
    EXPECT_EQ(result.runs[1].attributes,
              (PlistDictionary{{"color", "red"}, {"font", "body"}, {"size", 15}}));
    EXPECT_EQ(result.string(), "a b");

    VRAttributedString untagged = attributedStringWithStyledText("no tags", styles);
    ASSERT_EQ(untagged.runs.size(), 1u);
    EXPECT_EQ(untagged.runs[0].text, "no tags");
    EXPECT_EQ(untagged.runs[0].attributes, kBasic);

    // A basic entry that is no dictionary adds nothing; a style that is none gives no attributes.
    const PlistDictionary odd{{"red", "not attributes"}, {VRStyledTextBasicKey, 5}};
    VRAttributedString plain = attributedStringWithStyledText("[red]a[/red]", odd);
    ASSERT_EQ(plain.runs.size(), 1u);
    EXPECT_EQ(plain.runs[0].styleName, "red");
    EXPECT_TRUE(plain.runs[0].attributes.empty());
}

// A quadratic parser would take minutes here; the suite's time limit catches it, not a clock.
TEST(StyledText, LongTextsWithManyUnclosedTagsStayLinear) {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += "[red]x[/red][y][b]";
    VRAttributedString result =
        attributedStringWithStyledText(text, {{"red", kRed}, {"b", PlistDictionary{}}});
    ASSERT_EQ(result.runs.size(), 40000u);
    EXPECT_EQ(result.runs[1].text, "[y][b]");
    EXPECT_EQ(result.string().size(), 20000u * 7);
}

}  // namespace
