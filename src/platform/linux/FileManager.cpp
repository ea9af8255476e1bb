#include "platform/FileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace platform {
namespace {

constexpr const char* kBackupAttribute = "user.xdg.robots.backup";
constexpr const char* kBackupExcluded = "false";

// A full disk or quota is the platform's out-of-space error, with the POSIX error beneath it;
// everything else stays a POSIX error.
ErrorRef errorFromErrno(int errnum, const std::string& operation, const std::string& path) {
    auto posix = Error::posixError(errnum, operation, path);
    if (errnum != ENOSPC && errnum != EDQUOT) return posix;
    PlistDictionary info;
    info[NSLocalizedDescriptionKey] = "There isn\u2019t enough space to save \u201c" +
                                      FileManager::lastPathComponent(path) + "\u201d.";
    info[NSFilePathErrorKey] = path;
    return std::make_shared<Error>(
        NSCocoaErrorDomain, NSFileWriteOutOfSpaceError, std::move(info),
        std::map<std::string, std::vector<ErrorRef>>{{NSUnderlyingErrorKey, {posix}}});
}

bool fail(ErrorRef* error, int errnum, const std::string& operation, const std::string& path) {
    if (error) *error = errorFromErrno(errnum, operation, path);
    return false;
}

struct FdCloser {
    int fd;
    ~FdCloser() {
        if (fd >= 0) ::close(fd);
    }
};

bool writeAll(int fd, const std::uint8_t* bytes, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = ::write(fd, bytes + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool fsyncDirectory(const std::string& directory) {
    int fd =
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    FdCloser closer{fd};
    return ::fsync(fd) == 0;
}

// umask can only be read by setting it, which races with other threads creating files, so it
// is read from /proc when the kernel shows it there, and only once.
mode_t processUmask() {
    static const mode_t mask = [] {
        if (FILE* status = std::fopen("/proc/self/status", "re")) {
            char line[256];
            unsigned value = 0;
            bool found = false;
            while (!found && std::fgets(line, sizeof line, status)) {
                found = std::sscanf(line, "Umask: %o", &value) == 1;
            }
            std::fclose(status);
            if (found) return static_cast<mode_t>(value);
        }
        mode_t previous = ::umask(022);
        ::umask(previous);
        return previous;
    }();
    return mask;
}

mode_t newFileMode(const std::string& path) {
    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0) return existing.st_mode & 07777;
    return 0666 & ~processUmask();
}

bool makeOneDirectory(const std::string& path, bool existingIsFine, ErrorRef* error) {
    if (::mkdir(path.c_str(), 0777) == 0) return true;
    int errnum = errno;
    bool isDirectory = false;
    if (errnum == EEXIST && existingIsFine && FileManager::fileExistsAtPath(path, &isDirectory) &&
        isDirectory) {
        return true;
    }
    return fail(error, errnum, "mkdir", path);
}

// A file moved to another file system is copied under a hidden temporary name beside the
// target, made durable, and then linked to the target's name, which fails rather than replace
// a file that appeared meanwhile. A failure (a full disk included) leaves neither file behind.
bool copyFileUnderTemporaryName(const std::string& from, const std::string& to, mode_t mode,
                                ErrorRef* error) {
    const std::string directory = FileManager::stringByDeletingLastPathComponent(to);
    std::string temporary = FileManager::stringByAppendingPathComponent(
        directory, "." + FileManager::lastPathComponent(to) + "." + std::to_string(::getpid()) +
                       "-XXXXXX.part");
    const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (source < 0) return fail(error, errno, "open", from);
    FdCloser sourceCloser{source};
    const int fd = ::mkostemps(temporary.data(), 5, O_CLOEXEC);
    if (fd < 0) return fail(error, errno, "create", to);
    FdCloser closer{fd};
    const auto abandon = [&](const char* operation) {
        const int errnum = errno;
        ::unlink(temporary.c_str());
        return fail(error, errnum, operation, to);
    };
    std::uint8_t buffer[64 * 1024];
    for (;;) {
        ssize_t n = ::read(source, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return abandon("read");
        if (n == 0) break;
        if (!writeAll(fd, buffer, static_cast<std::size_t>(n))) return abandon("write");
    }
    if (::fchmod(fd, mode) != 0 || ::fsync(fd) != 0) return abandon("write");
    if (::link(temporary.c_str(), to.c_str()) != 0) {
        // Without hard links the no-replace rename claims the name instead.
        if (errno == EEXIST ||
            ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0)
            return abandon("move");
        fsyncDirectory(directory);
        return true;
    }
    ::unlink(temporary.c_str());
    fsyncDirectory(directory);
    return true;
}

}  // namespace

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) {
    struct stat info {};
    if (path.empty() || ::stat(path.c_str(), &info) != 0) return false;
    if (isDirectory) *isDirectory = S_ISDIR(info.st_mode);
    return true;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                        ErrorRef* error) {
    if (path.empty()) return fail(error, ENOENT, "mkdir", path);
    if (!withIntermediateDirectories) return makeOneDirectory(path, false, error);
    // Each prefix that ends before a slash, then the whole path.
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (path[slash - 1] == '/') continue;
        if (!makeOneDirectory(path.substr(0, slash), true, error)) return false;
    }
    return makeOneDirectory(path, true, error);
}

