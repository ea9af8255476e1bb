#include "app/Command.h"

#include <iostream>

namespace app {
namespace {

std::vector<CommandFactory>& factories() {
    static std::vector<CommandFactory> list;
    return list;
}

}  // namespace

bool registerCommand(CommandFactory factory) {
    factories().push_back(factory);
    return true;
}

std::vector<std::unique_ptr<Command>> makeRegisteredCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    for (CommandFactory factory : factories()) commands.push_back(factory());
    return commands;
}

int reportUsageError(const std::string& message) {
    std::cerr << "unwarp: " << message << "\n";
    return kExitUsageError;
}

int reportFailure(const std::string& message) {
    std::cerr << "unwarp: " << message << "\n";
    return kExitProcessingFailure;
}

}  // namespace app
