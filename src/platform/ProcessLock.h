// An advisory lock that marks a running process as the owner of its temporary files: held as
// long as the process lives (the kernel drops it when the process ends, even by kill -9), so
// that a later start can tell the leftovers of an ended process from the files of a running
// one. Used by the file storage's temporaries; any thread.
#pragma once

#include <memory>
#include <string>

#include "platform/Error.h"

namespace platform {

class ProcessLock {
  public:
    // Creates the lock file at `path` and takes an exclusive lock on it. The file is made
    // under a temporary name and renamed into place only once locked, so no other process
    // ever finds it there unlocked while its owner lives. Null with an error when the file
    // can't be made or `path` already exists.
    static std::unique_ptr<ProcessLock> acquireNewAtPath(const std::string& path,
                                                         ErrorRef* error = nullptr);

    // True when some process holds the lock at `path`; false when nobody does or there is no
    // file. A lock held by this process counts as held.
    static bool isHeldAtPath(const std::string& path);

    // Takes the lock of an ended owner, so that two cleaners never work on one owner's files
    // at once: null when the owner still runs, the file is gone or another cleaner has it.
    static std::unique_ptr<ProcessLock> takeOverAtPath(const std::string& path);

    // Removes the file, then lets the lock go.
    ~ProcessLock();
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;

    const std::string& path() const { return _path; }

  private:
    ProcessLock(std::string path, int fd) : _path(std::move(path)), _fd(fd) {}
    std::string _path;
    int _fd;
};

}  // namespace platform