bool FileManager::removeItemAtPath(const std::string& path, ErrorRef* error) {
    struct stat info {};
    if (path.empty() || ::lstat(path.c_str(), &info) != 0) {
        return fail(error, path.empty() ? ENOENT : errno, "remove", path);
    }
    std::error_code code;
    std::filesystem::remove_all(path, code);
    if (code) return fail(error, code.value(), "remove", path);
    return true;
}

bool FileManager::moveItemAtPath(const std::string& from, const std::string& to, ErrorRef* error) {
    struct stat info {};
    if (::lstat(to.c_str(), &info) == 0) return fail(error, EEXIST, "move", to);
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    int errnum = errno;
    // A file system without the no-replace rename: a link claims the name just as surely.
    if (errnum == EINVAL) {
        if (::link(from.c_str(), to.c_str()) != 0) return fail(error, errno, "move", to);
        ::unlink(from.c_str());
        return true;
    }
    if (errnum != EXDEV) return fail(error, errnum, "move", from);
    if (::lstat(from.c_str(), &info) != 0) return fail(error, errno, "move", from);
    if (S_ISREG(info.st_mode)) {
        if (!copyFileUnderTemporaryName(from, to, info.st_mode & 07777, error)) return false;
        return removeItemAtPath(from, error);
    }
    // Across file systems a folder is copied and removed, as the platform does it.
    if (!copyItemAtPath(from, to, error)) return false;
    return removeItemAtPath(from, error);
}

bool FileManager::copyItemAtPath(const std::string& from, const std::string& to, ErrorRef* error) {
    struct stat info {};
    if (::lstat(from.c_str(), &info) != 0) return fail(error, errno, "copy", from);
    if (::lstat(to.c_str(), &info) == 0) return fail(error, EEXIST, "copy", to);
    std::error_code code;
    std::filesystem::copy(
        from, to,
        std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks,
        code);
    if (!code) return true;
    std::error_code ignored;
    std::filesystem::remove_all(to, ignored);
    return fail(error, code.value(), "copy", from);
}

bool FileManager::linkItemAtPath(const std::string& from, const std::string& to, ErrorRef* error) {
    if (::link(from.c_str(), to.c_str()) != 0) return fail(error, errno, "link", to);
    return true;
}

std::optional<std::vector<std::string>> FileManager::contentsOfDirectoryAtPath(
    const std::string& path, ErrorRef* error) {
    std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
    if (!directory) {
        fail(error, errno, "opendir", path);
        return std::nullopt;
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(directory.get())) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(std::move(name));
        errno = 0;
    }
    if (errno != 0) {
        fail(error, errno, "readdir", path);
        return std::nullopt;
    }
    return names;
}

std::optional<PlistData> FileManager::contentsAtPath(const std::string& path, ErrorRef* error,
                                                     std::size_t maxBytes) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(error, errno, "open", path);
        return std::nullopt;
    }
    FdCloser closer{fd};
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        fail(error, errno, "stat", path);
        return std::nullopt;
    }
    if (S_ISDIR(info.st_mode)) {
        fail(error, EISDIR, "read", path);
        return std::nullopt;
    }
    PlistData data;
    if (info.st_size > 0) data.reserve(std::min<std::size_t>(info.st_size, maxBytes));
    std::uint8_t buffer[64 * 1024];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            fail(error, errno, "read", path);
            return std::nullopt;
        }
        if (n == 0) break;
        // The size is checked as it is read, since a file may grow after fstat.
        if (static_cast<std::size_t>(n) > maxBytes - data.size()) {
            fail(error, EFBIG, "read", path);
            return std::nullopt;
        }
        data.insert(data.end(), buffer, buffer + n);
    }
    return data;
}

