// A hidden test hook of the program (`unwarp --crash-test KIND`): makes the process crash or
// hang on purpose, so that the tests can check the reports that the crash reporter leaves.
#pragma once

#include <cstddef>
#include <string>

namespace app {

// The kinds: segv, bus, ill, fpe, abort, stack (a stack overflow), hang (a main-queue block
// that never ends). Returns only for an unknown kind, with the usage error's exit code.
int runCrashTest(const std::string& kind);

// Each does what its name says; external names, so that the report's backtrace names them.
void crashTestSegv();
void crashTestBus();
void crashTestIll();
void crashTestFpe();
void crashTestAbort();
void crashTestStack();
std::size_t crashTestStackFrame(std::size_t depth);
void crashTestHang();

}  // namespace app
