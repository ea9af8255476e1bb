#include "platform/UserDefaults.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/PropertyListSerialization.h"
#include "support/TestHome.h"

using platform::FileManager;
using platform::PlistArray;
using platform::PlistData;
using platform::PlistDictionary;
using platform::PlistValue;
using platform::UserDefaults;

namespace {

using testing_support::namesIn;

void writeRaw(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readRaw(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

struct LogCapture {
    std::vector<std::string> lines;
    LogCapture() {
        platform::setLogSink(
            [](const std::string& line, void* context) {
                static_cast<LogCapture*>(context)->lines.push_back(line);
            },
            this);
    }
    ~LogCapture() { platform::setLogSink(nullptr, nullptr); }
};

}  // namespace

TEST(UserDefaults, ValuesSurviveReopenWithTheirTypes) {
    testing_support::TestHome home;
    const std::string path = home.path("defaults.plist");
    const PlistDictionary nested{{"w", 1920.5}, {"flag", false}};
    const std::pair<const char*, PlistValue> values[] = {
        {"integer", 1},
        {"real", 1.0},
        {"boolean", true},
        {"string", "vr-defaults-\u00fc"},
        {"data", PlistData{0, 1, 2, 255}},
        {"array", PlistArray{1, 2.5, "three"}},
        {"dictionary", nested},
        {"removed", "gone after removal"},
    };
    {
        UserDefaults defaults(path);
        for (const auto& [key, value] : values) defaults.setObject(value, key);
        defaults.removeObjectForKey("removed");
        ASSERT_TRUE(defaults.synchronize());
    }
    // No temporary file remains beside the store (only its lock), and it is a binary
    // property list.
    EXPECT_EQ(namesIn(home.root()),
              (std::vector<std::string>{"defaults.plist", "defaults.plist.lock"}));
    EXPECT_EQ(readRaw(path).substr(0, 8), "bplist00");

    UserDefaults reopened(path);
    for (const auto& [key, value] : values) {
        if (std::string(key) == "removed") continue;
        EXPECT_EQ(reopened.objectForKey(key), value) << key;
    }
    EXPECT_TRUE(reopened.objectForKey("removed").isNull());
    EXPECT_TRUE(reopened.objectForKey("integer").isInteger());
    EXPECT_TRUE(reopened.objectForKey("real").isReal());
    EXPECT_TRUE(reopened.objectForKey("boolean").isBoolean());
    EXPECT_EQ(reopened.dictionaryRepresentation().size(), 7u);
    EXPECT_EQ(reopened.integerForKey("integer"), 1);
    EXPECT_EQ(reopened.valueForKey("string"), PlistValue("vr-defaults-\u00fc"));
}

TEST(UserDefaults, UnreadableFileIsMovedAsideAndStoreStartsEmpty) {
    auto xmlArray = platform::PropertyListSerialization::dataWithPropertyList(
        PlistValue(PlistArray{1, 2}), platform::NSPropertyListXMLFormat_v1_0, 0);
    ASSERT_TRUE(xmlArray);
    const struct {
        const char* fault;
        std::string contents;
    } cases[] = {
        {"garbage", "this is not a property list"},
        {"truncated binary", std::string("bplist00\xd1\x01\x02", 11)},
        {"empty file", ""},
        {"root is not a dictionary", std::string(xmlArray->begin(), xmlArray->end())},
    };
    for (const auto& c : cases) {
        testing_support::TestHome home;
        const std::string path = home.path("defaults.plist");
        writeRaw(path, c.contents);
        LogCapture log;
        UserDefaults defaults(path);
        EXPECT_TRUE(defaults.dictionaryRepresentation().empty()) << c.fault;
        ASSERT_EQ(log.lines.size(), 1u) << c.fault;
        EXPECT_EQ(log.lines[0].rfind("~~ ", 0), 0u) << c.fault;

        auto names = namesIn(home.root());
        ASSERT_EQ(names.size(), 1u) << c.fault;
        EXPECT_EQ(names[0].rfind("defaults.plist.unreadable-", 0), 0u) << names[0];
        EXPECT_EQ(readRaw(home.path(names[0])), c.contents) << c.fault;

        // The next write makes a fresh file and the old one stays where it was put.
        defaults.setObject(7, "after");
        ASSERT_TRUE(defaults.synchronize()) << c.fault;
        EXPECT_EQ(namesIn(home.root()),
                  (std::vector<std::string>{"defaults.plist", "defaults.plist.lock", names[0]}));
        EXPECT_EQ(UserDefaults(path).integerForKey("after"), 7) << c.fault;
    }
}

TEST(UserDefaults, StandardStoreFollowsTheSettingsDirectory) {
    UserDefaults* first = nullptr;
    {
        testing_support::TestHome home;
        first = &UserDefaults::standardUserDefaults();
        EXPECT_EQ(first->path(), home.path("config/defaults.plist"));
        EXPECT_EQ(&UserDefaults::standardUserDefaults(), first);
        first->setObject("one", "home");
        ASSERT_TRUE(first->synchronize()) << "creates the settings directory";
        EXPECT_TRUE(FileManager::fileExistsAtPath(home.path("config/defaults.plist")));
    }
    testing_support::TestHome other;
    UserDefaults& second = UserDefaults::standardUserDefaults();
    EXPECT_NE(&second, first);
    EXPECT_EQ(second.path(), other.path("config/defaults.plist"));
    EXPECT_TRUE(second.objectForKey("home").isNull());
}

TEST(UserDefaults, ConcurrentWritersAndReaders) {
    testing_support::TestHome home;
    UserDefaults defaults(home.path("defaults.plist"));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&defaults, t] {
            for (int i = 0; i < 200; ++i) {
                defaults.setObject(i, "thread-" + std::to_string(t));
                (void)defaults.objectForKey("thread-" + std::to_string((t + 1) % 4));
                if (i % 50 == 0) defaults.synchronize();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(defaults.synchronize());
    UserDefaults reopened(home.path("defaults.plist"));
    for (int t = 0; t < 4; ++t) {
        EXPECT_EQ(reopened.integerForKey("thread-" + std::to_string(t)), 199);
    }
}

// A writer killed at a random moment leaves a file that parses and holds one complete
// generation: the payload and its generation number always agree.
TEST(UserDefaults, WriterKilledMidWriteLeavesOldOrNewFile) {
    testing_support::TestHome home;
    const std::string path = home.path("defaults.plist");
    constexpr std::size_t kPayloadBytes = 512 * 1024;
    std::mt19937 random(12345);
    for (int round = 0; round < 16; ++round) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(ready[0]);
            UserDefaults defaults(path);
            for (std::int64_t generation = 0;; ++generation) {
                defaults.setObject(generation, "generation");
                defaults.setObject(std::string(kPayloadBytes, 'a' + generation % 26), "payload");
                defaults.synchronize();
                // The killing starts once a first file is there, however slow the build.
                if (generation == 0 && write(ready[1], "w", 1) != 1) _exit(1);
            }
        }
        close(ready[1]);
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1) << "round " << round;
        close(ready[0]);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 40)(random)));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "round " << round;

        LogCapture log;
        UserDefaults reader(path);
        EXPECT_TRUE(log.lines.empty()) << "round " << round << ": the file did not parse";
        const PlistValue payload = reader.objectForKey("payload");
        ASSERT_TRUE(payload.isString()) << "round " << round;
        const char expected = static_cast<char>('a' + reader.integerForKey("generation") % 26);
        EXPECT_EQ(*payload.string(), std::string(kPayloadBytes, expected)) << "round " << round;
    }
}

