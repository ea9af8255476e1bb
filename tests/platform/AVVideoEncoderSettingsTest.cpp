#include "platform/AVVideoEncoderSettings.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/AVError.h"
#include "platform/AVVideoSettings.h"

namespace {

using platform::PlistDictionary;

PlistDictionary fullSettings() {
    PlistDictionary aspect = {{AVVideoPixelAspectRatioHorizontalSpacingKey, 4},
                              {AVVideoPixelAspectRatioVerticalSpacingKey, 3}};
    PlistDictionary compression = {{AVVideoAverageBitRateKey, 2500000.0},
                                   {AVVideoExpectedSourceFrameRateKey, 29.97},
                                   {AVVideoMaxKeyFrameIntervalKey, 60},
                                   {AVVideoAllowFrameReorderingKey, false},
                                   {AVVideoQualityKey, 0.4},
                                   {AVVideoProfileLevelKey, kVTProfileLevel_HEVC_Main10_AutoLevel},
                                   {UWVideoEncoderSpeedPresetKey, "fast"},
                                   {UWVideoEncoderParametersKey, "aq-mode=2"},
                                   {AVVideoPixelAspectRatioKey, aspect}};
    PlistDictionary color = {{AVVideoColorPrimariesKey, AVVideoColorPrimaries_ITU_R_2020},
                             {AVVideoTransferFunctionKey, AVVideoTransferFunction_ITU_R_2100_HLG},
                             {AVVideoYCbCrMatrixKey, AVVideoYCbCrMatrix_ITU_R_2020}};
    return {{AVVideoCodecKey, AVVideoCodecTypeHEVC},
            {AVVideoWidthKey, 1920},
            {AVVideoHeightKey, 1080},
            {AVVideoColorPropertiesKey, color},
            {AVVideoCompressionPropertiesKey, compression}};
}

// Each key lands in its own field, none swapped with a neighbour of the same type.
TEST(AVVideoEncoderSettings, EveryKeyIsRead) {
    platform::ErrorRef error;
    auto s = AVVideoEncoderSettings::settingsWithDictionary(fullSettings(), &error);
    ASSERT_TRUE(s) << error->description();
    EXPECT_EQ(s->codec, AVVideoCodec::hevc);
    EXPECT_EQ(s->width, 1920);
    EXPECT_EQ(s->height, 1080);
    EXPECT_EQ(s->bitRate, 2500000.0);
    EXPECT_DOUBLE_EQ(s->frameRate, 29.97);
    EXPECT_EQ(s->keyFrameInterval, 60);
    EXPECT_FALSE(s->allowReordering);
    EXPECT_DOUBLE_EQ(s->quality, 0.4);
    EXPECT_EQ(s->profile, kVTProfileLevel_HEVC_Main10_AutoLevel);
    EXPECT_EQ(s->speedPreset, "fast");
    EXPECT_EQ(s->parameters, "aq-mode=2");
    EXPECT_EQ(s->sarNum, 4);
    EXPECT_EQ(s->sarDen, 3);
    EXPECT_EQ(s->primaries, std::optional<std::string>(AVVideoColorPrimaries_ITU_R_2020));
    EXPECT_EQ(s->transfer, std::optional<std::string>(AVVideoTransferFunction_ITU_R_2100_HLG));
    EXPECT_EQ(s->matrix, std::optional<std::string>(AVVideoYCbCrMatrix_ITU_R_2020));

    // The three required keys alone leave the rest at the encoder's own choice.
    auto bare = AVVideoEncoderSettings::settingsWithDictionary(
        {{AVVideoCodecKey, AVVideoCodecTypeJPEG}, {AVVideoWidthKey, 64}, {AVVideoHeightKey, 48}},
        &error);
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->codec, AVVideoCodec::jpeg);
    EXPECT_EQ(bare->quality, -1);
    EXPECT_TRUE(bare->allowReordering);
    EXPECT_FALSE(bare->primaries);
}

// Every fault is an error that names the key (or the codec), and the first fault is the one
// reported, also from a dictionary inside another.
TEST(AVVideoEncoderSettings, FaultsAreErrorsThatNameTheKey) {
    using Edit = std::function<void(PlistDictionary&)>;
    auto compression = [](const Edit& edit) {
        return [edit](PlistDictionary& s) {
            edit(*s[AVVideoCompressionPropertiesKey].mutableDictionary());
        };
    };
    const struct {
        const char* name;
        Edit edit;
        std::int64_t code;
        const char* words;
    } cases[] = {
        {"misspelt top key", [](PlistDictionary& s) { s["AVVideoWidhtKey"] = 4; },
         AVErrorOperationNotAllowed, "unknown key AVVideoWidhtKey"},
        {"misspelt compression key",
         compression([](PlistDictionary& c) { c["AverageBitrate"] = 1; }),
         AVErrorOperationNotAllowed, "compression properties have an unknown key AverageBitrate"},
        {"bit rate as text",
         compression([](PlistDictionary& c) { c[AVVideoAverageBitRateKey] = "2000000"; }),
         AVErrorOperationNotAllowed, "AverageBitRate must hold a number"},
        {"width as text", [](PlistDictionary& s) { s[AVVideoWidthKey] = "1920"; },
         AVErrorOperationNotAllowed, "AVVideoWidthKey must hold a number"},
        {"width beyond an int", [](PlistDictionary& s) { s[AVVideoWidthKey] = 1e12; },
         AVErrorOperationNotAllowed, "AVVideoWidthKey is out of range"},
        {"no height", [](PlistDictionary& s) { s.erase(AVVideoHeightKey); },
         AVErrorOperationNotAllowed, "lack AVVideoHeightKey"},
        {"codec as a number", [](PlistDictionary& s) { s[AVVideoCodecKey] = 7; },
         AVErrorOperationNotAllowed, "AVVideoCodecKey must hold a string"},
        {"unknown codec", [](PlistDictionary& s) { s[AVVideoCodecKey] = "vp09"; },
         AVErrorEncoderNotFound, "No video codec is called \"vp09\""},
        {"colour properties as text",
         [](PlistDictionary& s) { s[AVVideoColorPropertiesKey] = "709"; },
         AVErrorOperationNotAllowed, "AVVideoColorPropertiesKey must hold a dictionary"},
        {"colour primaries as a number",
         [](PlistDictionary& s) {
             (*s[AVVideoColorPropertiesKey].mutableDictionary())[AVVideoColorPrimariesKey] = 1;
         },
         AVErrorOperationNotAllowed, "ColorPrimaries must hold a string"},
        {"pixel aspect of zero", compression([](PlistDictionary& c) {
             (*c[AVVideoPixelAspectRatioKey]
                   .mutableDictionary())[AVVideoPixelAspectRatioVerticalSpacingKey] = 0;
         }),
         AVErrorOperationNotAllowed, "VerticalSpacing is out of range"},
        {"frame reordering as text",
         compression([](PlistDictionary& c) { c[AVVideoAllowFrameReorderingKey] = "no"; }),
         AVErrorOperationNotAllowed, "AllowFrameReordering must hold a Boolean"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PlistDictionary settings = fullSettings();
        c.edit(settings);
        platform::ErrorRef error;
        EXPECT_FALSE(AVVideoEncoderSettings::settingsWithDictionary(settings, &error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), c.code);
        EXPECT_NE(error->description().find(c.words), std::string::npos) << error->description();
    }
}

}  // namespace
