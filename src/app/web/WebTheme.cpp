// /theme.css: the interface's colours as CSS custom properties, light by default and dark
// when the browser prefers it, both from the program's own theme table, so the pages and the
// rest of the program never disagree on a colour. The colorThemeType setting (1 light, 2
// dark) overrides the browser's preference; the color-scheme it sets lets the page's own
// light-dark() colours follow the same choice.
#include <cmath>
#include <cstdio>

#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "presentation/VRTheme.h"
#include "storage/VRSettings.h"

namespace app::web {
namespace {

std::string cssColor(const VRColor& color) {
    auto channel = [](double value) { return static_cast<int>(std::lround(value * 255)); };
    char text[64];
    std::snprintf(text, sizeof text, "rgba(%d, %d, %d, %.3g)", channel(color.red),
                  channel(color.green), channel(color.blue), color.alpha);
    return text;
}

std::string properties(const VRTheme& theme) {
    std::string css;
    for (std::size_t i = 0; i < VRThemeColorCount; ++i) {
        const auto role = static_cast<VRThemeColor>(i);
        css += std::string("  --") + nameOfThemeColor(role) + ": " + cssColor(theme.color(role)) +
               ";\n";
    }
    return css;
}

}  // namespace

std::string themeStyleSheet(std::int64_t colorThemeType) {
    const auto light = VRTheme::_createThemeWithName(VRTheme::VRThemeNameLight);
    const auto dark = VRTheme::_createThemeWithName(VRTheme::VRThemeNameDark);
    if (colorThemeType == 1)
        return ":root {\n  color-scheme: light;\n" + properties(*light) + "}\n";
    if (colorThemeType == 2) return ":root {\n  color-scheme: dark;\n" + properties(*dark) + "}\n";
    return ":root {\n  color-scheme: light dark;\n" + properties(*light) +
           "}\n@media (prefers-color-scheme: dark) {\n:root {\n" + properties(*dark) + "}\n}\n";
}

void installThemeRoute(WebServer& server) {
    server.http().Get("/theme.css", [](const httplib::Request&, httplib::Response& response) {
        std::int64_t type = 0;
        WebServer::onMain([&] {
            type = VRSettings::colorThemeType();
            return Reply{};
        });
        response.set_content(themeStyleSheet(type), "text/css; charset=utf-8");
    });
}

}  // namespace app::web
