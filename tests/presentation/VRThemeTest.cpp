#include "presentation/VRTheme.h"

#include <gtest/gtest.h>

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

TEST(VRTheme, ColoursOfBothVariants) {
    auto light = VRTheme::_createThemeWithName(0);
    auto dark = VRTheme::_createThemeWithName(1);
    EXPECT_EQ(light->color(VRThemeColor::mainColor), rgb(196, 61, 61));
    EXPECT_EQ(dark->color(VRThemeColor::mainColor), rgb(40, 42, 40));
    EXPECT_EQ(light->color(VRThemeColor::cellSelectedColor), rgb(232, 232, 232));
    EXPECT_EQ(dark->color(VRThemeColor::borderColor), rgb(128, 128, 128));
    EXPECT_EQ(dark->color(VRThemeColor::borderTranslucentColor), rgb(128, 128, 128, 0.5));
    EXPECT_EQ(light->color(VRThemeColor::tutorialCoverColor), rgb(0, 0, 0, 0.3));
    EXPECT_EQ(dark->color(VRThemeColor::tutorialCoverColor), rgb(0, 0, 0, 0.5));
    EXPECT_EQ(dark->color(VRThemeColor::listTwitterColor), rgb(86, 182, 255));
    EXPECT_EQ(dark->color(VRThemeColor::summaryEditButtonColor), rgb(40, 41, 42));
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
