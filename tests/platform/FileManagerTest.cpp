#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>

#include "support/SmallDisk.h"
#include "support/TestHome.h"

using platform::ErrorRef;
using platform::FileManager;
using platform::PlistData;

namespace {

PlistData bytes(const std::string& text) {
    return PlistData(text.begin(), text.end());
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> sortedContents(const std::string& directory) {
    auto names = FileManager::contentsOfDirectoryAtPath(directory).value_or(
        std::vector<std::string>{"<unreadable>"});
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(FileManager, AtomicWriteReplacesAndLeavesOnlyTheTarget) {
    testing_support::TestHome home;
    const std::string path = home.path("data.bin");
    ErrorRef error;
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("first"), path, &error));
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("second, longer"), path, &error));
    EXPECT_EQ(readFile(path), "second, longer");
    EXPECT_EQ(sortedContents(home.root()), std::vector<std::string>{"data.bin"});
    // A new file gets the usual mode, not the private one of its temporary file; a replaced
    // file keeps its own.
    const mode_t mask = umask(022);
    umask(mask);
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask);
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("third"), path, &error));
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0604u);
    // An empty value is a valid, empty file.
    ASSERT_TRUE(FileManager::writeDataAtomically({}, path, &error));
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(FileManager::contentsAtPath(path), PlistData{});
}

TEST(FileManager, FailedAtomicWritesLeaveNothingBehind) {
    testing_support::TestHome home;
    ASSERT_TRUE(FileManager::createDirectoryAtPath(home.path("occupied/inner"), true));
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("x"), home.path("plain"), nullptr));
    const struct {
        const char* target;
        int expectedErrno;
    } cases[] = {
        {"missing/data.bin", ENOENT},  // no parent directory
        {"plain/data.bin", ENOTDIR},   // the parent is a file
        {"occupied", EISDIR},          // the rename fails after the data went to disk
    };
    for (const auto& c : cases) {
        ErrorRef error;
        EXPECT_FALSE(
            FileManager::writeDataAtomically(bytes("payload"), home.path(c.target), &error))
            << c.target;
        ASSERT_TRUE(error) << c.target;
        EXPECT_EQ(error->domain(), platform::NSPOSIXErrorDomain) << c.target;
        EXPECT_EQ(error->code(), c.expectedErrno) << c.target;
        EXPECT_EQ(sortedContents(home.root()), (std::vector<std::string>{"occupied", "plain"}))
            << c.target;
    }
    EXPECT_EQ(sortedContents(home.path("occupied")), std::vector<std::string>{"inner"});
}

// A file-size limit stands in for a full disk: the write fails half-way, the old file stays as
// it was and no partial file is left.
TEST(FileManager, WriteCutShortKeepsTheOldFile) {
    testing_support::TestHome home;
    const std::string path = home.path("settings.plist");
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("old contents"), path, nullptr));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {
            64 * 1024, 64 * 1024
        };
        setrlimit(RLIMIT_FSIZE, &limit);
        ErrorRef error;
        bool written = FileManager::writeDataAtomically(PlistData(1024 * 1024, 'n'), path, &error);
        if (written) _exit(10);
        _exit(error && error->domain() == platform::NSPOSIXErrorDomain && error->code() == EFBIG
                  ? 0
                  : 11);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "10: the write succeeded, 11: wrong error";
    EXPECT_EQ(readFile(path), "old contents");
    EXPECT_EQ(sortedContents(home.root()), std::vector<std::string>{"settings.plist"});
}

// A real full disk: a 64 KiB tmpfs in a private mount namespace (needs root; skipped otherwise).
TEST(FileManager, FullDiskIsReportedAsOutOfSpace) {
    testing_support::TestHome home;
    const std::string mountPoint = home.path("small");
    ASSERT_TRUE(FileManager::createDirectoryAtPath(mountPoint, false));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=64k") != 0) {
            _exit(77);
        }
        const std::string path = mountPoint + "/defaults.plist";
        if (!FileManager::writeDataAtomically(bytes("old"), path, nullptr)) _exit(12);
        ErrorRef error;
        if (FileManager::writeDataAtomically(PlistData(1024 * 1024, 'n'), path, &error)) _exit(10);
        if (!error || error->domain() != platform::NSCocoaErrorDomain ||
            error->code() != platform::NSFileWriteOutOfSpaceError ||
            error->errorsForKey(platform::NSUnderlyingErrorKey).size() != 1 ||
            error->errorsForKey(platform::NSUnderlyingErrorKey)[0]->code() != ENOSPC) {
            _exit(11);
        }
        if (readFile(path) != "old" || sortedContents(mountPoint).size() != 1) _exit(13);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private tmpfs mount without root";
    EXPECT_EQ(WEXITSTATUS(status), 0)
        << "10: the write succeeded, 11: wrong error, 12: setup write failed, 13: leftovers";
}

