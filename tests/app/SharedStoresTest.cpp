// Several `unwarp` processes on one home, and homes where nothing can be written: no change is
// lost, and a change that could not be stored is reported, never printed as done.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "app/CommandSupport.h"
#include "support/SmallDisk.h"
#include "support/TestHome.h"

namespace {

using command_test::Outcome;
using command_test::unwarp;
using nlohmann::json;

std::string commandLine(const testing_support::TestHome& home, const std::string& arguments) {
    return std::string("'") + UNWARP_BINARY + "' --home '" + home.root() + "' " + arguments;
}

std::set<std::string> userTemplateKeys(const testing_support::TestHome& home) {
    std::set<std::string> keys;
    Outcome listed = unwarp(home, "templates --json");
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    for (const json& section : json::parse(listed.out)) {
        if (section["title"] != "Your Templates") continue;
        for (const json& item : section["items"]) keys.insert(item["identifier"]);
    }
    return keys;
}

TEST(SharedStores, ParallelSettingsWritersOnAFreshHomeLoseNothing) {
    const std::vector<std::string> keys = {"copyExifMetadataDisabled", "copyIptcMetadataDisabled",
                                           "copyGpsMetadataDisabled", "livePhotoEnabled"};
    for (int round = 0; round < 3; ++round) {
        testing_support::TestHome home;
        std::string script;
        for (const auto& key : keys) {
            script += commandLine(home, "settings set " + key + " true") + " >/dev/null & ";
        }
        ASSERT_EQ(testing_support::runCommand(script + "wait"), 0);
        for (const auto& key : keys) {
            Outcome got = unwarp(home, "settings get " + key);
            EXPECT_EQ(got.out.substr(0, got.out.find(" (")), key + " = true") << "round " << round;
        }
    }
}

TEST(SharedStores, ParallelTemplateCreatorsLoseNothingAndEveryOneCanBeRemoved) {
    testing_support::TestHome home;
    constexpr int kLoops = 3, kEach = 10;
    std::string script;
    for (int loop = 0; loop < kLoops; ++loop) {
        script += "(for i in $(seq " + std::to_string(kEach) + "); do " +
                  commandLine(home, "template create --size 100x100") + " || exit 1; done) & ";
    }
    std::string created;
    ASSERT_EQ(testing_support::runCommand(script + "wait", &created), 0);
    std::set<std::string> made;
    std::istringstream lines(created);
    for (std::string line; std::getline(lines, line);) made.insert(line);
    ASSERT_EQ(made.size(), static_cast<std::size_t>(kLoops * kEach));
    EXPECT_EQ(userTemplateKeys(home), made);
    for (const auto& key : made) EXPECT_EQ(unwarp(home, "template remove " + key).exitCode, 0);
    EXPECT_TRUE(userTemplateKeys(home).empty());
}

// A home that can't take the change: the command fails with the reason and prints no value.
// Root ignores permission bits, so "read-only" is a tmpfs remounted read-only.
TEST(SharedStores, SettingsThatCannotBeSavedExitOneWithTheReason) {
    testing_support::TestHome scratch;
    const std::string file = scratch.path("a-file");
    std::ofstream(file) << "not a folder";
    testing_support::SmallDisk full(64), readOnly(64);
    UNWARP_REQUIRE_SMALL_DISK(full);
    UNWARP_REQUIRE_SMALL_DISK(readOnly);
    const auto run = [](const std::string& home, const std::string& arguments) {
        testing_support::TestHome errors;
        std::string out;
        int code =
            testing_support::runCommand(std::string("'") + UNWARP_BINARY + "' --home '" + home +
                                            "' " + arguments + " 2>'" + errors.path("err") + "'",
                                        &out);
        std::ifstream in(errors.path("err"));
        return Outcome{code, out, std::string(std::istreambuf_iterator<char>(in), {})};
    };
    ASSERT_EQ(run(full.path(), "settings set livePhotoEnabled true").exitCode, 0);
    full.fill();
    ASSERT_EQ(run(readOnly.path(), "settings set livePhotoEnabled true").exitCode, 0);
    ASSERT_EQ(::mount(nullptr, readOnly.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    const struct {
        std::string what, home, reason;
    } cases[] = {
        {"full disk", full.path(), "space"},
        {"read-only home", readOnly.path(), "Read-only file system"},
        {"home is a file", file, "is a file, not a folder"},
    };
    for (const auto& c : cases) {
        for (const std::string arguments :
             {"settings set copyGpsMetadataDisabled true", "settings reset"}) {
            SCOPED_TRACE(c.what + ": " + arguments);
            Outcome outcome = run(c.home, arguments);
            EXPECT_EQ(outcome.exitCode, 1);
            EXPECT_EQ(outcome.out, "");
            EXPECT_NE(outcome.err.find("unwarp: the settings were not saved"), std::string::npos)
                << outcome.err;
            EXPECT_NE(outcome.err.find(c.reason), std::string::npos) << outcome.err;
        }
        if (c.home == file) continue;
        // What was stored before is still there.
        EXPECT_EQ(run(c.home, "settings get livePhotoEnabled").out,
                  "livePhotoEnabled = true (Live Photos are made)\n")
            << c.what;
    }
}

TEST(SharedStores, TemplateChangesThatCannotBeStoredExitOne) {
    testing_support::SmallDisk disk(256);
    UNWARP_REQUIRE_SMALL_DISK(disk);
    const std::string home = disk.path();
    const auto run = [&](const std::string& arguments, std::string* out = nullptr) {
        return testing_support::runCommand(std::string("'") + UNWARP_BINARY + "' --home '" + home +
                                               "' " + arguments + " 2>/dev/null",
                                           out);
    };
    std::string key;
    ASSERT_EQ(run("template create --name Kept --size 800x600", &key), 0);
    key = key.substr(0, key.find('\n'));
    ASSERT_EQ(::mount(nullptr, home.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(run("template create --size 10x10"), 1);
    EXPECT_EQ(run("template rename " + key + " Other"), 1);
    EXPECT_EQ(run("template remove " + key), 1);
    std::string shown;
    EXPECT_EQ(run("template show " + key, &shown), 0);
    EXPECT_EQ(shown.substr(0, 4), "Kept");
}

}  // namespace
