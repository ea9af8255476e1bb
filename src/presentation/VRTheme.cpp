#include "presentation/VRTheme.h"

#include <map>
#include <mutex>

#include "platform/Dispatch.h"
#include "storage/VRSettings.h"

namespace {

constexpr VRColor rgb(double red, double green, double blue, double alpha = 1.0) {
    return {red / 255.0, green / 255.0, blue / 255.0, alpha};
}
constexpr VRColor gray(double level, double alpha = 1.0) {
    return rgb(level, level, level, alpha);
}

struct ThemeRow {
    VRThemeColor role;
    const char* name;
    VRColor light;
    VRColor dark;
};

// The logo colours are Display P3 values taken as they are; the roles without a fixed value
// (summaryEditButtonColor in light) borrow the nearest role of the same character.
constexpr ThemeRow kThemeTable[] = {
    {VRThemeColor::cellSelectedColor, "cellSelectedColor", gray(232), rgb(61, 63, 61)},
    {VRThemeColor::cellColor, "cellColor", gray(255), rgb(35, 37, 35)},
    {VRThemeColor::cellBorderColor, "cellBorderColor", rgb(220, 222, 220), rgb(51, 53, 51)},
    {VRThemeColor::cellSeparatorColor, "cellSeparatorColor", rgb(140, 150, 140), rgb(81, 83, 81)},
    {VRThemeColor::textColor, "textColor", gray(255), gray(255)},
    {VRThemeColor::mainColor, "mainColor", rgb(196, 61, 61), rgb(40, 42, 40)},
    {VRThemeColor::redColor, "redColor", rgb(196, 61, 61), rgb(204, 86, 86)},
    {VRThemeColor::greenColor, "greenColor", rgb(26, 156, 26), rgb(108, 187, 108)},
    {VRThemeColor::backColor, "backColor", rgb(241, 242, 241), rgb(24, 25, 24)},
    {VRThemeColor::borderColor, "borderColor", gray(255), gray(128)},
    {VRThemeColor::borderTranslucentColor, "borderTranslucentColor", gray(255, 0.5),
     gray(128, 0.5)},
    {VRThemeColor::assetBorderColor, "assetBorderColor", gray(0, 0.2), gray(255, 0.2)},
    {VRThemeColor::assetMarkColor, "assetMarkColor", gray(255, 0.9), gray(64, 0.9)},
    {VRThemeColor::whiteColor, "whiteColor", gray(255), gray(0)},
    {VRThemeColor::blackColor, "blackColor", rgb(35, 38, 35), gray(255)},
    {VRThemeColor::whiteHighlightColor, "whiteHighlightColor", gray(220), gray(64)},
    {VRThemeColor::whiteTranslucentColor, "whiteTranslucentColor", gray(255, 0.5), gray(0, 0.5)},
    {VRThemeColor::grayColor, "grayColor", rgb(55, 58, 55), rgb(210, 212, 210)},
    {VRThemeColor::graySecondaryColor, "graySecondaryColor", rgb(134, 134, 137),
     rgb(128, 128, 130)},
    {VRThemeColor::grayHighlightColor, "grayHighlightColor", rgb(170, 173, 170), rgb(96, 98, 96)},
    {VRThemeColor::grayEmptyColor, "grayEmptyColor", rgb(220, 222, 220), rgb(66, 67, 66)},
    {VRThemeColor::grayButtonColor, "grayButtonColor", rgb(220, 222, 220), rgb(66, 67, 66)},
    {VRThemeColor::grayLightColor, "grayLightColor", rgb(140, 150, 140), rgb(123, 124, 123)},
    {VRThemeColor::highlightedColor, "highlightedColor", rgb(207, 99, 99), rgb(61, 63, 61)},
    {VRThemeColor::coverColor, "coverColor", gray(0, 0.5), gray(0, 0.5)},
    {VRThemeColor::reflectionColor, "reflectionColor", rgb(200, 74, 74), rgb(48, 50, 48)},
    {VRThemeColor::windowPlaceholderColor, "windowPlaceholderColor", gray(200), rgb(66, 67, 66)},
    {VRThemeColor::inputBackColor, "inputBackColor", rgb(202, 80, 80), rgb(61, 63, 61)},
    {VRThemeColor::placeholderColor, "placeholderColor", gray(255, 0.3), gray(255, 0.3)},
    {VRThemeColor::keyboardBorderColor, "keyboardBorderColor", rgb(255, 158, 158), rgb(81, 83, 81)},
    {VRThemeColor::infoColor, "infoColor", rgb(150, 160, 150), rgb(150, 155, 150)},
    {VRThemeColor::controlSelectedColor, "controlSelectedColor", gray(0, 0.2), gray(0, 0.2)},
    {VRThemeColor::tutorialCoverColor, "tutorialCoverColor", gray(0, 0.3), gray(0, 0.5)},
    {VRThemeColor::buildInMarkColor, "buildInMarkColor", rgb(213, 119, 119), rgb(120, 122, 120)},
    {VRThemeColor::listAppstoreColor, "listAppstoreColor", rgb(84, 203, 84), rgb(111, 210, 111)},
    {VRThemeColor::listTwitterColor, "listTwitterColor", rgb(85, 172, 238), rgb(86, 182, 255)},
    {VRThemeColor::listFacebookColor, "listFacebookColor", rgb(59, 89, 152), rgb(67, 116, 218)},
    {VRThemeColor::waitingColor, "waitingColor", gray(255), gray(255)},
    {VRThemeColor::summaryEditButtonColor, "summaryEditButtonColor", rgb(196, 61, 61),
     rgb(40, 41, 42)},
    {VRThemeColor::logoColor, "logoColor", rgb(196, 61, 61), rgb(196, 61, 61)},
    {VRThemeColor::logoSelectedColor, "logoSelectedColor", rgb(213, 119, 119), rgb(213, 119, 119)},
};
constexpr bool tableFollowsEnumeration() {
    for (std::size_t i = 0; i < std::size(kThemeTable); ++i) {
        if (static_cast<std::size_t>(kThemeTable[i].role) != i) return false;
    }
    return std::size(kThemeTable) == VRThemeColorCount;
}
static_assert(tableFollowsEnumeration(), "one row per role, in the order of VRThemeColor");

const ThemeRow& rowOf(VRThemeColor role) {
    return kThemeTable[static_cast<std::size_t>(role)];
}

struct ThemeState {
    std::mutex mutex;
    std::shared_ptr<const VRTheme> current;
    std::function<std::int64_t()> systemStyle;
    std::map<std::uint64_t, VRTheme::Listener> listeners;
    std::uint64_t nextToken = 1;
};

ThemeState& state() {
    static ThemeState* shared = new ThemeState;  // lives for the whole process
    return *shared;
}

}  // namespace

