// The walk of a library's root and the facts read ahead of the catalogue's write lock.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/linux/PhotoLibraryCatalog.h"
#include "platform/linux/PhotoLibraryFacts.h"

namespace platform::photolibrary {

struct SeenFile {
    std::string path;
    std::string album;
    std::int64_t size = 0;
    std::int64_t mtime = 0;  // nanoseconds
    std::int64_t device = 0;
    std::int64_t inode = 0;
};

struct Walk {
    bool rootOpened = false;          // false: nothing is known, the catalogue stays
    std::vector<SeenFile> files;      // photos and movies, hidden names left out
    std::vector<std::string> albums;  // folders directly under the root
};

// Every photo and movie under the root, without following symbolic links.
Walk walkRoot(const std::string& root);

// The album folders directly under the root as they are now; false when the root can't be read.
bool listAlbumFolders(const std::string& root, std::set<std::string>& albums);

// Facts by path, read for the files that look new or changed.
using FactsCache = std::unordered_map<std::string, FileFacts>;

std::string newLocalIdentifier();
std::string newAlbumIdentifier();

// The catalogue's asset row for a file and its facts.
AssetRow assetRowFor(const std::string& id, const FileFacts& facts, std::int64_t mtimeNs);

}  // namespace platform::photolibrary
