#include "presentation/VRTheme.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "platform/Dispatch.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

VRColor rgb(double r, double g, double b, double a = 1) {
    return {r / 255, g / 255, b / 255, a};
}

TEST(VRTheme, NameFollowsTheSettingOrTheSystem) {
    const std::tuple<std::int64_t, std::int64_t, std::int64_t> cases[] = {
        {2, 1, 1}, {2, 2, 1}, {1, 2, 0}, {1, 1, 0}, {0, 2, 1}, {0, 1, 0}, {7, 2, 1}, {-1, 0, 0},
    };
    for (auto [setting, system, name] : cases) {
        EXPECT_EQ(VRTheme::themeNameForColorThemeType(setting, system), name)
            << setting << " " << system;
    }
}

double relativeLuminance(const VRColor& c) {
    auto linear = [](double v) {
        return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(c.red) + 0.7152 * linear(c.green) + 0.0722 * linear(c.blue);
}

// The contrast ratio of two opaque colours, from 1 (equal) to 21 (black on white).
double contrast(const VRColor& a, const VRColor& b) {
    double la = relativeLuminance(a);
    double lb = relativeLuminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

// A row swapped between the variants or between roles shows as unreadable text, so the pairs
// that carry text are checked for contrast rather than copied value by value.
TEST(VRTheme, TextStaysReadableInBothVariants) {
    const std::pair<VRThemeColor, VRThemeColor> textOnBackground[] = {
        {VRThemeColor::textColor, VRThemeColor::mainColor},
        {VRThemeColor::blackColor, VRThemeColor::cellColor},
        {VRThemeColor::blackColor, VRThemeColor::backColor},
        {VRThemeColor::whiteColor, VRThemeColor::blackColor},
    };
    for (std::int64_t name : {VRTheme::VRThemeNameLight, VRTheme::VRThemeNameDark}) {
        auto theme = VRTheme::_createThemeWithName(name);
        for (auto [text, background] : textOnBackground) {
            SCOPED_TRACE(std::string(nameOfThemeColor(text)) + " on " +
                         nameOfThemeColor(background) + " in theme " + std::to_string(name));
            EXPECT_GE(contrast(theme->color(text), theme->color(background)), 4.5);
        }
        for (std::size_t i = 0; i < VRThemeColorCount; ++i) {
            VRColor c = theme->color(static_cast<VRThemeColor>(i));
            for (double component : {c.red, c.green, c.blue, c.alpha}) {
                EXPECT_TRUE(component >= 0 && component <= 1)
                    << nameOfThemeColor(static_cast<VRThemeColor>(i));
            }
        }
    }
    // The light and dark backgrounds sit at opposite ends.
    EXPECT_GT(relativeLuminance(VRTheme::_createThemeWithName(0)->color(VRThemeColor::backColor)),
              0.5);
    EXPECT_LT(relativeLuminance(VRTheme::_createThemeWithName(1)->color(VRThemeColor::backColor)),
              0.1);
}

TEST(VRTheme, SpotColoursAndRoleNames) {
    auto light = VRTheme::_createThemeWithName(0);
    auto dark = VRTheme::_createThemeWithName(1);
    EXPECT_EQ(light->color(VRThemeColor::mainColor), rgb(196, 61, 61));
    EXPECT_EQ(dark->color(VRThemeColor::mainColor), rgb(40, 42, 40));
    EXPECT_EQ(light->color(VRThemeColor::tutorialCoverColor), rgb(0, 0, 0, 0.3));
    EXPECT_EQ(dark->color(VRThemeColor::tutorialCoverColor), rgb(0, 0, 0, 0.5));
    for (std::size_t i = 0; i < VRThemeColorCount; ++i) {
        auto role = static_cast<VRThemeColor>(i);
        EXPECT_EQ(themeColorWithName(nameOfThemeColor(role)), role) << nameOfThemeColor(role);
    }
    EXPECT_FALSE(themeColorWithName("noSuchColor").has_value());
}

TEST(VRTheme, CurrentComesFromTheSettingAndTheSystemAtCreation) {
    testing_support::TestHome home;
    VRTheme::setSystemInterfaceStyleProvider([] { return std::int64_t{2}; });
    VRTheme::resetCurrent();
    EXPECT_EQ(VRTheme::current()->name(), 1);
    VRTheme::setSystemInterfaceStyleProvider([] { return std::int64_t{1}; });
    EXPECT_EQ(VRTheme::current()->name(), 1) << "kept until the theme is set again";
    VRTheme::resetCurrent();
    EXPECT_EQ(VRTheme::current()->name(), 0);
    VRSettings::setColorThemeType(2);
    VRTheme::resetCurrent();
    EXPECT_EQ(VRTheme::current()->name(), 1);
    VRTheme::setSystemInterfaceStyleProvider(nullptr);
    VRTheme::resetCurrent();
}

TEST(VRTheme, SettingTheThemeNotifiesOncePerChangeOnTheMainQueue) {
    testing_support::TestHome home;
    VRTheme::resetCurrent();
    ASSERT_EQ(VRTheme::current()->name(), 0);
    std::vector<std::int64_t> notified;
    std::uint64_t token = VRTheme::addThemeChangeListener(
        [&](const VRTheme& theme) { notified.push_back(theme.name()); });
    platform::MainRunLoop::drain();

    VRTheme::setThemeWithName(1);
    VRTheme::setThemeWithName(1);
    EXPECT_TRUE(notified.empty()) << "delivered through the main queue";
    platform::MainRunLoop::drain();
    EXPECT_EQ(notified, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(VRTheme::current()->name(), 1);

    VRTheme::setThemeWithName(0);
    VRTheme::setThemeWithName(5);  // any other name is the light theme: no change
    platform::MainRunLoop::drain();
    EXPECT_EQ(notified, (std::vector<std::int64_t>{1, 0}));

    VRTheme::removeThemeChangeListener(token);
    VRTheme::setThemeWithName(1);
    platform::MainRunLoop::drain();
    EXPECT_EQ(notified.size(), 2u);
    VRTheme::resetCurrent();
}

}  // namespace
