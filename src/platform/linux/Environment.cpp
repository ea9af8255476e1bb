#include "platform/Environment.h"

#include <sys/utsname.h>

#include <cstdlib>
#include <mutex>

namespace platform {
namespace {

std::mutex gMutex;
std::optional<std::string> gRoot;

std::string xdgDirectory(const char* variable, const char* fallbackUnderHome) {
    const char* value = std::getenv(variable);
    if (value && value[0] == '/') return value;  // relative values are invalid per XDG
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/" + fallbackUnderHome;
}

std::string location(const char* underRoot, const char* variable, const char* fallback,
                     const char* underXdg) {
    std::lock_guard lock(gMutex);
    if (gRoot) return *gRoot + "/" + underRoot;
    return xdgDirectory(variable, fallback) + "/unwarp" + underXdg;
}

}  // namespace

void Environment::setHomeRoot(std::optional<std::string> root) {
    std::lock_guard lock(gMutex);
    while (root && root->size() > 1 && root->back() == '/') root->pop_back();
    gRoot = std::move(root);
}

std::optional<std::string> Environment::homeRoot() {
    std::lock_guard lock(gMutex);
    return gRoot;
}

std::string Environment::documentsDirectory() {
    return location("documents", "XDG_DATA_HOME", ".local/share", "/documents");
}

std::string Environment::temporaryDirectory() {
    return location("tmp", "XDG_CACHE_HOME", ".cache", "/tmp");
}

std::string Environment::settingsDirectory() {
    return location("config", "XDG_CONFIG_HOME", ".config", "");
}

std::string Environment::appVersion() {
    return UNWARP_VERSION;
}

std::string Environment::machineName() {
    struct utsname names {};
    if (uname(&names) != 0) return "unknown";
    return names.machine;
}

std::string Environment::systemVersion() {
    struct utsname names {};
    if (uname(&names) != 0) return "unknown";
    return std::string(names.sysname) + " " + names.release;
}

}  // namespace platform
