#include "platform/PhotoLibrary.h"

#include <cstdlib>
#include <fstream>

#include "platform/Dispatch.h"
#include "platform/Environment.h"

namespace platform {

void PhotoLibrary::performChanges(PHChangeRequest request, ChangeCompletion completion) {
    DispatchQueue::global().async([self = shared_from_this(), request = std::move(request),
                                   completion = std::move(completion)] {
        PHChangeResult result = self->performChangesAndWait(request);
        if (completion) completion(result);
    });
}

void PhotoLibrary::requestImage(std::string localIdentifier, std::uint32_t maxSide,
                                ImageCompletion completion) {
    DispatchQueue::global().async([self = shared_from_this(), id = std::move(localIdentifier),
                                   maxSide, completion = std::move(completion)] {
        ErrorRef error;
        auto image = self->requestThumbnail(id, maxSide, &error);
        if (completion) completion(std::move(image), error);
    });
}

std::string defaultPhotoLibraryRoot(const std::optional<std::string>& homeRoot,
                                    const std::string& userHome, const std::string& userDirsFile) {
    if (homeRoot) return *homeRoot + "/Pictures";
    std::ifstream in(userDirsFile);
    std::string line;
    while (std::getline(in, line)) {
        const std::string key = "XDG_PICTURES_DIR=\"";
        if (line.rfind(key, 0) != 0 || line.size() < key.size() + 1 || line.back() != '"') continue;
        std::string value = line.substr(key.size(), line.size() - key.size() - 1);
        if (value.rfind("$HOME", 0) == 0) value = userHome + value.substr(5);
        // Only absolute paths or $HOME-relative ones are valid; "$HOME/" alone means no
        // pictures folder, for which the usual default stands.
        while (value.size() > 1 && value.back() == '/') value.pop_back();
        if (!value.empty() && value[0] == '/' && value != userHome) return value;
    }
    return userHome + "/Pictures";
}

PhotoLibraryLocations defaultPhotoLibraryLocations(const std::optional<std::string>& libraryPath) {
    const auto homeRoot = Environment::homeRoot();
    const char* home = std::getenv("HOME");
    const std::string userHome = home && *home ? home : "/tmp";
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const std::string configHome = config && config[0] == '/' ? config : userHome + "/.config";
    PhotoLibraryLocations locations;
    locations.root =
        libraryPath && !libraryPath->empty()
            ? *libraryPath
            : defaultPhotoLibraryRoot(homeRoot, userHome, configHome + "/user-dirs.dirs");
    const std::string documents = Environment::documentsDirectory();
    locations.catalogPath = documents.substr(0, documents.rfind('/')) + "/photo-library.sqlite";
    if (homeRoot) {
        locations.thumbnailsCache = *homeRoot + "/cache/thumbnails";
    } else {
        const char* cache = std::getenv("XDG_CACHE_HOME");
        locations.thumbnailsCache =
            (cache && cache[0] == '/' ? std::string(cache) : userHome + "/.cache") + "/thumbnails";
    }
    return locations;
}

}  // namespace platform
