#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/FileManager.h"
#include "support/TestHome.h"

namespace {

struct CommandRun {
    int exitCode;
    std::string out;
    std::string err;
};

CommandRun runUnwarp(const testing_support::TestHome& home, const std::string& arguments) {
    const std::string errPath = home.path("stderr.txt");
    CommandRun run;
    run.exitCode =
        testing_support::runCommand(std::string("cd '") + home.root() + "' && '" + UNWARP_BINARY +
                                        "' " + arguments + " 2>'" + errPath + "'",
                                    &run.out);
    std::ifstream in(errPath, std::ios::binary);
    run.err.assign(std::istreambuf_iterator<char>(in), {});
    platform::FileManager::removeItemAtPath(errPath);
    return run;
}

}  // namespace

TEST(Command, ExitCodesAndErrorLines) {
    testing_support::TestHome home;
    const struct {
        const char* arguments;
        int exitCode;
        const char* inOutput;  // on standard output
    } cases[] = {
        {"--version", 0, "unwarp 0.1"},
        {"--help", 0, "info"},
        {"info --help", 0, "Show the version"},
        {"--home sub --verbose info", 0, "Unwarp v"},
        {"", 2, ""},
        {"--bogus info", 2, ""},
        {"info surplus", 2, ""},
        {"frobnicate", 2, ""},
        {"--home '' info", 2, ""},
        {"--home", 2, ""},
    };
    for (const auto& c : cases) {
        const CommandRun run = runUnwarp(home, c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments << "\n" << run.err;
        EXPECT_NE(run.out.find(c.inOutput), std::string::npos) << c.arguments << "\n" << run.out;
        if (c.exitCode == 0) {
            EXPECT_EQ(run.err, "") << c.arguments;
        } else {
            // One clear line and nothing on standard output.
            EXPECT_EQ(run.err.rfind("unwarp: ", 0), 0u) << c.arguments << "\n" << run.err;
            EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
            EXPECT_EQ(run.out, "") << c.arguments;
        }
    }
}

TEST(Command, InfoShowsTheHomeItWasGiven) {
    testing_support::TestHome home;
    const std::string root = home.path("given");
    for (const std::string& argument : {root, std::string("given"), root + "/"}) {
        const CommandRun run = runUnwarp(home, "--home '" + argument + "' info");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        for (const std::string& line :
             {"documents:    " + root + "/documents\n", "temporary:    " + root + "/tmp\n",
              "settings:     " + root + "/config\n", std::string("device class: ")}) {
            EXPECT_NE(run.out.find(line), std::string::npos) << argument << ": " << line << "\n"
                                                             << run.out;
        }
        EXPECT_EQ(run.out.rfind("Unwarp v", 0), 0u) << run.out;
        EXPECT_NE(run.out.find(" bytes\n"), std::string::npos) << run.out;
    }
    // Asking writes nothing but the running version, which every start records.
    EXPECT_EQ(testing_support::namesIn(root), std::vector<std::string>{"config"});
}
