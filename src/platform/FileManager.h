// File-system operations the logic needs, with errors as objects. Stateless; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

class FileManager {
  public:
    static bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
    static bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                      ErrorRef* error = nullptr);
    static bool removeItemAtPath(const std::string& path, ErrorRef* error = nullptr);
    // Fails when the target exists, as the platform's move and copy do: the name is claimed
    // atomically, so two processes never both take it. A file moved to another file system is
    // copied under a temporary name beside the target and only then given its name.
    static bool moveItemAtPath(const std::string& from, const std::string& to,
                               ErrorRef* error = nullptr);
    static bool copyItemAtPath(const std::string& from, const std::string& to,
                               ErrorRef* error = nullptr);
    static bool linkItemAtPath(const std::string& from, const std::string& to,
                               ErrorRef* error = nullptr);
    // Entry names of a directory, without "." and "..", in no defined order.
    static std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(
        const std::string& path, ErrorRef* error = nullptr);

    static std::optional<PlistData> contentsAtPath(const std::string& path,
                                                   ErrorRef* error = nullptr,
                                                   std::size_t maxBytes = SIZE_MAX);
    // Atomic: a temporary file in the same directory, fsync, rename over the target, fsync of
    // the directory. On failure (a full disk included) nothing is left behind and the old
    // file, if any, is untouched.
    static bool writeDataAtomically(const PlistData& data, const std::string& path,
                                    ErrorRef* error = nullptr);

    // Marks an item as excluded from backups: the freedesktop extended attribute
    // "user.xdg.robots.backup" set to "false". Failures are reported, callers may ignore them.
    static bool setExcludedFromBackup(const std::string& path, ErrorRef* error = nullptr);
    // Takes the mark away from an item that leaves the program's own storage; an item without
    // the mark is fine.
    static bool removeExcludedFromBackup(const std::string& path, ErrorRef* error = nullptr);
    static bool isExcludedFromBackup(const std::string& path);

    // NSURLCreationDateKey: the birth time of the item (statx), absent when the file system
    // doesn't record one or the item can't be read.
    static std::optional<PlistDate> creationDateOfItemAtPath(const std::string& path);
    // Free bytes for an unprivileged user on the file system holding `path` (statvfs);
    // absent when it can't be read.
    static std::optional<std::uint64_t> freeDiskSpaceAtPath(const std::string& path);

    // Path helpers on plain strings.
    static std::string lastPathComponent(const std::string& path);
    static std::string pathExtension(const std::string& path);
    static std::string stringByDeletingLastPathComponent(const std::string& path);
    static std::string stringByDeletingPathExtension(const std::string& path);
    static std::string stringByAppendingPathComponent(const std::string& path,
                                                      const std::string& component);
};

}  // namespace platform
