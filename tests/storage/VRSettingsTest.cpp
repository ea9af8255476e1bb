#include "storage/VRSettings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>

#include "platform/Environment.h"
#include "platform/Log.h"
#include "support/TestHome.h"

using platform::PlistArray;
using platform::PlistDictionary;
using platform::PlistValue;

namespace {

// Every test starts from a fresh home root, whose defaults file is empty.
class VRSettingsTest : public ::testing::Test {
  protected:
    testing_support::TestHome home;
};

PlistArray sizeArray(double width, double height) {
    return PlistArray{width, height};
}

// A list of size arrays; spelled out because a braced list of one array would copy it.
PlistArray listOf(std::initializer_list<PlistArray> sizes) {
    PlistArray list;
    for (const PlistArray& s : sizes) list.emplace_back(s);
    return list;
}

// The first run, then the migrations of the next call: later calls change nothing by themselves.
void settle() {
    VRSettings::_prepareSettings();
    VRSettings::_prepareSettings();
}

TEST_F(VRSettingsTest, FirstRunWritesTheTableValues) {
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{1, 5}));
    // The keys that no accessor reads, as the first run left them; the accessor test below and
    // the negation test cover the rest.
    const std::pair<const char*, PlistValue> stored[] = {
        {"settingsInit", 1}, {"settingsFix271215", 1},           {"imageFormat", 0},
        {"videoFormat", 0},  {"videoOptions", PlistArray{1, 5}},
    };
    for (const auto& [key, value] : stored) {
        EXPECT_TRUE(VRSettings::objectForKey(key).isEqual(value)) << key;
    }
    for (const char* absent : {"settingsFix281024b", "settingsSmartSizeUpdate", "videoCodecType",
                               "exportFilenameBasename", "originalFilenameSuffixActive"}) {
        EXPECT_TRUE(VRSettings::objectForKey(absent).isNull()) << absent;
    }
    PlistArray images = VRSettings::objectForKey("imageSizes").array()
                            ? *VRSettings::objectForKey("imageSizes").array()
                            : PlistArray{};
    ASSERT_EQ(images.size(), 10u);
    EXPECT_TRUE(images[0].isEqual(sizeArray(1200, 600)));
    EXPECT_TRUE(images[9].isEqual(sizeArray(640, 1136)));
    EXPECT_EQ(VRSettings::userDefaults().objectForKey(VRSettingsInstalledDefaultsKey),
              PlistValue(true));
}

TEST_F(VRSettingsTest, AccessorsReadTheFirstRunValues) {
    EXPECT_FALSE(VRSettings::homeScreenChoiceRequired());
    EXPECT_TRUE(VRSettings::isPixelSizeEnabled());
    EXPECT_FALSE(VRSettings::isAutoSaveEnabled());
    EXPECT_TRUE(VRSettings::areAlbumsForResultsEnabled());
    EXPECT_TRUE(VRSettings::isAlbumForOriginalsEnabled());
    EXPECT_TRUE(VRSettings::isNotifyExceedingMaxSizeEnabled());
    EXPECT_TRUE(VRSettings::shouldCopyExifMetadata());
    EXPECT_TRUE(VRSettings::shouldCopyIptcMetadata());
    EXPECT_TRUE(VRSettings::shouldCopyGpsMetadata());
    EXPECT_TRUE(VRSettings::shouldCopyVideoGpsMetadata());
    EXPECT_FALSE(VRSettings::isOriginalFilenameSuffixEnabled());
    EXPECT_FALSE(VRSettings::isLivePhotoIndicatorEnabled());
    EXPECT_FALSE(VRSettings::isLivePhotoEnabled());
    EXPECT_EQ(VRSettings::photoDPI(), 300.0);
    EXPECT_TRUE(VRSettings::isPhotoDPIAuto());
    EXPECT_EQ(VRSettings::photoJPEGCompression(), 85.0);
    EXPECT_EQ(VRSettings::videoBitrate(), 10.0);
    EXPECT_TRUE(VRSettings::isVideoBitrateAuto());
    EXPECT_EQ(VRSettings::codecType(), 0);
    EXPECT_EQ(VRSettings::exportFilenameType(), 0);
    EXPECT_EQ(VRSettings::exportFilenameBasename(), "uwrp_img");
    EXPECT_EQ(VRSettings::colorThemeType(), 0);
    EXPECT_TRUE(VRSettings::isHomeScreenModeUnknown());
    VRSettings::setHomeScreenMode(2);
    EXPECT_FALSE(VRSettings::isHomeScreenModeUnknown());
    EXPECT_EQ(VRSettings::homeScreenMode(), 2);
    EXPECT_TRUE(VRSettings::recentAssetsIdentifiers().empty());
}

