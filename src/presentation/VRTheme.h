// The named colours of the interface in a light and a dark variant, the choice between them
// from the settings and the system's style, and the notification of a change. Every view takes
// its colours from VRTheme::current(); the command uses it for coloured output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "model/VRColor.h"

inline constexpr const char* VRNotificationDidChangeTheme = "VRNotificationDidChangeTheme";

enum class VRThemeColor {
    cellSelectedColor,
    cellColor,
    cellBorderColor,
    cellSeparatorColor,
    textColor,
    mainColor,
    redColor,
    greenColor,
    backColor,
    borderColor,
    borderTranslucentColor,
    assetBorderColor,
    assetMarkColor,
    whiteColor,
    blackColor,
    whiteHighlightColor,
    whiteTranslucentColor,
    grayColor,
    graySecondaryColor,
    grayHighlightColor,
    grayEmptyColor,
    grayButtonColor,
    grayLightColor,
    highlightedColor,
    coverColor,
    reflectionColor,
    windowPlaceholderColor,
    inputBackColor,
    placeholderColor,
    keyboardBorderColor,
    infoColor,
    controlSelectedColor,
    tutorialCoverColor,
    buildInMarkColor,
    listAppstoreColor,
    listTwitterColor,
    listFacebookColor,
    waitingColor,
    summaryEditButtonColor,
    logoColor,
    logoSelectedColor,
};
inline constexpr std::size_t VRThemeColorCount =
    static_cast<std::size_t>(VRThemeColor::logoSelectedColor) + 1;

// The role's name as the table gives it ("mainColor"); absent for a name that is no role.
const char* nameOfThemeColor(VRThemeColor role);
std::optional<VRThemeColor> themeColorWithName(const std::string& name);

class VRTheme {
  public:
    // 0 is the light theme, 1 the dark one.
    static constexpr std::int64_t VRThemeNameLight = 0;
    static constexpr std::int64_t VRThemeNameDark = 1;

    std::int64_t name() const { return _name; }
    VRColor color(VRThemeColor role) const;

    // The theme name for a colorThemeType setting: 2 dark, 1 light, anything else follows
    // the system's style (userInterfaceStyle 2 is dark).
    static std::int64_t themeNameForColorThemeType(std::int64_t colorThemeType,
                                                   std::int64_t systemInterfaceStyle);

    // The system's interface style as the platform reports it (1 light, 2 dark). Linux has no
    // such setting, so it answers 1 unless a provider is set; null restores that.
    static void setSystemInterfaceStyleProvider(std::function<std::int64_t()> provider);
    static std::int64_t systemInterfaceStyle();

    // The current theme; made from the colorThemeType setting on first use. Any thread.
    static std::shared_ptr<const VRTheme> current();
    // Makes the theme of `name` current, unless it already is. After a change every listener is
    // called once, on the main queue, with the new theme.
    static void setThemeWithName(std::int64_t name);
    // Forgets the current theme, so the next current() reads the setting again (tests, tools).
    static void resetCurrent();

    using Listener = std::function<void(const VRTheme& theme)>;
    // Returns a token for removeThemeChangeListener.
    static std::uint64_t addThemeChangeListener(Listener listener);
    static void removeThemeChangeListener(std::uint64_t token);

    static std::shared_ptr<const VRTheme> _createThemeWithName(std::int64_t name);

  private:
    explicit VRTheme(std::int64_t name) : _name(name) {}
    std::int64_t _name;
};
