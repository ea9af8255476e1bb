// `unwarp open FILE...`: files opened from outside, as a file manager's "Open with" hands them
// on. Each is copied into "_vrtempimagedir" and handed to the running front end; with none,
// this command is the front end: it tells each item and, with --template, processes them all as
// `unwarp process` does.
#include <algorithm>
#include <iostream>

#include "app/Command.h"
#include "app/TerminalHome.h"
#include "core/AppDelegate.h"
#include "core/VRLaunchChannel.h"
#include "core/VRLaunchManager.h"
#include "storage/VRFileStorage.h"

namespace {

// Runs a registered command by its command line, as if given after `unwarp`, so that the
// command's own code path does the work.
int runRegisteredCommand(std::vector<std::string> arguments) {
    CLI::App program{"unwarp", "unwarp"};
    auto commands = app::makeRegisteredCommands();
    std::vector<std::pair<CLI::App*, app::Command*>> parsers;
    for (auto& command : commands) parsers.emplace_back(command->setup(program), command.get());
    std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them last first
    try {
        program.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return app::reportUsageError(error.what());
    }
    for (auto& [parser, command] : parsers)
        if (parser->parsed()) return command->run();
    return app::reportUsageError("no command given");
}

class OpenCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "open", "Open files in the running front end (`unwarp home`), or here");
        command
            ->add_option("--template", _key,
                         "With no front end running, process the files with this template")
            ->option_text("KEY");
        command->add_option("--out", _out, "Folder for the results of --template")
            ->option_text("DIR");
        command->add_option("FILE", _files, "Photos and videos")
            ->required()
            ->check(CLI::ExistingFile);
        return command;
    }

    int run() override {
        if (_out && !_key) return app::reportUsageError("--out needs --template");
        VRLaunchManager& manager = VRLaunchManager::defaultManager();
        std::vector<std::string> unanswered;
        for (const auto& file : _files) {
            const std::string handed = AppDelegate::shared().openURL(file);
            if (VRLaunchChannel::sendToRunningFrontEnd(handed)) {
                std::cout << "Opened in the running front end: " << handed << std::endl;
            } else {
                unanswered.push_back(handed);
            }
            manager.setExternalURL(std::nullopt);
        }
        const int code = unanswered.empty() ? app::kExitSuccess : present(unanswered);
        VRFileStorage::removeOwnTemporaries();
        return code;
    }

  private:
    int present(const std::vector<std::string>& paths) {
        auto home = app::presentTerminalHome(std::cout);
        for (const auto& path : paths) home->offer(path);
        if (!_key || home->delivered().empty()) return app::kExitSuccess;
        std::vector<std::string> arguments = {"process", "--template", *_key};
        if (_out) arguments.insert(arguments.end(), {"--out", *_out});
        arguments.insert(arguments.end(), home->delivered().begin(), home->delivered().end());
        return runRegisteredCommand(std::move(arguments));
    }

    std::optional<std::string> _key;
    std::optional<std::string> _out;
    std::vector<std::string> _files;
};

}  // namespace

UNWARP_REGISTER_COMMAND(OpenCommand)