TEST_F(VRSettingsTest, DisabledKeysStoreTheNegation) {
    struct Case {
        const char* key;
        void (*set)(bool);
        bool (*get)();
    };
    const Case cases[] = {
        {"homeScreenRequiredDisabled", VRSettings::setHomeScreenChoiceRequired,
         VRSettings::homeScreenChoiceRequired},
        {"pixelSizeDisabled", VRSettings::setPixelSizeEnabled, VRSettings::isPixelSizeEnabled},
        {"autoSaveDisabled", VRSettings::setAutoSaveEnabled, VRSettings::isAutoSaveEnabled},
        {"albumsResultsDisabled", VRSettings::setAlbumsForResultsEnabled,
         VRSettings::areAlbumsForResultsEnabled},
        {"albumOriginalsDisabled", VRSettings::setAlbumForOriginalsEnabled,
         VRSettings::isAlbumForOriginalsEnabled},
        {"notifyExceedingMaxSizeDisabled", VRSettings::setNotifyExceedingMaxSizeEnabled,
         VRSettings::isNotifyExceedingMaxSizeEnabled},
        {"copyExifMetadataDisabled", VRSettings::setCopyExifMetadata,
         VRSettings::shouldCopyExifMetadata},
        {"copyIptcMetadataDisabled", VRSettings::setCopyIptcMetadata,
         VRSettings::shouldCopyIptcMetadata},
        {"copyGpsMetadataDisabled", VRSettings::setCopyGpsMetadata,
         VRSettings::shouldCopyGpsMetadata},
        {"copyVideoGpsMetadataDisabled", VRSettings::setCopyVideoGpsMetadata,
         VRSettings::shouldCopyVideoGpsMetadata},
        // Keys without "Disabled" store the value as it is.
        {"originalFilenameSuffixActive", VRSettings::setOriginalFilenameSuffixEnabled,
         VRSettings::isOriginalFilenameSuffixEnabled},
        {"livePhotoEnabled", VRSettings::setLivePhotoEnabled, VRSettings::isLivePhotoEnabled},
        {"livePhotoIndicatorEnabled", VRSettings::setLivePhotoIndicatorEnabled,
         VRSettings::isLivePhotoIndicatorEnabled},
        {"photoDPIAuto", VRSettings::setPhotoDPIAuto, VRSettings::isPhotoDPIAuto},
        {"videoBitrateAuto", VRSettings::setVideoBitrateAuto, VRSettings::isVideoBitrateAuto},
    };
    for (const Case& c : cases) {
        const bool negated = std::string(c.key).ends_with("Disabled");
        for (bool value : {true, false}) {
            c.set(value);
            EXPECT_EQ(c.get(), value) << c.key;
            EXPECT_EQ(VRSettings::objectForKey(c.key), PlistValue(negated ? !value : value))
                << c.key;
        }
    }
}

