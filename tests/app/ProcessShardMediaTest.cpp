// `unwarp process --shard I/N` run as a cluster runs it: several processes at once, each with
// its own home, all sharing into one folder. Their union is what one unsharded run makes, the
// slices are disjoint and the same on a rerun, and processes that make the same name replace
// nothing of each other's.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"
#include "support/SmallDisk.h"

using command_test::inQuotes;
using command_test::jsonLines;
using command_test::Outcome;
using command_test::unwarp;
using photo_test::quadrants;
using photo_test::vipsSize;
using testing_support::TestHome;

namespace {

namespace fs = std::filesystem;

// Every file under `folder` (hidden ones too, so that a temporary left behind shows), by its
// path relative to the folder, with its sides and a digest of its pixels: not of its bytes, as
// a PNG's text records when it was written.
std::map<std::string, std::string> filesWithPixels(const std::string& folder) {
    std::map<std::string, std::string> files;
    for (const auto& name : command_test::allFilesUnder(folder))
        files[name] = photo_test::run("convert " + inQuotes(folder + "/" + name) +
                                      " -depth 8 -print '%wx%h ' rgba:- | sha1sum");
    return files;
}

// What each process said it made: source -> output, from its JSON lines.
std::map<std::string, std::string> resultsOf(const Outcome& o) {
    std::map<std::string, std::string> results;
    for (const auto& line : jsonLines(o.out))
        if (line.contains("output")) results[line.value("source", "?")] = line.value("output", "");
    return results;
}

// Runs `process` over `arguments` in one process per entry of `shards` at once (each with a
// home of its own, or all in `shared` when given), and answers each process's outcome.
std::vector<Outcome> runTogether(const std::vector<std::vector<std::string>>& arguments,
                                 const TestHome* shared = nullptr) {
    std::vector<std::unique_ptr<TestHome>> homes;
    std::vector<command_test::Running> running;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        homes.push_back(std::make_unique<TestHome>());
        running.push_back(command_test::start(shared ? *shared : *homes.back(), arguments[i],
                                              "run-" + std::to_string(i)));
    }
    std::vector<Outcome> outcomes;
    for (const auto& r : running) outcomes.push_back(command_test::finish(r));
    return outcomes;
}

// Four slices over twelve photos of mixed names (one in a subfolder), run as four processes at
// once into one folder, twice.
TEST(ProcessShardMedia, FourSlicesInParallelMakeWhatOneRunMakes) {
    TestHome home;
    const std::vector<std::string> names = {
        "IMG_0001.jpg", "IMG_0002.JPG",   "IMG_0010.jpg",        "beach day.png",
        "Été 2024.jpg", "a-uwrp-2.jpg",   "DSC_2468.jpg",        "scan.png",
        "x.jpeg",       "café+crème.png", "20240820_101500.jpg", "sub/inner.jpg"};
    fs::create_directories(home.path("in/sub"));
    std::set<std::string> inputs;
    for (std::size_t i = 0; i < names.size(); ++i)
        inputs.insert(quadrants(home, "in/" + names[i], 40 + 2 * static_cast<int>(i), 30));
    const std::string in = home.path("in");

    Outcome whole = unwarp(home, "process --template uw-133 --recursive --out " +
                                     inQuotes(home.path("whole")) + " " + inQuotes(in));
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    const auto expected = filesWithPixels(home.path("whole"));
    ASSERT_EQ(expected.size(), names.size());

    std::vector<std::vector<std::set<std::string>>> slicesOfRuns;
    for (const std::string& out : {home.path("out1"), home.path("out2")}) {
        std::vector<std::vector<std::string>> arguments;
        for (int i = 0; i < 4; ++i)
            arguments.push_back({"process", "--template", "uw-133", "--recursive", "--json",
                                 "--out", out, "--shard", std::to_string(i) + "/4", in});
        std::vector<std::set<std::string>> slices;
        std::multiset<std::string> taken;
        for (const auto& o : runTogether(arguments)) {
            ASSERT_EQ(o.exitCode, 0) << o.err;
            std::set<std::string> slice;
            for (const auto& [source, output] : resultsOf(o)) slice.insert(source);
            taken.insert(slice.begin(), slice.end());
            slices.push_back(slice);
        }
        // Each input in exactly one slice, and the folder as one run leaves it.
        EXPECT_EQ(taken, std::multiset<std::string>(inputs.begin(), inputs.end()));
        EXPECT_EQ(filesWithPixels(out), expected) << out;
        slicesOfRuns.push_back(slices);
    }
    EXPECT_EQ(slicesOfRuns[0], slicesOfRuns[1]) << "a rerun gives each input the same slice";
}

