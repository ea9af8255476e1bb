#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace platform {
namespace {

std::optional<FileLock> failed(ErrorRef* error, int errnum, const char* operation,
                               const std::string& path) {
    if (error) *error = Error::posixError(errnum, operation, path);
    return std::nullopt;
}

int openLockFile(const std::string& path) {
    int fd;
    do {
        fd = ::open(FileLock::lockFilePath(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

}  // namespace

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    if (this != &other) {
        unlock();
        _fd = other._fd;
        other._fd = -1;
    }
    return *this;
}

void FileLock::unlock() {
    if (_fd < 0) return;
    // Closing the only descriptor of the open file releases the flock.
    ::close(_fd);
    _fd = -1;
}

std::optional<FileLock> FileLock::lockPath(const std::string& path, ErrorRef* error) {
    int fd = openLockFile(path);
    if (fd < 0) return failed(error, errno, "open", lockFilePath(path));
    int result;
    do {
        result = ::flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        int errnum = errno;
        ::close(fd);
        return failed(error, errnum, "flock", lockFilePath(path));
    }
    return FileLock(fd);
}

std::optional<FileLock> FileLock::tryLockPath(const std::string& path, ErrorRef* error) {
    if (error) error->reset();
    int fd = openLockFile(path);
    if (fd < 0) return failed(error, errno, "open", lockFilePath(path));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        int errnum = errno;
        ::close(fd);
        if (errnum == EWOULDBLOCK) return std::nullopt;
        return failed(error, errnum, "flock", lockFilePath(path));
    }
    return FileLock(fd);
}

}  // namespace platform
