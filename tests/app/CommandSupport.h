// Runs the built `unwarp` command under a test's scratch home, for the command tests.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/TestHome.h"

namespace command_test {

struct Outcome {
    int exitCode;
    std::string out;
    std::string err;
};

// Standard input is empty (not a terminal), so the command never asks.
inline Outcome unwarp(const testing_support::TestHome& home, const std::string& arguments) {
    const std::string errPath = home.path("stderr.txt");
    Outcome o;
    o.exitCode =
        testing_support::runCommand(std::string("'") + UNWARP_BINARY + "' --home '" + home.root() +
                                        "' " + arguments + " 2>'" + errPath + "' </dev/null",
                                    &o.out);
    std::ifstream in(errPath, std::ios::binary);
    o.err.assign(std::istreambuf_iterator<char>(in), {});
    return o;
}

// The names in a folder, sorted; none when it does not exist.
inline std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(folder, ec))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace command_test