TEST_F(VRSettingsTest, IncrementedIndexStartsAtZeroAndLogs) {
    std::vector<std::string> lines;
    platform::setLogSink(
        [](const std::string& line, void* context) {
            static_cast<std::vector<std::string>*>(context)->push_back(line);
        },
        &lines);
    EXPECT_EQ(VRSettings::incrementedIndex(), 0);
    EXPECT_EQ(VRSettings::incrementedIndex(), 1);
    EXPECT_EQ(VRSettings::incrementedIndex(), 2);
    platform::setLogSink(nullptr, nullptr);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "~~ incremented index 0"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "~~ incremented index 1"), lines.end());
}

TEST_F(VRSettingsTest, SettingNoValueRemovesTheKey) {
    VRSettings::setExportFilenameBasename("trip");
    EXPECT_EQ(VRSettings::exportFilenameBasename(), "trip");
    VRSettings::setObject(PlistValue(), "exportFilenameBasename");
    EXPECT_TRUE(VRSettings::objectForKey("exportFilenameBasename").isNull());
    EXPECT_EQ(VRSettings::exportFilenameBasename(), "uwrp_img");
}

// The smart-size update of the stored options, photo and video alike.
TEST(VRSettingsMigration,
     SmartSizeUpdateRewritesOptionsOnceAndTurnsTheFirstSizeWhenNoSizeModeWasSet) {
    struct Case {
        PlistArray options;
        PlistArray expected;
        bool turned;
    };
    const Case cases[] = {
        {PlistArray{1, 5}, PlistArray{5, 0}, true},
        {PlistArray{0, 2, 5}, PlistArray{5, 0}, false},
        {PlistArray{0, 5}, PlistArray{5, 1, 2}, false},
        {PlistArray{2, 5}, PlistArray{5, 1}, false},
        {PlistArray{0, 1, 2, 4}, PlistArray{4, 0}, false},
        {PlistArray{}, PlistArray{0}, true},
        {PlistArray{3}, PlistArray{3, 0}, true},
    };
    for (const Case& c : cases) {
        testing_support::TestHome caseHome;
        VRSettings::_prepareSettings();  // the first run
        const PlistArray sizes = listOf({sizeArray(1200, 600), sizeArray(640, 480)});
        for (const char* media : {"image", "video"}) {
            VRSettings::setObject(c.options, std::string(media) + "Options");
            VRSettings::setObject(sizes, std::string(media) + "Sizes");
        }
        VRSettings::_prepareSettings();  // the next call migrates
        for (const char* media : {"image", "video"}) {
            PlistValue options = VRSettings::objectForKey(std::string(media) + "Options");
            EXPECT_EQ(options, PlistValue(c.expected))
                << media << " " << options.debugDescription();
            PlistValue stored = VRSettings::objectForKey(std::string(media) + "Sizes");
            ASSERT_TRUE(stored.isArray());
            const PlistArray& list = *stored.array();
            ASSERT_EQ(list.size(), 2u);
            if (c.turned) {
                EXPECT_TRUE(list[0].isEqual(PlistArray{600.0, 1200.0, 0})) << media;
            } else {
                EXPECT_TRUE(list[0].isEqual(sizes[0])) << media;
            }
            EXPECT_TRUE(list[1].isEqual(sizes[1])) << media;
        }
        // Once only: the marker is set, so the same options stay as they are now.
        VRSettings::setObject(c.options, "imageOptions");
        VRSettings::_prepareSettings();
        EXPECT_EQ(VRSettings::objectForKey("imageOptions"), PlistValue(c.options));
        EXPECT_EQ(VRSettings::objectForKey("settingsSmartSizeUpdate"), PlistValue(1));
    }
}

TEST_F(VRSettingsTest, FirstUseShowsFirstRunOptionsAndTheNextCallMigratesThem) {
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{1, 5}));
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{5, 0}));
    EXPECT_EQ(VRSettings::imageSize().width, 600);
    EXPECT_EQ(VRSettings::imageSize().height, 1200);
    EXPECT_EQ(VRSettings::videoOptions(), (VRSizeOptions{5, 0}));
}

