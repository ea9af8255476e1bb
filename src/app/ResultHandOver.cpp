#include "app/ResultHandOver.h"

#include <cerrno>

#include "platform/FileManager.h"
#include "platform/Log.h"

using platform::FileManager;

namespace app {
namespace {

constexpr int kMostAttempts = 10000;

bool isNameTaken(const platform::ErrorRef& error) {
    return error && error->domain() == platform::NSPOSIXErrorDomain && error->code() == EEXIST;
}

}  // namespace

std::string freeNameCandidate(const std::string& stem, const std::string& extension, int n) {
    std::string name = n == 0 ? stem : stem + "-" + std::to_string(n);
    if (!extension.empty()) name += "." + extension;
    return name;
}

std::optional<HandedOver> handOverResult(const std::string& file,
                                         const std::optional<std::string>& paired,
                                         const std::string& folder, platform::ErrorRef* error) {
    const std::string name = FileManager::lastPathComponent(file);
    const std::string stem = FileManager::stringByDeletingPathExtension(name);
    const std::string extension = FileManager::pathExtension(name);
    const std::string pairedExtension = paired ? FileManager::pathExtension(*paired) : "";
    for (int n = 0; n < kMostAttempts; ++n) {
        const std::string to = FileManager::stringByAppendingPathComponent(
            folder, freeNameCandidate(stem, extension, n));
        std::optional<std::string> pairedTo;
        if (paired) {
            pairedTo = FileManager::stringByAppendingPathComponent(
                folder, freeNameCandidate(stem, pairedExtension, n));
            // The movie keeps its still's name, so both need a free one.
            if (*pairedTo == to || FileManager::fileExistsAtPath(*pairedTo)) continue;
        }
        platform::ErrorRef moveError;
        if (!FileManager::moveItemAtPath(file, to, &moveError)) {
            if (isNameTaken(moveError)) continue;
            if (error) *error = moveError;
            return std::nullopt;
        }
        FileManager::removeExcludedFromBackup(to);
        HandedOver result{to, std::nullopt};
        if (!paired) return result;
        moveError = nullptr;
        if (FileManager::moveItemAtPath(*paired, *pairedTo, &moveError)) {
            FileManager::removeExcludedFromBackup(*pairedTo);
            result.pairedOutput = pairedTo;
            return result;
        }
        if (isNameTaken(moveError) && FileManager::moveItemAtPath(to, file)) continue;
        platform::logf("~~ The Live Photo movie %s was not handed over: %s", paired->c_str(),
                       moveError ? moveError->localizedDescription().c_str() : "unknown");
        return result;
    }
    if (error) *error = platform::Error::posixError(EEXIST, "no free name", folder + "/" + name);
    return std::nullopt;
}

}  // namespace app
