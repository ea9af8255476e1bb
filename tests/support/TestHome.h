// A scratch home root for one test: every data location of the program lives under a fresh
// temporary directory that is removed afterwards.
#pragma once

#include <string>
#include <vector>

namespace testing_support {

class TestHome {
  public:
    TestHome();
    ~TestHome();
    TestHome(const TestHome&) = delete;
    TestHome& operator=(const TestHome&) = delete;

    const std::string& root() const { return _root; }
    // A path under the root.
    std::string path(const std::string& relative) const { return _root + "/" + relative; }

  private:
    std::string _root;
};

// Runs a command through the shell; returns its exit status and fills `output` with what it
// printed on standard output.
int runCommand(const std::string& command, std::string* output = nullptr);

// The names in a folder, sorted; none when it does not exist.
std::vector<std::string> namesIn(const std::string& folder);

// Makes a small file at `path`, with its folders.
void touch(const std::string& path);

}  // namespace testing_support
