// Bringing the catalogue up to date with the files under the root: added, changed, renamed,
// linked and deleted files, Live Photo pairs among new files, and the album folders.
#include "platform/linux/PhotoLibraryScan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <unordered_set>

#include "platform/linux/PhotoLibraryLinux.h"

namespace platform::photolibrary {
namespace {

std::int64_t mtimeNs(const struct stat& st) {
    return std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

// Folders whose names start with "." are hidden, as are files.
bool isAlbumFolder(const dirent& entry, const struct stat& st) {
    return entry.d_name[0] != '.' && S_ISDIR(st.st_mode);
}

void walkFolder(int dirFd, const std::string& path, const std::string& album, int depth,
                Walk& walk) {
    DIR* dir = fdopendir(dirFd);
    if (!dir) {
        close(dirFd);
        return;
    }
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;  // hidden names, temporaries, . and ..
        struct stat st {};
        if (fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        std::string child = path + "/" + entry->d_name;
        if (S_ISDIR(st.st_mode)) {
            if (depth == 0 && isAlbumFolder(*entry, st)) walk.albums.push_back(entry->d_name);
            // Deep trees are cut off rather than followed into an endless chain.
            int fd = depth < 32
                         ? openat(dirfd(dir), entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                         : -1;
            if (fd >= 0) walkFolder(fd, child, depth == 0 ? entry->d_name : album, depth + 1, walk);
        } else if (S_ISREG(st.st_mode) &&
                   mediaTypeForPath(entry->d_name) != PHAssetMediaTypeUnknown) {
            walk.files.push_back({child, album, std::int64_t(st.st_size), mtimeNs(st),
                                  std::int64_t(st.st_dev), std::int64_t(st.st_ino)});
        }
    }
    closedir(dir);
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::string stemOf(const std::string& path) {
    auto slash = path.rfind('/');
    auto dot = path.rfind('.');
    return path.substr(0, dot == std::string::npos || dot < slash ? path.size() : dot);
}

// A movie joins a still of its stem and folder when both carry the same pairing key.
bool pairingKeysMatch(const std::string& stillKey, const std::string& movieKey) {
    return !movieKey.empty() && stillKey == movieKey;
}

const FileFacts& factsFor(FactsCache& cache, const std::string& path) {
    auto it = cache.find(path);
    if (it == cache.end()) it = cache.emplace(path, readFileFacts(path)).first;
    return it->second;
}

FileRow fileRowFor(const SeenFile& s, const std::string& asset, PHAssetResourceType role) {
    return {s.path, asset, role, true, s.album, s.size, s.mtime, s.device, s.inode};
}

// Brings an asset whose files changed back to a consistent shape: gone without files, a
// further name promoted when its resources went, a Live Photo without one half undone.
ErrorRef settleAsset(Catalog& catalog, const std::string& id) {
    auto files = catalog.filesOfAsset(id);
    if (files.empty()) return catalog.deleteAsset(id);
    auto row = catalog.asset(id);
    if (!row) return nullptr;
    bool anyPrimary = false;
    for (const auto& f : files) anyPrimary |= f.primary;
    if (!anyPrimary) {
        const std::string album = files.front().album;
        for (auto& f : files) {
            if (f.album != album) continue;
            f.primary = true;
            if (auto e = catalog.putFile(f)) return e;
        }
    }
    bool photo = false, paired = false;
    for (const auto& f : files) {
        if (!f.primary && anyPrimary) continue;
        photo |= f.role == PHAssetResourceTypePhoto;
        paired |= f.role == PHAssetResourceTypePairedVideo;
    }
    if (paired && !photo) {
        // The still is gone: the movie stands alone.
        for (auto f : files) {
            if (f.role != PHAssetResourceTypePairedVideo) continue;
            f.role = PHAssetResourceTypeVideo;
            if (auto e = catalog.putFile(f)) return e;
        }
        row->mediaType = PHAssetMediaTypeVideo;
    }
    const std::uint32_t live = photo && paired ? std::uint32_t{PHAssetMediaSubtypePhotoLive} : 0u;
    row->subtypes = (row->subtypes & ~std::uint32_t(PHAssetMediaSubtypePhotoLive)) | live;
    return catalog.putAsset(*row);
}

}  // namespace

Walk walkRoot(const std::string& root) {
    Walk walk;
    int fd = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    walk.rootOpened = fd >= 0;
    if (fd >= 0) walkFolder(fd, root, "", 0, walk);
    return walk;
}

bool listAlbumFolders(const std::string& root, std::set<std::string>& albums) {
    DIR* dir = opendir(root.c_str());
    if (!dir) return false;
    while (dirent* entry = readdir(dir)) {
        struct stat st {};
        if (entry->d_name[0] == '.' ||
            fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (isAlbumFolder(*entry, st)) albums.insert(entry->d_name);
    }
    closedir(dir);
    return true;
}

namespace {

// Drawn from the system's entropy on every call: processes forked from one parent share any
// seeded generator's sequence, and two writers of one catalogue must never pick one name.
std::string randomUUID() {
    std::uint32_t words[4] = {};
    if (getrandom(words, sizeof words, 0) != sizeof words) {
        std::random_device entropy;
        for (auto& w : words) w = entropy();
    }
    words[1] = (words[1] & 0xFFFF0FFFu) | 0x00004000u;
    words[2] = (words[2] & 0x3FFFFFFFu) | 0x80000000u;
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%04X%08X", words[0], words[1] >> 16,
                  words[1] & 0xFFFF, words[2] >> 16, words[2] & 0xFFFF, words[3]);
    return text;
}

}  // namespace

std::string newLocalIdentifier() {
    return randomUUID() + "/L0/001";
}

std::string newAlbumIdentifier() {
    return randomUUID() + "/L0/040";
}

AssetRow assetRowFor(const std::string& id, const FileFacts& facts, std::int64_t mtime) {
    AssetRow row;
    row.id = id;
    row.mediaType = facts.mediaType;
    row.width = facts.pixelWidth;
    row.height = facts.pixelHeight;
    row.duration = facts.duration;
    row.modified = double(mtime) / 1e9;
    row.created = facts.creationDate ? facts.creationDate->timeIntervalSince1970() : row.modified;
    row.location = facts.location;
    row.contentIdentifier = facts.contentIdentifier;
    return row;
}

ErrorRef FolderPhotoLibrary::rescan() {
    std::lock_guard lock(_mutex);
    Walk walk = walkRoot(_locations.root);
    // A root that is missing or unmounted must not empty the catalogue and lose identifiers.
    if (!walk.rootOpened) return nullptr;
    if (_afterWalk) _afterWalk();
    // The slow part, reading new and changed files, happens before the write lock, so that
    // other processes wait only for the catalogue's own writes.
    FactsCache cache;
    bool dirty = false;
    {
        auto rows = _catalog->files();
        std::set<std::pair<std::int64_t, std::int64_t>> known;
        for (const auto& [path, row] : rows) known.insert({row.device, row.inode});
        std::size_t catalogued = 0;
        for (const auto& s : walk.files) {
            auto it = rows.find(s.path);
            catalogued += it != rows.end();
            bool changed =
                it != rows.end() && (it->second.size != s.size || it->second.mtime != s.mtime ||
                                     it->second.inode != s.inode);
            bool fresh = it == rows.end();
            if (changed || (fresh && !known.count({s.device, s.inode})))
                cache.emplace(s.path, readFileFacts(s.path));
            dirty |= changed || fresh;
        }
        dirty |= catalogued != rows.size();
        auto albums = _catalog->albums();
        dirty |= albums.size() != walk.albums.size();
        for (const auto& title : walk.albums) dirty |= !albums.count(title);
    }
    // Nothing changed: no write lock, no transaction.
    if (!dirty) return nullptr;
    if (auto e = _catalog->begin()) return e;
    if (auto e = _rescanLocked(walk, cache)) {
        _catalog->rollback();
        return e;
    }
    return _catalog->commit();
}

ErrorRef FolderPhotoLibrary::_rescanLocked(const Walk& walk, FactsCache& cache) {
    Catalog& catalog = *_catalog;
    // Read again under the lock: another process may have changed the catalogue meanwhile.
    auto rows = catalog.files();
    std::unordered_map<std::string, const SeenFile*> seen;
    for (const auto& s : walk.files) seen.emplace(s.path, &s);
    std::unordered_set<std::string> removed;
    for (const auto& [path, row] : rows) {
        struct stat st {};
        // A file another process wrote after this walk is still there: not removed.
        if (!seen.count(path) && lstat(path.c_str(), &st) != 0) removed.insert(path);
    }
    std::map<std::pair<std::int64_t, std::int64_t>, std::string> byInode;
    for (const auto& [path, row] : rows) byInode[{row.device, row.inode}] = path;

    std::set<std::string> touched;
    std::vector<const SeenFile*> fresh;
    for (const auto& s : walk.files) {
        if (auto it = rows.find(s.path); it != rows.end()) {
            FileRow row = it->second;
            if (row.size == s.size && row.mtime == s.mtime && row.inode == s.inode) continue;
            row.size = s.size;
            row.mtime = s.mtime;
            row.device = s.device;
            row.inode = s.inode;
            if (auto e = catalog.putFile(row)) return e;
            auto asset = catalog.asset(row.asset);
            if (asset && row.primary && row.role != PHAssetResourceTypePairedVideo) {
                AssetRow update = assetRowFor(row.asset, factsFor(cache, s.path), s.mtime);
                update.subtypes = asset->subtypes;
                if (auto e = catalog.putAsset(update)) return e;
            }
            continue;
        }
        auto same = byInode.find({s.device, s.inode});
        if (same != byInode.end()) {
            FileRow row = rows.at(same->second);
            if (removed.count(row.path) && row.size == s.size && row.mtime == s.mtime) {
                // Moved or renamed: the asset keeps its identifier.
                if (auto e = catalog.deleteFile(row.path)) return e;
                removed.erase(row.path);
                row.path = s.path;
                row.album = s.album;
                if (auto e = catalog.putFile(row)) return e;
                touched.insert(row.asset);
                continue;
            }
            auto current = seen.find(row.path);
            if (current != seen.end() && current->second->inode == s.inode &&
                current->second->device == s.device) {
                // A further name of a catalogued file, a hard link in another album.
                row.path = s.path;
                row.album = s.album;
                row.primary = false;
                if (auto e = catalog.putFile(row)) return e;
                continue;
            }
        }
        // A new file deleted since the walk is not catalogued, for the next rescan to drop.
        struct stat st {};
        if (lstat(s.path.c_str(), &st) == 0) fresh.push_back(&s);
    }
    for (const auto& path : removed) {
        touched.insert(rows.at(path).asset);
        if (auto e = catalog.deleteFile(path)) return e;
    }

    // New files: stills first, so that a movie can join the still of its Live Photo.
    std::unordered_map<std::string, std::string> stillByStem;  // stem -> asset
    for (const SeenFile* s : fresh) {
        const FileFacts& facts = factsFor(cache, s->path);
        if (facts.mediaType != PHAssetMediaTypeImage) continue;
        std::string id = newLocalIdentifier();
        if (auto e = catalog.putAsset(assetRowFor(id, facts, s->mtime))) return e;
        if (auto e = catalog.putFile(fileRowFor(*s, id, PHAssetResourceTypePhoto))) return e;
        stillByStem[stemOf(s->path)] = id;
    }
    for (const SeenFile* s : fresh) {
        const FileFacts& facts = factsFor(cache, s->path);
        if (facts.mediaType != PHAssetMediaTypeVideo) continue;
        std::string still;
        if (!facts.contentIdentifier.empty()) {
            if (auto it = stillByStem.find(stemOf(s->path)); it != stillByStem.end()) {
                still = it->second;
            } else {
                for (const auto& [path, row] : rows) {
                    if (row.primary && row.role == PHAssetResourceTypePhoto &&
                        !removed.count(path) && stemOf(path) == stemOf(s->path) &&
                        folderOf(path) == folderOf(s->path))
                        still = row.asset;
                }
            }
        }
        auto stillRow = still.empty() ? std::nullopt : catalog.asset(still);
        if (stillRow && pairingKeysMatch(stillRow->contentIdentifier, facts.contentIdentifier) &&
            catalog.filesOfAsset(still).size() == 1) {
            if (auto e = catalog.putFile(fileRowFor(*s, still, PHAssetResourceTypePairedVideo)))
                return e;
            touched.insert(still);
            continue;
        }
        std::string id = newLocalIdentifier();
        if (auto e = catalog.putAsset(assetRowFor(id, facts, s->mtime))) return e;
        if (auto e = catalog.putFile(fileRowFor(*s, id, PHAssetResourceTypeVideo))) return e;
    }
    for (const auto& id : touched)
        if (auto e = settleAsset(catalog, id)) return e;

    // Listed again under the lock, as files are checked again above: an album another writer
    // made after the walk is kept, and a folder removed since is not added. One level of the
    // root is cheap to read twice.
    std::set<std::string> folders;
    if (!listAlbumFolders(_locations.root, folders)) return nullptr;
    auto albums = catalog.albums();
    for (const auto& title : folders)
        if (!albums.count(title))
            if (auto e = catalog.putAlbum(newAlbumIdentifier(), title)) return e;
    for (const auto& [title, id] : albums)
        if (!folders.count(title))
            if (auto e = catalog.deleteAlbum(title)) return e;
    return nullptr;
}

}  // namespace platform::photolibrary

namespace platform {

bool isLivePhotoPair(const std::string& stillPath, const std::string& moviePath) {
    using namespace photolibrary;
    if (stemOf(stillPath) != stemOf(moviePath) || folderOf(stillPath) != folderOf(moviePath) ||
        mediaTypeForPath(stillPath) != PHAssetMediaTypeImage ||
        mediaTypeForPath(moviePath) != PHAssetMediaTypeVideo)
        return false;
    const FileFacts movie = readFileFacts(moviePath);
    return pairingKeysMatch(readFileFacts(stillPath).contentIdentifier, movie.contentIdentifier);
}

}  // namespace platform
