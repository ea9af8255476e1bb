#include <gtest/gtest.h>

#include "editing/BitrateModel.h"
#include "editing/ResolutionModel.h"
#include "editing/VREncodeSettingsController.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

TEST(EncodingSettings, BitrateFieldKeepsTwoDecimalsAndReadsACommaAsAPoint) {
    testing_support::TestHome home;
    BitrateModel model;
    EXPECT_EQ(model.value(), "10");
    EXPECT_TRUE(model.recommended());
    struct Step {
        std::string text;
        bool accepted;
        std::string shown;
        double stored;
    };
    const Step steps[] = {
        {"11,5", true, "11,5", 11.5},
        {"11.555", false, "11,5", 11.5},
        {"05", false, "11,5", 11.5},
        {"0.5", true, "0.5", 0.5},
        {".5", true, ".5", 0.5},
        {"", true, "", 0.5},  // accepted, nothing stored
        {"1a", false, ".5", 0.5},
        {"12.", true, "12.", 12},
        {"0", true, "0", 0},
        {"100,25", true, "100,25", 100.25},
        {"1.2.3", false, "100,25", 100.25},
        {"-1", false, "100,25", 100.25},
    };
    for (const Step& step : steps) {
        EXPECT_EQ(model.setValue(step.text), step.accepted) << step.text;
        EXPECT_EQ(model.value(), step.shown) << step.text;
        EXPECT_EQ(VRSettings::videoBitrate(), step.stored) << step.text;
    }
    model.setRecommended(false);
    EXPECT_FALSE(VRSettings::isVideoBitrateAuto());
    EXPECT_EQ(BitrateModel().value(), "100.25");
}

TEST(EncodingSettings, ResolutionFieldTakesWholeNumbersWithoutLeadingZeros) {
    testing_support::TestHome home;
    ResolutionModel model;
    EXPECT_EQ(model.value(), "300");
    const std::tuple<std::string, bool, std::string, double> steps[] = {
        {"72", true, "72", 72},   {"0300", false, "72", 72}, {"7.5", false, "72", 72},
        {"0", true, "0", 0},      {"600", true, "600", 600}, {"", true, "", 600},
        {"x", false, "600", 600},
    };
    for (const auto& [text, accepted, shown, stored] : steps) {
        EXPECT_EQ(model.setValue(text), accepted) << text;
        EXPECT_EQ(model.value(), shown) << text;
        EXPECT_EQ(VRSettings::photoDPI(), stored) << text;
    }
    model.setRecommended(false);
    EXPECT_FALSE(VRSettings::isPhotoDPIAuto());
}

TEST(EncodingSettings, OlderListStoresByRow) {
    testing_support::TestHome home;
    EXPECT_TRUE(VREncodeSettingsController::didFinishEditingRow(2, "240", false));
    EXPECT_TRUE(VREncodeSettingsController::didFinishEditingRow(3, "70", false));
    EXPECT_TRUE(VREncodeSettingsController::didFinishEditingRow(4, "12.5", false));
    EXPECT_FALSE(VREncodeSettingsController::didFinishEditingRow(5, "99", false));
    EXPECT_EQ(VRSettings::photoDPI(), 240);
    EXPECT_EQ(VRSettings::photoJPEGCompression(), 70);
    EXPECT_EQ(VRSettings::videoBitrate(), 12.5);
    EXPECT_TRUE(VREncodeSettingsController::didFinishEditingRow(3, "70", true));
    EXPECT_EQ(VRSettings::photoJPEGCompression(), 0) << "a row in edit counts as empty";
}

}  // namespace
