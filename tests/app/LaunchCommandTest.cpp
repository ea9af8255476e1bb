// `unwarp home` and `unwarp open` as separate processes sharing one home, and the desktop entry.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "app/CommandSupport.h"
#include "platform/UserDefaults.h"
#include "storage/VXHelperState.h"

namespace {

using command_test::unwarp;
using testing_support::namesIn;
using testing_support::touch;

// A running `unwarp home`, read through a pipe; its input is a pipe that ends it when closed.
class FrontEnd {
  public:
    explicit FrontEnd(const testing_support::TestHome& home) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        _pid = fork();
        if (_pid == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            execl(UNWARP_BINARY, UNWARP_BINARY, "--home", home.root().c_str(), "home",
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        _in = in[1];
        _out = out[0];
    }
    ~FrontEnd() {
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
        if (_in >= 0) close(_in);
        if (_out >= 0) close(_out);
    }

    // Reads its output until `text` shows, for at most a minute.
    bool waitFor(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (output.find(text) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            pollfd p{_out, POLLIN, 0};
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return false;
            char buffer[1024];
            const ssize_t n = read(_out, buffer, sizeof buffer);
            if (n <= 0) return false;
            output.append(buffer, static_cast<std::size_t>(n));
        }
        return true;
    }
    // Ends its input and returns its exit code.
    int finish() {
        close(_in);
        _in = -1;
        int status = 0;
        waitpid(_pid, &status, 0);
        _pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void signal(int number) { kill(_pid, number); }
    void killHard() {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
        _pid = -1;
    }

    std::string output;

  private:
    pid_t _pid = -1;
    int _in = -1;
    int _out = -1;
};

std::string afterText(const std::string& text, const std::string& start) {
    const std::size_t at = text.find(start);
    if (at == std::string::npos) return "";
    const std::size_t from = at + start.size();
    return text.substr(from, text.find('\n', from) - from);
}

std::vector<std::string> channelNames(const testing_support::TestHome& home) {
    return namesIn(home.path("tmp/run"));
}

}  // namespace

// A file opened while a front end runs reaches it, and is its own afterwards: it outlives the
// `open` process and goes when the front end ends, with the front end's channel.
TEST(LaunchCommand, FileOpenedWhileFrontEndRunsReachesIt) {
    testing_support::TestHome home;
    FrontEnd frontEnd(home);
    ASSERT_TRUE(frontEnd.waitFor("Ready:")) << frontEnd.output;
    EXPECT_NE(frontEnd.output.find("Launch: launch step 0 (first launch"), std::string::npos)
        << frontEnd.output;
    touch(home.path("in/IMG_1.jpg"));
    touch(home.path("in/clip.mov"));

    const auto opened =
        unwarp(home, "open '" + home.path("in/IMG_1.jpg") + "' '" + home.path("in/clip.mov") + "'");
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_NE(opened.out.find("Opened in the running front end: "), std::string::npos);
    ASSERT_TRUE(frontEnd.waitFor("clip.mov\n")) << frontEnd.output;
    const std::string photo = afterText(frontEnd.output, "External Photo: ");
    const std::string video = afterText(frontEnd.output, "External Video: ");
    EXPECT_EQ(std::filesystem::path(photo).filename(), "IMG_1.jpg");
    EXPECT_EQ(std::filesystem::path(video).filename(), "clip.mov");
    EXPECT_TRUE(std::filesystem::exists(photo)) << photo;
    EXPECT_TRUE(std::filesystem::exists(video)) << video;
    EXPECT_EQ(std::filesystem::path(photo).parent_path().parent_path(),
              home.path("documents/_vrtempimagedir"));

    EXPECT_EQ(frontEnd.finish(), 0);
    EXPECT_FALSE(std::filesystem::exists(photo));
    EXPECT_TRUE(channelNames(home).empty());
    // The terminal took the files without walking the tutorial, which stays due for a front
    // end that has its screens.
    platform::UserDefaults defaults(home.path("config/defaults.plist"));
    EXPECT_FALSE(defaults.objectForKey(VXTutorialCompleteKey).boolValue());
}

// A front end killed with its files and channel left behind: the next `open` finds no one to
// answer, removes the stale channel, and shows the file itself; the start after it leaves the
// temporary folders clean.
TEST(LaunchCommand, StartAfterKillLeavesTemporaryFoldersClean) {
    testing_support::TestHome home;
    touch(home.path("in/IMG_2.jpg"));
    {
        FrontEnd frontEnd(home);
        ASSERT_TRUE(frontEnd.waitFor("Ready:")) << frontEnd.output;
        ASSERT_EQ(unwarp(home, "open '" + home.path("in/IMG_2.jpg") + "'").exitCode, 0);
        ASSERT_TRUE(frontEnd.waitFor("IMG_2.jpg\n")) << frontEnd.output;
        frontEnd.killHard();
    }
    touch(home.path("documents/_vrtempvideodir/IMG_3-vid.mov"));
    ASSERT_FALSE(channelNames(home).empty());
    ASSERT_FALSE(namesIn(home.path("documents/_vrtempimagedir")).empty());

    const auto opened = unwarp(home, "open '" + home.path("in/IMG_2.jpg") + "'");
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_EQ(opened.out.find("running front end"), std::string::npos) << opened.out;
    EXPECT_EQ(std::filesystem::path(afterText(opened.out, "External Photo: ")).filename(),
              "IMG_2.jpg")
        << opened.out;
    EXPECT_TRUE(channelNames(home).empty());
    EXPECT_TRUE(namesIn(home.path("documents/_vrtempimagedir")).empty());
    EXPECT_TRUE(namesIn(home.path("documents/_vrtempvideodir")).empty());
}

// A front end that is stopped doesn't answer: `open` gives up on it after its wait and shows the
// file itself. When the front end continues, it must not take that file too.
TEST(LaunchCommand, StoppedFrontEndDoesNotTakeAFileItsSenderKept) {
    testing_support::TestHome home;
    touch(home.path("in/IMG_5.jpg"));
    touch(home.path("in/IMG_6.jpg"));
    FrontEnd frontEnd(home);
    ASSERT_TRUE(frontEnd.waitFor("Ready:")) << frontEnd.output;
    frontEnd.signal(SIGSTOP);
    const auto kept = unwarp(home, "open '" + home.path("in/IMG_5.jpg") + "'");
    frontEnd.signal(SIGCONT);
    EXPECT_EQ(kept.exitCode, 0) << kept.err;
    EXPECT_NE(kept.out.find("External Photo: "), std::string::npos) << kept.out;
    // The front end answers in order, so once the second file arrived the first was refused.
    ASSERT_EQ(unwarp(home, "open '" + home.path("in/IMG_6.jpg") + "'").exitCode, 0);
    ASSERT_TRUE(frontEnd.waitFor("IMG_6.jpg\n")) << frontEnd.output;
    EXPECT_EQ(frontEnd.output.find("IMG_5.jpg"), std::string::npos) << frontEnd.output;
    EXPECT_EQ(frontEnd.finish(), 0);
}

// Bad input to `open` is refused with a clear error and copies nothing.
TEST(LaunchCommand, OpenRefusesBadInput) {
    struct Case {
        std::string arguments;
        std::string error;
    };
    testing_support::TestHome home;
    touch(home.path("in/IMG_4.jpg"));
    const std::vector<Case> cases = {
        {"open '" + home.path("in/missing.jpg") + "'", "missing.jpg"},
        {"open", "FILE is required"},
        {"open --out x '" + home.path("in/IMG_4.jpg") + "'", "--out needs --template"},
    };
    for (const auto& c : cases) {
        const auto outcome = unwarp(home, c.arguments);
        EXPECT_EQ(outcome.exitCode, 2) << c.arguments;
        EXPECT_NE(outcome.err.find(c.error), std::string::npos) << outcome.err;
        EXPECT_TRUE(namesIn(home.path("documents/_vrtempimagedir")).empty());
    }
}

// The desktop entry is valid as it stands in the repository and once installed for the user,
// where it runs the built binary by its absolute path.
TEST(LaunchCommand, DesktopEntryValidatesAndInstalls) {
    testing_support::TestHome home;
    const std::string source = std::string(UNWARP_SOURCE_DIR) + "/share/unwarp.desktop";
    std::string output;
    EXPECT_EQ(testing_support::runCommand("desktop-file-validate '" + source + "' 2>&1", &output),
              0)
        << output;
    EXPECT_EQ(testing_support::runCommand("XDG_DATA_HOME='" + home.path("data") + "' '" +
                                              UNWARP_SOURCE_DIR + "/scripts/install-desktop' '" +
                                              UNWARP_BINARY + "' 2>&1",
                                          &output),
              0)
        << output;
    const std::string installed = home.path("data/applications/unwarp.desktop");
    EXPECT_EQ(
        testing_support::runCommand("desktop-file-validate '" + installed + "' 2>&1", &output), 0)
        << output;
    std::ifstream in(installed);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    const std::string binary = std::filesystem::canonical(UNWARP_BINARY).string();
    EXPECT_NE(text.find("Exec=\"" + binary + "\" open %F"), std::string::npos) << text;
    EXPECT_NE(text.find("MimeType=image/jpeg;"), std::string::npos) << text;
    EXPECT_TRUE(std::filesystem::exists(home.path("data/applications/mimeinfo.cache")));
}
