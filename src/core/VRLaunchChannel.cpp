#include "core/VRLaunchChannel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRFileStorage.h"

using platform::FileManager;

namespace {

constexpr const char* kNamePrefix = "frontend-";
constexpr const char* kOwnerFolderPrefix = "_vrowner-";
constexpr const char* kAcknowledgement = "ok\n";
// A path is one line; longer messages are refused.
constexpr std::size_t kMaxMessage = 4096;
// How long either side waits for the other before giving up on that connection.
constexpr int kAnswerTimeoutMilliseconds = 5000;

std::string tagOfName(const std::string& name) {
    return name.substr(std::strlen(kNamePrefix));
}

bool isRunning(const std::string& tag) {
    return VRFileStorage::isTemporaryOfRunningProcess(kOwnerFolderPrefix + tag);
}

bool fillAddress(const std::string& path, sockaddr_un* address) {
    std::memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) return false;
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

void setTimeouts(int fd) {
    timeval timeout{kAnswerTimeoutMilliseconds / 1000, (kAnswerTimeoutMilliseconds % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// One line without its end; nothing when the peer stops early or sends too much.
std::optional<std::string> readLine(int fd) {
    std::string line;
    char buffer[512];
    while (line.size() <= kMaxMessage) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return std::nullopt;
        line.append(buffer, static_cast<std::size_t>(n));
        const std::size_t end = line.find('\n');
        if (end != std::string::npos) return line.substr(0, end);
    }
    return std::nullopt;
}

std::optional<std::string> socketPathNamedBy(const std::string& namePath) {
    auto data = FileManager::contentsAtPath(namePath);
    if (!data) return std::nullopt;
    std::string text(data->begin(), data->end());
    const std::size_t end = text.find('\n');
    if (end == std::string::npos || end == 0) return std::nullopt;
    return text.substr(0, end);
}

struct Candidate {
    std::string namePath;
    std::string socketPath;
    std::int64_t modified;
};

std::vector<Candidate> runningFrontEnds() {
    VRLaunchChannel::removeStaleChannels();
    const std::string folder = VRLaunchChannel::runtimeDirectory();
    std::vector<Candidate> found;
    for (const auto& name :
         FileManager::contentsOfDirectoryAtPath(folder).value_or(std::vector<std::string>{})) {
        if (name.rfind(kNamePrefix, 0) != 0) continue;
        const std::string namePath = FileManager::stringByAppendingPathComponent(folder, name);
        auto socketPath = socketPathNamedBy(namePath);
        struct stat st {};
        if (!socketPath || ::stat(namePath.c_str(), &st) != 0) continue;
        found.push_back(
            {namePath, *socketPath,
             static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec});
    }
    std::sort(found.begin(), found.end(),
              [](const Candidate& a, const Candidate& b) { return a.modified > b.modified; });
    return found;
}

bool sendTo(const std::string& socketPath, const std::string& path) {
    sockaddr_un address;
    if (!fillAddress(socketPath, &address)) return false;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    setTimeouts(fd);
    const bool answered =
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        writeAll(fd, path + "\n") && readLine(fd) == std::string(kAcknowledgement, 2);
    ::close(fd);
    return answered;
}

}  // namespace

struct VRLaunchChannel::Listener {
    Receiver receiver;
    std::string namePath;
    std::string socketPath;
    int socketFd = -1;
    int wakeRead = -1;
    int wakeWrite = -1;
    std::thread thread;

    ~Listener() {
        for (int fd : {socketFd, wakeRead, wakeWrite})
            if (fd >= 0) ::close(fd);
    }

    void serve() {
        for (;;) {
            pollfd fds[2] = {{socketFd, POLLIN, 0}, {wakeRead, POLLIN, 0}};
            if (::poll(fds, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return;
            }
            if (fds[1].revents != 0) return;
            const int client = ::accept4(socketFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) continue;
            setTimeouts(client);
            answer(client);
            ::close(client);
        }
    }

    // The file is taken over before the answer, since the sender's copy goes when it ends. A
    // sender that stopped waiting (this process was stopped meanwhile) uses the file itself, so
    // it gets it back and nothing is delivered.
    void answer(int client) {
        auto line = readLine(client);
        if (!line || line->empty() || (*line)[0] != '/') return;
        const std::string path = VRLaunchChannel::_adoptExternalFile(*line);
        if (!writeAll(client, kAcknowledgement)) {
            if (path != *line && std::rename(path.c_str(), line->c_str()) != 0)
                platform::logf("~~ Unable to give back the external file %s", line->c_str());
            return;
        }
        platform::DispatchQueue::main().async([receiver = receiver, path] { receiver(path); });
    }
};

VRLaunchChannel::VRLaunchChannel(std::shared_ptr<Listener> listener)
    : _listener(std::move(listener)) {}

std::unique_ptr<VRLaunchChannel> VRLaunchChannel::publish(Receiver receiverOnMainThread,
                                                          std::string* problem) {
    removeStaleChannels();
    const std::string folder = runtimeDirectory();
    if (!FileManager::createDirectoryAtPath(folder, true)) {
        *problem = "cannot make the runtime folder " + folder;
        return nullptr;
    }
    ::chmod(folder.c_str(), 0700);
    const std::string tag = VRFileStorage::temporaryOwnerTag();
    auto listener = std::make_shared<Listener>();
    listener->receiver = std::move(receiverOnMainThread);
    listener->socketPath = FileManager::stringByAppendingPathComponent(folder, tag + ".sock");
    listener->namePath = FileManager::stringByAppendingPathComponent(folder, kNamePrefix + tag);
    sockaddr_un address;
    if (!fillAddress(listener->socketPath, &address)) {
        *problem = "the runtime folder's path is too long for a socket: " + folder;
        return nullptr;
    }
    int wake[2];
    listener->socketFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener->socketFd < 0 || ::pipe2(wake, O_CLOEXEC) != 0 ||
        ::bind(listener->socketFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0 ||
        ::listen(listener->socketFd, 16) != 0) {
        *problem = "cannot listen on " + listener->socketPath + ": " + std::strerror(errno);
        ::unlink(listener->socketPath.c_str());
        return nullptr;
    }
    listener->wakeRead = wake[0];
    listener->wakeWrite = wake[1];
    const std::string text = listener->socketPath + "\n";
    if (!FileManager::writeDataAtomically(platform::PlistData(text.begin(), text.end()),
                                          listener->namePath)) {
        *problem = "cannot write " + listener->namePath;
        ::unlink(listener->socketPath.c_str());
        return nullptr;
    }
    listener->thread = std::thread([raw = listener.get()] { raw->serve(); });
    return std::unique_ptr<VRLaunchChannel>(new VRLaunchChannel(std::move(listener)));
}

VRLaunchChannel::~VRLaunchChannel() {
    // The names go first, so that no sender picks a channel that is closing.
    ::unlink(_listener->namePath.c_str());
    const char byte = 'Q';
    if (::write(_listener->wakeWrite, &byte, 1) < 0) {
        // The listener then stops at its next poll error; nothing more to do.
    }
    if (_listener->thread.joinable()) _listener->thread.join();
    ::unlink(_listener->socketPath.c_str());
}

bool VRLaunchChannel::sendToRunningFrontEnd(const std::string& path) {
    if (path.find('\n') != std::string::npos || path.size() > kMaxMessage) return false;
    for (const auto& candidate : runningFrontEnds()) {
        if (sendTo(candidate.socketPath, path)) return true;
        platform::log("~~ The front end of " + candidate.namePath + " did not answer");
    }
    return false;
}

std::string VRLaunchChannel::runtimeDirectory() {
    if (!platform::Environment::homeRoot()) {
        const char* runtime = std::getenv("XDG_RUNTIME_DIR");
        if (runtime && runtime[0] == '/')
            return FileManager::stringByAppendingPathComponent(runtime, "unwarp");
    }
    return FileManager::stringByAppendingPathComponent(platform::Environment::temporaryDirectory(),
                                                       "run");
}

int VRLaunchChannel::removeStaleChannels() {
    const std::string folder = runtimeDirectory();
    int removed = 0;
    for (const auto& name :
         FileManager::contentsOfDirectoryAtPath(folder).value_or(std::vector<std::string>{})) {
        if (name.rfind(kNamePrefix, 0) != 0 || isRunning(tagOfName(name))) continue;
        const std::string namePath = FileManager::stringByAppendingPathComponent(folder, name);
        // Only the socket of its own name in this folder: the name file is not trusted further.
        const std::string socketPath =
            FileManager::stringByAppendingPathComponent(folder, tagOfName(name) + ".sock");
        ::unlink(socketPath.c_str());
        ::unlink(namePath.c_str());
        platform::log("~~ Removed the channel of an ended front end " + namePath);
        ++removed;
    }
    return removed;
}

std::string VRLaunchChannel::_adoptExternalFile(const std::string& path) {
    const std::string images = VRFileStorage::temporaryImageDirectory();
    const std::string folder = FileManager::stringByDeletingLastPathComponent(path);
    const std::string name = FileManager::lastPathComponent(path);
    if (FileManager::stringByDeletingLastPathComponent(folder) != images ||
        !VRFileStorage::isOwnerFolderName(FileManager::lastPathComponent(folder)) || name.empty() ||
        name == "." || name == "..")
        return path;
    const std::string own = VRFileStorage::ownTemporaryFolder(images);
    if (own == folder) return path;
    const std::string target = FileManager::stringByAppendingPathComponent(own, name);
    // Replaces only an earlier file of this process of the same name.
    if (std::rename(path.c_str(), target.c_str()) != 0) {
        platform::logf("~~ Unable to take over the external file %s: %s", path.c_str(),
                       std::strerror(errno));
        return path;
    }
    return target;
}
