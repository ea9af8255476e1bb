#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "support/TestHome.h"

namespace {

using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

TEST(TemplateCommands, SizeAnswersWithTheResolvedOutput) {
    testing_support::TestHome home;
    struct Case {
        std::string arguments;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {"--template uw-133 --media photo --source 4032x3024",
         {"output: 5363 x 3024", "method: stretch", "frame:  {{0, 0}, {5363, 3024}}"}},
        {"--template uw-133 --media photo --source 3024x4032", {"output: 3024 x 5363"}},
        {"--template uw-133 --media photo --source 3024x4032 --rotated", {"output: 3024 x 5363"}},
        {"--template fb-cover --media photo --source 1000x500",
         {"output: 820 x 360", "method: clip", "format: JPEG"}},
        {"--template fb-cover --media video --source 1920x1080",
         {"output: 820 x 462", "format: MOV"}},
        {"--template fb-cover --media photo --source 1000x500 --rotated", {"output: 360 x 820"}},
        {"--template ig-square-fit --media photo --source 2000x1000",
         {"output: 1080 x 1080", "method: fit", "image:  1080 x 540"}},
        {"--template op-ar-1x1 --media photo --source 1000x500", {"output: 500 x 500"}},
        {"--template ms-universal --media photo --source 1000x500", {"output: 600 x 300"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        Outcome run = unwarp(home, "size " + c.arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        for (const auto& line : c.lines) {
            EXPECT_NE(run.out.find(line + "\n"), std::string::npos) << run.out;
        }
    }
    Outcome run = unwarp(home, "size --template uw-133 --media photo --source 4032x3024 --json");
    ASSERT_EQ(run.exitCode, 0);
    json answer = json::parse(run.out);
    EXPECT_EQ(answer["outputSize"], (json{{"width", 5363}, {"height", 3024}}));
    EXPECT_TRUE(answer["outputSize"]["width"].is_number_integer());
    EXPECT_EQ(answer["exceedsLimit"], false);
}

TEST(TemplateCommands, AUserTemplateOverTheLimitReportsCodeFiveWithItsCorrection) {
    testing_support::TestHome home;
    Outcome created = unwarp(home, "template create --name Full --size 100%x100% --method stretch");
    ASSERT_EQ(created.exitCode, 0) << created.err;
    const std::string key = firstLine(created.out);
    ASSERT_FALSE(key.empty());

    for (const char* deviceClass : {"", " --device-class 1"}) {
        SCOPED_TRACE(deviceClass);
        Outcome run = unwarp(home, "size --template " + key + " --media photo --source 9000x5000" +
                                       deviceClass + " --json");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        json answer = json::parse(run.out);
        EXPECT_EQ(answer["exceedsLimit"], true);
        EXPECT_EQ(answer["errorCode"], 5);
        EXPECT_EQ(answer["exceedingSize"], (json{{"width", 9000}, {"height", 5000}}));
        EXPECT_EQ(answer["correctingSize"], (json{{"width", 8192}, {"height", 4551}}));
    }
    Outcome text = unwarp(home, "size --template " + key + " --media photo --source 9000x5000");
    EXPECT_NE(text.out.find("error code 5"), std::string::npos);
    EXPECT_NE(text.out.find("correction: 8192 x 4551"), std::string::npos);
    Outcome small = unwarp(home, "size --template " + key + " --media photo --source 8000x5000");
    EXPECT_NE(small.out.find("output: 8000 x 5000"), std::string::npos) << small.out;
}

TEST(TemplateCommands, TemplatesListsTheCatalogueAndSearches) {
    testing_support::TestHome home;
    Outcome run = unwarp(home, "templates --json");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json sections = json::parse(run.out);
    ASSERT_EQ(sections.size(), 8u);
    std::size_t items = 0;
    for (const auto& section : sections) items += section["items"].size();
    EXPECT_EQ(items, 109u);
    EXPECT_EQ(sections[0]["title"], "Unwarp");
    const json& first = sections[0]["items"][0];
    EXPECT_EQ(first["identifier"], "uw-133");
    EXPECT_EQ(first["subtitles"], json::array({"133 x 100 % [S]", " "}));
    EXPECT_EQ(first["imageSource"], json({{"bundle", {{"_0", "tpl-uw-133"}}}}));
    EXPECT_EQ(first["descriptionLine"],
              "Photo: Stretch 133 x 100 % Smart to AUTO\nVideo: Stretch 133 x 100 % Smart to AUTO");

    Outcome search = unwarp(home, "templates --search INSTA");
    ASSERT_EQ(search.exitCode, 0);
    EXPECT_EQ(firstLine(search.out), "Instagram - Create media for Instagram");
    EXPECT_NE(search.out.find("Instagram Square  [ig-square]"), std::string::npos);
    EXPECT_EQ(search.out.find("Facebook"), std::string::npos);

    Outcome none = unwarp(home, "templates --search no-such-words --json");
    EXPECT_EQ(json::parse(none.out), json::array());
}

TEST(TemplateCommands, UserTemplatesAreCreatedRenamedDuplicatedAndRemoved) {
    testing_support::TestHome home;
    Outcome created = unwarp(home,
                             "template create --name Cinema --size 16:9 --video-size 1920x1080 "
                             "--method clip --smart --photo-format png --video-format mp4");
    ASSERT_EQ(created.exitCode, 0) << created.err;
    const std::string key = firstLine(created.out);

    Outcome shown = unwarp(home, "template show " + key + " --json");
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    json tpl = json::parse(shown.out);
    EXPECT_EQ(tpl["name"], "Cinema");
    EXPECT_EQ(tpl["locked"], false);
    EXPECT_EQ(tpl["stored"], true);
    EXPECT_EQ(tpl["photo"]["type"], 3);
    EXPECT_EQ(tpl["photo"]["width"], 16);
    EXPECT_EQ(tpl["photo"]["height"], 9);
    EXPECT_EQ(tpl["photo"]["options"], json::array({1, 3}));
    EXPECT_EQ(tpl["photo"]["format"], "PNG");
    EXPECT_EQ(tpl["video"]["width"], 1920);
    EXPECT_EQ(tpl["video"]["height"], 1080);
    EXPECT_EQ(tpl["video"]["format"], "MP4");

    Outcome blank = unwarp(home, "template create --name ' ' --size 1200xauto --media photo");
    ASSERT_EQ(blank.exitCode, 0) << blank.err;
    const std::string second = firstLine(blank.out);
    json blankShown = json::parse(unwarp(home, "template show " + second + " --json").out);
    EXPECT_EQ(blankShown["name"], "Template 1");
    EXPECT_TRUE(blankShown["video"].is_null());
    // A name of no-break spaces is as blank, and the counter goes on.
    Outcome nbsp = unwarp(home, "template create --name '\xc2\xa0\xc2\xa0' --size 10x10");
    ASSERT_EQ(nbsp.exitCode, 0) << nbsp.err;
    const std::string third = firstLine(nbsp.out);
    EXPECT_EQ(json::parse(unwarp(home, "template show " + third + " --json").out)["name"],
              "Template 2");
    EXPECT_EQ(unwarp(home, "template remove " + third).exitCode, 0);

    EXPECT_EQ(unwarp(home, "template rename " + key + " 'Wide Cinema'").exitCode, 0);
    Outcome duplicated = unwarp(home, "template duplicate " + key + " --name Copy");
    ASSERT_EQ(duplicated.exitCode, 0) << duplicated.err;
    const std::string copy = firstLine(duplicated.out);
    EXPECT_EQ(unwarp(home, "template remove " + second).exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(home.path("documents/_cs-templates/" + second)));

    json sections = json::parse(unwarp(home, "templates --json").out);
    const json& mine = sections.back();
    EXPECT_EQ(mine["title"], "Your Templates");
    ASSERT_EQ(mine["items"].size(), 2u);
    EXPECT_EQ(mine["items"][0]["identifier"], key);
    EXPECT_EQ(mine["items"][0]["title"], "Wide Cinema");
    EXPECT_EQ(mine["items"][1]["identifier"], copy);
    EXPECT_EQ(mine["items"][1]["title"], "Copy");
    EXPECT_EQ(json::parse(unwarp(home, "template show " + copy + " --json").out)["photo"]["type"],
              3);
}

TEST(TemplateCommands, BadValuesAreUsageErrors) {
    testing_support::TestHome home;
    const std::vector<std::string> cases = {
        "size --template uw-133 --media audio --source 10x10",
        "size --template uw-133 --media photo --source 10x",
        "size --template uw-133 --media photo --source -5x10",
        "size --template uw-133 --media photo --source 10x10 --device-class 9",
        "template create --size 12x",
        "template create --size 100%x50",
        "template create --size 16:0",
        "template create --size nanxinf",
        "template create --size 10x10 --method squash",
        "template create --size 10x10 --photo-format mov",
        "template create --size 10x10 --video-format jpeg",
        "template create --size 10x10 --media audio",
        "settings get no-such-setting",
        "settings set photoJPEGCompression 150",
        "settings set autoSaveDisabled maybe",
        "settings set settingsInit 2",
        "settings set videoBitrate 11.555",
        "settings set videoBitrate 05",
        "settings set videoBitrate 1e3",
    };
    for (const auto& arguments : cases) {
        SCOPED_TRACE(arguments);
        Outcome run = unwarp(home, arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err.rfind("unwarp: ", 0), 0u) << run.err;
    }
}

// A missing key is a failure of the run (1), not a mistake in the command line (2).
TEST(TemplateCommands, AMissingTemplateKeyExitsOne) {
    testing_support::TestHome home;
    for (const std::string arguments :
         {"size --template no-such --media photo --source 10x10", "template show no-such-key",
          "template rename uw-133 Mine", "template remove uw-133", "template remove no-such-key",
          "template duplicate no-such-key"}) {
        SCOPED_TRACE(arguments);
        Outcome run = unwarp(home, arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err.rfind("unwarp: ", 0), 0u) << run.err;
    }
}

// Every width and height in the JSON of templates, template show and size is an integer,
// under the same two field names.
TEST(TemplateCommands, JsonSizesAreIntegersWithOneFieldSet) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "template create --name Mine --size 1200x600").exitCode, 0);
    const auto expectSize = [](const json& object, const std::string& where) {
        ASSERT_TRUE(object.is_object()) << where;
        EXPECT_TRUE(object["width"].is_number_integer()) << where << ": " << object.dump();
        EXPECT_TRUE(object["height"].is_number_integer()) << where << ": " << object.dump();
    };
    Outcome listed = unwarp(home, "templates --json");
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    std::size_t media = 0;
    for (const json& section : json::parse(listed.out)) {
        for (const json& item : section["items"]) {
            for (const char* type : {"photo", "video"}) {
                if (item[type].is_null()) continue;
                expectSize(item[type], item["identifier"].get<std::string>() + " " + type);
                ++media;
            }
        }
    }
    EXPECT_GT(media, 200u);
    json shown = json::parse(unwarp(home, "template show uw-133 --json").out);
    expectSize(shown["photo"], "template show");
    EXPECT_EQ(shown["photo"]["width"], 133);
    json sized = json::parse(
        unwarp(home, "size --template ig-square-fit --media photo --source 2000x1000 --json").out);
    for (const char* field : {"outputSize", "imageSize", "frame"}) expectSize(sized[field], field);
    EXPECT_EQ(sized["imageSize"], (json{{"width", 1080}, {"height", 540}}));
    EXPECT_EQ(sized["frame"]["width"], 1080);
}

TEST(TemplateCommands, SettingsShowStoredKeysAndValuesBesideTheirMeaning) {
    testing_support::TestHome home;
    struct Case {
        std::string arguments;
        int exitCode;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"settings get autoSaveDisabled", 0,
         "autoSaveDisabled = true (results are not saved to the library)\n"},
        {"settings get isPixelSizeEnabled", 0,
         "pixelSizeDisabled = false (sizes are shown in pixels)\n"},
        // A fresh home shows the migrated options, as every later use reads them.
        {"settings get imageOptions", 0, "imageOptions = [5, 0]\n"},
        {"settings get photoJPEGCompression", 0, "photoJPEGCompression = 85\n"},
        {"settings get exportFilenameBasename", 0, "exportFilenameBasename = uwrp_img\n"},
        // By the stored key the value is stored as given; by the accessor it is its meaning.
        {"settings set copyGpsMetadataDisabled true", 0,
         "copyGpsMetadataDisabled = true (GPS is not copied)\n"},
        {"settings get shouldCopyGpsMetadata", 0,
         "copyGpsMetadataDisabled = true (GPS is not copied)\n"},
        {"settings set shouldCopyGpsMetadata true", 0,
         "copyGpsMetadataDisabled = false (GPS is copied)\n"},
        {"settings set autoSaveDisabled false", 0,
         "autoSaveDisabled = false (results are saved to the library)\n"},
        {"settings set isAutoSaveEnabled false", 0,
         "autoSaveDisabled = true (results are not saved to the library)\n"},
        {"settings set imageFormat heic", 0, "imageFormat = 5 (HEIC)\n"},
        {"settings set videoSizes 1280x720,640x360", 0, "videoSizes = 1280 x 720, 640 x 360\n"},
        {"settings set vr-defaults-tpl-sorting selection", 0,
         "vr-defaults-tpl-sorting = selection\n"},
        // The bit rate field: two decimals at most, a comma is a point, no leading zero.
        {"settings set videoBitrate 11,5", 0,
         "videoBitrate = 11.5 (not used while videoBitrateAuto is true)\n"},
        {"settings set videoBitrate 11.555", 2, ""},
        {"settings set videoBitrate 05", 2, ""},
        {"settings set videoBitrate .5", 0,
         "videoBitrate = 0.5 (not used while videoBitrateAuto is true)\n"},
        {"settings set videoBitrateAuto false", 0,
         "videoBitrateAuto = false (videoBitrate is used)\n"},
        {"settings get videoBitrate", 0, "videoBitrate = 0.5 (0.5 Mbit/s)\n"},
        // The report address goes to the mail program as an argument: one plain address.
        {"settings get supportEmailAddress", 0,
         "supportEmailAddress = support@vorela.com (Where error reports are mailed; empty for "
         "the default)\n"},
        {"settings set supportEmailAddress ops@example.org", 0,
         "supportEmailAddress = ops@example.org (Where error reports are mailed; empty for the "
         "default)\n"},
        {"settings set supportEmailAddress -- --attach=x@y", 2, ""},
        {"settings set supportEmailAddress 'a b@example.org'", 2, ""},
        {"settings reset", 0, ""},
        {"settings get autoSaveDisabled", 0,
         "autoSaveDisabled = true (results are not saved to the library)\n"},
        {"settings get imageFormat", 0, "imageFormat = 0 (Auto)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        Outcome run = unwarp(home, c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
        EXPECT_EQ(run.out, c.expected);
    }
    Outcome list = unwarp(home, "settings list");
    ASSERT_EQ(list.exitCode, 0);
    EXPECT_NE(list.out.find("copyGpsMetadataDisabled = false (GPS is copied)\n"),
              std::string::npos);
    EXPECT_NE(list.out.find("settingsSmartSizeUpdate = 1  [read-only]\n"), std::string::npos);
}

TEST(TemplateCommands, CorruptedListFilesNeverStopTheCommands) {
    testing_support::TestHome home;
    Outcome created = unwarp(home, "template create --name Kept --size 800x600");
    ASSERT_EQ(created.exitCode, 0);
    const std::string key = firstLine(created.out);
    for (const char* file : {"list", "recents", "collection"}) {
        std::ofstream(home.path(std::string("documents/templates/") + file), std::ios::trunc)
            << "{\"broken\": [1, 2";
    }
    std::ofstream(home.path("documents/_cs-templates/" + key + "/template-data"), std::ios::trunc)
        << "bplist00 garbage";
    Outcome listed = unwarp(home, "templates");
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_NE(listed.out.find("Unwarp - Anamorphic un-warp"), std::string::npos);
    Outcome shown = unwarp(home, "template show " + key);
    EXPECT_EQ(shown.exitCode, 1);
    // Each unreadable list was kept aside as it was, not overwritten.
    std::size_t kept = 0;
    for (const auto& name : command_test::filesIn(home.path("documents/templates"))) {
        if (name.find(".unreadable-") == std::string::npos) continue;
        std::ifstream in(home.path("documents/templates/" + name));
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "{\"broken\": [1, 2");
        ++kept;
    }
    EXPECT_GE(kept, 2u) << "templates/list and templates/recents";
    Outcome sized = unwarp(home, "size --template uw-150 --media video --source 1920x1080");
    EXPECT_EQ(sized.exitCode, 0);
    EXPECT_NE(sized.out.find("output: 2880 x 1080"), std::string::npos) << sized.out;
}

