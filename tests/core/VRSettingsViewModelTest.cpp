#include "core/VRSettingsViewModel.h"

#include <gtest/gtest.h>

#include <set>

#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"
#include "support/TestHome.h"

namespace {

class VRSettingsViewModelTest : public ::testing::Test {
  protected:
    void SetUp() override { VRSettingsViewModel::prepare(); }
    testing_support::TestHome home;
};

std::string stored(const std::string& name) {
    return VRSettingsViewModel::itemNamed(name)->get();
}

// Every key the settings dictionary holds after the first run, and every key of the newer
// settings, has a row: nothing the program stores is left off the settings screens.
TEST_F(VRSettingsViewModelTest, EveryStoredSettingHasARowOnAScreen) {
    std::set<std::string> keys;
    const auto settings = VRSettings::userDefaults().objectForKey(VRSettingsDefaultsKey);
    ASSERT_NE(settings.dictionary(), nullptr);
    for (const auto& [key, value] : *settings.dictionary()) keys.insert(key);
    for (const char* key :
         {VRSettings2SummaryNoteHiddenKey, VRSettings2AdvancedNoteHiddenKey,
          VRSettings2VideoColorKey, VRSettings2PhotoColorKey, VRSettings2PrivateAccessWarnedKey,
          VRSettings2RecentsSelectedKey, VRSettings2TemplateSortingKey,
          VRSettings2TemplateCustomPersonalKey, VRSettings2TemplateCustomOnKey,
          "originalFilenameSuffixActive", "livePhotoEnabled", "exportFilenameBasename",
          "videoCodecType", "vr-unwarp-home-screen-mode"})
        keys.insert(key);
    for (const auto& key : keys) {
        const VRSettingsItem* item = VRSettingsViewModel::itemNamed(key);
        ASSERT_NE(item, nullptr) << key;
        EXPECT_FALSE(item->section.empty()) << key;
        EXPECT_FALSE(item->label.empty()) << key;
    }
    std::set<VRSettingsScreen> listed;
    for (auto screen : VRSettingsViewModel::screens()) {
        EXPECT_FALSE(VRSettingsViewModel::titleOfScreen(screen).empty());
        listed.insert(screen);
    }
    for (const auto& item : VRSettingsViewModel::items())
        EXPECT_TRUE(listed.count(item.screen)) << item.key << " is on no listed screen";
}

// The encoding screen lists its sections in its own order, the automatic switch before the
// custom value, whatever order the settings file keeps them in.
TEST_F(VRSettingsViewModelTest, TheEncodingScreenKeepsItsOwnOrder) {
    std::vector<std::string> sections, photoDPI;
    for (const auto& rows : VRSettingsViewModel::sectionsOfScreen(VRSettingsScreen::processing)) {
        sections.push_back(rows.front()->section);
        if (rows.front()->section == "Photo DPI")
            for (const auto* row : rows) photoDPI.push_back(row->label);
    }
    EXPECT_EQ(sections, (std::vector<std::string>{"Photo DPI", "Video Codec", "Video Bitrate",
                                                  "JPEG / HEIC Quality", "Max Size Behaviour"}));
    EXPECT_EQ(photoDPI, (std::vector<std::string>{"Automatic", "Custom"}));
}

// A choice shows its current value as one of its choices, whatever was stored, so the screen
// always marks one.
TEST_F(VRSettingsViewModelTest, ChoicesMarkTheStoredValue) {
    const struct {
        const char* name;
        const char* value;
    } cases[] = {
        {"imageFormat", "PNG"},      {"videoFormat", "MP4"},  {"videoCodecType", "2"},
        {"exportFilenameType", "1"}, {"colorThemeType", "2"}, {"templateSorting", "selection"},
        {"imageFormat", "Auto"},
    };
    for (const auto& c : cases) {
        std::string problem;
        ASSERT_TRUE(VRSettingsViewModel::setValue(c.name, c.value, &problem)) << problem;
        const VRSettingsItem* item = VRSettingsViewModel::itemNamed(c.name);
        ASSERT_EQ(item->kind, VRSettingsItem::Kind::choice) << c.name;
        EXPECT_EQ(item->accessorValue(), c.value) << c.name;
        int marked = 0;
        for (const auto& choice : item->choices) marked += choice.value == item->accessorValue();
        EXPECT_EQ(marked, 1) << c.name;
    }
}

// By the accessor's name a value is the accessor's; by the stored key it is stored as given.
// A refused value, a read-only setting and an unknown name change nothing.
TEST_F(VRSettingsViewModelTest, ValuesAreTakenByTheSettingsOwnRules) {
    const struct {
        const char* name;
        const char* text;
        bool accepted;
        const char* key;
        const char* storedAfter;
        const char* accessorAfter;
    } cases[] = {
        {"isAutoSaveEnabled", "true", true, "autoSaveDisabled", "false", "true"},
        {"autoSaveDisabled", "true", true, "autoSaveDisabled", "true", "false"},
        {"shouldCopyGpsMetadata", "false", true, "copyGpsMetadataDisabled", "true", "false"},
        {"livePhotoEnabled", "on", true, "livePhotoEnabled", "true", "true"},
        {"isAutoSaveEnabled", "maybe", false, "autoSaveDisabled", "true", "false"},
        {"videoBitrate", "11,5", true, "videoBitrate", "11.5", "11.5"},
        {"videoBitrate", "11.555", false, "videoBitrate", "11.5", "11.5"},
        {"videoBitrate", "05", false, "videoBitrate", "11.5", "11.5"},
        {"photoJPEGCompression", "101", false, "photoJPEGCompression", "85", "85"},
        {"photoJPEGCompression", "70", true, "photoJPEGCompression", "70", "70"},
        {"imageSizes", "100x200, 300x400", true, "imageSizes", "100 x 200, 300 x 400",
         "100 x 200, 300 x 400"},
        {"imageSizes", "100x0", false, "imageSizes", "100 x 200, 300 x 400",
         "100 x 200, 300 x 400"},
        {"imageFormat", "MOV", false, "imageFormat", "0 (Auto)", "Auto"},
        {"settingsInit", "2", false, "settingsInit", "1", "1"},
        {"supportEmailAddress", "-x@y", false, "supportEmailAddress", "support@vorela.com",
         "support@vorela.com"},
    };
    for (const auto& c : cases) {
        std::string problem;
        EXPECT_EQ(VRSettingsViewModel::setValue(c.name, c.text, &problem), c.accepted)
            << c.name << " " << c.text;
        EXPECT_EQ(c.accepted, problem.empty()) << c.name << " " << c.text << ": " << problem;
        const VRSettingsItem* item = VRSettingsViewModel::itemNamed(c.key);
        EXPECT_EQ(item->get(), c.storedAfter) << c.name << " " << c.text;
        EXPECT_EQ(item->accessorValue(), c.accessorAfter) << c.name << " " << c.text;
    }
    std::string problem;
    EXPECT_FALSE(VRSettingsViewModel::setValue("noSuchSetting", "1", &problem));
    EXPECT_EQ(problem, "unknown setting: noSuchSetting");
    EXPECT_EQ(stored("isAutoSaveEnabled"), "true");
}

}  // namespace
