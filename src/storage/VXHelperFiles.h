// The file helpers through which the program reaches its places on disk: the documents and
// temporary directories, backup exclusion, moves and atomic saves, free space and unique
// names. Stateless and safe on any thread; every failure becomes a false or absent result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PlistValue.h"

namespace VXHelper {

// The documents directory of the current home root, created (and excluded from backup) when it
// is missing, because callers write straight into it as they would on the platform.
std::string documentDirectory();
// The temporary directory, created on first need the same way.
std::string temporaryDirectory();

// Marks an item as excluded from backups; a failure is ignored.
void excludeURLFromBackup(const std::string& path);

// Takes a file path: when its parent is not an existing directory, creates it with its
// intermediates and marks it excluded from backup. An existing directory is left unmarked.
// False when the parent is still not a directory afterwards.
bool _createDirectoriesAtPath(const std::string& filePath);

// Creates the target's parent, moves (failing when the target exists) and marks the target.
bool moveFileAtPath(const std::string& path, const std::string& toPath);

// Creates the parent, writes atomically and marks the file.
bool saveData(const platform::PlistData& data, const std::string& toFileAtPath);
// Saves to documents/inDirectory/toFile; the path written, or absent on failure.
std::optional<std::string> saveData(const platform::PlistData& data, const std::string& toFile,
                                    const std::string& inDirectory);

// Free bytes on the file system of the documents directory; absent when it can't be read.
std::optional<std::uint64_t> freeDiskSpace();

// "file-" and a string unique to this call in this process and across processes.
std::string uniqueFilename();
// documents/<this process's folder>/<unique name>[.extension]
std::string uniquePathWithExtension(const std::string& extension);
// documents/<this process's folder>/<filename or a unique name when absent or empty>
// [.extension]; the extension is appended with a dot only when it is not empty. The folder
// (VRFileStorage::ownTemporaryFolder) keeps two processes with one home from writing one file.
std::string pathWithFilename(const std::optional<std::string>& filename,
                             const std::string& extension);

}  // namespace VXHelper
