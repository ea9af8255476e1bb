// Posting crash reports needs an HTTP client with TLS (cpp-httplib and OpenSSL, some megabytes
// mapped at every start); it lives in the module unwarp-report.so beside the program, loaded
// only when there are reports to send (CrashReportSender.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Error.h"
#include "platform/linux/LoadableModule.h"

namespace platform::report_module {

inline constexpr int kModuleVersion = 1;
inline constexpr const char* kModuleFileName = "unwarp-report.so";
inline constexpr const char* kModuleEntryName = "unwarp_report_module";

struct Post {
    std::string origin;  // scheme://host[:port]
    std::string path;
    std::string reportName;  // sent as X-Unwarp-Report
    const std::uint8_t* body = nullptr;
    std::size_t size = 0;
    long connectSeconds = 0;
    long transferSeconds = 0;
};

struct ModuleApi {
    modules::ModuleHeader header;
    // The HTTP status of the answer, or 0 with the client's words in `why`.
    int (*post)(const Post& post, std::string* why);
};

// The module's table, loaded once per process on the first call; null with the reason.
const ModuleApi* loadModule(ErrorRef* error);

}  // namespace platform::report_module
