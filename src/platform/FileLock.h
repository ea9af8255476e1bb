// An exclusive lock shared by every process and thread that locks the same file, for the
// read-modify-write of files that several `unwarp` processes share (settings, template lists,
// result folders). Take the lock, read the file again, change it, write it by atomic rename,
// then let the lock go: a change made meanwhile by another process is never lost.
//
// The lock is flock(2) on "PATH.lock" beside the file. That file is made when missing and
// never removed, so that every locker meets the same inode; the kernel drops the lock when
// its holder exits or is killed, so no stale lock is ever left behind. Each lock opens its own
// descriptor, so two threads of one process exclude each other as two processes do.
// Readers that only read need no lock: atomic renames keep every file whole.
#pragma once

#include <optional>
#include <string>

#include "platform/Error.h"

namespace platform {

class FileLock {
  public:
    // Blocks until the lock of `path` is held. Absent, with the reason in `error`, when the
    // lock file can't be made or opened (a missing or read-only folder, a full disk).
    static std::optional<FileLock> lockPath(const std::string& path, ErrorRef* error = nullptr);
    // As lockPath without waiting: absent with `error` left null when another holder has the
    // lock, absent with `error` set when the lock file can't be opened.
    static std::optional<FileLock> tryLockPath(const std::string& path, ErrorRef* error = nullptr);
    // The lock file of `path`: "PATH.lock".
    static std::string lockFilePath(const std::string& path) { return path + ".lock"; }

    FileLock(FileLock&& other) noexcept : _fd(other._fd) { other._fd = -1; }
    FileLock& operator=(FileLock&& other) noexcept;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    // Lets the lock go.
    ~FileLock() { unlock(); }
    void unlock();

  private:
    explicit FileLock(int fd) : _fd(fd) {}
    int _fd = -1;
};

}  // namespace platform
