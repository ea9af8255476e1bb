// Changes to the library: albums made as folders, new assets written under free names, and
// assets added to further albums as hard links, all recorded in one catalogue transaction.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "platform/linux/PhotoLibraryLinux.h"

namespace platform::photolibrary {
namespace {

ErrorRef changeError(std::int64_t code, const std::string& why) {
    return Error::errorWithDomain(PHPhotosErrorDomain, code, {{NSLocalizedDescriptionKey, why}});
}

std::string baseName(const std::string& path) {
    auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// "IMG_0001.JPG" -> {"IMG_0001", ".JPG"}; a name without a dot has no extension.
std::pair<std::string, std::string> splitName(const std::string& name) {
    auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return {name, ""};
    return {name.substr(0, dot), name.substr(dot)};
}

bool exists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

ErrorRef copyThroughTemporary(const std::string& source, const std::string& target) {
    std::random_device rd;
    const std::string folder = target.substr(0, target.rfind('/'));
    const std::string tmp =
        folder + "/.unwarp-" + std::to_string(getpid()) + "-" + std::to_string(rd());
    int in = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return Error::posixError(errno, "open", source);
    int out = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (out < 0) {
        int err = errno;
        close(in);
        return Error::posixError(err, "open", tmp);
    }
    char buffer[1 << 16];
    ssize_t n = 0;
    int err = 0;
    while ((n = read(in, buffer, sizeof buffer)) > 0) {
        for (ssize_t done = 0; done < n;) {
            ssize_t w = write(out, buffer + done, static_cast<size_t>(n - done));
            if (w < 0) {
                if (errno == EINTR) continue;
                err = errno;
                break;
            }
            done += w;
        }
        if (err) break;
    }
    if (n < 0) err = errno;
    if (!err && fsync(out) != 0) err = errno;
    close(in);
    if (close(out) != 0 && !err) err = errno;
    // link() refuses an existing name, where rename() would replace it.
    if (!err && link(tmp.c_str(), target.c_str()) != 0) err = errno;
    unlink(tmp.c_str());
    return err ? Error::posixError(err, "copy", target) : nullptr;
}

void removeAll(const std::vector<std::string>& paths) {
    for (const auto& p : paths) unlink(p.c_str());
}

}  // namespace

bool isValidAlbumTitle(const std::string& title) {
    return !title.empty() && title[0] != '.' && title.find('/') == std::string::npos &&
           title.find('\0') == std::string::npos && title.size() <= 255;
}

std::string freeStem(const std::string& folder, const std::string& stem,
                     const std::vector<std::string>& extensions, int firstNumber) {
    for (int n = firstNumber;; ++n) {
        std::string candidate = n <= 1 ? stem : stem + " " + std::to_string(n);
        bool free = true;
        for (const auto& ext : extensions) free = free && !exists(folder + "/" + candidate + ext);
        if (free) return candidate;
    }
}

ErrorRef placeFile(const std::string& source, const std::string& target, bool hardLink) {
    if (hardLink) {
        if (link(source.c_str(), target.c_str()) == 0) return nullptr;
        if (errno != EXDEV && errno != EPERM && errno != EMLINK)
            return Error::posixError(errno, "link", target);
    }
    return copyThroughTemporary(source, target);
}

// The catalogue's lock keeps other libraries out, but not a file manager or a copy in a
// shell: a name that was free when looked at may be taken by the time the file is placed, and
// then the next number is tried rather than failing the save.
ErrorRef FolderPhotoLibrary::_placeUnderFreeName(const std::string& folder, const std::string& stem,
                                                 const std::vector<std::string>& sources,
                                                 const std::vector<std::string>& extensions,
                                                 bool link, std::vector<std::string>& written) {
    for (int number = 1;;) {
        const std::string chosen = freeStem(folder, stem, extensions, number);
        std::vector<std::string> placed;
        ErrorRef failure;
        for (std::size_t i = 0; i < sources.size() && !failure; ++i) {
            std::string target = folder + "/" + chosen + extensions[i];
            if (_beforePlace) _beforePlace(target);
            failure = placeFile(sources[i], target, link);
            if (!failure) placed.push_back(target);
        }
        if (!failure) {
            written.insert(written.end(), placed.begin(), placed.end());
            return nullptr;
        }
        removeAll(placed);
        if (failure->code() != EEXIST) return failure;
        const std::string suffix =
            chosen.size() > stem.size() ? chosen.substr(stem.size() + 1) : "1";
        number = std::stoi(suffix) + 1;
    }
}

ErrorRef FolderPhotoLibrary::_createAlbumLocked(const std::string& title, std::string& albumId) {
    if (!isValidAlbumTitle(title))
        return changeError(PHPhotosErrorInvalidResource,
                           "\"" + title + "\" can't be an album's name");
    const std::string folder = _locations.root + "/" + title;
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST)
        return Error::posixError(errno, "mkdir", folder);
    auto albums = _catalog->albums();
    if (auto it = albums.find(title); it != albums.end()) {
        albumId = it->second;
        return nullptr;
    }
    albumId = newAlbumIdentifier();
    return _catalog->putAlbum(albumId, title);
}

ErrorRef FolderPhotoLibrary::_createAssetLocked(const PHChangeRequest& request,
                                                std::vector<std::string>& written,
                                                std::string& assetId) {
    const auto& resources = request.resources;
    const bool live = resources.size() == 2 && resources[0].type == PHAssetResourceTypePhoto &&
                      resources[1].type == PHAssetResourceTypePairedVideo;
    const bool single = resources.size() == 1 && (resources[0].type == PHAssetResourceTypePhoto ||
                                                  resources[0].type == PHAssetResourceTypeVideo);
    if (!live && !single)
        return changeError(PHPhotosErrorInvalidResource,
                           "An asset is one photo, one video, or a photo with its paired video");
    std::vector<std::string> extensions;
    for (const auto& r : resources) {
        std::string name =
            r.originalFilename.empty() ? baseName(r.fileURL) : baseName(r.originalFilename);
        const auto expected =
            r.type == PHAssetResourceTypePhoto ? PHAssetMediaTypeImage : PHAssetMediaTypeVideo;
        if (mediaTypeForPath(name) != expected)
            return changeError(PHPhotosErrorInvalidResource,
                               "\"" + name + "\" is not a file of its resource type");
        if (access(r.fileURL.c_str(), R_OK) != 0)
            return Error::posixError(errno, "open", r.fileURL);
        extensions.push_back(splitName(name).second);
    }
    const std::string folder =
        request.albumTitle.empty() ? _locations.root : _locations.root + "/" + request.albumTitle;
    std::string stem =
        splitName(baseName(resources[0].originalFilename.empty() ? resources[0].fileURL
                                                                 : resources[0].originalFilename))
            .first;
    std::vector<std::string> sources;
    for (const auto& r : resources) sources.push_back(r.fileURL);
    if (auto e = _placeUnderFreeName(folder, stem, sources, extensions, false, written)) return e;
    std::vector<struct stat> stats(written.size());
    for (std::size_t i = 0; i < written.size(); ++i) stat(written[i].c_str(), &stats[i]);
    const FileFacts facts = readFileFacts(written[0]);
    assetId = newLocalIdentifier();
    const std::int64_t mtime =
        std::int64_t(stats[0].st_mtim.tv_sec) * 1000000000 + stats[0].st_mtim.tv_nsec;
    AssetRow row = assetRowFor(assetId, facts, mtime);
    if (live) row.subtypes |= PHAssetMediaSubtypePhotoLive;
    if (auto e = _catalog->putAsset(row)) return e;
    for (std::size_t i = 0; i < written.size(); ++i) {
        const auto& st = stats[i];
        FileRow file{written[i],
                     assetId,
                     resources[i].type,
                     true,
                     request.albumTitle,
                     std::int64_t(st.st_size),
                     std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec,
                     std::int64_t(st.st_dev),
                     std::int64_t(st.st_ino)};
        if (auto e = _catalog->putFile(file)) return e;
    }
    return nullptr;
}

ErrorRef FolderPhotoLibrary::_addAssetLocked(const std::string& assetId, const std::string& title,
                                             std::vector<std::string>& written) {
    auto files = _catalog->filesOfAsset(assetId);
    if (files.empty())
        return changeError(PHPhotosErrorIdentifierNotFound, "The asset " + assetId + " is gone");
    for (const auto& f : files)
        if (f.album == title) return nullptr;  // already a member
    std::vector<FileRow> resources;
    std::vector<std::string> extensions;
    for (const auto& f : files) {
        if (!f.primary) continue;
        resources.push_back(f);
        extensions.push_back(splitName(baseName(f.path)).second);
    }
    const std::string folder = title.empty() ? _locations.root : _locations.root + "/" + title;
    std::vector<std::string> sources;
    for (const auto& f : resources) sources.push_back(f.path);
    std::vector<std::string> placed;
    if (auto e = _placeUnderFreeName(folder, splitName(baseName(resources[0].path)).first, sources,
                                     extensions, true, placed))
        return e;
    written.insert(written.end(), placed.begin(), placed.end());
    for (std::size_t i = 0; i < resources.size(); ++i) {
        const std::string& target = placed[i];
        struct stat st {};
        if (stat(target.c_str(), &st) != 0) return Error::posixError(errno, "stat", target);
        FileRow row = resources[i];
        row.path = target;
        row.album = title;
        row.primary = false;
        row.size = st.st_size;
        row.mtime = std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
        row.device = std::int64_t(st.st_dev);
        row.inode = std::int64_t(st.st_ino);
        if (auto e = _catalog->putFile(row)) return e;
    }
    return nullptr;
}

PHChangeResult FolderPhotoLibrary::performChangesAndWait(const PHChangeRequest& request) {
    std::lock_guard lock(_mutex);
    PHChangeResult result;
    if (authorizationStatusForAccessLevel(PHAccessLevelAddOnly) !=
        PHAuthorizationStatusAuthorized) {
        result.error = changeError(PHPhotosErrorAccessUserDenied,
                                   "The photo library at " + _locations.root + " can't be written");
        return result;
    }
    if (auto e = _catalog->begin()) {
        result.error = e;
        return result;
    }
    std::vector<std::string> written;
    // Albums made by this change, which go again when it fails.
    std::vector<std::string> madeFolders;
    auto createAlbum = [&](const std::string& title, std::string& albumId) {
        const std::string folder = _locations.root + "/" + title;
        const bool existed = exists(folder);
        ErrorRef e = _createAlbumLocked(title, albumId);
        if (!existed && exists(folder)) madeFolders.push_back(folder);
        return e;
    };
    ErrorRef failure;
    if (!request.albumTitle.empty())
        failure = createAlbum(request.albumTitle, result.albumLocalIdentifier);
    if (!failure && !request.resources.empty())
        failure = _createAssetLocked(request, written, result.placeholderLocalIdentifier);
    for (const auto& id : request.addAssetLocalIdentifiers) {
        if (failure) break;
        failure = _addAssetLocked(id, request.albumTitle, written);
    }
    for (const auto& addition : request.albumAdditions) {
        if (failure) break;
        std::string albumId;
        failure = createAlbum(addition.albumTitle, albumId);
        for (const auto& id : addition.assetLocalIdentifiers) {
            if (failure) break;
            failure = _addAssetLocked(id, addition.albumTitle, written);
        }
    }
    if (!failure) failure = _catalog->commit();
    if (failure) {
        _catalog->rollback();
        removeAll(written);
        // rmdir leaves a folder that someone else put files into meanwhile.
        for (auto it = madeFolders.rbegin(); it != madeFolders.rend(); ++it) rmdir(it->c_str());
        result = PHChangeResult{failure, {}, {}};
    }
    return result;
}

}  // namespace platform::photolibrary
