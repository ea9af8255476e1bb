#include "platform/FileLock.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/TestHome.h"

using platform::FileLock;

namespace {

int readCounter(const std::string& path) {
    std::ifstream in(path);
    int value = 0;
    in >> value;
    return value;
}

// A read-modify-write that is only right when nobody else runs it at the same time: read,
// give the other writers a chance to come in, write.
void incrementUnderLock(const std::string& path) {
    auto lock = FileLock::lockPath(path);
    if (!lock) _exit(2);
    int value = readCounter(path);
    ::usleep(100);
    std::ofstream(path, std::ios::trunc) << value + 1;
}

}  // namespace

TEST(FileLock, ProcessesTakeTurnsSoNoIncrementIsLost) {
    testing_support::TestHome home;
    const std::string path = home.path("counter");
    std::ofstream(path) << 0;
    constexpr int kProcesses = 4, kIncrements = 50;
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 0; i < kIncrements; ++i) incrementUnderLock(path);
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(readCounter(path), kProcesses * kIncrements);
}

TEST(FileLock, TryLockSaysBusyWhileAnotherProcessHoldsItAndFreeAfterItDies) {
    testing_support::TestHome home;
    const std::string path = home.path("store");
    int held[2], release[2];
    ASSERT_EQ(pipe(held), 0);
    ASSERT_EQ(pipe(release), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        auto lock = FileLock::lockPath(path);
        char byte = 'h';
        if (!lock || write(held[1], &byte, 1) != 1) _exit(1);
        // Held until the parent says so; the process then dies holding it.
        if (read(release[0], &byte, 1) != 1) _exit(1);
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(held[0], &byte, 1), 1);
    platform::ErrorRef error;
    EXPECT_FALSE(FileLock::tryLockPath(path, &error));
    EXPECT_FALSE(error) << "busy is not an error";
    ASSERT_EQ(write(release[1], "r", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    // The kernel let the lock go with its holder: no stale lock is left.
    auto lock = FileLock::tryLockPath(path, &error);
    EXPECT_TRUE(lock);
    // Held by this thread: another descriptor of this process is refused too.
    EXPECT_FALSE(FileLock::tryLockPath(path));
    lock->unlock();
    EXPECT_TRUE(FileLock::tryLockPath(path));
    for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
}

TEST(FileLock, AMissingFolderIsAnErrorWithItsReason) {
    testing_support::TestHome home;
    platform::ErrorRef error;
    EXPECT_FALSE(FileLock::lockPath(home.path("no/such/folder/store"), &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), ENOENT);
    EXPECT_FALSE(FileLock::tryLockPath(home.path("no/such/folder/store"), &error));
    EXPECT_TRUE(error);
}
