// Crash and hang reports. The program installs the reporter first thing at start: a fatal
// signal then writes a report (version, machine, signal, the faulting thread's backtrace, the
// command line) into the crash folder before the process dies, and a watchdog writes a hang
// report with every thread's backtrace when the main queue stalls. At a later start the
// reports are listed and, when a report address is set, posted and removed.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/Error.h"

namespace platform {

class CrashReporter {
  public:
    struct Configuration {
        // The crash folder; created when the first report is written.
        std::string directory;
        std::string version;
        std::vector<std::string> commandLine;
        // How long one main-queue block may run before it counts as a hang.
        std::chrono::milliseconds hangThreshold{10000};
    };

    // Installs the handlers of SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT on an alternate
    // signal stack (so that a stack overflow is reported too) and starts the hang watchdog.
    // Everything a handler writes is prepared here, because a handler may only call
    // async-signal-safe functions. Once per process; later calls are ignored. False with a
    // log line when the handlers could not be installed.
    static bool install(const Configuration& configuration);

    // Gives the calling thread its own alternate signal stack for as long as the object lives,
    // unless the thread has one already. Worker threads hold one so that their stack
    // overflows are reported as well.
    class ThreadSignalStack {
      public:
        ThreadSignalStack();
        ~ThreadSignalStack();
        ThreadSignalStack(const ThreadSignalStack&) = delete;
        ThreadSignalStack& operator=(const ThreadSignalStack&) = delete;

      private:
        void* _memory = nullptr;
    };

    struct PendingReport {
        std::string path;
        // True at exactly one start: the first that lists the report (a marker beside it
        // remembers that it was listed).
        bool newlyListed = false;
    };
    // The finished reports in `directory`, oldest first. With `markListed`, reports not listed
    // before are marked and come back with `newlyListed`; two processes starting at once never
    // both see a report as new.
    static std::vector<PendingReport> pendingReports(const std::string& directory, bool markListed);

    // True for an address reports can be posted to: http:// or https://, a host, an optional
    // port and path.
    static bool isReportURL(const std::string& url);
    // Posts each finished report in `directory` to `url` (the report's text as the body) and
    // removes it after a 2xx answer. The folder is locked while sending, so that two starts
    // never post one report twice. Stops at the first failure, which is returned in `error`;
    // the reports not sent stay. Returns how many were sent.
    static int sendPendingReports(const std::string& directory, const std::string& url,
                                  ErrorRef* error = nullptr);
};

}  // namespace platform
