#include "app/CrashTest.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "app/Command.h"
#include "platform/Dispatch.h"

namespace app {
namespace {

// Read through volatile so that the compiler can neither see the fault nor drop it.
int* volatile gNowhere = nullptr;
volatile int gZero = 0;
volatile int gOne = 1;
volatile std::size_t gDepthLimit = SIZE_MAX;

}  // namespace

// The sanitizers would report these faults as their own findings before the signal comes.
__attribute__((noinline, no_sanitize("undefined"))) void crashTestSegv() {
    *gNowhere = 1;
}

// Reading past the end of a mapped file that has no bytes there.
[[gnu::noinline]] void crashTestBus() {
    const long page = sysconf(_SC_PAGESIZE);
    FILE* file = std::tmpfile();
    if (!file) std::abort();
    void* mapped =
        mmap(nullptr, static_cast<std::size_t>(page), PROT_READ, MAP_SHARED, fileno(file), 0);
    if (mapped == MAP_FAILED) std::abort();
    gZero = *static_cast<volatile char*>(mapped);
}

[[gnu::noinline]] void crashTestIll() {
#if defined(__x86_64__) || defined(__i386__)
    __asm__ volatile("ud2");
#else
    raise(SIGILL);
#endif
}

__attribute__((noinline, no_sanitize("undefined"))) void crashTestFpe() {
#if defined(__x86_64__) || defined(__i386__)
    gZero = gOne / gZero;
#else
    raise(SIGFPE);  // integer division does not trap here
#endif
}

[[gnu::noinline]] void crashTestAbort() {
    std::abort();
}

[[gnu::noinline]] std::size_t crashTestStackFrame(std::size_t depth) {
    volatile char frame[512];
    frame[depth % sizeof frame] = static_cast<char>(depth);
    if (depth >= gDepthLimit) return frame[0];
    return crashTestStackFrame(depth + 1) + frame[depth % sizeof frame];
}

[[gnu::noinline]] void crashTestStack() {
    gZero = static_cast<int>(crashTestStackFrame(0));
}

// The main queue runs a block that never returns.
[[gnu::noinline]] void crashTestHang() {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

int runCrashTest(const std::string& kind) {
    const struct {
        const char* name;
        void (*run)();
    } kinds[] = {{"segv", crashTestSegv}, {"bus", crashTestBus},     {"ill", crashTestIll},
                 {"fpe", crashTestFpe},   {"abort", crashTestAbort}, {"stack", crashTestStack},
                 {"hang", crashTestHang}};
    for (const auto& entry : kinds) {
        if (kind != entry.name) continue;
        if (entry.run == crashTestHang) {
            platform::DispatchQueue::main().async([] { crashTestHang(); });
            platform::MainRunLoop::run();
        } else {
            entry.run();
        }
        return reportFailure("the crash test " + kind + " did not crash");
    }
    return reportUsageError("unknown crash test: " + kind);
}

}  // namespace app
