// Where the program keeps its data, and the facts about the program and the machine.
// The command sets the home root (--home DIR) before anything reads a location.
#pragma once

#include <optional>
#include <string>

namespace platform {

class Environment {
  public:
    // With a root, every location lives under it: ROOT/documents, ROOT/tmp, ROOT/config.
    // Without one, the XDG base directories are used: $XDG_DATA_HOME/unwarp/documents,
    // $XDG_CACHE_HOME/unwarp/tmp and $XDG_CONFIG_HOME/unwarp, with the usual fallbacks
    // under $HOME. Set it once, before the first location is read.
    static void setHomeRoot(std::optional<std::string> root);
    static std::optional<std::string> homeRoot();

    // The locations, as absolute paths without a trailing slash. They are not created here.
    static std::string documentsDirectory();
    static std::string temporaryDirectory();
    static std::string settingsDirectory();

    // The running program's version ("0.1.0") and the machine name from uname
    // (its "machine" field, e.g. "x86_64").
    static std::string appVersion();
    static std::string machineName();
    // The operating system's name and release from uname ("Linux 6.1.0").
    static std::string systemVersion();
};

}  // namespace platform