bool FileManager::writeDataAtomically(const PlistData& data, const std::string& path,
                                      ErrorRef* error) {
    const std::string directory = stringByDeletingLastPathComponent(path);
    std::string temporary =
        stringByAppendingPathComponent(directory, "." + lastPathComponent(path) + ".tmp-XXXXXX");
    int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return fail(error, errno, "create", path);
    FdCloser closer{fd};
    const auto abandon = [&](const char* operation) {
        int errnum = errno;
        ::unlink(temporary.c_str());
        return fail(error, errnum, operation, path);
    };
    if (::fchmod(fd, newFileMode(path)) != 0) return abandon("chmod");
    if (!writeAll(fd, data.data(), data.size())) return abandon("write");
    if (::fsync(fd) != 0) return abandon("fsync");
    if (::rename(temporary.c_str(), path.c_str()) != 0) return abandon("rename");
    // The rename is durable only once the directory entry is on disk; the new file is in
    // place either way, so a failure here is not reported.
    fsyncDirectory(directory);
    return true;
}

bool FileManager::setExcludedFromBackup(const std::string& path, ErrorRef* error) {
    if (::setxattr(path.c_str(), kBackupAttribute, kBackupExcluded, std::strlen(kBackupExcluded),
                   0) != 0) {
        return fail(error, errno, "setxattr", path);
    }
    return true;
}

bool FileManager::removeExcludedFromBackup(const std::string& path, ErrorRef* error) {
    if (::removexattr(path.c_str(), kBackupAttribute) != 0 && errno != ENODATA) {
        return fail(error, errno, "removexattr", path);
    }
    return true;
}

bool FileManager::isExcludedFromBackup(const std::string& path) {
    char value[16] = {};
    ssize_t n = ::getxattr(path.c_str(), kBackupAttribute, value, sizeof value - 1);
    return n >= 0 && std::string(value, static_cast<std::size_t>(n)) == kBackupExcluded;
}

std::optional<PlistDate> FileManager::creationDateOfItemAtPath(const std::string& path) {
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &info) != 0) return std::nullopt;
    if (!(info.stx_mask & STATX_BTIME)) return std::nullopt;
    return PlistDate::fromTimeIntervalSince1970(static_cast<double>(info.stx_btime.tv_sec) +
                                                info.stx_btime.tv_nsec / 1e9);
}

std::optional<std::uint64_t> FileManager::freeDiskSpaceAtPath(const std::string& path) {
    struct statvfs info {};
    if (::statvfs(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
}

std::string FileManager::lastPathComponent(const std::string& path) {
    std::size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return path.empty() ? "" : "/";
    std::size_t start = path.rfind('/', end);
    return path.substr(start == std::string::npos ? 0 : start + 1,
                       end - (start == std::string::npos ? 0 : start + 1) + 1);
}

std::string FileManager::pathExtension(const std::string& path) {
    std::string name = lastPathComponent(path);
    std::size_t dot = name.rfind('.');
    // A leading dot names a hidden file, not an extension.
    if (dot == std::string::npos || dot == 0 || name == "/") return "";
    return name.substr(dot + 1);
}

std::string FileManager::stringByDeletingLastPathComponent(const std::string& path) {
    std::size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return path.empty() ? "" : "/";
    std::size_t slash = path.rfind('/', end);
    if (slash == std::string::npos) return "";
    std::size_t parentEnd = path.find_last_not_of('/', slash);
    if (parentEnd == std::string::npos) return "/";
    return path.substr(0, parentEnd + 1);
}

std::string FileManager::stringByDeletingPathExtension(const std::string& path) {
    std::size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return path.empty() ? "" : "/";
    std::string trimmed = path.substr(0, end + 1);
    std::string extension = pathExtension(trimmed);
    if (extension.empty()) return trimmed;
    return trimmed.substr(0, trimmed.size() - extension.size() - 1);
}

std::string FileManager::stringByAppendingPathComponent(const std::string& path,
                                                        const std::string& component) {
    std::size_t start = component.find_first_not_of('/');
    std::string tail = start == std::string::npos ? "" : component.substr(start);
    if (path.empty()) return tail;
    std::size_t end = path.find_last_not_of('/');
    std::string head = end == std::string::npos ? "" : path.substr(0, end + 1);
    if (tail.empty()) return end == std::string::npos ? "/" : head;
    return head + "/" + tail;
}

}  // namespace platform
