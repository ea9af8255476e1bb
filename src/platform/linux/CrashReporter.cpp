// The signal handlers and the hang watchdog of the crash reporter. Everything a handler
// touches is prepared by install(); the handlers only format numbers into stack buffers and
// call async-signal-safe system calls (open, write, rename, mkdir, tgkill), plus backtrace(),
// whose one-time loading of the unwinder is done at install.
#include "platform/CrashReporter.h"

#include <dirent.h>
#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "platform/linux/CrashReportText.h"

namespace platform {
namespace {

using crash_text::Buffer;

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr std::size_t kSignalStackSize = 64 * 1024;
constexpr int kMaxFrames = 128;
// How long the watchdog waits for one thread to write its backtrace.
constexpr int kThreadAnswerMilliseconds = 2000;

// What the handlers need, made once by install() and never freed.
struct Prepared {
    std::string directory;
    std::vector<std::string> folders;  // the crash folder and its ancestors, outermost first
    std::string header;                // version, machine, command line
    std::chrono::milliseconds hangThreshold{10000};
    pid_t mainThread = 0;
};
const Prepared* gPrepared = nullptr;

std::atomic<pid_t> gCrashingThread{0};
// The hang report being written and the pipe on which each thread says it is done.
std::atomic<int> gHangReportFd{-1};
int gAnswerPipe[2] = {-1, -1};

int hangSignal() {
    return SIGRTMIN + 7;
}

pid_t currentThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

void writeBuffer(int fd, const Buffer& buffer) {
    writeAll(fd, buffer.data(), buffer.size());
}

void writeBacktrace(int fd) {
    void* frames[kMaxFrames];
    int count = backtrace(frames, kMaxFrames);
    backtrace_symbols_fd(frames, count, fd);
}

void makeFolders() {
    for (const auto& folder : gPrepared->folders) mkdir(folder.c_str(), 0700);
}

// Opens "<folder>/.<name>.part" exclusively; the finished report is renamed to <name>, so a
// reader never sees half a report. The names go into the caller's buffers.
int openReport(const char* kind, std::uint64_t sequence, Buffer& part, Buffer& final) {
    makeFolders();
    const std::int64_t now = crash_text::unixTime();
    for (int attempt = 0; attempt < 100; ++attempt) {
        Buffer name;
        crash_text::appendReportName(name, kind, now, getpid(), sequence + attempt);
        part.clear();
        part.append(gPrepared->directory.c_str()).append("/.").append(name.data()).append(".part");
        final.clear();
        final.append(gPrepared->directory.c_str()).append("/").append(name.data());
        int fd = open(part.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

void writeHeader(int fd, const char* title) {
    writeAll(fd, title, std::strlen(title));
    writeAll(fd, "\n", 1);
    writeAll(fd, gPrepared->header.data(), gPrepared->header.size());
    Buffer facts;
    facts.append("process: ").appendNumber(getpid()).append("\ntime: ");
    crash_text::appendUtcTime(facts, crash_text::unixTime());
    facts.append("\n");
    writeBuffer(fd, facts);
}

// Only the one crashing thread writes a crash report, so its names live here rather than on a
// signal stack that may be small.
constinit Buffer gCrashPart;
constinit Buffer gCrashFinal;

void writeCrashReport(int signal, const siginfo_t* info) {
    Buffer& part = gCrashPart;
    Buffer& final = gCrashFinal;
    int fd = openReport("crash", 0, part, final);
    if (fd < 0) return;
    writeHeader(fd, "unwarp crash report");
    Buffer facts;
    facts.append("signal: ").append(crash_text::signalName(signal)).append(" (");
    facts.appendNumber(static_cast<std::uint64_t>(signal)).append("), code ");
    facts.appendSigned(info ? info->si_code : 0).append(", address ");
    facts.appendHex(info ? reinterpret_cast<std::uintptr_t>(info->si_addr) : 0);
    facts.append("\nthread: ").appendNumber(static_cast<std::uint64_t>(currentThread()));
    if (currentThread() == gPrepared->mainThread) facts.append(" (main)");
    facts.append("\nbacktrace:\n");
    writeBuffer(fd, facts);
    writeBacktrace(fd);
    fsync(fd);
    close(fd);
    rename(part.data(), final.data());
}

void onFatalSignal(int signal, siginfo_t* info, void* /*context*/) {
    const pid_t self = currentThread();
    pid_t expected = 0;
    if (gCrashingThread.compare_exchange_strong(expected, self)) {
        writeCrashReport(signal, info);
    } else if (expected != self) {
        // Another thread is writing the report; the process dies when it is done.
        for (;;) pause();
    }
    // The default action, so that the exit status still names the signal: the re-raised signal
    // stays pending until the handler returns (a fault would also recur on return).
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(signal, &fallback, nullptr);
    syscall(SYS_tgkill, getpid(), self, signal);
}

// Runs in each thread the watchdog signals: its backtrace into the hang report, then its
// thread id on the answer pipe.
void onHangSignal(int /*signal*/) {
    const int savedErrno = errno;
    const int fd = gHangReportFd.load();
    const pid_t self = currentThread();
    if (fd >= 0) {
        Buffer title;
        title.append("\nthread ").appendNumber(static_cast<std::uint64_t>(self));
        if (self == gPrepared->mainThread) title.append(" (main)");
        title.append(":\n");
        writeBuffer(fd, title);
        writeBacktrace(fd);
    }
    writeAll(gAnswerPipe[1], reinterpret_cast<const char*>(&self), sizeof self);
    errno = savedErrno;
}

std::vector<pid_t> processThreads() {
    std::vector<pid_t> threads;
    DIR* folder = opendir("/proc/self/task");
    if (!folder) return threads;
    while (dirent* entry = readdir(folder)) {
        char* end = nullptr;
        long tid = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0') threads.push_back(static_cast<pid_t>(tid));
    }
    closedir(folder);
    return threads;
}

bool awaitAnswer(pid_t thread) {
    for (;;) {
        pollfd waiting{gAnswerPipe[0], POLLIN, 0};
        if (poll(&waiting, 1, kThreadAnswerMilliseconds) <= 0) return false;
        pid_t answered = 0;
        if (read(gAnswerPipe[0], &answered, sizeof answered) != sizeof answered) return false;
        if (answered == thread) return true;  // an earlier late answer is skipped
    }
}

void writeHangReport(std::uint64_t sequence, std::chrono::milliseconds busy) {
    Buffer part;
    Buffer final;
    int fd = openReport("hang", sequence, part, final);
    if (fd < 0) {
        log("~~ Unable to write a hang report in " + gPrepared->directory);
        return;
    }
    writeHeader(fd, "unwarp hang report");
    Buffer facts;
    facts.append("main queue busy for: ").appendNumber(static_cast<std::uint64_t>(busy.count()));
    facts.append(" ms\n");
    writeBuffer(fd, facts);
    gHangReportFd = fd;
    const pid_t self = currentThread();
    for (pid_t thread : processThreads()) {
        if (thread == self) {
            Buffer title;
            title.append("\nthread ").appendNumber(static_cast<std::uint64_t>(self));
            title.append(" (hang watchdog):\n");
            writeBuffer(fd, title);
            writeBacktrace(fd);
            continue;
        }
        if (syscall(SYS_tgkill, getpid(), thread, hangSignal()) != 0) continue;  // gone
        if (!awaitAnswer(thread)) {
            gHangReportFd = -1;  // a late answer must not write into a closed report
            Buffer title;
            title.append("\nthread ").appendNumber(static_cast<std::uint64_t>(thread));
            title.append(": no answer\n");
            writeBuffer(fd, title);
            gHangReportFd = fd;
        }
    }
    gHangReportFd = -1;
    fsync(fd);
    close(fd);
    rename(part.data(), final.data());
    log("~~ The main queue was busy for " + std::to_string(busy.count()) +
        " ms; wrote the hang report " + std::string(final.data()));
}

// Wakes a few times per threshold; a stall is reported once, however long it lasts.
class HangWatchdog {
  public:
    static HangWatchdog& shared() {
        static HangWatchdog watchdog;
        return watchdog;
    }

    void start(std::chrono::milliseconds threshold) {
        std::lock_guard lock(_mutex);
        if (_thread.joinable()) return;
        _threshold = threshold;
        _thread = std::thread([this] { loop(); });
    }

    ~HangWatchdog() {
        {
            std::lock_guard lock(_mutex);
            _stopping = true;
            _changed.notify_all();
        }
        if (_thread.joinable()) _thread.join();
    }

  private:
    void loop() {
        using Clock = std::chrono::steady_clock;
        const auto tick = std::max(_threshold / 4, std::chrono::milliseconds(10));
        Clock::time_point reported{};
        std::uint64_t sequence = 1;
        std::unique_lock lock(_mutex);
        while (!_changed.wait_for(lock, tick, [&] { return _stopping; })) {
            const auto since = MainRunLoop::busySince();
            if (since == Clock::time_point{} || since == reported) continue;
            const auto busy =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since);
            if (busy <= _threshold) continue;
            reported = since;
            lock.unlock();
            writeHangReport(sequence++, busy);
            lock.lock();
        }
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    std::thread _thread;
    std::chrono::milliseconds _threshold{10000};
    bool _stopping = false;
};

std::string quoted(const std::string& argument) {
    if (!argument.empty() && argument.find_first_of(" \t\n'\"\\$`*?;&|<>()") == std::string::npos)
        return argument;
    std::string text = "'";
    for (char c : argument) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

std::string machineText() {
    struct utsname names {};
    if (uname(&names) != 0) return "unknown";
    // The node name is left out: the report may leave the machine.
    return std::string(names.sysname) + " " + names.release + " " + names.version + " " +
           names.machine;
}

Prepared* prepare(const CrashReporter::Configuration& configuration) {
    auto* prepared = new Prepared();
    prepared->directory = configuration.directory;
    for (std::size_t at = 1; at <= configuration.directory.size(); ++at) {
        if (at == configuration.directory.size() || configuration.directory[at] == '/')
            prepared->folders.push_back(configuration.directory.substr(0, at));
    }
    std::string commandLine;
    for (const auto& argument : configuration.commandLine)
        commandLine += (commandLine.empty() ? "" : " ") + quoted(argument);
    prepared->header = "version: " + configuration.version + "\nmachine: " + machineText() +
                       "\ncommand line: " + commandLine + "\n";
    prepared->hangThreshold = configuration.hangThreshold;
    prepared->mainThread = currentThread();
    return prepared;
}

bool installHandlers() {
    struct sigaction action {};
    action.sa_sigaction = onFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    // A second fault while the report is written kills the process at once.
    for (int signal : kFatalSignals) sigaddset(&action.sa_mask, signal);
    for (int signal : kFatalSignals) {
        if (sigaction(signal, &action, nullptr) != 0) return false;
    }
    struct sigaction hang {};
    hang.sa_handler = onHangSignal;
    hang.sa_flags = SA_RESTART | SA_ONSTACK;
    sigemptyset(&hang.sa_mask);
    return sigaction(hangSignal(), &hang, nullptr) == 0;
}

}  // namespace

CrashReporter::ThreadSignalStack::ThreadSignalStack() {
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0 || !(current.ss_flags & SS_DISABLE)) return;
    _memory = std::malloc(kSignalStackSize);
    if (!_memory) return;
    stack_t stack{};
    stack.ss_sp = _memory;
    stack.ss_size = kSignalStackSize;
    if (sigaltstack(&stack, nullptr) != 0) {
        std::free(_memory);
        _memory = nullptr;
    }
}

CrashReporter::ThreadSignalStack::~ThreadSignalStack() {
    if (!_memory) return;
    stack_t off{};
    off.ss_flags = SS_DISABLE;
    sigaltstack(&off, nullptr);
    std::free(_memory);
}

bool CrashReporter::install(const Configuration& configuration) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    if (gPrepared) return true;
    // backtrace() loads the unwinder on first use, which allocates: do it now, not in a handler.
    void* frame[1];
    backtrace(frame, 1);
    if (pipe2(gAnswerPipe, O_CLOEXEC) != 0) {
        log("~~ Unable to prepare the crash reporter: " + std::string(std::strerror(errno)));
        return false;
    }
    gPrepared = prepare(configuration);
    // The main thread's stack, held for the whole process.
    static ThreadSignalStack mainStack;
    if (!installHandlers()) {
        log("~~ Unable to install the crash handlers: " + std::string(std::strerror(errno)));
        return false;
    }
    HangWatchdog::shared().start(configuration.hangThreshold);
    return true;
}

}  // namespace platform
