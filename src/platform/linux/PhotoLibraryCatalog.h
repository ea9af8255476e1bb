// The SQLite catalogue of the Linux photo library: assets, their files (a file is either one
// of the asset's resources or a further name of one, a hard link or copy in another album)
// and the albums. WAL mode with a busy timeout, so several processes read and write at once.
// One connection per catalogue object; the caller serialises its use.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/PhotoLibrary.h"

struct sqlite3;

namespace platform::photolibrary {

struct FileRow {
    std::string path;
    std::string asset;
    PHAssetResourceType role = PHAssetResourceTypePhoto;
    bool primary = true;  // a resource; false for a further name in another album
    std::string album;    // the folder directly under the root it lies in; empty at the root
    std::int64_t size = 0;
    std::int64_t mtime = 0;  // nanoseconds
    std::int64_t device = 0;
    std::int64_t inode = 0;
};

struct AssetRow {
    std::string id;
    PHAssetMediaType mediaType = PHAssetMediaTypeUnknown;
    std::uint32_t subtypes = 0;
    std::uint32_t width = 0, height = 0;
    double duration = 0;
    double created = 0;   // seconds since 1970
    double modified = 0;  // seconds since 1970
    std::optional<PHLocation> location;
    std::string contentIdentifier;
};

// Which assets a query selects.
struct AssetFilter {
    std::optional<std::string> albumTitle;
    std::optional<std::vector<std::string>> identifiers;
};

class Catalog {
  public:
    static std::unique_ptr<Catalog> open(const std::string& path, ErrorRef* error);
    ~Catalog();

    // BEGIN IMMEDIATE: takes the write lock, waiting up to the busy timeout for others.
    ErrorRef begin();
    ErrorRef commit();
    void rollback();

    std::unordered_map<std::string, FileRow> files();
    std::vector<FileRow> filesOfAsset(const std::string& asset);
    std::optional<AssetRow> asset(const std::string& id);
    ErrorRef putAsset(const AssetRow& row);  // insert or replace
    ErrorRef deleteAsset(const std::string& id);
    ErrorRef putFile(const FileRow& row);  // insert or replace
    ErrorRef deleteFile(const std::string& path);

    // Album titles to identifiers.
    std::unordered_map<std::string, std::string> albums();
    ErrorRef putAlbum(const std::string& id, const std::string& title);
    ErrorRef deleteAlbum(const std::string& title);
    std::size_t countInAlbum(const std::string& title);

    std::vector<PHAsset> assets(const AssetFilter& filter, const PHFetchOptions& options);

  private:
    explicit Catalog(sqlite3* db) : _db(db) {}
    ErrorRef exec(const char* sql);
    sqlite3* _db;
};

}  // namespace platform::photolibrary