const char* nameOfThemeColor(VRThemeColor role) {
    return rowOf(role).name;
}

std::optional<VRThemeColor> themeColorWithName(const std::string& name) {
    for (const ThemeRow& row : kThemeTable) {
        if (name == row.name) return row.role;
    }
    return std::nullopt;
}

VRColor VRTheme::color(VRThemeColor role) const {
    const ThemeRow& row = rowOf(role);
    return _name == VRThemeNameDark ? row.dark : row.light;
}

std::int64_t VRTheme::themeNameForColorThemeType(std::int64_t colorThemeType,
                                                 std::int64_t systemInterfaceStyle) {
    if (colorThemeType == 2) return VRThemeNameDark;
    if (colorThemeType == 1) return VRThemeNameLight;
    return systemInterfaceStyle == 2 ? VRThemeNameDark : VRThemeNameLight;
}

void VRTheme::setSystemInterfaceStyleProvider(std::function<std::int64_t()> provider) {
    std::lock_guard lock(state().mutex);
    state().systemStyle = std::move(provider);
}

std::int64_t VRTheme::systemInterfaceStyle() {
    std::function<std::int64_t()> provider;
    {
        std::lock_guard lock(state().mutex);
        provider = state().systemStyle;
    }
    return provider ? provider() : 1;
}

std::shared_ptr<const VRTheme> VRTheme::_createThemeWithName(std::int64_t name) {
    return std::shared_ptr<const VRTheme>(
        new VRTheme(name == VRThemeNameDark ? VRThemeNameDark : VRThemeNameLight));
}

std::shared_ptr<const VRTheme> VRTheme::current() {
    {
        std::lock_guard lock(state().mutex);
        if (state().current) return state().current;
    }
    auto theme = _createThemeWithName(
        themeNameForColorThemeType(VRSettings::colorThemeType(), systemInterfaceStyle()));
    std::lock_guard lock(state().mutex);
    if (!state().current) state().current = theme;
    return state().current;
}

void VRTheme::setThemeWithName(std::int64_t name) {
    name = name == VRThemeNameDark ? VRThemeNameDark : VRThemeNameLight;
    if (current()->name() == name) return;
    auto theme = _createThemeWithName(name);
    {
        std::lock_guard lock(state().mutex);
        state().current = theme;
    }
    platform::DispatchQueue::main().async([theme] {
        std::map<std::uint64_t, Listener> listeners;
        {
            std::lock_guard lock(state().mutex);
            listeners = state().listeners;
        }
        for (const auto& [token, listener] : listeners) listener(*theme);
    });
}

void VRTheme::resetCurrent() {
    std::lock_guard lock(state().mutex);
    state().current.reset();
}

std::uint64_t VRTheme::addThemeChangeListener(Listener listener) {
    std::lock_guard lock(state().mutex);
    std::uint64_t token = state().nextToken++;
    state().listeners.emplace(token, std::move(listener));
    return token;
}

void VRTheme::removeThemeChangeListener(std::uint64_t token) {
    std::lock_guard lock(state().mutex);
    state().listeners.erase(token);
}
