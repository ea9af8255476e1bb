// The slices of `process --shard I/N`: what the option accepts, and that inputs spread evenly
// over the slices, names that differ in few bits included.
#include "app/ProcessShard.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace {

TEST(ProcessShard, ParsesIndexOverCountCountingFromZero) {
    struct Case {
        std::string text;
        std::uint64_t index, count;
    };
    const std::vector<Case> valid = {
        {"0/1", 0, 1},
        {"0/4", 0, 4},
        {"3/4", 3, 4},
        {"07/10", 7, 10},
        {"999999/1000000", 999999, 1000000},
    };
    for (const auto& c : valid) {
        std::string problem;
        auto shard = app::parseShard(c.text, &problem);
        ASSERT_TRUE(shard) << c.text << ": " << problem;
        EXPECT_EQ(shard->index, c.index) << c.text;
        EXPECT_EQ(shard->count, c.count) << c.text;
    }
    const std::vector<std::string> invalid = {
        "4/4",  "5/4",    "1/0",   "0/0",   "-1/4",      "+1/4",
        "1",    "1/",     "/4",    "",      "a/4",       "1/4/2",
        " 1/4", "1/4 ",   "1.0/4", "0x1/4", "0/1000001", "18446744073709551616/2",
        "1\\4", "1 of 4",
    };
    for (const auto& text : invalid) {
        std::string problem;
        EXPECT_FALSE(app::parseShard(text, &problem)) << text;
        EXPECT_NE(problem.find("--shard expects I/N with 0 <= I < N"), std::string::npos)
            << text << ": " << problem;
    }
}

// Camera and date names often differ only in digits of one parity; each slice must still get
// its share, for every count (within four standard deviations of a fair draw: FNV-1a alone
// leaves every odd or every even slice empty here).
TEST(ProcessShard, SpreadsNamesThatDifferInFewBitsEvenly) {
    std::vector<std::string> keys;
    const std::string even = "02468";
    for (char a : even)
        for (char b : even)
            for (char c : even)
                for (char d : even) {
                    const std::string digits{a, b, c, d};
                    keys.push_back("DSC_" + digits + ".JPG");
                    keys.push_back("2024-" + digits + "/clip.mov");
                }
    for (std::uint64_t count : {2u, 3u, 4u, 7u, 16u}) {
        std::map<std::uint64_t, std::size_t> sizes;
        for (const auto& key : keys) {
            const auto slice = app::shardOfKey(key, count);
            ASSERT_LT(slice, count);
            ++sizes[slice];
        }
        const double share = static_cast<double>(keys.size()) / static_cast<double>(count);
        const double spread = 4 * std::sqrt(share * (1 - 1.0 / static_cast<double>(count)));
        ASSERT_EQ(sizes.size(), count);
        for (const auto& [slice, size] : sizes)
            EXPECT_NEAR(static_cast<double>(size), share, spread)
                << "slice " << slice << " of " << count;
    }
}

}  // namespace
