#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "results/SharingNameRules.h"
#include "results/VRHelper.h"
#include "results/VXHelperNames.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

struct StemCase {
    std::string stem;
    bool suffix;
    bool incrementing;
    std::string expected;
};

TEST(Filenames, ResultStemFollowsSuffixSettingAndMovesNumbersOn) {
    const std::string longName(300, 'n');
    const StemCase cases[] = {
        {"IMG_1234", true, true, "IMG_1234-uwrp"},
        {"IMG_1234", false, true, "IMG_1234"},
        {"IMG_1234-uwrp", true, true, "IMG_1234-uwrp"},
        {"IMG_1234-uwrp", false, true, "IMG_1234"},
        {"IMG_1234-uwrp-2", true, true, "IMG_1234-uwrp-3"},
        {"IMG_1234-uwrp-2", false, true, "IMG_1234-3"},
        {"IMG_1234-uwrp 07", true, true, "IMG_1234-uwrp 8"},
        {"IMG_1234-uwrp 07", false, true, "IMG_1234 8"},
        // Without incrementing the number stays, but loses its leading zeros.
        {"IMG_1234-uwrp-007", true, false, "IMG_1234-uwrp-7"},
        // Group 1 needs a character: "-uwrp" alone does not match and gets the suffix after it.
        {"-uwrp", true, true, "-uwrp-uwrp"},
        {"-uwrp", false, true, "-uwrp"},
        // The lazy group grows until the rest fits.
        {"a-uwrp-uwrp", true, true, "a-uwrp-uwrp"},
        {"a-uwrp-uwrp", false, true, "a-uwrp"},
        {"x-uwrp-uwrp-3", true, true, "x-uwrp-uwrp-4"},
        // Separators only, and a separator run without a number.
        {"a-uwrp- -", true, true, "a-uwrp- -"},
        // A number too long to parse counts as no number.
        {"a-uwrp-99999999999999999999", true, true, "a-uwrp-"},
        {"a-uwrp-9223372036854775807", true, true, "a-uwrp-9223372036854775808"},
        // A line break cannot be part of the base.
        {"a\nb-uwrp-1", true, true, "a\nb-uwrp-1-uwrp"},
        {"a-uwrpx", true, true, "a-uwrpx-uwrp"},
        {longName, true, true, longName + "-uwrp"},
        {"", true, true, "-uwrp"},
    };
    for (const StemCase& c : cases) {
        EXPECT_EQ(VRHelper::originaFilename(c.stem, c.suffix, c.incrementing), c.expected)
            << "stem '" << c.stem << "' suffix " << c.suffix;
    }
}

// The rule written with the platform's own regular expression, to check the hand-written matcher.
std::string referenceStem(const std::string& name, bool suffix, bool incrementing) {
    static const std::regex pattern(R"(^(.+?)-uwrp([-\s]*)(\d+)?$)");
    std::smatch match;
    std::string base = name, separator;
    std::optional<unsigned long long> number;
    if (std::regex_match(name, match, pattern)) {
        base = match[1].str();
        separator = match[2].str();
        if (match[3].matched) number = std::stoull(match[3].str());
    }
    std::string result = base + (suffix ? "-uwrp" : "") + separator;
    if (number) result += std::to_string(*number + (incrementing ? 1 : 0));
    return result;
}

TEST(Filenames, ResultStemAgreesWithTheRegularExpressionOnRandomNames) {
    const std::string alphabet = "a-uwrp -uwrp19\n\t";
    std::mt19937 random(20240611);
    std::uniform_int_distribution<std::size_t> length(0, 16);
    std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
    for (int i = 0; i < 3000; ++i) {
        std::string name;
        for (std::size_t n = length(random); n > 0; --n) name += alphabet[letter(random)];
        for (bool suffix : {true, false}) {
            ASSERT_EQ(VRHelper::originaFilename(name, suffix, true),
                      referenceStem(name, suffix, true))
                << "name '" << name << "'";
        }
    }
}

TEST(Filenames, ResultStemReadsTheSuffixSetting) {
    testing_support::TestHome home;
    EXPECT_EQ(VRHelper::originaFilenameForCurrentSettings("IMG_1-uwrp-1", true), "IMG_1-2");
    VRSettings::setOriginalFilenameSuffixEnabled(true);
    EXPECT_EQ(VRHelper::originaFilenameForCurrentSettings("IMG_1-uwrp-1", true), "IMG_1-uwrp-2");
    EXPECT_EQ(VRHelper::originaFilenameForCurrentSettings("IMG_1", false), "IMG_1-uwrp");
}

