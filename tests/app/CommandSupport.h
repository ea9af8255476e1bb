// Runs the built `unwarp` command under a test's scratch home, for the command tests.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
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

// One JSON object a line, as `--json` prints them; a line that is no JSON reads as discarded.
inline std::vector<nlohmann::json> jsonLines(const std::string& text) {
    std::vector<nlohmann::json> objects;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        objects.push_back(nlohmann::json::parse(line, nullptr, false));
    return objects;
}

// The names in a folder, sorted; none when it does not exist.
inline std::vector<std::string> filesIn(const std::string& folder) {
    return testing_support::namesIn(folder);
}

// Starts `unwarp --home HOME process --template KEY --out OUT FILE`, sends it SIGINT after
// `delay`, and returns its exit code (-1 when it did not exit normally).
inline int interruptedProcess(const testing_support::TestHome& home, const std::string& templateKey,
                              const std::string& out, const std::string& file,
                              std::chrono::milliseconds delay) {
    const std::string root = home.root();
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(126);
        execl(UNWARP_BINARY, UNWARP_BINARY, "--home", root.c_str(), "process", "--template",
              templateKey.c_str(), "--out", out.c_str(), file.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    std::this_thread::sleep_for(delay);
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A running `unwarp`, started without waiting, its standard output and error going to files
// under the home.
struct Running {
    pid_t pid = -1;
    std::string outPath;
    std::string errPath;
};

inline Running start(const testing_support::TestHome& home, std::vector<std::string> arguments,
                     const std::string& name) {
    Running r;
    r.outPath = home.path(name + ".out");
    r.errPath = home.path(name + ".err");
    arguments.insert(arguments.begin(), {UNWARP_BINARY, "--home", home.root()});
    std::vector<char*> argv;
    for (auto& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    r.pid = fork();
    if (r.pid == 0) {
        if (!freopen("/dev/null", "r", stdin) || !freopen(r.outPath.c_str(), "w", stdout) ||
            !freopen(r.errPath.c_str(), "w", stderr))
            _exit(126);
        execv(UNWARP_BINARY, argv.data());
        _exit(127);
    }
    return r;
}

inline std::string contentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Waits for the process; a process ended by a signal reports 128 + the signal, as a shell does.
inline Outcome finish(const Running& r) {
    int status = 0;
    waitpid(r.pid, &status, 0);
    Outcome o;
    o.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    o.out = contentsOf(r.outPath);
    o.err = contentsOf(r.errPath);
    return o;
}

// Waits until `ready()` holds (a file has appeared, say), looking every few milliseconds; false
// when it did not within `patience`.
inline bool waitUntil(const std::function<bool()>& ready,
                      std::chrono::milliseconds patience = std::chrono::seconds(60)) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!ready()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Every file under `folder`, as paths relative to it, sorted; none when it does not exist.
inline std::vector<std::string> allFilesUnder(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : std::filesystem::recursive_directory_iterator(folder, ec))
        if (!e.is_directory()) names.push_back(e.path().lexically_relative(folder).string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace command_test
