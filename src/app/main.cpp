// The unwarp command.
#include <CLI/CLI.hpp>

#include <iostream>

#include "platform/Environment.h"
#include "platform/Log.h"

int main(int argc, char** argv) {
    CLI::App app{"unwarp: batch resizer for photos, videos and Live Photos"};
    app.set_version_flag("--version", "unwarp " + platform::Environment::appVersion());
    std::string home;
    bool verbose = false;
    app.add_option("--home", home, "Keep all data under DIR instead of the XDG directories");
    app.add_flag("--verbose", verbose, "Copy diagnostic lines to standard error");
    auto* info = app.add_subcommand("info", "Show the version and where data is kept");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    if (!home.empty()) platform::Environment::setHomeRoot(home);
    platform::setLogVerbose(verbose);
    if (info->parsed()) {
        std::cout << "documents: " << platform::Environment::documentsDirectory() << "\n"
                  << "temporary: " << platform::Environment::temporaryDirectory() << "\n"
                  << "settings:  " << platform::Environment::settingsDirectory() << "\n";
    }
    return 0;
}
