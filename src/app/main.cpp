// The unwarp command: global options, then one registered subcommand.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>

#include "app/Command.h"
#include "app/CrashTest.h"
#include "core/AppDelegate.h"
#include "core/CrashReporting.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"

namespace {

struct GlobalOptions {
    std::optional<std::string> home;
    bool verbose = false;
    // Test hooks, left out of the help: crash or hang on purpose, and a shorter hang threshold.
    std::optional<std::string> crashTest;
    std::optional<double> hangSeconds;
};

void addTestHooks(CLI::App& program, GlobalOptions& options) {
    program.add_option("--crash-test", options.crashTest)->group("");
    program.add_option("--hang-seconds", options.hangSeconds)
        ->group("")
        ->check(CLI::Range(0.05, 3600.0));
}

std::chrono::milliseconds hangThreshold(const GlobalOptions& options) {
    if (!options.hangSeconds) return CrashReporting::kHangThreshold;
    return std::chrono::milliseconds(static_cast<std::int64_t>(*options.hangSeconds * 1000));
}

// Each report of an earlier run is told at one start only; `info` lists all that are kept.
void announceEarlierReports() {
    const auto reports = CrashReporting::handleEarlierReports();
    bool kept = false;
    for (const auto& path : reports.newlyListed) {
        const bool hang = platform::FileManager::lastPathComponent(path).rfind("hang-", 0) == 0;
        const bool pending = std::find(reports.pending.begin(), reports.pending.end(), path) !=
                             reports.pending.end();
        kept = kept || pending;
        std::cerr << "unwarp: an earlier run " << (hang ? "hung" : "crashed") << "; its report "
                  << (pending ? "is kept in " : "was sent: ") << path << "\n";
    }
    if (kept && !reports.hasReportURL)
        std::cerr << "unwarp: `unwarp settings set crashReportURL URL` sends such reports\n";
}

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
    addTestHooks(program, options);

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
    CrashReporting::start(std::vector<std::string>(argv, argv + argc), hangThreshold(options));
    if (options.crashTest) return app::runCrashTest(*options.crashTest);
    announceEarlierReports();
    // A file being opened has its copy in the temporary images, which the start must keep.
    const bool openingFile = std::any_of(parsers.begin(), parsers.end(), [](const auto& entry) {
        return entry.first->parsed() && entry.first->get_name() == "open";
    });
    AppDelegate::shared().didFinishLaunchingWithOptions({openingFile});
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
