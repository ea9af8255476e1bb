#include "storage/VRSettings2.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/Environment.h"
#include "storage/VREncodingSettings.h"
#include "storage/VRSettings.h"
#include "storage/VRUserDefaultsCoder.h"
#include "storage/VXHelperState.h"
#include "support/TestHome.h"

using platform::PlistDictionary;
using platform::PlistValue;

namespace {

TEST(VRSettings2, FlagsAndColoursLiveDirectlyInTheDefaultsAndSurviveAReopen) {
    testing_support::TestHome home;
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    const VRColor video{0.1, 0.2, 1.0 / 3.0, 0.75};
    {
        platform::UserDefaults store(path);
        VRSettings::setUserDefaults(&store);
        EXPECT_FALSE(VRSettings2::isSummaryNoteHidden());
        EXPECT_FALSE(VRSettings2::defaultVideoColor().has_value());
        EXPECT_EQ(VRSettings2::templateSorting(), "standard");
        VRSettings2::setSummaryNoteHidden(true);
        VRSettings2::setTemplateCustomOn(true);
        VRSettings2::setRecentsSelected(true);
        VRSettings2::setDefaultVideoColor(video);
        VRSettings2::setDefaultPhotoColor(VRColor::whiteColor());
        VRSettings2::setTemplateSorting("selection");
        VRSettings2::setTemplateSorting("alphabetical");  // not a sorting: ignored
        store.synchronize();
        VRSettings::setUserDefaults(nullptr);
    }
    platform::UserDefaults reopened(path);
    VRSettings::setUserDefaults(&reopened);
    EXPECT_EQ(reopened.objectForKey("vr-defaults-summary-note-hidden"), PlistValue(true));
    EXPECT_TRUE(VRSettings2::isSummaryNoteHidden());
    EXPECT_FALSE(VRSettings2::isAdvancedNoteHidden());
    EXPECT_TRUE(VRSettings2::isTemplateCustomOn());
    EXPECT_FALSE(VRSettings2::isTemplateCustomPersonal());
    EXPECT_TRUE(VRSettings2::isRecentsSelected());
    EXPECT_FALSE(VRSettings2::isPrivateAccessWarned());
    EXPECT_EQ(VRSettings2::defaultVideoColor(), video);
    EXPECT_EQ(VRSettings2::defaultPhotoColor(), VRColor::whiteColor());
    EXPECT_EQ(reopened.objectForKey("vr-defaults-tpl-sorting"), PlistValue("selection"));
    EXPECT_EQ(VRSettings2::templateSorting(), "selection");
    VRSettings2::setDefaultVideoColor(std::nullopt);
    EXPECT_TRUE(reopened.objectForKey("vr-defaults-video-color").isNull());
    // None of these went into the settings dictionary.
    EXPECT_TRUE(VRSettings::objectForKey("vr-defaults-summary-note-hidden").isNull());
    VRSettings::setUserDefaults(nullptr);
}

TEST(VRSettings2, ColourCodingRefusesDamagedValues) {
    const PlistValue damaged[] = {
        PlistValue("red"),
        PlistValue(PlistDictionary{{"red", 0.5}, {"green", 0.5}, {"blue", 0.5}}),
        PlistValue(PlistDictionary{{"red", 1.5}, {"green", 0.5}, {"blue", 0.5}, {"alpha", 1}}),
        PlistValue(PlistDictionary{{"red", "1"}, {"green", 0.5}, {"blue", 0.5}, {"alpha", 1}}),
        PlistValue(PlistDictionary{{"red", NAN}, {"green", 0.5}, {"blue", 0.5}, {"alpha", 1.0}}),
    };
    for (const PlistValue& value : damaged) {
        EXPECT_FALSE(VRUserDefaultsCoder::decodeColor(value).has_value())
            << value.debugDescription();
    }
    const VRColor colours[] = {VRColor::clearColor(),
                               VRColor::blackColor(),
                               {0.2, 0.4, 0.6, 0.8},
                               {1e-9, 1, 0.999999999, 0.5}};
    for (const VRColor& colour : colours) {
        EXPECT_EQ(VRUserDefaultsCoder::decodeColor(VRUserDefaultsCoder::encodeColor(colour)),
                  colour);
    }
}

TEST(VXHelperState, NewVersionResetsTheRateCounters) {
    testing_support::TestHome home;
    EXPECT_FALSE(VXHelper::updateAppVersion("1.0")) << "first launch";
    EXPECT_EQ(VXHelper::storedAppVersion(), "1.0");
    VXHelper::setRateInfo({{"ratekey0", 4}});
    VXHelper::setRateEndAttempt(3);
    VXHelper::setRateComplete(true);
    EXPECT_TRUE(VXHelper::updateAppVersion("1.0"));
    EXPECT_EQ(VXHelper::rateInfo().size(), 1u);
    EXPECT_TRUE(VXHelper::isRateComplete());
    EXPECT_TRUE(VXHelper::updateAppVersion("1.1"));
    EXPECT_TRUE(VXHelper::rateInfo().empty());
    EXPECT_EQ(VXHelper::rateEndAttempt(), 0);
    EXPECT_FALSE(VXHelper::isRateComplete());
    EXPECT_EQ(VRSettings::userDefaults().objectForKey("com.vorela.appVersion"), PlistValue("1.1"));

    VXHelper::setLaunchStep(3);
    VXHelper::setLaunchComplete(true);
    VXHelper::setTutorialComplete(true);
    VXHelper::setReleaseNotesVersion("2");
    EXPECT_EQ(VRSettings::userDefaults().objectForKey("com.vorela.launchStep"), PlistValue(3));
    EXPECT_EQ(VXHelper::launchStep(), 3);
    EXPECT_TRUE(VXHelper::isLaunchComplete());
    EXPECT_TRUE(VXHelper::isTutorialComplete());
    EXPECT_EQ(VXHelper::releaseNotesVersion(), "2");
}

TEST(VREncodingSettings, JobTakesBitrateCodecAndQualityFromTheSettings) {
    struct Case {
        bool automatic;
        double megabits;
        std::uint64_t bitrate;
    };
    const Case cases[] = {
        {true, 25, 0},  {false, 10, 10000000}, {false, 11.5, 11500000},   {false, 0.0000015, 1},
        {false, -3, 0}, {false, NAN, 0},       {false, 1e30, UINT64_MAX},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VREncodingSettings::jobSettingsWith(c.automatic, c.megabits, 1, 85).bitrate,
                  c.bitrate)
            << c.megabits;
    }
    EXPECT_FLOAT_EQ(VREncodingSettings::jobSettingsWith(true, 0, 0, 85).jpegCompression, 0.85f);

    testing_support::TestHome home;
    VRSettings::setVideoBitrate(7.25);
    VRSettings::setCodecType(2);
    EXPECT_EQ(VREncodingSettings::jobSettings(), (VREncodingJobSettings{0, 2, 0.85f}));
    VRSettings::setVideoBitrateAuto(false);
    EXPECT_EQ(VREncodingSettings::jobSettings().bitrate, 7250000u);
}

}  // namespace
