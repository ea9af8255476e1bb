// Crash and hang reports of the `unwarp` program: children made to crash or hang leave their
// reports, the next start lists them once, and a report server receives and clears them.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

#include "app/CommandSupport.h"
#include "support/TestHome.h"

namespace {

using command_test::filesIn;
using command_test::unwarp;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(30);

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> reportsIn(const testing_support::TestHome& home) {
    std::vector<std::string> reports;
    for (const auto& name : filesIn(home.path("crashes"))) {
        if (name[0] != '.') reports.push_back(name);
    }
    return reports;
}

// Starts `unwarp --home HOME ARGS...` without a core dump, its output thrown away.
pid_t startUnwarp(const testing_support::TestHome& home, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {UNWARP_BINARY, "--home", home.root()});
    const pid_t pid = fork();
    if (pid != 0) return pid;
    rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(126);
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(UNWARP_BINARY, argv.data());
    _exit(127);
}

// The signal that ended the child, or -1 when it exited or did not end in time.
int waitForSignal(pid_t pid) {
    const auto deadline = Clock::now() + kPatience;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
}

// Waits, bounded, for the first finished report to appear in the crash folder.
std::optional<std::string> waitForReport(const testing_support::TestHome& home) {
    const auto deadline = Clock::now() + kPatience;
    while (Clock::now() < deadline) {
        auto reports = reportsIn(home);
        if (!reports.empty()) return home.path("crashes/" + reports.front());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return std::nullopt;
}

// Leaves one crash report in `home` from a child that dereferences a null pointer.
std::string crashOnce(const testing_support::TestHome& home) {
    const pid_t pid = startUnwarp(home, {"--crash-test", "segv"});
    EXPECT_EQ(waitForSignal(pid), SIGSEGV);
    auto reports = reportsIn(home);
    EXPECT_EQ(reports.size(), 1u);
    return reports.empty() ? std::string() : home.path("crashes/" + reports.front());
}

// A report server on the loopback address with an ephemeral port, answering every post with
// `status` and keeping what it received.
class ReportServer {
  public:
    explicit ReportServer(int status) {
        _server.Post("/reports",
                     [this, status](const httplib::Request& request, httplib::Response& response) {
                         std::lock_guard lock(_mutex);
                         _bodies.push_back(request.body);
                         response.status = status;
                     });
        _port = _server.bind_to_any_port("127.0.0.1");
        // Bound and listening already: connections wait in the backlog until the loop runs.
        _thread = std::thread([this] { _server.listen_after_bind(); });
    }
    ~ReportServer() {
        // A stop before the loop runs would be lost.
        const auto deadline = Clock::now() + kPatience;
        while (!_server.is_running() && Clock::now() < deadline) std::this_thread::yield();
        _server.stop();
        _thread.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(_port) + "/reports"; }
    std::vector<std::string> bodies() {
        std::lock_guard lock(_mutex);
        return _bodies;
    }

  private:
    httplib::Server _server;
    std::thread _thread;
    int _port = 0;
    std::mutex _mutex;
    std::vector<std::string> _bodies;
};

}  // namespace

TEST(CrashReport, EachFatalSignalWritesAReportAndStillDiesOfIt) {
    const struct {
        const char* kind;
        int signal;
        const char* signalName;
        const char* function;  // the faulting frame, named in the backtrace
    } cases[] = {
        {"segv", SIGSEGV, "SIGSEGV", "crashTestSegv"},
        {"bus", SIGBUS, "SIGBUS", "crashTestBus"},
        {"ill", SIGILL, "SIGILL", "crashTestIll"},
        {"fpe", SIGFPE, "SIGFPE", "crashTestFpe"},
        // A call that never returns leaves a return address past its caller's end, so the
        // frame named is the C library's.
        {"abort", SIGABRT, "SIGABRT", "(abort+"},
        // Only an alternate signal stack lets the handler run after this one.
        {"stack", SIGSEGV, "SIGSEGV", "crashTestStackFrame"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind);
        testing_support::TestHome home;
        const pid_t pid = startUnwarp(home, {"--crash-test", c.kind});
        EXPECT_EQ(waitForSignal(pid), c.signal);
        const auto reports = reportsIn(home);
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].rfind("crash-", 0), 0u) << reports[0];
        EXPECT_NE(reports[0].find("-" + std::to_string(pid) + ".txt"), std::string::npos);
        const std::string text = readFile(home.path("crashes/" + reports[0]));
        EXPECT_NE(text.find("version: 0.1.0\n"), std::string::npos) << text;
        EXPECT_NE(text.find("machine: Linux "), std::string::npos) << text;
        EXPECT_NE(text.find(std::string("command line: ") + UNWARP_BINARY + " --home " +
                            home.root() + " --crash-test " + c.kind + "\n"),
                  std::string::npos)
            << text;
        EXPECT_NE(text.find(std::string("signal: ") + c.signalName + " (" +
                            std::to_string(c.signal) + ")"),
                  std::string::npos)
            << text;
        EXPECT_NE(text.find(" (main)\nbacktrace:\n"), std::string::npos) << text;
        EXPECT_NE(text.find(c.function), std::string::npos) << text;
        // Nothing half-written is left beside it.
        EXPECT_EQ(filesIn(home.path("crashes")).size(), 1u);
    }
}

