#include "platform/ProcessLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

std::unique_ptr<ProcessLock> ProcessLock::acquireNewAtPath(const std::string& path,
                                                           ErrorRef* error) {
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    auto fail = [&](const char* operation) {
        if (error) *error = Error::posixError(errno, operation, path);
        return nullptr;
    };
    if (fd < 0) return fail("create");
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 ||
        ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
        const int errnum = errno;
        ::unlink(temporary.c_str());
        ::close(fd);
        errno = errnum;
        return fail("lock");
    }
    return std::unique_ptr<ProcessLock>(new ProcessLock(path, fd));
}

bool ProcessLock::isHeldAtPath(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    // A lock taken through a second opening conflicts with the first even in one process.
    const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}

std::unique_ptr<ProcessLock> ProcessLock::takeOverAtPath(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<ProcessLock>(new ProcessLock(path, fd));
}

ProcessLock::~ProcessLock() {
    ::unlink(_path.c_str());
    ::close(_fd);
}

}  // namespace platform
