#include "platform/UUID.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>

namespace {

TEST(UUIDTest, VersionFourTextThatDoesNotRepeat) {
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = platform::UUIDString();
        EXPECT_TRUE(std::regex_match(uuid, shape)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

// Processes forked from one parent share a home and its stores: their identifiers must differ.
TEST(UUIDTest, ForkedProcessesDrawDifferentIdentifiers) {
    platform::UUIDString();
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const std::string uuid = platform::UUIDString();
        const ssize_t written = ::write(fds[1], uuid.data(), uuid.size());
        ::_exit(written == static_cast<ssize_t>(uuid.size()) ? 0 : 1);
    }
    ::close(fds[1]);
    const std::string mine = platform::UUIDString();
    char buffer[64] = {};
    const ssize_t got = ::read(fds[0], buffer, sizeof buffer - 1);
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(got, 36);
    EXPECT_NE(std::string(buffer, 36), mine);
}

}  // namespace
