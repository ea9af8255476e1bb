// The unwarp command: global options, then one registered subcommand.
#include <CLI/CLI.hpp>

#include <exception>
#include <filesystem>
#include <iostream>

#include "app/Command.h"
#include "core/ApplicationStart.h"
#include "platform/Environment.h"
#include "platform/Log.h"

namespace {

struct GlobalOptions {
    std::optional<std::string> home;
    bool verbose = false;
};

// A relative --home is taken from the working directory, since every location must be absolute.
bool applyGlobalOptions(const GlobalOptions& options, std::string* problem) {
    if (options.home) {
        if (options.home->empty()) {
            *problem = "--home needs a directory";
            return false;
        }
        std::error_code code;
        auto absolute = std::filesystem::absolute(*options.home, code);
        if (code) {
            *problem = "--home " + *options.home + ": " + code.message();
            return false;
        }
        platform::Environment::setHomeRoot(absolute.lexically_normal().string());
    }
    platform::setLogVerbose(options.verbose);
    return true;
}

int runProgram(int argc, char** argv) {
    CLI::App program{"unwarp: batch resizer for photos, videos and Live Photos", "unwarp"};
    program.set_version_flag("--version", "unwarp " + platform::Environment::appVersion());
    GlobalOptions options;
    program
        .add_option("--home", options.home,
                    "Keep all data under DIR instead of the XDG directories")
        ->option_text("DIR");
    program.add_flag("--verbose", options.verbose, "Copy diagnostic lines to standard error");

    auto commands = app::makeRegisteredCommands();
    std::vector<std::pair<CLI::App*, app::Command*>> parsers;
    for (auto& command : commands) parsers.emplace_back(command->setup(program), command.get());

    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return program.exit(error);  // --help, --version
        return app::reportUsageError(std::string(error.what()) + " (see unwarp --help)");
    }
    std::string problem;
    if (!applyGlobalOptions(options, &problem)) return app::reportUsageError(problem);
    ApplicationStart::prepareUnarchiver();
    ApplicationStart::removeTemporaryFiles();
    for (auto& [parser, command] : parsers) {
        if (parser->parsed()) return command->run();
    }
    return app::reportUsageError("no command given (see unwarp --help)");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& error) {
        return app::reportFailure(error.what());
    } catch (...) {
        return app::reportFailure("unexpected failure");
    }
}
