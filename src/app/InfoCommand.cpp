// `unwarp info`: the program's name and version, the machine and where data is kept.
#include <iostream>

#include "app/Command.h"
#include "core/CrashReporting.h"
#include "model/VXHelperDevice.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"

namespace {

using platform::Environment;
using platform::FileManager;

// Asking must not create the documents directory, so the free space is read on the nearest
// folder that exists.
std::optional<std::uint64_t> freeSpaceAtOrAbove(std::string path) {
    while (!path.empty() && !FileManager::fileExistsAtPath(path)) {
        std::string parent = FileManager::stringByDeletingLastPathComponent(path);
        if (parent == path) break;
        path = parent;
    }
    return FileManager::freeDiskSpaceAtPath(path.empty() ? "." : path);
}

class InfoCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        return program.add_subcommand("info",
                                      "Show the version, the machine and where data is kept");
    }

    int run() override {
        const auto freeSpace = freeSpaceAtOrAbove(Environment::documentsDirectory());
        std::cout << VXHelper::appFullName() << "\n"
                  << "version:      " << VXHelper::appVersion() << "\n"
                  << "machine:      " << VXHelper::deviceMachineName() << "\n"
                  << "device class: " << VXHelper::deviceClass() << "\n"
                  << "documents:    " << Environment::documentsDirectory() << "\n"
                  << "temporary:    " << Environment::temporaryDirectory() << "\n"
                  << "settings:     " << Environment::settingsDirectory() << "\n"
                  << "free space:   "
                  << (freeSpace ? std::to_string(*freeSpace) + " bytes" : std::string("unknown"))
                  << "\n";
        // Reports of earlier runs that were not sent (see crashReportURL).
        const auto reports = CrashReporting::pendingReports();
        std::cout << "crash reports: "
                  << (reports.empty() ? "none" : CrashReporting::reportsDirectory()) << "\n";
        for (const auto& path : reports) std::cout << "  " << path << "\n";
        return app::kExitSuccess;
    }
};

}  // namespace

UNWARP_REGISTER_COMMAND(InfoCommand)
