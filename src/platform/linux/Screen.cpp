#include "platform/Screen.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace platform {

namespace {

// The first line of a small sysfs file.
std::string firstLine(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    if (file) std::getline(file, line);
    return line.substr(0, 64);
}

}  // namespace

std::optional<CGSize> Screen::mainScreenPixelSize() {
    std::error_code error;
    std::vector<std::filesystem::path> connectors;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/drm", error)) {
        connectors.push_back(entry.path());
    }
    // Connector names ("card0-eDP-1") sort the built-in panel of a laptop first.
    std::sort(connectors.begin(), connectors.end());
    for (const auto& connector : connectors) {
        if (firstLine(connector / "status") != "connected") continue;
        // The first listed mode is the preferred one, "1920x1080".
        unsigned width = 0, height = 0;
        auto mode = firstLine(connector / "modes");
        if (std::sscanf(mode.c_str(), "%ux%u", &width, &height) == 2 && width > 0 && height > 0 &&
            width <= 65536 && height <= 65536) {
            return CGSize{static_cast<double>(width), static_cast<double>(height)};
        }
    }
    return std::nullopt;
}

}  // namespace platform