TEST(VRSettingsMigration, ZeroDpiAndBitrateBecomeDefaultsOnce) {
    struct Case {
        double dpi, bitrate;
        double expectedDpi, expectedBitrate;
        bool dpiAuto, bitrateAuto;
    };
    const Case cases[] = {
        {0, 0, 300, 10, true, true},
        {0.0005, 25, 300, 25, true, false},
        {72, 0, 72, 10, false, true},
        {72, 4.5, 72, 4.5, false, false},
    };
    for (const Case& c : cases) {
        testing_support::TestHome caseHome;
        VRSettings::_prepareSettings();
        VRSettings::setObject(c.dpi, "photoDPI");
        VRSettings::setObject(false, "photoDPIAuto");
        VRSettings::setObject(c.bitrate, "videoBitrate");
        VRSettings::setObject(false, "videoBitrateAuto");
        EXPECT_EQ(VRSettings::photoDPI(), c.expectedDpi);
        EXPECT_EQ(VRSettings::isPhotoDPIAuto(), c.dpiAuto);
        EXPECT_EQ(VRSettings::videoBitrate(), c.expectedBitrate);
        EXPECT_EQ(VRSettings::isVideoBitrateAuto(), c.bitrateAuto);
        VRSettings::setPhotoDPI(0);
        EXPECT_EQ(VRSettings::photoDPI(), 0) << "the step runs only once";
    }
}

TEST_F(VRSettingsTest, MissingVideoSizeFixResetsTheVideoSizesOnce) {
    settle();
    VRSettings::setObject(listOf({sizeArray(1, 1)}), "videoSizes");
    VRSettings::setObject(PlistValue(), "settingsFix271215");
    EXPECT_TRUE(VRSettings::videoSizes()[0].isEqual(sizeArray(3840, 2160)));
    EXPECT_EQ(VRSettings::videoSizes().size(), 10u);
    VRSettings::setVideoSizes(listOf({sizeArray(1, 1)}));
    EXPECT_EQ(VRSettings::videoSizes().size(), 1u);
}

TEST_F(VRSettingsTest, DefaultSizeListsByDeviceClass) {
    PlistArray limited = VRSettings::defaultImageSizes(0);
    PlistArray full = VRSettings::defaultImageSizes(3);
    ASSERT_EQ(limited.size(), 10u);
    EXPECT_TRUE(limited[1].isEqual(sizeArray(3264, 2448)));
    EXPECT_TRUE(limited[2].isEqual(sizeArray(1224, 1632)));
    EXPECT_TRUE(full[1].isEqual(sizeArray(4341, 2448)));
    EXPECT_TRUE(full[2].isEqual(sizeArray(5363, 3024)));
    EXPECT_TRUE(VRSettings::defaultVideoSizes(0)[0].isEqual(sizeArray(1920, 1080)));
    EXPECT_TRUE(VRSettings::defaultVideoSizes(0)[1].isEqual(sizeArray(1440, 1080)));
    EXPECT_TRUE(VRSettings::defaultVideoSizes(1)[1].isEqual(sizeArray(1920, 1080)));
    EXPECT_TRUE(VRSettings::defaultVideoSizes(1)[9].isEqual(sizeArray(320, 180)));
}