TEST(FileManager, ReadsAreBounded) {
    testing_support::TestHome home;
    const std::string path = home.path("ten");
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("0123456789"), path, nullptr));
    EXPECT_EQ(FileManager::contentsAtPath(path, nullptr, 10), bytes("0123456789"));
    ErrorRef error;
    EXPECT_FALSE(FileManager::contentsAtPath(path, &error, 9));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EFBIG);
    EXPECT_FALSE(FileManager::contentsAtPath(home.path("absent"), &error));
    EXPECT_EQ(error->code(), ENOENT);
    EXPECT_FALSE(FileManager::contentsAtPath(home.root(), &error));
    EXPECT_EQ(error->code(), EISDIR);
}

TEST(FileManager, DirectoriesMovesCopiesAndLinks) {
    testing_support::TestHome home;
    ErrorRef error;
    const std::string deep = home.path("a/b/c");
    EXPECT_FALSE(FileManager::createDirectoryAtPath(deep, false, &error));
    EXPECT_EQ(error->code(), ENOENT);
    ASSERT_TRUE(FileManager::createDirectoryAtPath(deep, true, &error));
    EXPECT_TRUE(FileManager::createDirectoryAtPath(deep, true, &error)) << "existing is fine";
    EXPECT_FALSE(FileManager::createDirectoryAtPath(deep, false, &error));
    EXPECT_EQ(error->code(), EEXIST);
    bool isDirectory = false;
    EXPECT_TRUE(FileManager::fileExistsAtPath(deep, &isDirectory));
    EXPECT_TRUE(isDirectory);

    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("one"), home.path("a/b/c/one"), nullptr));
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("two"), home.path("two"), nullptr));
    // Moves and copies never replace what is there.
    EXPECT_FALSE(FileManager::moveItemAtPath(home.path("two"), home.path("a/b/c/one"), &error));
    EXPECT_EQ(error->code(), EEXIST);
    EXPECT_FALSE(FileManager::copyItemAtPath(home.path("two"), home.path("a/b/c/one"), &error));
    EXPECT_EQ(readFile(home.path("a/b/c/one")), "one");
    EXPECT_EQ(readFile(home.path("two")), "two");

    ASSERT_TRUE(FileManager::copyItemAtPath(home.path("a"), home.path("copy"), &error));
    EXPECT_EQ(readFile(home.path("copy/b/c/one")), "one");
    ASSERT_TRUE(FileManager::moveItemAtPath(home.path("two"), home.path("copy/two"), &error));
    EXPECT_FALSE(FileManager::fileExistsAtPath(home.path("two")));
    ASSERT_TRUE(FileManager::linkItemAtPath(home.path("copy/two"), home.path("linked"), &error));
    EXPECT_EQ(readFile(home.path("linked")), "two");
    EXPECT_EQ(sortedContents(home.root()), (std::vector<std::string>{"a", "copy", "linked"}));

    ASSERT_TRUE(FileManager::removeItemAtPath(home.path("copy"), &error));
    EXPECT_FALSE(FileManager::fileExistsAtPath(home.path("copy")));
    EXPECT_FALSE(FileManager::removeItemAtPath(home.path("copy"), &error));
    EXPECT_EQ(error->code(), ENOENT);
    EXPECT_FALSE(FileManager::contentsOfDirectoryAtPath(home.path("linked"), &error));
    EXPECT_EQ(error->code(), ENOTDIR);
}

TEST(FileManager, BackupExclusionAndFreeSpace) {
    testing_support::TestHome home;
    const std::string path = home.path("kept");
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("x"), path, nullptr));
    EXPECT_FALSE(FileManager::isExcludedFromBackup(path));
    ErrorRef error;
    ASSERT_TRUE(FileManager::setExcludedFromBackup(path, &error));
    char value[16] = {};
    ASSERT_EQ(getxattr(path.c_str(), "user.xdg.robots.backup", value, sizeof value), 5);
    EXPECT_EQ(std::string(value, 5), "false");
    EXPECT_TRUE(FileManager::isExcludedFromBackup(path));
    EXPECT_FALSE(FileManager::setExcludedFromBackup(home.path("absent"), &error));
    EXPECT_EQ(error->code(), ENOENT);
    // A file handed to the user loses the mark; one without it is fine.
    ASSERT_TRUE(FileManager::removeExcludedFromBackup(path, &error));
    EXPECT_LT(getxattr(path.c_str(), "user.xdg.robots.backup", value, sizeof value), 0);
    EXPECT_EQ(errno, ENODATA);
    EXPECT_TRUE(FileManager::removeExcludedFromBackup(path, &error));
    EXPECT_FALSE(FileManager::removeExcludedFromBackup(home.path("absent"), &error));

    struct statvfs info {};
    ASSERT_EQ(statvfs(home.root().c_str(), &info), 0);
    auto space = FileManager::freeDiskSpaceAtPath(home.root());
    ASSERT_TRUE(space);
    // Other writers may change the figure between the two reads; a block size off is not.
    const double expected = static_cast<double>(info.f_bavail) * info.f_frsize;
    EXPECT_NEAR(static_cast<double>(*space), expected, 64.0 * 1024 * 1024);
    EXPECT_FALSE(FileManager::freeDiskSpaceAtPath(home.path("absent/deeper")));
}

