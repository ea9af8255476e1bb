// Runs the built `unwarp` command under a test's scratch home, for the command tests.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
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

// What the standard error of a running `process` shows: the line that opens the first file
// (its signal handlers are set by then), and a progress bar with a step drawn (a movie's job
// has begun to write frames).
inline bool startedFirstFile(const std::string& err) {
    return err.find("[1/") != std::string::npos;
}
inline bool showsProgress(const std::string& err) {
    return err.find("  [#") != std::string::npos;
}

// Starts `unwarp --home HOME process --template KEY --out OUT FILE` with its standard error on
// a terminal (so that it draws its progress), sends it SIGINT as soon as `ready` holds for what
// it has written there, and returns its exit code (-1 when it did not exit normally or `ready`
// did not hold within a minute).
inline int interruptedProcess(const testing_support::TestHome& home, const std::string& templateKey,
                              const std::string& out, const std::string& file,
                              const std::function<bool(const std::string&)>& ready) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return -1;
    // The terminal is opened before the fork, so that it never looks closed to the reader
    // before the child holds it.
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
    if (terminal < 0) return -1;
    const std::string root = home.root();
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        if (dup2(terminal, STDERR_FILENO) < 0 || !freopen("/dev/null", "w", stdout) ||
            !freopen("/dev/null", "r", stdin))
            _exit(126);
        close(terminal);
        close(master);
        execl(UNWARP_BINARY, UNWARP_BINARY, "--home", root.c_str(), "process", "--template",
              templateKey.c_str(), "--out", out.c_str(), file.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(terminal);
    // Reads what the child writes until `ready` holds, then until the child closes its terminal
    // (a read error, EIO, is how that shows); a minute for each, else the child is killed.
    std::string err;
    bool signalled = false;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        if (!signalled && ready(err)) {
            kill(pid, SIGINT);
            signalled = true;
            end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            kill(pid, SIGKILL);
            signalled = false;
            break;
        }
        pollfd p{master, POLLIN, 0};
        const int polled = poll(&p, 1, static_cast<int>(left.count()));
        if (polled < 0 && errno != EINTR) break;
        if (polled <= 0) continue;
        char buffer[4096];
        const ssize_t n = read(master, buffer, sizeof buffer);
        if (n == 0 || (n < 0 && errno != EINTR)) break;
        if (n > 0) err.append(buffer, static_cast<std::size_t>(n));
    }
    close(master);
    int status = 0;
    waitpid(pid, &status, 0);
    return signalled && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

// A path as one word of a command line (paths in tests hold no single quotes).
inline std::string inQuotes(const std::string& path) {
    return "'" + path + "'";
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

// Waits until `ready()` holds (a file has appeared under the home, say), looking again
// whenever a file or folder under the home is made, written, moved or removed; false when it
// did not hold within `patience`.
inline bool waitUntil(const testing_support::TestHome& home, const std::function<bool()>& ready,
                      std::chrono::milliseconds patience = std::chrono::seconds(60)) {
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) return false;
    constexpr std::uint32_t kEvents =
        IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
    // Watched again after every change: a folder made since then gets its watch, and adding a
    // watch twice keeps one.
    auto watchAll = [&] {
        inotify_add_watch(fd, home.root().c_str(), kEvents);
        std::error_code ec;
        for (const auto& e : std::filesystem::recursive_directory_iterator(home.root(), ec))
            if (e.is_directory(ec)) inotify_add_watch(fd, e.path().c_str(), kEvents);
    };
    const auto end = std::chrono::steady_clock::now() + patience;
    bool held = false;
    for (;;) {
        watchAll();
        if ((held = ready())) break;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
        char events[8192];
        while (read(fd, events, sizeof events) > 0) {
        }
    }
    close(fd);
    return held;
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

// Plain files left anywhere under `folder` (lock files aside): a share leaves none behind.
inline std::size_t filesUnder(const std::string& folder) {
    std::size_t count = 0;
    std::error_code ec;
    for (const auto& e : std::filesystem::recursive_directory_iterator(folder, ec))
        count += e.is_regular_file() && e.path().extension() != ".lock";
    return count;
}

}  // namespace command_test
