#include "platform/ProcessLock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileManager.h"
#include "support/TestHome.h"

using platform::FileManager;
using platform::ProcessLock;

namespace {

// A child process that takes the lock and then waits to be killed; its pid once it holds it.
pid_t childHolding(const std::string& path) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        auto lock = ProcessLock::acquireNewAtPath(path);
        const char answer = lock ? '1' : '0';
        if (write(ready[1], &answer, 1) != 1) _exit(1);
        for (;;) pause();
    }
    close(ready[1]);
    char answer = 0;
    const bool held = read(ready[0], &answer, 1) == 1 && answer == '1';
    close(ready[0]);
    if (!held && pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return -1;
    }
    return pid;
}

// The lock tells a running owner from one that ended, even by kill -9, whose file stays for a
// cleaner to take over and remove.
TEST(ProcessLock, HeldWhileTheOwnerRunsFreeOnceItIsKilled) {
    testing_support::TestHome home;
    const std::string path = home.path("owner.lock");
    EXPECT_FALSE(ProcessLock::isHeldAtPath(path)) << "no file is no owner";

    const pid_t owner = childHolding(path);
    ASSERT_GT(owner, 0);
    EXPECT_TRUE(ProcessLock::isHeldAtPath(path));
    EXPECT_FALSE(ProcessLock::takeOverAtPath(path));
    platform::ErrorRef error;
    EXPECT_FALSE(ProcessLock::acquireNewAtPath(path, &error)) << "an existing lock is not reused";

    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    EXPECT_TRUE(FileManager::fileExistsAtPath(path));
    EXPECT_FALSE(ProcessLock::isHeldAtPath(path));
    {
        auto taken = ProcessLock::takeOverAtPath(path);
        ASSERT_TRUE(taken);
        EXPECT_TRUE(ProcessLock::isHeldAtPath(path)) << "a second cleaner keeps off";
    }
    EXPECT_FALSE(FileManager::fileExistsAtPath(path));

    auto mine = ProcessLock::acquireNewAtPath(path, &error);
    ASSERT_TRUE(mine);
    EXPECT_TRUE(ProcessLock::isHeldAtPath(path)) << "this process's own lock counts as held";
    // Only the lock file is there: the temporary name it was made under is gone.
    EXPECT_EQ(
        FileManager::contentsOfDirectoryAtPath(home.root()).value_or(std::vector<std::string>{}),
        std::vector<std::string>{"owner.lock"});
    mine.reset();
    EXPECT_FALSE(FileManager::fileExistsAtPath(path));
}

}  // namespace