TEST_F(VRSettingsTest, DamagedValuesReadAsZeroFalseOrAbsent) {
    VRSettings::_prepareSettings();
    VRSettings::setObject("many", "imageSizes");
    VRSettings::setObject(PlistArray{"x", 5, PlistDictionary{}}, "imageOptions");
    VRSettings::setObject(PlistArray{"a", 7, "b"}, "recentAssetsIdentifiers");
    VRSettings::setObject(PlistDictionary{}, "photoJPEGCompression");
    VRSettings::setObject(12, "exportFilenameBasename");
    VRSettings::setObject(1, "settingsSmartSizeUpdate");  // keeps the options as written
    EXPECT_TRUE(VRSettings::imageSizes().empty());
    EXPECT_EQ(VRSettings::imageSize().width, 0);
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{5}));
    EXPECT_EQ(VRSettings::recentAssetsIdentifiers(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(VRSettings::photoJPEGCompression(), 0);
    EXPECT_EQ(VRSettings::exportFilenameBasename(), "uwrp_img");
}

TEST_F(VRSettingsTest, SettingsKeyOfAnotherTypeIsReplacedAndFirstRunApplies) {
    VRSettings::userDefaults().setObject("not a dictionary", VRSettingsDefaultsKey);
    VRSettings::userDefaults().setObject(true, VRSettingsInstalledDefaultsKey);
    EXPECT_EQ(VRSettings::photoJPEGCompression(), 85.0);
    EXPECT_TRUE(VRSettings::userDefaults().objectForKey(VRSettingsDefaultsKey).isDictionary());
}

TEST_F(VRSettingsTest, CorruptedSettingsFileFallsBackToFirstRunValues) {
    const std::string directory = platform::Environment::settingsDirectory();
    std::filesystem::create_directories(directory);
    const std::string path = directory + "/defaults.plist";
    {
        std::ofstream file(path, std::ios::binary);
        file << "bplist00\x01\x02 this is no property list";
    }
    platform::UserDefaults store(path);
    VRSettings::setUserDefaults(&store);
    EXPECT_FALSE(VRSettings::isAutoSaveEnabled());
    EXPECT_EQ(VRSettings::photoDPI(), 300.0);
    VRSettings::setPhotoDPI(72);
    VRSettings::save();
    VRSettings::setUserDefaults(nullptr);

    platform::UserDefaults reopened(path);
    VRSettings::setUserDefaults(&reopened);
    EXPECT_EQ(VRSettings::photoDPI(), 72.0);
    VRSettings::setUserDefaults(nullptr);
}

TEST_F(VRSettingsTest, ValuesSurviveAReopen) {
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    {
        platform::UserDefaults store(path);
        VRSettings::setUserDefaults(&store);
        VRSettings::setAutoSaveEnabled(true);
        VRSettings::setPhotoDPI(144.5);
        VRSettings::setCodecType(2);
        VRSettings::setExportFilenameBasename("trip%");
        VRSettings::setImageOptions({0, 4});
        VRSettings::setRecentAssetsIdentifiers({"one", "two"});
        VRSettings::setImageSizes(listOf({PlistArray{800.0, 600.0, 0}}));
        VRSettings::incrementedIndex();
        VRSettings::save();
        VRSettings::setUserDefaults(nullptr);
    }
    platform::UserDefaults reopened(path);
    VRSettings::setUserDefaults(&reopened);
    EXPECT_TRUE(VRSettings::isAutoSaveEnabled());
    EXPECT_EQ(VRSettings::photoDPI(), 144.5);
    EXPECT_EQ(VRSettings::codecType(), 2);
    EXPECT_EQ(VRSettings::exportFilenameBasename(), "trip%");
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{0, 4}));
    EXPECT_EQ(VRSettings::recentAssetsIdentifiers(), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(VRSettings::imageSize().width, 800);
    EXPECT_EQ(VRSettings::incrementedIndex(), 1);
    VRSettings::setUserDefaults(nullptr);
}

