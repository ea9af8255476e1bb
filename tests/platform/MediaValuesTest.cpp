#include <gtest/gtest.h>

#include <cmath>

#include "platform/AVMetadataItem.h"
#include "platform/AVOutputSettingsAssistant.h"
#include "platform/AVVideoSettings.h"
#include "platform/CMTime.h"

namespace {

using platform::PlistDictionary;

TEST(MediaValuesTest, TimesRoundAndCompareExactly) {
    EXPECT_FALSE(CMTIME_IS_VALID(CMTimeMake(1, 0)));
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeInvalid)));
    EXPECT_EQ(CMTimeCompare(CMTimeMake(1001, 30000), CMTimeMake(1, 30)), 1);
    EXPECT_EQ(CMTimeCompare(CMTimeMake(2, 50), CMTimeMake(1, 25)), 0);
    EXPECT_EQ(CMTimeCompare(kCMTimeInvalid, kCMTimeZero), -1);
    struct Case {
        CMTime in;
        CMTimeScale scale;
        CMTimeValue out;
    };
    const Case cases[] = {{CMTimeMake(1, 3), 600, 200},
                          {CMTimeMake(1, 4), 6, 2},
                          {CMTimeMake(-1, 4), 6, -2},
                          {CMTimeMake(1001, 24000), 90000, 3754},
                          {CMTimeMake(INT64_MAX / 2, 1), 2, INT64_MAX - 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(CMTimeConvertScale(c.in, c.scale).value, c.out)
            << c.in.value << "/" << c.in.timescale;
    }
    EXPECT_EQ(CMTimeMakeWithSeconds(0.5, 1).value, 1);
    EXPECT_EQ(CMTimeMakeWithSeconds(-0.5, 1).value, -1);
    CMTime sum = CMTimeAdd(CMTimeMake(1, 25), CMTimeMake(1, 50));
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(sum), 0.06);
}

TEST(MediaValuesTest, MetadataDatesParse) {
    struct Case {
        const char* text;
        double unix;  // NaN: not a date
    };
    const double no = std::nan("");
    const Case cases[] = {
        {"2020-01-02T03:04:05Z", 1577934245},
        {"2020-01-02T03:04:05.250Z", 1577934245.25},
        {"2020-01-02T05:04:05+02:00", 1577934245},
        {"2020-01-02T01:04:05-0200", 1577934245},
        {"2020-01-02", 1577923200},
        {"2020", 1577836800},
        {"2020-13-02", no},
        {"yesterday", no},
        {"2020-01-02T03", no},
        {"", no},
    };
    for (const Case& c : cases) {
        AVMetadataItem item(AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate, c.text);
        auto date = item.dateValue();
        if (std::isnan(c.unix)) {
            EXPECT_FALSE(date) << c.text;
        } else {
            ASSERT_TRUE(date) << c.text;
            EXPECT_NEAR(date->timeIntervalSince1970(), c.unix, 1e-6) << c.text;
        }
    }
    EXPECT_EQ(
        AVMetadataISO8601String(platform::PlistDate::fromTimeIntervalSince1970(1577934245.25)),
        "2020-01-02T03:04:05.250Z");
    AVMetadataItem numeric("udta", static_cast<std::int64_t>(0xA9646179), "2019");
    EXPECT_EQ(numeric.numberKey(), 0xA9646179);
    EXPECT_FALSE(numeric.stringKey());
}