TEST(Filenames, SharingNamesAndTheirWidth) {
    struct Case {
        std::optional<std::string> base;
        std::uint64_t index, digits;
        std::string extension, expected;
    };
    const Case cases[] = {
        {"trip", 7, 2, "", "trip07"},
        {"trip", 7, 2, "jpg", "trip07.jpg"},
        {"a%b", 7, 2, "", "a07b"},
        {"a%b%c", 5, 1, "mov", "a5b5c.mov"},
        {"x%", 3, 3, "png", "x003.png"},
        {std::nullopt, 1, 3, "png", "img001.png"},
        {"trip", 123, 2, "", "trip123"},
        {"trip", 7, 0, "", "trip7"},
        // In a series of 10 the width is 1, and the last name still has two digits.
        {"s", 10, VXHelper::digitsForCount(10), "", "s10"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VXHelper::sharingFileNameWithBaseName(c.base, c.index, c.digits, c.extension),
                  c.expected);
    }
    EXPECT_EQ(VXHelper::sharingFileNameWithBaseName("a", 1, 1000000, "").size(), 65u);
}

TEST(Filenames, DigitsForCountIsAMinimumWidthNotTheDecimalLength) {
    const std::pair<std::uint64_t, std::uint64_t> cases[] = {
        {0, 1},     {1, 1},      {10, 1},     {11, 2},          {99, 2},   {100, 2},
        {109, 2},   {110, 3},    {999, 3},    {1099, 3},        {1100, 4}, {10999, 4},
        {11000, 5}, {109999, 5}, {110000, 6}, {UINT64_MAX, 20},
    };
    for (auto [count, digits] : cases) {
        EXPECT_EQ(VXHelper::digitsForCount(count), digits) << "count " << count;
    }
}

TEST(Filenames, FileNameAndSharingBaseNameValidity) {
    const std::pair<std::string, bool> fileNames[] = {
        {"photo_1.jpg", true},
        {"a-b@c!d*e", true},
        {"caf\xc3\xa9", true},
        {"\xe6\x97\xa5\xe6\x9c\xac", true},  // two CJK letters
        {"", false},
        {"a b", false},
        {"a/b", false},
        {"a%b", false},
        {"\xe2\x82\xac", false},  // the euro sign is no word character
        {"cafe\xcc\x81", true},   // a combining acute accent is a mark, and \w holds marks
        {"\xe0\xa4\x95\xe0\xa5\x8d\xe0\xa4\xb7", true},  // Devanagari with a virama
        {"a\xe2\x80\xbf"
         "b",
         true},  // a connector punctuation (undertie)
        {"a\xc2\xa0"
         "b",
         false},  // a no-break space
        {"\xff", false},
        {"\xc0\xaf", false},  // invalid and overlong UTF-8
        {"a\xc3", false},
    };
    for (const auto& [name, valid] : fileNames) {
        EXPECT_EQ(VXHelper::isValidFileName(name), valid) << "name '" << name << "'";
    }
    const std::pair<std::string, bool> baseNames[] = {
        {"trip", true},   {"trip%", true}, {"a%b", true},
        {"%", false},     {"", false},     {"a%%b", false},
        {"a%b%c", false}, {"a b%", false}, {"re\xcc\x81sume\xcc\x81%", true},
    };
    for (const auto& [name, valid] : baseNames) {
        EXPECT_EQ(isValidSharingBaseName(name), valid) << "base '" << name << "'";
    }
}

TEST(Filenames, SharingPreview) {
    EXPECT_EQ(sharingNamePreviewText("trip", 2, {}), "trip");
    EXPECT_EQ(sharingNamePreviewText("trip", 2, {"jpg"}), "trip.jpg");
    EXPECT_EQ(sharingNamePreviewText("trip", 2, {"jpg", "mov"}), "trip01.jpg, trip02.mov, etc");
    EXPECT_EQ(sharingNamePreviewText("a%b", 3, {"jpg", "png", "mov"}), "a001b.jpg, a002b.mov, etc");
}

}  // namespace