// Random writes checked against a plain map, with a save and reopen now and then.
TEST_F(VRSettingsTest, RandomWritesMatchAPlainModelAcrossReopens) {
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    const std::vector<std::string> keys = {"photoDPI", "videoBitrate", "codecType",
                                           "exportFilenameBasename", "recentAssetsIdentifiers"};
    std::map<std::string, PlistValue> model;
    std::mt19937 random(7);
    auto store = std::make_unique<platform::UserDefaults>(path);
    VRSettings::setUserDefaults(store.get());
    VRSettings::_prepareSettings();
    VRSettings::_prepareSettings();
    for (const std::string& key : keys) model[key] = VRSettings::objectForKey(key);
    for (int step = 0; step < 400; ++step) {
        const std::string& key = keys[random() % keys.size()];
        PlistValue value;
        switch (random() % 4) {
            case 0:
                value = static_cast<double>(random() % 1000) / 8.0;
                break;
            case 1:
                value = std::string(random() % 12, 'a' + random() % 26);
                break;
            case 2:
                value = PlistArray{std::to_string(random() % 99)};
                break;
            default:
                break;  // removes the key
        }
        VRSettings::setObject(value, key);
        model[key] = value;
        if (step % 50 == 49) {
            VRSettings::save();
            VRSettings::setUserDefaults(nullptr);
            store = std::make_unique<platform::UserDefaults>(path);
            VRSettings::setUserDefaults(store.get());
        }
        for (const std::string& k : keys) {
            ASSERT_EQ(VRSettings::objectForKey(k), model[k]) << "step " << step << " key " << k;
        }
    }
    VRSettings::setUserDefaults(nullptr);
}

TEST_F(VRSettingsTest, RecentAssetIdentifiers) {
    VRSettings::setRecentAssetsIdentifiers({"a", "b"});
    VRSettings::addRecentAssetsIdentifiers({"b", "c", "c"});
    EXPECT_EQ(VRSettings::recentAssetsIdentifiers(), (std::vector<std::string>{"a", "b", "c"}));
    VRSettings::removeRecentAssetsIdentifiers({"a", "c", "z"});
    EXPECT_EQ(VRSettings::recentAssetsIdentifiers(), (std::vector<std::string>{"b"}));
    VRSettings::removeAllRecentAssetsIdentifiers();
    EXPECT_TRUE(VRSettings::objectForKey("recentAssetsIdentifiers").isNull());
}

TEST_F(VRSettingsTest, GlobalChoiceIsStoredPerMediaType) {
    settle();
    const PlistArray sizes = listOf({PlistArray{1.0, 2.0, 0}});
    VRSettings::saveData(sizes, 3, {1, 4}, 1);
    EXPECT_EQ(VRSettings::imageSizes(), sizes);
    EXPECT_EQ(VRSettings::imageFormat(), 3);
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{1, 4}));
    VRSettings::saveData(sizes, 7, {0, 3}, 2);
    EXPECT_EQ(VRSettings::videoFormat(), 7);
    EXPECT_EQ(VRSettings::videoOptions(), (VRSizeOptions{0, 3}));
    PlistValue before = VRSettings::userDefaults().objectForKey(VRSettingsDefaultsKey);
    VRSettings::saveData(PlistArray{}, 9, {}, 0);
    EXPECT_EQ(VRSettings::userDefaults().objectForKey(VRSettingsDefaultsKey), before);
    VRSettings::resetImageSettings();
    EXPECT_EQ(VRSettings::imageFormat(), 0);
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{1, 5}));
}

