#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/MailComposer.h"

extern char** environ;

namespace platform {
namespace {

constexpr const char* kMailProgram = "xdg-email";
// The end of what the mail program printed that goes into an error's description.
constexpr std::size_t kMaxWordsKept = 1024;

bool isExecutableFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

// A file that the mail program's output goes to: a pipe would keep us waiting for a mail client
// that the program leaves running with the pipe as its output. It has no name, so nothing is
// left behind.
int anonymousOutputFile() {
    const std::string folder = std::filesystem::temp_directory_path().string();
    int fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) return fd;
    std::string pattern = folder + "/unwarp-mail-XXXXXX";
    fd = mkostemp(pattern.data(), O_CLOEXEC);
    if (fd >= 0) unlink(pattern.c_str());
    return fd;
}

// The last kMaxWordsKept bytes written to `fd`, trimmed of white space.
std::string lastWords(int fd) {
    const off_t size = lseek(fd, 0, SEEK_END);
    if (size <= 0) return {};
    const off_t start = std::max<off_t>(0, size - static_cast<off_t>(kMaxWordsKept));
    std::string text(static_cast<std::size_t>(size - start), '\0');
    const ssize_t got = pread(fd, text.data(), text.size(), start);
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    const auto notSpace = [](unsigned char c) { return !std::isspace(c); };
    text.erase(text.begin(), std::find_if(text.begin(), text.end(), notSpace));
    text.erase(std::find_if(text.rbegin(), text.rend(), notSpace).base(), text.end());
    return text;
}

std::vector<std::string> argumentsFor(const std::string& program, const MailMessage& message) {
    std::vector<std::string> arguments{program, "--utf8"};
    if (!message.subject.empty()) arguments.insert(arguments.end(), {"--subject", message.subject});
    if (!message.body.empty()) arguments.insert(arguments.end(), {"--body", message.body});
    for (const std::string& file : message.attachments)
        arguments.insert(arguments.end(), {"--attach", file});
    arguments.insert(arguments.end(), message.recipients.begin(), message.recipients.end());
    return arguments;
}

ErrorRef sendFailed(const std::string& description, std::optional<int> exitStatus) {
    PlistDictionary info{{NSLocalizedDescriptionKey, description}};
    if (exitStatus) info[MFMailComposeExitStatusKey] = static_cast<std::int64_t>(*exitStatus);
    return Error::errorWithDomain(MFMailComposeErrorDomain, MFMailComposeErrorCodeSendFailed,
                                  std::move(info));
}

// Starts the program with stdin from /dev/null and its output into `outputFd`.
ErrorRef spawn(const std::string& program, std::vector<std::string> arguments, int outputFd,
               pid_t* pid) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, outputFd, STDERR_FILENO);
    const int failed = posix_spawn(pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? Error::posixError(failed, "posix_spawn", program) : nullptr;
}

}  // namespace

std::optional<std::string> MailComposer::mailProgramPath() {
    const char* path = std::getenv("PATH");
    if (!path) return std::nullopt;
    const std::string folders = path;
    for (std::size_t start = 0; start <= folders.size();) {
        std::size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        // An empty entry would mean the current folder: never taken.
        if (end > start) {
            std::string candidate = folders.substr(start, end - start) + "/" + kMailProgram;
            if (isExecutableFile(candidate)) return candidate;
        }
        start = end + 1;
    }
    return std::nullopt;
}

bool MailComposer::canSendMail() {
    return mailProgramPath().has_value();
}

ErrorRef MailComposer::composeMail(const MailMessage& message) {
    for (const std::string& recipient : message.recipients) {
        if (recipient.empty() || recipient.front() == '-')
            return Error::posixError(EINVAL, "mail recipient \"" + recipient + "\"");
    }
    const std::optional<std::string> program = mailProgramPath();
    if (!program) return sendFailed("xdg-email is not on the PATH (package xdg-utils)", {});
    const int output = anonymousOutputFile();
    if (output < 0) return Error::posixError(errno, "mail program output");
    pid_t pid = 0;
    if (ErrorRef error = spawn(*program, argumentsFor(*program, message), output, &pid)) {
        close(output);
        return error;
    }
    int status = 0;
    pid_t waited = 0;
    while ((waited = waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
    }
    const int waitError = errno;
    const std::string words = lastWords(output);
    close(output);
    if (waited < 0) return Error::posixError(waitError, "waitpid", *program);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return nullptr;
    std::string description = "xdg-email ";
    std::optional<int> exitStatus;
    if (WIFEXITED(status)) {
        exitStatus = WEXITSTATUS(status);
        description += "ended with status " + std::to_string(*exitStatus);
    } else {
        description += "was stopped by signal " + std::to_string(WTERMSIG(status));
    }
    if (!words.empty()) description += ": " + words;
    return sendFailed(description, exitStatus);
}

}  // namespace platform
