#include "app/LibraryAssets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>

#include "app/Command.h"
#include "platform/AVVideoCodecs.h"
#include "platform/FileManager.h"

namespace app::library {

using nlohmann::json;
using namespace platform;

const char* mediaWord(PHAssetMediaType type) {
    return type == PHAssetMediaTypeImage   ? "photo"
           : type == PHAssetMediaTypeVideo ? "video"
                                           : "unknown";
}

std::string isoDate(const std::optional<PlistDate>& date) {
    if (!date) return "";
    const std::time_t seconds = static_cast<std::time_t>(date->timeIntervalSince1970());
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

json assetJSON(const PHAsset& a) {
    json resources = json::array();
    for (const auto& r : a.resources)
        resources.push_back({{"type", int(r.type)}, {"path", r.path}});
    json out = {{"id", a.localIdentifier},
                {"media", mediaWord(a.mediaType)},
                {"livePhoto", a.isLivePhoto()},
                {"width", a.pixelWidth},
                {"height", a.pixelHeight},
                {"duration", a.duration},
                {"created", isoDate(a.creationDate)},
                {"resources", resources}};
    if (a.location) out["location"] = {a.location->latitude, a.location->longitude};
    return out;
}

namespace {

const char* resourceWord(PHAssetResourceType type) {
    return type == PHAssetResourceTypePhoto   ? "photo"
           : type == PHAssetResourceTypeVideo ? "video"
                                              : "paired video";
}

std::optional<PHAsset> assetWithIdentifier(PhotoLibrary& library, const std::string& id) {
    auto found = library.fetchAssetsWithLocalIdentifiers({id}, {});
    if (!found.firstObject()) return std::nullopt;
    return *found.firstObject();
}

int reportGone(PhotoLibrary& library, const std::string& id) {
    return reportFailure("no asset \"" + id + "\" in " + library.locations().root +
                         " (it was deleted, or never existed)");
}

// The movie extensions the library takes; every other file is offered as a photo, which the
// library refuses when it is none.
bool isMovieName(const std::string& path) {
    return movieContainerWithExtension(FileManager::pathExtension(path)) != nullptr;
}

// Empty when `path` is a regular file this process can read, else why not.
std::string unreadableReason(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    struct stat st {};
    const bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    close(fd);
    return regular ? "" : "not a regular file";
}

// One creation: a file alone, or a still with the movie of its stem.
struct Creation {
    std::string file;
    std::optional<std::string> pairedMovie;
};

// Files in the order given; a still and a movie sharing a stem (and no other file of it) become
// one Live Photo at the place of the first of them.
std::vector<Creation> groupFiles(const std::vector<std::string>& files) {
    std::map<std::string, std::vector<std::size_t>> byStem;
    for (std::size_t i = 0; i < files.size(); ++i)
        byStem[FileManager::stringByDeletingPathExtension(FileManager::lastPathComponent(files[i]))]
            .push_back(i);
    std::vector<Creation> creations;
    std::vector<bool> taken(files.size(), false);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (taken[i]) continue;
        const auto& same = byStem[FileManager::stringByDeletingPathExtension(
            FileManager::lastPathComponent(files[i]))];
        if (same.size() == 2 && isMovieName(files[same[0]]) != isMovieName(files[same[1]])) {
            const std::size_t still = isMovieName(files[same[0]]) ? same[1] : same[0];
            const std::size_t movie = same[0] + same[1] - still;
            taken[still] = taken[movie] = true;
            creations.push_back({files[still], files[movie]});
            continue;
        }
        taken[i] = true;
        creations.push_back({files[i], std::nullopt});
    }
    return creations;
}

}  // namespace

int showAsset(PhotoLibrary& library, const std::string& identifier, bool asJSON) {
    auto asset = assetWithIdentifier(library, identifier);
    if (!asset) return reportGone(library, identifier);
    std::vector<std::string> albums;
    for (const auto& album : library.fetchAlbums().objects()) {
        auto members = library.fetchAssetsInAssetCollection(album.localIdentifier, {});
        if (members.indexOfObject(identifier) < members.count())
            albums.push_back(album.localizedTitle);
    }
    if (asJSON) {
        json out = assetJSON(*asset);
        out["albums"] = albums;
        std::cout << out.dump() << "\n";
        return kExitSuccess;
    }
    std::cout << "id:           " << asset->localIdentifier << "\n"
              << "media:        " << (asset->isLivePhoto() ? "live" : mediaWord(asset->mediaType))
              << "\n"
              << "size:         " << asset->pixelWidth << "x" << asset->pixelHeight << "\n";
    if (asset->mediaType == PHAssetMediaTypeVideo)
        std::cout << "duration:     " << asset->duration << " s\n";
    std::cout << "created:      " << isoDate(asset->creationDate) << "\n";
    if (asset->location)
        std::cout << "location:     " << asset->location->latitude << ", "
                  << asset->location->longitude << "\n";
    std::cout << "albums:       ";
    for (std::size_t i = 0; i < albums.size(); ++i) std::cout << (i ? ", " : "") << albums[i];
    std::cout << (albums.empty() ? "none\n" : "\n");
    for (const auto& r : asset->resources) {
        const std::string label = std::string(resourceWord(r.type)) + ":";
        std::cout << label << std::string(label.size() < 14 ? 14 - label.size() : 1, ' ') << r.path
                  << "\n";
    }
    return kExitSuccess;
}

int addFiles(PhotoLibrary& library, const std::vector<std::string>& files, const std::string& album,
             bool asJSON) {
    // Saving asks for access, which makes the library's folder when it is missing.
    if (library.requestAuthorizationForAccessLevel(PHAccessLevelAddOnly) !=
        PHAuthorizationStatusAuthorized)
        return reportFailure("the photo library at " + library.locations().root +
                             " can't be written");
    int exitCode = kExitSuccess;
    for (auto creation : groupFiles(files)) {
        // A half of a pair that can't be read is reported, and the other half saved alone.
        std::string problem = unreadableReason(creation.file);
        if (!problem.empty()) problem = creation.file + " can't be read: " + problem;
        if (creation.pairedMovie) {
            const std::string why = unreadableReason(*creation.pairedMovie);
            if (!why.empty() || !problem.empty()) {
                if (!why.empty()) {
                    exitCode = reportFailure(*creation.pairedMovie + " can't be read: " + why);
                } else {
                    exitCode = reportFailure(problem);
                    problem.clear();
                    creation.file = *creation.pairedMovie;
                }
                creation.pairedMovie.reset();
            }
        }
        PHChangeRequest request;
        request.albumTitle = album;
        std::vector<std::string> given{creation.file};
        if (creation.pairedMovie) {
            given.push_back(*creation.pairedMovie);
            request.resources = {{PHAssetResourceTypePhoto, creation.file, ""},
                                 {PHAssetResourceTypePairedVideo, *creation.pairedMovie, ""}};
        } else {
            request.resources = {
                {isMovieName(creation.file) ? PHAssetResourceTypeVideo : PHAssetResourceTypePhoto,
                 creation.file, ""}};
        }
        PHChangeResult result;
        if (problem.empty()) {
            result = library.performChangesAndWait(request);
            if (result.error)
                problem = creation.file + " was not saved: " + result.error->localizedDescription();
        }
        if (!problem.empty()) {
            exitCode = reportFailure(problem);
            continue;
        }
        auto saved = assetWithIdentifier(library, result.placeholderLocalIdentifier);
        if (asJSON) {
            json out = saved ? assetJSON(*saved) : json{{"id", result.placeholderLocalIdentifier}};
            out["given"] = given;
            std::cout << out.dump() << "\n";
        } else {
            std::cout << result.placeholderLocalIdentifier;
            if (saved)
                for (const auto& r : saved->resources) std::cout << "\t" << r.path;
            std::cout << "\n";
        }
    }
    return exitCode;
}

}  // namespace app::library
