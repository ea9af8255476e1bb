// The reports left by earlier runs: listing them (with a marker beside each that was listed),
// and posting them to the report address under a lock on the crash folder.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "platform/CrashReporter.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/linux/ReportModule.h"

namespace platform {
namespace {

// A report is at most this large; a bigger file is not something the reporter wrote.
constexpr std::size_t kMaxReportBytes = 4 * 1024 * 1024;
constexpr time_t kConnectSeconds = 5;
constexpr time_t kTransferSeconds = 15;

bool isReportName(const std::string& name) {
    const bool known = name.rfind("crash-", 0) == 0 || name.rfind("hang-", 0) == 0;
    return known && name.size() > 4 && name.compare(name.size() - 4, 4, ".txt") == 0;
}

std::string markerPath(const std::string& directory, const std::string& name) {
    return directory + "/." + name + ".listed";
}

std::vector<std::string> reportNames(const std::string& directory) {
    std::vector<std::string> names;
    auto entries = FileManager::contentsOfDirectoryAtPath(directory);
    if (!entries) return names;
    for (auto& name : *entries) {
        if (isReportName(name)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Whoever creates the marker first announces the report.
bool claimListing(const std::string& directory, const std::string& name) {
    int fd =
        open(markerPath(directory, name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

struct ReportAddress {
    std::string origin;  // scheme://host[:port]
    std::string path;
};

std::optional<ReportAddress> parseAddress(const std::string& url) {
    std::size_t schemeEnd = url.find("://");
    if (schemeEnd == std::string::npos) return std::nullopt;
    const std::string scheme = url.substr(0, schemeEnd);
    if (scheme != "http" && scheme != "https") return std::nullopt;
    const std::size_t hostStart = schemeEnd + 3;
    std::size_t pathStart = url.find('/', hostStart);
    if (pathStart == std::string::npos) pathStart = url.size();
    const std::string authority = url.substr(hostStart, pathStart - hostStart);
    if (authority.empty() || authority.find_first_of(" @?#\t\r\n") != std::string::npos)
        return std::nullopt;
    std::string host = authority;
    if (std::size_t colon = authority.rfind(':');
        colon != std::string::npos && authority.find(']') == std::string::npos) {
        const std::string port = authority.substr(colon + 1);
        if (port.empty() || port.size() > 5 ||
            port.find_first_not_of("0123456789") != std::string::npos || std::stoi(port) == 0 ||
            std::stoi(port) > 65535)
            return std::nullopt;
        host = authority.substr(0, colon);
    }
    if (host.empty()) return std::nullopt;
    std::string path = pathStart < url.size() ? url.substr(pathStart) : "/";
    if (path.find_first_of(" \t\r\n") != std::string::npos) return std::nullopt;
    return ReportAddress{scheme + "://" + authority, path};
}

// flock on the folder itself: released when the descriptor closes, also when a sender dies.
class FolderLock {
  public:
    explicit FolderLock(const std::string& directory)
        : _fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (_fd >= 0 && flock(_fd, LOCK_EX) != 0) {
            close(_fd);
            _fd = -1;
        }
    }
    ~FolderLock() {
        if (_fd >= 0) close(_fd);
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    bool held() const { return _fd >= 0; }

  private:
    int _fd;
};

ErrorRef sendError(const std::string& description, const std::string& path) {
    return Error::errorWithDomain(NSCocoaErrorDomain, NSFileWriteUnknownError,
                                  {{NSLocalizedDescriptionKey, PlistValue(description)},
                                   {NSFilePathErrorKey, PlistValue(path)}});
}

}  // namespace

namespace report_module {

const ModuleApi* loadModule(ErrorRef* error) {
    return modules::openModuleOnce<ModuleApi>(kModuleFileName, kModuleEntryName, kModuleVersion,
                                              "Crash reports", error);
}

}  // namespace report_module

std::vector<CrashReporter::PendingReport> CrashReporter::pendingReports(
    const std::string& directory, bool markListed) {
    std::vector<PendingReport> reports;
    const auto names = reportNames(directory);
    for (const auto& name : names) {
        PendingReport report{directory + "/" + name, false};
        if (markListed) report.newlyListed = claimListing(directory, name);
        reports.push_back(std::move(report));
    }
    // Markers whose report was sent or removed.
    if (auto entries = FileManager::contentsOfDirectoryAtPath(directory)) {
        for (const auto& entry : *entries) {
            const std::string suffix = ".listed";
            if (entry.size() <= suffix.size() + 1 || entry[0] != '.' ||
                entry.compare(entry.size() - suffix.size(), suffix.size(), suffix) != 0)
                continue;
            const std::string name = entry.substr(1, entry.size() - suffix.size() - 1);
            if (!std::binary_search(names.begin(), names.end(), name) &&
                !FileManager::fileExistsAtPath(directory + "/" + name))
                unlink((directory + "/" + entry).c_str());
        }
    }
    return reports;
}

bool CrashReporter::isReportURL(const std::string& url) {
    return parseAddress(url).has_value();
}

int CrashReporter::sendPendingReports(const std::string& directory, const std::string& url,
                                      ErrorRef* error) {
    const auto address = parseAddress(url);
    if (!address) {
        if (error) *error = sendError("not an http or https address: " + url, directory);
        return 0;
    }
    FolderLock lock(directory);
    if (!lock.held()) return 0;  // no folder, so nothing to send
    const auto names = reportNames(directory);
    if (names.empty()) return 0;
    const report_module::ModuleApi* http = report_module::loadModule(error);
    if (!http) return 0;
    int sent = 0;
    // Listed under the lock: a report another start has just sent is gone from the list.
    for (const auto& name : names) {
        const std::string path = directory + "/" + name;
        ErrorRef readError;
        auto data = FileManager::contentsAtPath(path, &readError, kMaxReportBytes);
        if (!data) {
            if (error) *error = readError;
            return sent;
        }
        std::string why;
        const int status = http->post({address->origin, address->path, name, data->data(),
                                       data->size(), kConnectSeconds, kTransferSeconds},
                                      &why);
        if (status == 0) {
            if (error) *error = sendError(url + ": " + why, path);
            return sent;
        }
        if (status < 200 || status > 299) {
            if (error) *error = sendError(url + " answered " + std::to_string(status), path);
            return sent;
        }
        unlink(path.c_str());
        unlink(markerPath(directory, name).c_str());
        log("~~ Sent the crash report " + path + " to " + url);
        ++sent;
    }
    return sent;
}

}  // namespace platform
