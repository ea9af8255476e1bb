// Loading a part of the program that lives in its own file beside the program (unwarp-media.so,
// unwarp-report.so), so that the libraries behind it are mapped only when it is first needed.
// Each module exports one function that returns its table of entry points; the table starts
// with a ModuleHeader, checked against the program's own, so that a module left from another
// build is refused instead of called.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/Error.h"

namespace platform::modules {

struct ModuleHeader {
    int version;
    std::size_t size;
};

// The folder of the running program (from /proc/self/exe), where its modules lie.
std::string programFolder();

// Opens `fileName` in the program's folder and returns the table its `entryName` function
// gives, or null with the reason (AVFoundationErrorDomain, AVErrorUnknown, `what` "cannot be
// handled here", and the loader's words naming the file). Not cached: callers keep the answer.
const void* openModule(const std::string& fileName, const char* entryName,
                       const ModuleHeader& expected, const std::string& what, ErrorRef* error);

// Opens the module whose table is `Api` once per program, from whichever thread asks first;
// later calls give the same answer. `onMissing` runs once, with the reason, when it can't be had.
template <class Api>
const Api* openModuleOnce(const std::string& fileName, const char* entryName, int version,
                          const std::string& what, ErrorRef* error,
                          const std::function<void(const ErrorRef&)>& onMissing = {}) {
    struct Loaded {
        const Api* api = nullptr;
        ErrorRef error;
    };
    static const Loaded loaded = [&] {
        Loaded result;
        // The header is the table's first member.
        result.api = static_cast<const Api*>(
            openModule(fileName, entryName, {version, sizeof(Api)}, what, &result.error));
        if (!result.api && onMissing) onMissing(result.error);
        return result;
    }();
    if (!loaded.api && error) *error = loaded.error;
    return loaded.api;
}

}  // namespace platform::modules
