// `unwarp serve` in the everyday program: the web server and its HTTP library (with OpenSSL)
// live in `unwarp-serve` beside this program, so that every other command starts without them.
// The command line is handed over unchanged, in the same process, so a caller that waits for
// the address line or signals the process sees no difference.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "app/Command.h"

namespace {

// The arguments this process was started with, as the kernel keeps them.
std::vector<std::string> startArguments() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::vector<std::string> arguments;
    std::size_t begin = 0;
    while (begin < all.size()) {
        const std::size_t end = all.find('\0', begin);
        arguments.push_back(all.substr(begin, end - begin));
        if (end == std::string::npos) break;
        begin = end + 1;
    }
    return arguments;
}

std::string programFolder() {
    std::vector<char> path(4096);
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length <= 0) return ".";
    std::string program(path.data(), static_cast<std::size_t>(length));
    const auto slash = program.rfind('/');
    return slash == std::string::npos ? "." : program.substr(0, slash);
}

class ServeLauncher : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "serve",
            "Serve the screens as a local web application and print its address "
            "(`unwarp serve --help` lists its options)");
        // Everything after `serve`, --help included, belongs to the server's own parser.
        command->prefix_command();
        command->set_help_flag();
        return command;
    }

    int run() override {
        const std::string server = programFolder() + "/unwarp-serve";
        std::vector<std::string> arguments = startArguments();
        if (arguments.empty()) return app::reportFailure("the command line cannot be read");
        arguments.front() = server;
        std::vector<char*> argv;
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        execv(server.c_str(), argv.data());
        return app::reportFailure("the web server " + server +
                                  " cannot be started: " + std::strerror(errno));
    }
};

}  // namespace

UNWARP_REGISTER_COMMAND(ServeLauncher)
