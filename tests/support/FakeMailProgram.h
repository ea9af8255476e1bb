// A stand-in for xdg-email on the PATH: a script that records its argument vector and keeps a
// copy of each file it is asked to attach, then ends with a chosen status. While it lives,
// PATH holds only its folder (an empty folder with `installed` false), so the machine's own
// xdg-email is never reached.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

class FakeMailProgram {
  public:
    // `folder` must exist and belong to the test (a TestHome path).
    FakeMailProgram(const std::string& folder, bool installed = true, int exitStatus = 0,
                    const std::string& words = "")
        : _bin(folder + "/bin"),
          _record(folder + "/mail-arguments"),
          _copies(folder + "/mail-copies") {
        const char* path = std::getenv("PATH");
        if (path) _oldPath = path;
        std::filesystem::create_directories(_bin);
        std::filesystem::create_directories(_copies);
        if (installed) {
            // Arguments are written NUL-separated, so that new lines in them survive.
            std::ofstream(_bin + "/xdg-email")
                << "#!/bin/sh\n"
                << "PATH=/usr/bin:/bin\n"
                << "for a in \"$@\"; do printf '%s\\0' \"$a\" >> '" << _record << "'; done\n"
                << "n=0\n"
                << "while [ $# -gt 0 ]; do\n"
                << "  if [ \"$1\" = --attach ]; then n=$((n+1)); cp \"$2\" '" << _copies
                << "'/$n; shift; fi\n"
                << "  shift\n"
                << "done\n"
                << (words.empty() ? "" : "echo '" + words + "' >&2\n") << "exit " << exitStatus
                << "\n";
            chmod((_bin + "/xdg-email").c_str(), 0755);
        }
        setenv("PATH", _bin.c_str(), 1);
    }
    ~FakeMailProgram() {
        if (_oldPath)
            setenv("PATH", _oldPath->c_str(), 1);
        else
            unsetenv("PATH");
    }
    FakeMailProgram(const FakeMailProgram&) = delete;
    FakeMailProgram& operator=(const FakeMailProgram&) = delete;

    // The arguments of every run, one after the other (the program's own path excluded).
    std::vector<std::string> arguments() const {
        std::ifstream in(_record, std::ios::binary);
        std::vector<std::string> list;
        std::string argument;
        while (std::getline(in, argument, '\0')) list.push_back(argument);
        return list;
    }
    bool ran() const { return std::filesystem::exists(_record); }
    // The value after the first `option` in the arguments; absent without one.
    std::optional<std::string> value(const std::string& option) const {
        const auto list = arguments();
        for (std::size_t i = 0; i + 1 < list.size(); ++i)
            if (list[i] == option) return list[i + 1];
        return std::nullopt;
    }
    // The content of the n-th attached file (from 1) as the program saw it.
    std::optional<std::string> attachment(int n) const {
        std::ifstream in(_copies + "/" + std::to_string(n), std::ios::binary);
        if (!in) return std::nullopt;
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

  private:
    std::string _bin;
    std::string _record;
    std::string _copies;
    std::optional<std::string> _oldPath;
};

}  // namespace testing_support
