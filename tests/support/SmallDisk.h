// A real, nearly full file system for the tests of full-disk handling: a tmpfs of a few hundred
// KiB mounted under a fresh folder, so that writes fail with ENOSPC as they do on a full disk
// (a file size limit gives EFBIG instead, and only to the process that has it).
// Mounting needs root; where it is refused, `path()` is empty and the test says it was skipped.
#pragma once

#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace testing_support {

class SmallDisk {
  public:
    explicit SmallDisk(std::size_t kibibytes = 256) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "unwarp-disk-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) return;
        const std::string options = "size=" + std::to_string(kibibytes) + "k,mode=0777";
        if (::mount("tmpfs", pattern.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) !=
            0) {
            ::rmdir(pattern.c_str());
            return;
        }
        _path = pattern;
    }
    ~SmallDisk() {
        if (_path.empty()) return;
        ::umount2(_path.c_str(), MNT_DETACH);
        ::rmdir(_path.c_str());
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // The mount point, or empty when no file system could be mounted.
    const std::string& path() const { return _path; }

    // Fills what is left, so that the next write fails; returns the filler's path.
    std::string fill() const {
        const std::string filler = _path + "/.filler";
        const std::string command = "cat /dev/zero > '" + filler + "' 2>/dev/null";
        [[maybe_unused]] int ignored = std::system(command.c_str());
        return filler;
    }

  private:
    std::string _path;
};

}  // namespace testing_support

#define UNWARP_REQUIRE_SMALL_DISK(disk) \
    if ((disk).path().empty()) GTEST_SKIP() << "mounting a tmpfs needs root"