TEST(FileManager, PathHelpers) {
    const struct {
        const char* path;
        const char* last;
        const char* extension;
        const char* withoutLast;
        const char* withoutExtension;
    } cases[] = {
        {"/a/b/photo.jpg", "photo.jpg", "jpg", "/a/b", "/a/b/photo"},
        {"/a/b/", "b", "", "/a", "/a/b"},
        {"photo.tar.gz", "photo.tar.gz", "gz", "", "photo.tar"},
        {"/a/.hidden", ".hidden", "", "/a", "/a/.hidden"},
        {"/a.d/file", "file", "", "/a.d", "/a.d/file"},
        {"/file", "file", "", "/", "/file"},
        {"/", "/", "", "/", "/"},
        {"", "", "", "", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FileManager::lastPathComponent(c.path), c.last) << c.path;
        EXPECT_EQ(FileManager::pathExtension(c.path), c.extension) << c.path;
        EXPECT_EQ(FileManager::stringByDeletingLastPathComponent(c.path), c.withoutLast) << c.path;
        EXPECT_EQ(FileManager::stringByDeletingPathExtension(c.path), c.withoutExtension) << c.path;
    }
    const struct {
        const char* path;
        const char* component;
        const char* joined;
    } joins[] = {
        {"/a", "b", "/a/b"}, {"/a/", "b", "/a/b"}, {"/a", "/b", "/a/b"},  {"/", "b", "/b"},
        {"", "b", "b"},      {"/a", "", "/a"},     {"a", "b/c", "a/b/c"},
    };
    for (const auto& j : joins) {
        EXPECT_EQ(FileManager::stringByAppendingPathComponent(j.path, j.component), j.joined)
            << j.path << " + " << j.component;
    }
}

namespace {

// A move to another file system copies under a temporary name and claims the target's name
// only with the whole file: an existing name is never replaced, and a full disk leaves nothing
// in the target folder and keeps the source.
TEST(FileManager, MovesAcrossFileSystemsClaimTheNameWithTheWholeFile) {
    testing_support::TestHome home;
    testing_support::SmallDisk disk(256);
    UNWARP_REQUIRE_SMALL_DISK(disk);
    ErrorRef error;
    const std::string taken = disk.path() + "/taken.jpg";
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes("theirs"), taken, nullptr));
    const std::string result = home.path("result.jpg");
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes(std::string(40000, 'r')), result, nullptr));
    chmod(result.c_str(), 0640);

    EXPECT_FALSE(FileManager::moveItemAtPath(result, taken, &error));
    EXPECT_EQ(error->code(), EEXIST);
    EXPECT_EQ(readFile(taken), "theirs");
    ASSERT_TRUE(FileManager::moveItemAtPath(result, disk.path() + "/moved.jpg", &error));
    EXPECT_EQ(readFile(disk.path() + "/moved.jpg"), std::string(40000, 'r'));
    EXPECT_FALSE(FileManager::fileExistsAtPath(result));
    struct stat info {};
    ASSERT_EQ(stat((disk.path() + "/moved.jpg").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);

    const std::string big = home.path("big.jpg");
    ASSERT_TRUE(FileManager::writeDataAtomically(bytes(std::string(400000, 'b')), big, nullptr));
    EXPECT_FALSE(FileManager::moveItemAtPath(big, disk.path() + "/big.jpg", &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), platform::NSCocoaErrorDomain);
    EXPECT_EQ(error->code(), platform::NSFileWriteOutOfSpaceError);
    EXPECT_EQ(sortedContents(disk.path()), (std::vector<std::string>{"moved.jpg", "taken.jpg"}));
    EXPECT_EQ(readFile(big).size(), 400000u);
}

}  // namespace
