// The subcommands of the `unwarp` program. Each lives in its own file and registers itself
// with UNWARP_REGISTER_COMMAND; main() adds them all to the command line and runs the one given.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace app {

enum ExitCode : int {
    kExitSuccess = 0,
    kExitProcessingFailure = 1,
    kExitUsageError = 2,
};

class Command {
  public:
    virtual ~Command() = default;
    // Adds the subcommand and its options to `program`, keeping what it needs to run.
    virtual CLI::App* setup(CLI::App& program) = 0;
    // Runs after the command line is parsed and the global options took effect. Exceptions
    // are caught by main() and reported as a processing failure.
    virtual int run() = 0;
};

using CommandFactory = std::unique_ptr<Command> (*)();

// Called from static initialisers; the order of registration is the order of the help text.
bool registerCommand(CommandFactory factory);
std::vector<std::unique_ptr<Command>> makeRegisteredCommands();

// One line on standard error, "unwarp: <message>", and the exit code to return.
int reportUsageError(const std::string& message);
int reportFailure(const std::string& message);

}  // namespace app

#define UNWARP_REGISTER_COMMAND(Type)                                                  \
    namespace {                                                                        \
    [[maybe_unused]] const bool kRegistered##Type = ::app::registerCommand(            \
        []() -> std::unique_ptr<::app::Command> { return std::make_unique<Type>(); }); \
    }
