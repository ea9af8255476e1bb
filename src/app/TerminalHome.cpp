#include "app/TerminalHome.h"

#include <ostream>

#include "assets/VRURLAsset.h"
#include "core/AppDelegate.h"
#include "model/VRFormatMediaType.h"

namespace app {

void TerminalHome::launchManagerDidRequestExtenralURL(VRLaunchManager& manager) {
    const auto url = manager.externalURL();
    if (!url) return;
    manager.setExternalURL(std::nullopt);
    _delivered.push_back(*url);
    _out << externalItemLine(*url) << std::endl;
}

void TerminalHome::offer(const std::string& path) {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    manager.setExternalURL(path);
    launchManagerDidRequestExtenralURL(manager);
}

std::string externalItemLine(const std::string& path) {
    std::string type = titleForMediaType(VRURLAsset::mediaTypeForPath(path));
    if (type.empty()) type = "file";
    return "External " + type + ": " + path;
}

std::shared_ptr<TerminalHome> presentTerminalHome(std::ostream& out) {
    auto home = std::make_shared<TerminalHome>(out);
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    AppDelegate::shared()._loadMainControllerFromLaunchController(home);
    // A file that waited for the tutorial is the terminal's to take.
    home->launchManagerDidRequestExtenralURL(manager);
    return home;
}

}  // namespace app
