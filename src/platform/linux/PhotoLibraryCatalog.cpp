#include "platform/linux/PhotoLibraryCatalog.h"

#include "platform/FileLock.h"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

namespace platform::photolibrary {
namespace {

// Long enough for another process's first scan of a large library.
constexpr int kBusyTimeoutMs = 120000;

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS assets(
    id TEXT PRIMARY KEY, media INTEGER NOT NULL, subtypes INTEGER NOT NULL,
    width INTEGER NOT NULL, height INTEGER NOT NULL, duration REAL NOT NULL,
    created REAL NOT NULL, modified REAL NOT NULL, latitude REAL, longitude REAL,
    content_id TEXT NOT NULL DEFAULT '') WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS assets_by_date ON assets(created, id);
CREATE TABLE IF NOT EXISTS files(
    path TEXT PRIMARY KEY, asset TEXT NOT NULL, role INTEGER NOT NULL,
    is_primary INTEGER NOT NULL, album TEXT NOT NULL, size INTEGER NOT NULL,
    mtime INTEGER NOT NULL, device INTEGER NOT NULL, inode INTEGER NOT NULL) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS files_by_asset ON files(asset, is_primary, role, path);
CREATE INDEX IF NOT EXISTS files_by_album ON files(album, asset);
CREATE TABLE IF NOT EXISTS albums(title TEXT PRIMARY KEY, id TEXT NOT NULL UNIQUE);
)";

ErrorRef sqliteError(sqlite3* db, const std::string& what) {
    return Error::errorWithDomain(
        NSCocoaErrorDomain, NSFileReadUnknownError,
        {{NSLocalizedDescriptionKey, "The photo library's catalogue failed to " + what + ": " +
                                         (db ? sqlite3_errmsg(db) : "out of memory")}});
}

class Statement {
  public:
    Statement(sqlite3* db, const std::string& sql) : _db(db) {
        sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &_stmt, nullptr);
    }
    ~Statement() { sqlite3_finalize(_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return _stmt != nullptr; }
    Statement& bind(int i, const std::string& v) {
        sqlite3_bind_text(_stmt, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int i, std::int64_t v) {
        sqlite3_bind_int64(_stmt, i, v);
        return *this;
    }
    Statement& bind(int i, double v) {
        sqlite3_bind_double(_stmt, i, v);
        return *this;
    }
    Statement& bindNull(int i) {
        sqlite3_bind_null(_stmt, i);
        return *this;
    }
    // True while a row is available.
    bool step() { return _stmt && sqlite3_step(_stmt) == SQLITE_ROW; }
    ErrorRef run(const std::string& what) {
        if (!_stmt || sqlite3_step(_stmt) != SQLITE_DONE) return sqliteError(_db, what);
        return nullptr;
    }
    std::string text(int i) const {
        auto p = reinterpret_cast<const char*>(sqlite3_column_text(_stmt, i));
        return p ? std::string(p, static_cast<std::size_t>(sqlite3_column_bytes(_stmt, i))) : "";
    }
    std::int64_t integer(int i) const { return sqlite3_column_int64(_stmt, i); }
    double real(int i) const { return sqlite3_column_double(_stmt, i); }
    bool isNull(int i) const { return sqlite3_column_type(_stmt, i) == SQLITE_NULL; }
    sqlite3_stmt* raw() const { return _stmt; }

  private:
    sqlite3* _db;
    sqlite3_stmt* _stmt = nullptr;
};

constexpr const char* kFileColumns =
    "path, asset, role, is_primary, album, size, mtime, device, inode";

FileRow fileRow(const Statement& s) {
    FileRow r;
    r.path = s.text(0);
    r.asset = s.text(1);
    r.role = static_cast<PHAssetResourceType>(s.integer(2));
    r.primary = s.integer(3) != 0;
    r.album = s.text(4);
    r.size = s.integer(5);
    r.mtime = s.integer(6);
    r.device = s.integer(7);
    r.inode = s.integer(8);
    return r;
}

// Identifiers as a JSON array for json_each, which keeps the query one statement at any count.
std::string jsonArray(const std::vector<std::string>& values) {
    std::string out = "[";
    for (const auto& v : values) {
        if (out.size() > 1) out += ',';
        out += '"';
        for (unsigned char c : v) {
            if (c == '"' || c == '\\') {
                out += '\\';
                out += static_cast<char>(c);
            } else if (c < 0x20) {
                static const char* hex = "0123456789abcdef";
                out += "\\u00";
                out += hex[c >> 4];
                out += hex[c & 15];
            } else {
                out += static_cast<char>(c);
            }
        }
        out += '"';
    }
    return out + "]";
}

std::string baseName(const std::string& path) {
    auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::unique_ptr<Catalog> Catalog::open(const std::string& path, ErrorRef* error) {
    // Switching a new catalogue to WAL answers "locked" at once, without waiting for the busy
    // timeout, when another process does the same: the setup is taken in turns.
    auto setup = FileLock::lockPath(path, error);
    if (!setup) return nullptr;
    sqlite3* db = nullptr;
    int rc =
        sqlite3_open_v2(path.c_str(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<Catalog> catalog(new Catalog(db));
    if (rc != SQLITE_OK) {
        if (error) *error = sqliteError(db, "open " + path);
        return nullptr;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    ErrorRef failure = catalog->exec("PRAGMA journal_mode=WAL");
    if (!failure) failure = catalog->exec("PRAGMA synchronous=NORMAL");
    if (!failure) failure = catalog->begin();
    if (!failure) failure = catalog->exec(kSchema);
    if (!failure) failure = catalog->commit();
    if (failure) {
        if (error) *error = failure;
        return nullptr;
    }
    return catalog;
}

Catalog::~Catalog() {
    sqlite3_close_v2(_db);
}

ErrorRef Catalog::exec(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(_db, sql, nullptr, nullptr, &message) == SQLITE_OK) return nullptr;
    std::string text = message ? message : "unknown error";
    sqlite3_free(message);
    return Error::errorWithDomain(
        NSCocoaErrorDomain, NSFileWriteUnknownError,
        {{NSLocalizedDescriptionKey, "The photo library's catalogue failed: " + text}});
}

ErrorRef Catalog::begin() {
    return exec("BEGIN IMMEDIATE");
}

ErrorRef Catalog::commit() {
    return exec("COMMIT");
}

void Catalog::rollback() {
    exec("ROLLBACK");
}

std::unordered_map<std::string, FileRow> Catalog::files() {
    std::unordered_map<std::string, FileRow> rows;
    Statement s(_db, std::string("SELECT ") + kFileColumns + " FROM files");
    while (s.step()) {
        FileRow r = fileRow(s);
        rows.emplace(r.path, std::move(r));
    }
    return rows;
}

std::vector<FileRow> Catalog::filesOfAsset(const std::string& asset) {
    std::vector<FileRow> rows;
    Statement s(_db, std::string("SELECT ") + kFileColumns +
                         " FROM files WHERE asset = ?1 ORDER BY is_primary DESC, role, path");
    s.bind(1, asset);
    while (s.step()) rows.push_back(fileRow(s));
    return rows;
}

std::optional<AssetRow> Catalog::asset(const std::string& id) {
    Statement s(_db,
                "SELECT media, subtypes, width, height, duration, created, modified, latitude, "
                "longitude, content_id FROM assets WHERE id = ?1");
    s.bind(1, id);
    if (!s.step()) return std::nullopt;
    AssetRow r;
    r.id = id;
    r.mediaType = static_cast<PHAssetMediaType>(s.integer(0));
    r.subtypes = static_cast<std::uint32_t>(s.integer(1));
    r.width = static_cast<std::uint32_t>(s.integer(2));
    r.height = static_cast<std::uint32_t>(s.integer(3));
    r.duration = s.real(4);
    r.created = s.real(5);
    r.modified = s.real(6);
    if (!s.isNull(7) && !s.isNull(8)) r.location = PHLocation{s.real(7), s.real(8)};
    r.contentIdentifier = s.text(9);
    return r;
}

ErrorRef Catalog::putAsset(const AssetRow& r) {
    Statement s(_db,
                "INSERT OR REPLACE INTO assets(id, media, subtypes, width, height, duration, "
                "created, modified, latitude, longitude, content_id) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
    s.bind(1, r.id)
        .bind(2, std::int64_t{r.mediaType})
        .bind(3, std::int64_t{r.subtypes})
        .bind(4, std::int64_t{r.width})
        .bind(5, std::int64_t{r.height})
        .bind(6, r.duration)
        .bind(7, r.created)
        .bind(8, r.modified)
        .bind(11, r.contentIdentifier);
    if (r.location) {
        s.bind(9, r.location->latitude).bind(10, r.location->longitude);
    } else {
        s.bindNull(9).bindNull(10);
    }
    return s.run("store an asset");
}

ErrorRef Catalog::deleteAsset(const std::string& id) {
    Statement files(_db, "DELETE FROM files WHERE asset = ?1");
    if (auto e = files.bind(1, id).run("remove the files of an asset")) return e;
    Statement s(_db, "DELETE FROM assets WHERE id = ?1");
    return s.bind(1, id).run("remove an asset");
}

ErrorRef Catalog::putFile(const FileRow& r) {
    Statement s(_db, std::string("INSERT OR REPLACE INTO files(") + kFileColumns +
                         ") VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)");
    s.bind(1, r.path)
        .bind(2, r.asset)
        .bind(3, std::int64_t{r.role})
        .bind(4, std::int64_t{r.primary ? 1 : 0})
        .bind(5, r.album)
        .bind(6, r.size)
        .bind(7, r.mtime)
        .bind(8, r.device)
        .bind(9, r.inode);
    return s.run("store a file");
}

ErrorRef Catalog::deleteFile(const std::string& path) {
    Statement s(_db, "DELETE FROM files WHERE path = ?1");
    return s.bind(1, path).run("remove a file");
}

std::unordered_map<std::string, std::string> Catalog::albums() {
    std::unordered_map<std::string, std::string> out;
    Statement s(_db, "SELECT title, id FROM albums");
    while (s.step()) out.emplace(s.text(0), s.text(1));
    return out;
}

ErrorRef Catalog::putAlbum(const std::string& id, const std::string& title) {
    Statement s(_db, "INSERT OR IGNORE INTO albums(title, id) VALUES(?1, ?2)");
    return s.bind(1, title).bind(2, id).run("store an album");
}

ErrorRef Catalog::deleteAlbum(const std::string& title) {
    Statement s(_db, "DELETE FROM albums WHERE title = ?1");
    return s.bind(1, title).run("remove an album");
}

std::size_t Catalog::countInAlbum(const std::string& title) {
    Statement s(_db, "SELECT COUNT(DISTINCT asset) FROM files WHERE album = ?1");
    s.bind(1, title);
    return s.step() ? static_cast<std::size_t>(s.integer(0)) : 0;
}

std::vector<PHAsset> Catalog::assets(const AssetFilter& filter, const PHFetchOptions& options) {
    std::string sql =
        "SELECT a.id, a.media, a.subtypes, a.width, a.height, a.duration, a.created, "
        "a.modified, a.latitude, a.longitude, f.path, f.role FROM assets a "
        "JOIN files f ON f.asset = a.id AND f.is_primary = 1 WHERE 1";
    int next = 1;
    if (filter.albumTitle)
        sql +=
            " AND a.id IN (SELECT asset FROM files WHERE album = ?" + std::to_string(next++) + ")";
    if (filter.identifiers)
        sql += " AND a.id IN (SELECT value FROM json_each(?" + std::to_string(next++) + "))";
    if (!options.mediaTypes.empty()) {
        sql += " AND a.media IN (";
        for (std::size_t i = 0; i < options.mediaTypes.size(); ++i)
            sql += (i ? "," : "") + std::to_string(int{options.mediaTypes[i]});
        sql += ")";
    }
    // Sorted here rather than by SQLite, whose sorter would carry every column of every row.
    Statement s(_db, sql);
    next = 1;
    if (filter.albumTitle) s.bind(next++, *filter.albumTitle);
    if (filter.identifiers) s.bind(next++, jsonArray(*filter.identifiers));
    std::vector<PHAsset> out;
    while (s.step()) {
        // The rows of one asset come together (one asset, then its files); should they not, the
        // pieces are merged after sorting.
        const auto* idText = reinterpret_cast<const char*>(sqlite3_column_text(s.raw(), 0));
        const std::size_t idSize = static_cast<std::size_t>(sqlite3_column_bytes(s.raw(), 0));
        if (out.empty() ||
            out.back().localIdentifier.compare(0, std::string::npos, idText, idSize) != 0) {
            PHAsset a;
            a.localIdentifier.assign(idText, idSize);
            a.mediaType = static_cast<PHAssetMediaType>(s.integer(1));
            a.mediaSubtypes = static_cast<std::uint32_t>(s.integer(2));
            a.pixelWidth = static_cast<std::uint32_t>(s.integer(3));
            a.pixelHeight = static_cast<std::uint32_t>(s.integer(4));
            a.duration = s.real(5);
            a.creationDate = PlistDate::fromTimeIntervalSince1970(s.real(6));
            a.modificationDate = PlistDate::fromTimeIntervalSince1970(s.real(7));
            if (!s.isNull(8) && !s.isNull(9)) a.location = PHLocation{s.real(8), s.real(9)};
            out.push_back(std::move(a));
        }
        std::string path = s.text(10);
        out.back().resources.push_back(
            {static_cast<PHAssetResourceType>(s.integer(11)), baseName(path), std::move(path)});
    }
    // Sorting positions rather than assets moves each asset once.
    std::vector<std::uint32_t> order(out.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    const bool newestFirst = options.newestFirst;
    std::sort(order.begin(), order.end(), [&](std::uint32_t i, std::uint32_t j) {
        const PHAsset& a = newestFirst ? out[j] : out[i];
        const PHAsset& b = newestFirst ? out[i] : out[j];
        const double x = a.creationDate->sinceReferenceDate, y = b.creationDate->sinceReferenceDate;
        return x != y ? x < y : a.localIdentifier < b.localIdentifier;
    });
    std::vector<PHAsset> sorted;
    sorted.reserve(out.size());
    for (std::uint32_t i : order) {
        if (!sorted.empty() && sorted.back().localIdentifier == out[i].localIdentifier) {
            auto& into = sorted.back().resources;
            into.insert(into.end(), out[i].resources.begin(), out[i].resources.end());
            continue;
        }
        sorted.push_back(std::move(out[i]));
    }
    out = std::move(sorted);
    // The photo before its paired video.
    for (auto& a : out)
        std::sort(
            a.resources.begin(), a.resources.end(),
            [](const PHAssetResource& x, const PHAssetResource& y) { return x.type < y.type; });
    if (options.fetchLimit && out.size() > options.fetchLimit) out.resize(options.fetchLimit);
    return out;
}

}  // namespace platform::photolibrary
