#include "platform/linux/LoadableModule.h"

#include <dlfcn.h>
#include <unistd.h>

#include "platform/AVError.h"
#include "platform/Log.h"

namespace platform::modules {

std::string programFolder() {
    std::string buffer(4096, '\0');
    const ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= buffer.size()) return ".";
    buffer.resize(static_cast<std::size_t>(n));
    const auto slash = buffer.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : buffer.substr(0, slash);
}

const void* openModule(const std::string& fileName, const char* entryName,
                       const ModuleHeader& expected, const std::string& what, ErrorRef* error) {
    const std::string path = programFolder() + "/" + fileName;
    auto fail = [&](const std::string& why) -> const void* {
        if (error) *error = avError(AVErrorUnknown, what + " cannot be handled here: " + why);
        return nullptr;
    };
    // Symbols resolved now, so that a module built against another program fails here with
    // the missing name instead of at some later call.
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = ::dlerror();
        return fail(why ? why : path + " could not be loaded");
    }
    using Entry = const ModuleHeader* (*)();
    auto entry = reinterpret_cast<Entry>(::dlsym(handle, entryName));
    const ModuleHeader* table = entry ? entry() : nullptr;
    // Left loaded when refused: unloading code whose initialisers have run is not worth the
    // risk.
    if (!table || table->version != expected.version || table->size != expected.size)
        return fail(path + " belongs to another build of unwarp");
    log("~~ loaded " + path);
    return table;
}

}  // namespace platform::modules