TEST_F(VRSettingsTest, LegacyTemplateList) {
    VRSettings::addTemplateToList({"", "", "", {1, 2}, false, true});
    VRSettings::addTemplateToList({"builtin-1", "Built in", "Old", {1}, true, false});
    VRSettings::addTemplateToList({"mine", "Mine", "My own", {2}, false, false});
    PlistValue list = VRSettings::objectForKey("templateListKey");
    ASSERT_TRUE(list.isArray());
    PlistArray rows = *list.array();
    rows.push_back("removed row");
    VRSettings::setObject(rows, "templateListKey");

    std::vector<VRLegacyTemplateInfo> parsed;
    VRSettings::parseTemplateAtIndex(0,
                                     [&](const VRLegacyTemplateInfo& i) { parsed.push_back(i); });
    VRSettings::parseTemplateAtIndex(3,
                                     [&](const VRLegacyTemplateInfo& i) { parsed.push_back(i); });
    VRSettings::parseTemplateAtIndex(4,
                                     [&](const VRLegacyTemplateInfo& i) { parsed.push_back(i); });
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[0].identifier, "-");
    EXPECT_EQ(parsed[0].title, "Unnamed");
    EXPECT_EQ(parsed[0].templateDescription, "No description");
    EXPECT_EQ(parsed[0].mediaTypes, (std::vector<std::int64_t>{1, 2}));
    EXPECT_TRUE(parsed[0].alwaysVisible);
    EXPECT_EQ(parsed[1].title, "<Template removed>");
    EXPECT_EQ(parsed[1].templateDescription, "<Template data was removed>");
    EXPECT_TRUE(parsed[1].mediaTypes.empty());

    std::vector<std::size_t> walked;
    VRSettings::enumerateTemplateList(
        [&](const VRLegacyTemplateInfo&, std::size_t index, bool& stop) {
            walked.push_back(index);
            stop = index == 2;
        });
    EXPECT_EQ(walked, (std::vector<std::size_t>{0, 1, 2}));

    std::vector<std::string> erased;
    VRSettings::eraseOldTemplateList(
        [&](const VRLegacyTemplateInfo& info) { erased.push_back(info.identifier); });
    EXPECT_EQ(erased, (std::vector<std::string>{"-", "mine", ""}));
    EXPECT_TRUE(VRSettings::objectForKey("templateListKey").isNull());
    erased.clear();
    VRSettings::eraseOldTemplateList(
        [&](const VRLegacyTemplateInfo& info) { erased.push_back(info.identifier); });
    EXPECT_TRUE(erased.empty());
}

TEST_F(VRSettingsTest, BuiltInTableVersion) {
    EXPECT_TRUE(VRSettings::isNewBuiltInTemplateTableVersion("3"));
    VRSettings::setBuiltInTemplateTableVersion("3");
    EXPECT_FALSE(VRSettings::isNewBuiltInTemplateTableVersion("3"));
    EXPECT_TRUE(VRSettings::isNewBuiltInTemplateTableVersion("4"));
}

TEST_F(VRSettingsTest, TemplatePathsStayInsideTheirFolder) {
    const std::string base = platform::Environment::documentsDirectory() + "/_cs-templates/";
    EXPECT_EQ(VRSettings::templateDataPathWithIdentifier("abc"), base + "abc/template-data");
    EXPECT_EQ(VRSettings::templateImagePathWithIdentifier("abc"), base + "abc/template-image-data");
    for (const char* hostile : {"", ".", "..", "../x", "a/b"}) {
        EXPECT_EQ(VRSettings::templateDataPathWithIdentifier(hostile), "") << hostile;
    }

    std::filesystem::create_directories(base + "one");
    std::filesystem::create_directories(base + "two");
    std::ofstream(base + "one/template-image-data") << "jpeg";
    EXPECT_TRUE(VRSettings::copyTemplateImageDataToTemplateWithIdentifier("three", "one"));
    std::ifstream copied(base + "three/template-image-data");
    std::string content;
    copied >> content;
    EXPECT_EQ(content, "jpeg");
    EXPECT_FALSE(VRSettings::copyTemplateImageDataToTemplateWithIdentifier("four", "missing"));

    VRSettings::removeTemplateDirWithIdentifier("one");
    VRSettings::removeTemplateDirWithIdentifier("");
    VRSettings::removeTemplateDirWithIdentifier("..");
    EXPECT_FALSE(std::filesystem::exists(base + "one"));
    EXPECT_TRUE(std::filesystem::exists(base + "two"));
    EXPECT_TRUE(std::filesystem::exists(base + "three"));
}

}  // namespace