// Two stores on one file stand for two processes on one home: each one's changes are made
// again on what the other stored, so none is lost, and edits count from the stored value.
TEST(UserDefaults, TwoStoresOnOneFileKeepEachOthersChanges) {
    testing_support::TestHome home;
    const std::string path = home.path("defaults.plist");
    UserDefaults first(path), second(path);
    const auto increment = [](PlistDictionary& values) {
        values["counter"] = values["counter"].integerValue() + 1;
    };
    first.setObject("one", "first");
    first.modify(increment);
    second.setObject("two", "second");
    second.modify(increment);
    ASSERT_TRUE(first.synchronize());
    ASSERT_TRUE(second.synchronize());
    // The second store now also sees what the first one wrote.
    EXPECT_EQ(second.objectForKey("first"), PlistValue("one"));
    UserDefaults reopened(path);
    EXPECT_EQ(reopened.objectForKey("first"), PlistValue("one"));
    EXPECT_EQ(reopened.objectForKey("second"), PlistValue("two"));
    EXPECT_EQ(reopened.integerForKey("counter"), 2);
}

// Random sets, removals and counter edits from two stores on one file, saved at random and
// reopened at random, against a plain map that applies each store's changes when it saves.
TEST(UserDefaults, RandomChangesOfTwoStoresMatchAPlainModelAcrossReopens) {
    testing_support::TestHome home;
    const std::string path = home.path("defaults.plist");
    std::mt19937 random(2024);
    std::map<std::string, PlistValue> model;
    using Change = std::function<void(std::map<std::string, PlistValue>&)>;
    struct Writer {
        std::unique_ptr<UserDefaults> store;
        std::vector<Change> pending;
    };
    Writer writers[2] = {{std::make_unique<UserDefaults>(path), {}},
                         {std::make_unique<UserDefaults>(path), {}}};
    const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    for (int step = 0; step < 400; ++step) {
        Writer& writer = writers[pick(2)];
        const std::string key = "key-" + std::to_string(pick(6));
        switch (pick(5)) {
            case 0:
            case 1: {
                const PlistValue value = static_cast<std::int64_t>(step);
                writer.store->setObject(value, key);
                writer.pending.push_back([key, value](auto& map) { map[key] = value; });
                break;
            }
            case 2:
                writer.store->removeObjectForKey(key);
                writer.pending.push_back([key](auto& map) { map.erase(key); });
                break;
            case 3:
                writer.store->modify([](PlistDictionary& values) {
                    values["count"] = values["count"].integerValue() + 1;
                });
                writer.pending.push_back([](auto& map) {
                    auto it = map.find("count");
                    map["count"] = (it == map.end() ? 0 : it->second.integerValue()) + 1;
                });
                break;
            case 4:
                ASSERT_TRUE(writer.store->synchronize());
                for (const auto& change : writer.pending) change(model);
                writer.pending.clear();
                EXPECT_EQ(writer.store->dictionaryRepresentation(), model) << "step " << step;
                if (pick(3) == 0) writer.store = std::make_unique<UserDefaults>(path);
                break;
        }
    }
    for (Writer& writer : writers) {
        ASSERT_TRUE(writer.store->synchronize());
        for (const auto& change : writer.pending) change(model);
    }
    EXPECT_EQ(UserDefaults(path).dictionaryRepresentation(), model);
}