// The preset table adjusted to the source: its tags when it has all three, its bit depth in
// the profile, its frame rate in the bit rate and key frame interval, its aspect in the size.
TEST(MediaValuesTest, AssistantAdjustsPresetsToTheSource) {
    EXPECT_EQ(AVOutputSettingsAssistant::availableOutputSettingsPresets().size(), 9u);
    EXPECT_FALSE(AVOutputSettingsAssistant::outputSettingsAssistantWithPreset("nope"));

    auto hlg = std::make_shared<CMFormatDescription>();
    hlg->dimensions = {3840, 2160};
    hlg->bitsPerComponent = 10;
    hlg->colorPrimaries = AVVideoColorPrimaries_ITU_R_2020;
    hlg->transferFunction = AVVideoTransferFunction_ITU_R_2100_HLG;
    hlg->yCbCrMatrix = AVVideoYCbCrMatrix_ITU_R_2020;
    auto portrait = std::make_shared<CMFormatDescription>();
    portrait->dimensions = {1080, 1920};
    portrait->colorPrimaries = AVVideoColorPrimaries_ITU_R_2020;  // incomplete: 709 used

    struct Case {
        const char* preset;
        CMFormatDescriptionRef source;
        double fps;
        const char* codec;
        int width, height;
        const char* primaries;
        const char* profile;
        double bitRate;  // 0: none
        std::int64_t keyInterval;
    };
    const Case cases[] = {
        {AVOutputSettingsPresetHEVC3840x2160, hlg, 50, AVVideoCodecTypeHEVC, 3840, 2160,
         AVVideoColorPrimaries_ITU_R_2020, kVTProfileLevel_HEVC_Main10_AutoLevel, 20e6 * 50 / 30,
         100},
        {AVOutputSettingsPreset1280x720, portrait, 30, AVVideoCodecTypeH264, 720, 1280,
         AVVideoColorPrimaries_ITU_R_709_2, AVVideoProfileLevelH264HighAutoLevel, 5e6, 60},
        {AVOutputSettingsPreset640x480, nullptr, 0, AVVideoCodecTypeH264, 640, 480,
         AVVideoColorPrimaries_ITU_R_709_2, AVVideoProfileLevelH264HighAutoLevel, 1.5e6, 60},
        {AVOutputSettingsPreset1920x1080, nullptr, 240, AVVideoCodecTypeH264, 1920, 1080,
         AVVideoColorPrimaries_ITU_R_709_2, AVVideoProfileLevelH264HighAutoLevel, 20e6, 480},
        {AVOutputSettingsPresetHEVC3840x2160WithAlpha, nullptr, 0.5,
         AVVideoCodecTypeAppleProRes4444, 3840, 2160, AVVideoColorPrimaries_ITU_R_709_2, nullptr, 0,
         1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.preset);
        auto assistant = AVOutputSettingsAssistant::outputSettingsAssistantWithPreset(c.preset);
        ASSERT_TRUE(assistant);
        assistant->setSourceVideoFormat(c.source);
        if (c.fps > 0) {
            assistant->setSourceVideoAverageFrameDuration(
                CMTimeMakeWithSeconds(1.0 / c.fps, 600000));
        }
        auto settings = assistant->videoSettings();
        ASSERT_TRUE(settings);
        const PlistDictionary& s = *settings;
        EXPECT_EQ(*s.at(AVVideoCodecKey).string(), c.codec);
        EXPECT_EQ(s.at(AVVideoWidthKey).integerValue(), c.width);
        EXPECT_EQ(s.at(AVVideoHeightKey).integerValue(), c.height);
        EXPECT_EQ(*s.at(AVVideoColorPropertiesKey)[AVVideoColorPrimariesKey].string(), c.primaries);
        const platform::PlistValue& p = s.at(AVVideoCompressionPropertiesKey);
        if (c.profile) {
            EXPECT_EQ(*p[AVVideoProfileLevelKey].string(), c.profile);
        } else {
            EXPECT_TRUE(p[AVVideoProfileLevelKey].isNull());
        }
        if (c.bitRate > 0) {
            EXPECT_NEAR(p[AVVideoAverageBitRateKey].doubleValue(), c.bitRate, 1.0);
        } else {
            EXPECT_TRUE(p[AVVideoAverageBitRateKey].isNull());
        }
        EXPECT_EQ(p[AVVideoMaxKeyFrameIntervalKey].integerValue(), c.keyInterval);
    }
}

}  // namespace
