#include "platform/Log.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace platform {
namespace {

std::atomic<bool> gVerbose{false};
std::mutex gMutex;
LogSink gSink = nullptr;
void* gSinkContext = nullptr;

void openSyslogOnce() {
    static std::once_flag once;
    std::call_once(once, [] { openlog("unwarp", LOG_PID, LOG_USER); });
}

}  // namespace

void log(const std::string& line) {
    std::lock_guard lock(gMutex);
    if (gSink) {
        gSink(line, gSinkContext);
        return;
    }
    openSyslogOnce();
    syslog(LOG_NOTICE, "%s", line.c_str());
    if (gVerbose) {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
}

void logf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line;
    if (n > 0) {
        std::vector<char> buffer(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, args);
        line.assign(buffer.data(), static_cast<std::size_t>(n));
    }
    va_end(args);
    log(line);
}

void setLogVerbose(bool verbose) {
    gVerbose = verbose;
}

void setLogSink(LogSink sink, void* context) {
    std::lock_guard lock(gMutex);
    gSink = sink;
    gSinkContext = context;
}

}  // namespace platform