TEST(TemplateCommands, EditShowsTheSizeEditorAndSavesAsItWould) {
    testing_support::TestHome home;
    // The X template's [3] opens completed with Normal size; "012" is refused, and a lone 0 in
    // pixels clears the other field instead.
    Outcome shown = unwarp(home, "template edit tw-cover width=012 --mode smart height=0");
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.out,
              "X Cover  [tw-cover], photo size editor\n"
              "width:  Auto\n"
              "height: 500\n"
              "unit:   px\n"
              "refused: width \"012\"\n"
              "refused: height \"0\"\n"
              "buttons: Normal size; [Smart size]; [Ratio clip]; Ratio fit; Stretch;\n"
              "swap control: enabled\n"
              "ratio toggle: disabled\n"
              "result: Auto x 500 px, clip, options [1,3], JPEG\n");

    json ratio = json::parse(
        unwarp(home, "template edit tw-cover type=up width=16 height=9 --toggle-ratio --json").out);
    EXPECT_EQ(ratio["fields"]["unit"], "down");
    EXPECT_EQ(ratio["ratioToggle"]["enabled"], true);
    // The typed size goes first, before the template's; the list keeps ten.
    ASSERT_EQ(ratio["recentSizes"].size(), 10u);
    EXPECT_EQ(ratio["recentSizes"][0], ratio["result"]["size"]);
    EXPECT_EQ(ratio["recentSizes"][1], "1500 x 500 px");
    EXPECT_TRUE(ratio["saved"].is_null());

    // A built-in one is saved as a new recent; one's own template in place.
    Outcome recent = unwarp(home,
                            "template edit tw-cover --width 1200 --height 1200 "
                            "--method fit --save --json");
    ASSERT_EQ(recent.exitCode, 0) << recent.err;
    json saved = json::parse(recent.out);
    EXPECT_EQ(saved["swapControl"]["enabled"], false) << "a square has nothing to swap";
    const std::string recentKey = saved["saved"];
    EXPECT_EQ(recentKey.rfind("recent-", 0), 0u);
    json stored = json::parse(unwarp(home, "template show " + recentKey + " --json").out);
    EXPECT_EQ(stored["photo"]["width"], 1200);
    EXPECT_EQ(stored["photo"]["options"], json::array({0, 4}));
    EXPECT_EQ(json::parse(unwarp(home, "template show tw-cover --json").out)["photo"]["width"],
              1500);

    const std::string mine =
        firstLine(unwarp(home, "template create --name Mine --size 800x600").out);
    Outcome edited = unwarp(home, "template edit " + mine + " --media video height=450 --save");
    ASSERT_EQ(edited.exitCode, 0) << edited.err;
    EXPECT_NE(edited.out.find("saved: " + mine), std::string::npos) << edited.out;
    json mineShown = json::parse(unwarp(home, "template show " + mine + " --json").out);
    EXPECT_EQ(mineShown["name"], "Mine");
    EXPECT_EQ(mineShown["video"]["height"], 450);
    EXPECT_EQ(mineShown["photo"]["height"], 600);

    EXPECT_EQ(unwarp(home, "template edit tw-cover colour=red").exitCode, 2);
    EXPECT_EQ(unwarp(home, "template edit no-such-key").exitCode, 1);
}

}  // namespace
