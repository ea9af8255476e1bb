// `unwarp results`: the store shared by processes, and sharing results into a folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "app/CommandSupport.h"
#include "support/TestHome.h"

namespace {

namespace fs = std::filesystem;

using command_test::filesUnder;
using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;

std::string commandLine(const testing_support::TestHome& home, const std::string& arguments) {
    return std::string("'") + UNWARP_BINARY + "' --home '" + home.root() + "' " + arguments;
}

std::vector<json> listed(const testing_support::TestHome& home) {
    Outcome o = unwarp(home, "results list --json");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    std::vector<json> rows;
    for (auto& j : command_test::jsonLines(o.out))
        if (!j.is_discarded()) rows.push_back(j);
    return rows;
}

// `count` small files named PREFIX0.txt ... in the home's "in" folder; their paths quoted.
std::string makeFiles(const testing_support::TestHome& home, const std::string& prefix, int count) {
    std::string paths;
    for (int i = 0; i < count; ++i) {
        const std::string path = home.path("in/" + prefix + std::to_string(i) + ".txt");
        testing_support::touch(path);
        paths += " '" + path + "'";
    }
    return paths;
}

ino_t inodeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

TEST(ResultsCommand, ProcessesAddingAtOnceLoseNothing) {
    constexpr int kProcesses = 3, kEach = 12;
    for (int round = 0; round < 2; ++round) {
        // A fresh home: the processes also race to make the "results" folder.
        testing_support::TestHome home;
        std::set<std::string> expected;
        std::string script;
        for (int p = 0; p < kProcesses; ++p) {
            const std::string prefix = "p" + std::to_string(p) + "-";
            for (int i = 0; i < kEach; ++i) expected.insert(prefix + std::to_string(i) + ".txt");
            script += commandLine(home, "results add" + makeFiles(home, prefix, kEach)) +
                      " >/dev/null & ";
        }
        ASSERT_EQ(testing_support::runCommand(script + "wait"), 0);
        std::set<std::string> names;
        for (const auto& row : listed(home)) {
            EXPECT_TRUE(row["available"].get<bool>()) << row.dump();
            names.insert(row.value("name", ""));
        }
        EXPECT_EQ(names, expected) << "round " << round;
    }
}

TEST(ResultsCommand, ClearingWhileOthersAddRemovesOnlyWhatWasCleared) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "results add" + makeFiles(home, "old-", 6)).exitCode, 0);
    const std::string script = commandLine(home, "results clear 1 2 3 4 5 6") + " >/dev/null & " +
                               commandLine(home, "results add" + makeFiles(home, "new-", 8)) +
                               " >/dev/null & wait";
    ASSERT_EQ(testing_support::runCommand(script), 0);
    auto rows = listed(home);
    ASSERT_EQ(rows.size(), 8u);
    for (const auto& row : rows) {
        EXPECT_TRUE(row["available"].get<bool>()) << row.dump();
        EXPECT_EQ(row.value("name", "").rfind("new-", 0), 0u) << row.dump();
    }
    EXPECT_EQ(testing_support::namesIn(home.path("documents/results")).size(), 8u + 1u)
        << "the folders of the results and the lock file";
}

TEST(ResultsCommand, ShareLinksUnderTheNamesAndNeverReplaces) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "results add" + makeFiles(home, "s", 2)).exitCode, 0);
    const auto rows = listed(home);
    ASSERT_EQ(rows.size(), 2u);
    const std::string out = home.path("out");
    fs::create_directories(out);
    std::ofstream(out + "/trip1.txt") << "theirs";  // someone else's file
    const struct {
        std::string arguments;
        std::vector<std::string> written;
    } cases[] = {
        {"--name trip", {"trip1-1.txt", "trip2.txt"}},
        {"--name trip", {"trip1-2.txt", "trip2-1.txt"}},
        {"", {"s0.txt", "s1.txt"}},
    };
    for (const auto& c : cases) {
        Outcome o = unwarp(home, "results share 1 2 --to '" + out + "' " + c.arguments);
        ASSERT_EQ(o.exitCode, 0) << o.err;
        std::vector<std::string> written;
        std::istringstream lines(o.out);
        for (std::string line; std::getline(lines, line);) {
            written.push_back(fs::path(line).filename().string());
            // A hard link to the stored file: the same inode, no second copy.
            EXPECT_EQ(inodeOf(line), inodeOf(rows[written.size() - 1]["file"])) << line;
        }
        EXPECT_EQ(written, c.written) << c.arguments;
    }
    EXPECT_EQ(command_test::contentsOf(out + "/trip1.txt"), "theirs");
    EXPECT_EQ(filesUnder(home.path("tmp")), 0u);
}

TEST(ResultsCommand, MailAttachesTheNamedFilesThroughXdgEmail) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "results add" + makeFiles(home, "m", 2)).exitCode, 0);
    // A stand-in for xdg-email that keeps what it was given while the files exist.
    const std::string bin = home.path("bin");
    fs::create_directories(bin + "/got");
    {
        std::ofstream script(bin + "/xdg-email");
        script << "#!/bin/sh\necho \"$@\" > '" << bin << "/args'\n"
               << "while [ $# -gt 0 ]; do [ \"$1\" = --attach ] && cp \"$2\" '" << bin
               << "/got/'; shift; done\n";
    }
    fs::permissions(bin + "/xdg-email", fs::perms::owner_all);
    std::string out;
    const int code =
        testing_support::runCommand("PATH='" + bin + "':\"$PATH\" " +
                                        commandLine(home, "results share 1 2 --mail --name letter"),
                                    &out);
    ASSERT_EQ(code, 0) << out;
    EXPECT_EQ(command_test::filesIn(bin + "/got"),
              (std::vector<std::string>{"letter1.txt", "letter2.txt"}));
    EXPECT_EQ(command_test::contentsOf(bin + "/args").substr(0, 16), "--utf8 --attach ");
    // The attachments were the session's links, which are gone once the share has ended.
    EXPECT_EQ(filesUnder(home.path("tmp")), 0u);

    // Without xdg-email (never run for real here: it would open a mail program).
    if (testing_support::runCommand("command -v xdg-email >/dev/null") != 0) {
        Outcome without = command_test::unwarp(home, "results share 1 --mail");
        EXPECT_EQ(without.exitCode, 1);
        EXPECT_NE(without.err.find("mail needs xdg-email"), std::string::npos) << without.err;
    }
}

TEST(ResultsCommand, BadNumbersAndNamesAreUsageErrors) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "results add" + makeFiles(home, "b", 1)).exitCode, 0);
    const struct {
        std::string arguments;
        std::string words;
    } cases[] = {
        {"results show 2", "no result 2 (there are 1)"},
        {"results clear 0", "no result 0"},
        {"results share 1 --to '" + home.path("o") + "' --name 'a%b%'", "at most one %"},
        {"results share 1 --to '" + home.path("o") + "' --name 'a/b'", "--name a/b"},
    };
    for (const auto& c : cases) {
        Outcome o = unwarp(home, c.arguments);
        EXPECT_EQ(o.exitCode, 2) << c.arguments;
        EXPECT_NE(o.err.find(c.words), std::string::npos) << o.err;
    }
    EXPECT_FALSE(fs::exists(home.path("o")));
    EXPECT_EQ(listed(home).size(), 1u);
}

}  // namespace
