#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/ProcessLock.h"
#include "storage/VRFileStorage.h"
#include "support/TestHome.h"

using platform::FileManager;

namespace {

using testing::UnorderedElementsAre;
using testing_support::namesIn;
using testing_support::touch;

// Another process that owns `tag` and runs until killed.
pid_t otherOwner(const std::string& lockPath) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        auto lock = platform::ProcessLock::acquireNewAtPath(lockPath);
        const char answer = lock ? '1' : '0';
        if (write(ready[1], &answer, 1) != 1) _exit(1);
        for (;;) pause();
    }
    close(ready[1]);
    char answer = 0;
    const bool ok = read(ready[0], &answer, 1) == 1 && answer == '1';
    close(ready[0]);
    return ok ? pid : -1;
}

// Each process's temporaries lie in its own folder, marked as excluded from backup, named
// after the process; the folder of an ended owner goes at the next clean-up, with or without
// its lock file, while the folders of running owners (this one and another process) stay.
TEST(VRFileStorageTemporaries, EndedOwnersFoldersGoRunningOnesStay) {
    testing_support::TestHome home;
    const std::string tmp = platform::Environment::temporaryDirectory();
    const std::string videos = VRFileStorage::temporaryVideoDirectory();
    EXPECT_EQ(videos, home.path("documents/_vrtempvideodir"));

    const std::string mine = VRFileStorage::ownTemporaryFolder(videos);
    ASSERT_NE(mine, videos);
    const std::string tag = VRFileStorage::temporaryOwnerTag();
    EXPECT_EQ(FileManager::lastPathComponent(mine), "_vrowner-" + tag);
    EXPECT_EQ(tag.rfind(std::to_string(getpid()) + "-", 0), 0u) << tag;
    EXPECT_TRUE(FileManager::isExcludedFromBackup(mine));
    EXPECT_EQ(VRFileStorage::ownTemporaryFolder(videos), mine) << "one folder per place";
    touch(mine + "/IMG_1-uwrp.mov");
    EXPECT_TRUE(VRFileStorage::isTemporaryOfRunningProcess("_vrowner-" + tag));

    // Killed without a word: its lock file stays, unheld. Cut short before it locked: none.
    touch(home.path("documents/_vrowner-11-dead/IMG_2.jpg"));
    touch(home.path("documents/_vrowner-11-dead/.IMG_2.jpg.0123.part"));
    touch(videos + "/_vrowner-11-dead/IMG_2.mov");
    touch(tmp + "/_vrowners/11-dead.lock");
    touch(tmp + "/_vrowner-12-nolock/IMG_3-livePhotoVideo.mov");
    const pid_t other = otherOwner(tmp + "/_vrowners/13-alive.lock");
    ASSERT_GT(other, 0);
    touch(videos + "/_vrowner-13-alive/IMG_4.mov");
    EXPECT_FALSE(VRFileStorage::isTemporaryOfRunningProcess("_vrowner-11-dead"));
    EXPECT_TRUE(VRFileStorage::isTemporaryOfRunningProcess("_vrowner-13-alive"));
    EXPECT_FALSE(VRFileStorage::isTemporaryOfRunningProcess("IMG_5.mov"));

    const auto removed = VRFileStorage::removeTemporariesOfEndedProcesses();
    EXPECT_EQ(removed.size(), 3u);
    EXPECT_EQ(namesIn(home.path("documents")), std::vector<std::string>{"_vrtempvideodir"});
    EXPECT_THAT(namesIn(videos), UnorderedElementsAre("_vrowner-13-alive", "_vrowner-" + tag));
    EXPECT_EQ(namesIn(mine), std::vector<std::string>{"IMG_1-uwrp.mov"});
    EXPECT_FALSE(FileManager::fileExistsAtPath(tmp + "/_vrowner-12-nolock"));
    EXPECT_THAT(namesIn(tmp + "/_vrowners"), UnorderedElementsAre("13-alive.lock", tag + ".lock"));

    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    VRFileStorage::removeTemporariesOfEndedProcesses();
    EXPECT_EQ(namesIn(videos), std::vector<std::string>{"_vrowner-" + tag});

    // At the end of a command the process's own folders and lock go; a later temporary makes
    // a new owner.
    VRFileStorage::removeOwnTemporaries();
    EXPECT_TRUE(namesIn(videos).empty());
    EXPECT_TRUE(namesIn(tmp + "/_vrowners").empty());
    EXPECT_NE(VRFileStorage::ownTemporaryFolder(videos), mine);
    VRFileStorage::removeOwnTemporaries();
}

}  // namespace