// Two stores on one file stand for two processes on one fresh home. Each prepares its own
// first-run values; those must never undo what the other one stored meanwhile.
TEST_F(VRSettingsTest, ASecondProcessOnAFreshHomeKeepsTheFirstOnesChanges) {
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    platform::UserDefaults first(path), second(path);
    VRSettings::setUserDefaults(&second);
    EXPECT_TRUE(VRSettings::shouldCopyGpsMetadata());  // prepared before the first one saves
    VRSettings::setUserDefaults(&first);
    VRSettings::setCopyGpsMetadata(false);
    ASSERT_TRUE(VRSettings::save());
    VRSettings::setUserDefaults(&second);
    VRSettings::setLivePhotoEnabled(true);
    ASSERT_TRUE(VRSettings::save());
    platform::UserDefaults reopened(path);
    VRSettings::setUserDefaults(&reopened);
    EXPECT_FALSE(VRSettings::shouldCopyGpsMetadata());
    EXPECT_TRUE(VRSettings::isLivePhotoEnabled());
    EXPECT_EQ(VRSettings::objectForKey("settingsInit"), PlistValue(1));
    VRSettings::setUserDefaults(nullptr);
}

// Random changes through the accessors from two stores on one file (two processes), saved and
// reopened at random, against a plain model that takes each store's changes when it saves.
TEST_F(VRSettingsTest, RandomChangesOfTwoProcessesMatchAPlainModel) {
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    using Setter = void (*)(bool);
    using Getter = bool (*)();
    const std::vector<std::pair<Getter, Setter>> switches = {
        {VRSettings::shouldCopyGpsMetadata, VRSettings::setCopyGpsMetadata},
        {VRSettings::isAutoSaveEnabled, VRSettings::setAutoSaveEnabled},
        {VRSettings::isLivePhotoEnabled, VRSettings::setLivePhotoEnabled},
        {VRSettings::isPhotoDPIAuto, VRSettings::setPhotoDPIAuto},
    };
    struct Model {
        std::vector<bool> switches{true, false, false, true};  // first-run values
        std::vector<std::string> recents;
    } model;
    using Change = std::function<void(Model&)>;
    struct Process {
        std::unique_ptr<platform::UserDefaults> store;
        std::vector<Change> pending;
    };
    Process processes[2] = {{std::make_unique<platform::UserDefaults>(path), {}},
                            {std::make_unique<platform::UserDefaults>(path), {}}};
    std::mt19937 random(99);
    const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    const auto saved = [&](Process& process) {
        for (const auto& change : process.pending) change(model);
        process.pending.clear();
    };
    std::int64_t nextIndex = 0;
    for (int step = 0; step < 300; ++step) {
        Process& process = processes[pick(2)];
        VRSettings::setUserDefaults(process.store.get());
        switch (pick(5)) {
            case 0:
            case 1: {
                const std::size_t which = static_cast<std::size_t>(pick(4));
                const bool value = pick(2) == 1;
                switches[which].second(value);
                process.pending.push_back([which, value](Model& m) { m.switches[which] = value; });
                break;
            }
            case 2: {
                const std::string identifier = "asset-" + std::to_string(pick(8));
                VRSettings::addRecentAssetsIdentifiers({identifier});
                process.pending.push_back([identifier](Model& m) {
                    if (std::find(m.recents.begin(), m.recents.end(), identifier) ==
                        m.recents.end()) {
                        m.recents.push_back(identifier);
                    }
                });
                break;
            }
            case 3:
                // Saves at once: the two processes never hand out the same number.
                ASSERT_EQ(VRSettings::incrementedIndex(), nextIndex++) << "step " << step;
                saved(process);
                break;
            case 4:
                ASSERT_TRUE(VRSettings::save());
                saved(process);
                if (pick(2) == 0) {
                    VRSettings::setUserDefaults(nullptr);
                    process.store = std::make_unique<platform::UserDefaults>(path);
                    VRSettings::setUserDefaults(process.store.get());
                }
                for (std::size_t i = 0; i < switches.size(); ++i) {
                    ASSERT_EQ(switches[i].first(), model.switches[i])
                        << "step " << step << " switch " << i;
                }
                ASSERT_EQ(VRSettings::recentAssetsIdentifiers(), model.recents) << "step " << step;
                break;
        }
    }
    VRSettings::setUserDefaults(nullptr);
}
