#include "support/TestHome.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(folder, ec))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void touch(const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    std::ofstream(path) << "x";
}

}  // namespace testing_support
