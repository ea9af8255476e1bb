#include "platform/FileAside.h"

#include <ctime>

#include "platform/FileManager.h"
#include "platform/Log.h"

namespace platform {

std::optional<std::string> moveUnreadableFileAside(const std::string& path,
                                                   const std::string& reason) {
    const std::string base = path + ".unreadable-" + std::to_string(std::time(nullptr));
    std::string aside = base;
    for (int attempt = 1; FileManager::fileExistsAtPath(aside) && attempt < 1000; ++attempt) {
        aside = base + "-" + std::to_string(attempt);
    }
    ErrorRef error;
    if (!FileManager::moveItemAtPath(path, aside, &error)) {
        log("~~ unreadable file " + path + " (" + reason +
            ") could not be moved aside: " + error->localizedDescription());
        return std::nullopt;
    }
    log("~~ unreadable file " + path + " (" + reason + ") kept as " + aside);
    return aside;
}

}  // namespace platform
