// The one diagnostic channel. Library code writes nothing else: lines go to the system log
// (syslog) and, when verbose output is on, to standard error. There are no levels; the
// program's own lines start with "~~ ".
#pragma once

#include <string>

namespace platform {

void log(const std::string& line);
// printf-style; "%@"-style objects are formatted by the caller into strings first.
void logf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Verbose mode copies every line to standard error (the command's --verbose).
void setLogVerbose(bool verbose);

// Tests capture lines here; null restores the default sinks.
using LogSink = void (*)(const std::string& line, void* context);
void setLogSink(LogSink sink, void* context);

}  // namespace platform