TEST(CrashReport, AStalledMainQueueWritesAHangReportWithEveryThread) {
    testing_support::TestHome home;
    const pid_t pid = startUnwarp(home, {"--hang-seconds", "0.5", "--crash-test", "hang"});
    const auto report = waitForReport(home);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    ASSERT_TRUE(report);
    EXPECT_EQ(command_test::filesIn(home.path("crashes")).size(), 1u);
    const std::string text = readFile(*report);
    EXPECT_EQ(text.rfind("unwarp hang report\n", 0), 0u) << text;
    EXPECT_NE(text.find("main queue busy for: "), std::string::npos) << text;
    // The main thread's stack shows the block that never ends; the watchdog's own is there.
    const auto main = text.find(" (main):\n");
    ASSERT_NE(main, std::string::npos) << text;
    const auto next = text.find("\nthread ", main);
    EXPECT_NE(text.substr(main, next - main).find("crashTestHang"), std::string::npos) << text;
    EXPECT_NE(text.find(" (hang watchdog):\n"), std::string::npos) << text;
    EXPECT_EQ(text.find(": no answer"), std::string::npos) << text;
}

TEST(CrashReport, TheNextStartListsAReportOnceAndInfoAlwaysShowsIt) {
    testing_support::TestHome home;
    const std::string report = crashOnce(home);
    ASSERT_FALSE(report.empty());

    const auto first = unwarp(home, "info");
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_NE(first.err.find("an earlier run crashed; its report is kept in " + report),
              std::string::npos)
        << first.err;
    EXPECT_NE(first.err.find("crashReportURL"), std::string::npos) << first.err;
    EXPECT_NE(first.out.find("\n  " + report + "\n"), std::string::npos) << first.out;

    const auto second = unwarp(home, "info");
    EXPECT_EQ(second.err.find(report), std::string::npos) << second.err;
    EXPECT_NE(second.out.find("\n  " + report + "\n"), std::string::npos) << second.out;
    // Without an address the report stays.
    EXPECT_EQ(reportsIn(home).size(), 1u);
}

TEST(CrashReport, ReportsArePostedAndRemovedOnlyAfterASuccessfulAnswer) {
    const struct {
        int status;
        bool removed;
    } cases[] = {{200, true}, {204, true}, {500, false}, {404, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        testing_support::TestHome home;
        const std::string report = crashOnce(home);
        ASSERT_FALSE(report.empty());
        const std::string text = readFile(report);
        ReportServer server(c.status);
        const auto set = unwarp(home, "settings set crashReportURL " + server.url());
        ASSERT_EQ(set.exitCode, 0) << set.err;

        const auto info = unwarp(home, "info");
        EXPECT_EQ(info.exitCode, 0);
        ASSERT_EQ(server.bodies().size(), 1u);
        EXPECT_EQ(server.bodies()[0], text);
        EXPECT_EQ(reportsIn(home).size(), c.removed ? 0u : 1u);
        EXPECT_EQ(info.out.find(report) != std::string::npos, !c.removed) << info.out;
        if (c.removed) {
            EXPECT_TRUE(filesIn(home.path("crashes")).empty()) << "its marker is gone too";
        }
    }
}

TEST(CrashReport, TwoStartsAtOnceSendEachReportOnce) {
    testing_support::TestHome home;
    crashOnce(home);
    const pid_t second = startUnwarp(home, {"--crash-test", "abort"});
    EXPECT_EQ(waitForSignal(second), SIGABRT);
    ASSERT_EQ(reportsIn(home).size(), 2u);
    ReportServer server(200);
    ASSERT_EQ(unwarp(home, "settings set crashReportURL " + server.url()).exitCode, 0);

    std::vector<pid_t> starts;
    for (int i = 0; i < 4; ++i) starts.push_back(startUnwarp(home, {"info"}));
    for (pid_t pid : starts) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(server.bodies().size(), 2u);
    EXPECT_TRUE(reportsIn(home).empty());
}

TEST(CrashReport, TheReportAddressMustBeAnHttpAddress) {
    testing_support::TestHome home;
    const struct {
        const char* value;
        int exitCode;
        const char* shown;
    } cases[] = {
        {"http://127.0.0.1:8080/reports", 0, "http://127.0.0.1:8080/reports"},
        {"https://reports.example.org", 0, "https://reports.example.org"},
        {"none", 0, "none"},
        {"ftp://example.org/x", 2, nullptr},
        {"http://", 2, nullptr},
        {"http://host:99999/", 2, nullptr},
        {"example.org/reports", 2, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        const auto run = unwarp(home, std::string("settings set crashReportURL '") + c.value + "'");
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
        if (c.shown) {
            EXPECT_NE(run.out.find(std::string("= ") + c.shown), std::string::npos) << run.out;
        }
    }
}
