#include "support/TestHome.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/Environment.h"

namespace testing_support {

TestHome::TestHome() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/unwarp-test-XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    _root = pattern;
    platform::Environment::setHomeRoot(_root);
}

TestHome::~TestHome() {
    platform::Environment::setHomeRoot(std::nullopt);
    std::error_code ignored;
    std::filesystem::remove_all(_root, ignored);
}

int runCommand(const std::string& command, std::string* output) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        if (output) output->append(buffer, n);
    }
    int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace testing_support