// A bad slice is a usage slip named as such; a slice that holds none of the inputs is no
// failure, and says so.
TEST(ProcessShardMedia, BadSlicesAreUsageSlipsAndAnEmptySliceIsNoFailure) {
    TestHome home;
    const std::string photo = quadrants(home, "one.jpg", 40, 30);
    for (const char* bad : {"2/2", "1", "-1/2"}) {
        Outcome o = unwarp(
            home, std::string("process --template uw-133 --shard ") + bad + " " + inQuotes(photo));
        EXPECT_EQ(o.exitCode, 2) << bad;
        EXPECT_NE(o.err.find("--shard expects I/N with 0 <= I < N"), std::string::npos) << o.err;
    }
    std::size_t made = 0, empty = 0;
    for (const char* shard : {"0/2", "1/2"}) {
        Outcome o = unwarp(home, std::string("process --template uw-133 --json --out ") +
                                     inQuotes(home.path("out")) + " --shard " + shard + " " +
                                     inQuotes(photo));
        EXPECT_EQ(o.exitCode, 0) << o.err;
        made += resultsOf(o).size();
        empty += o.err.find("none of the 1 inputs falls in this shard") != std::string::npos;
    }
    EXPECT_EQ(made, 1u);
    EXPECT_EQ(empty, 1u);
    EXPECT_EQ(command_test::allFilesUnder(home.path("out")), std::vector<std::string>{"one.jpg"});
}

// Slices of a library album: every home's catalogue names the assets anew, so they go to
// slices by their files; two homes over one library still split the album between them.
TEST(ProcessShardMedia, LibraryAlbumSplitsTheSameWayFromEveryHome) {
    TestHome home;
    const std::string library = home.path("library");
    fs::create_directories(library + "/Trip");
    for (int i = 0; i < 8; ++i)
        quadrants(home, "library/Trip/p" + std::to_string(i) + ".jpg", 40, 30);
    std::vector<std::vector<std::string>> arguments;
    for (int i = 0; i < 2; ++i)
        arguments.push_back({"process", "--template", "uw-133", "--json", "--library", library,
                             "--album", "Trip", "--out", home.path("out"), "--shard",
                             std::to_string(i) + "/2"});
    for (const auto& o : runTogether(arguments)) ASSERT_EQ(o.exitCode, 0) << o.err;
    Outcome whole = unwarp(home, "process --template uw-133 --library " + inQuotes(library) +
                                     " --album Trip --out " + inQuotes(home.path("whole")));
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_EQ(command_test::allFilesUnder(home.path("whole")).size(), 8u);
    EXPECT_EQ(command_test::allFilesUnder(home.path("out")),
              command_test::allFilesUnder(home.path("whole")))
        << "each photo once, under its own name";
}

// Two processes whose results take the same names, into one folder at once: each result gets
// a name of its own (the later one moving on to NAME-1), none replaces another, and no
// temporary is left. With separate homes, one home, and a folder on another file system
// (where results are copied rather than linked).
TEST(ProcessShardMedia, ProcessesMakingOneNameReplaceNothingOfEachOther) {
    TestHome home;
    testing_support::SmallDisk disk(1024);
    fs::create_directories(home.path("a"));
    fs::create_directories(home.path("b"));
    for (int i = 0; i < 4; ++i) {
        const std::string name = "x" + std::to_string(i) + ".jpg";
        quadrants(home, "a/" + name, 40, 30);
        quadrants(home, "b/" + name, 60, 30);
    }
    struct Variant {
        std::string what;
        std::string out;
        bool oneHome;
    };
    std::vector<Variant> variants = {{"homes of their own", home.path("out1"), false},
                                     {"one home", home.path("out2"), true}};
    if (!disk.path().empty()) variants.push_back({"another file system", disk.path(), false});
    for (const auto& v : variants) {
        SCOPED_TRACE(v.what);
        TestHome shared;
        auto outcomes = runTogether(
            {{"process", "--template", "uw-133", "--json", "--out", v.out, home.path("a")},
             {"process", "--template", "uw-133", "--json", "--out", v.out, home.path("b")}},
            v.oneHome ? &shared : nullptr);
        std::set<std::string> outputs;
        for (std::size_t p = 0; p < outcomes.size(); ++p) {
            ASSERT_EQ(outcomes[p].exitCode, 0) << outcomes[p].err;
            const auto results = resultsOf(outcomes[p]);
            ASSERT_EQ(results.size(), 4u) << outcomes[p].out;
            for (const auto& [source, output] : results) {
                // Each process's own pixels under the name it said.
                EXPECT_EQ(vipsSize(output), p == 0 ? "53x30" : "80x30") << output;
                outputs.insert(fs::path(output).filename().string());
            }
        }
        EXPECT_EQ(outputs.size(), 8u);
        std::set<std::string> files;
        for (const auto& name : command_test::allFilesUnder(v.out))
            if (name != ".filler") files.insert(name);
        EXPECT_EQ(files, outputs) << "no other file, no temporary";
        for (int i = 0; i < 4; ++i) {
            const std::string stem = "x" + std::to_string(i);
            EXPECT_TRUE(files.count(stem + ".jpg") && files.count(stem + "-1.jpg")) << stem;
        }
    }
}

}  // namespace
