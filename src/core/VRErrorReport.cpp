#include "core/VRErrorReport.h"

#include <ctime>
#include <utility>

#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/MailComposer.h"
#include "platform/PropertyListSerialization.h"
#include "platform/UUID.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"

namespace {

using platform::ErrorRef;
using platform::FileManager;
using platform::PlistData;

// A unique name can only collide with a folder another process made in the same second with
// the same random part; a few tries are plenty.
constexpr int kFolderNameTries = 8;

std::string timestamp() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

PlistData bytesOf(const std::string& text) {
    return PlistData(text.begin(), text.end());
}

// The attachment needs its own name, "format.plist", so it gets a folder of its own inside
// this process's temporaries (removed at the next start should the process die meanwhile).
std::optional<std::string> writeAttachment(const PlistData& data, ErrorRef* error) {
    const std::string owner =
        VRFileStorage::ownTemporaryFolder(platform::Environment::temporaryDirectory());
    const std::string folder =
        FileManager::stringByAppendingPathComponent(owner, "report-" + platform::UUIDString());
    if (!FileManager::createDirectoryAtPath(folder, true, error)) return std::nullopt;
    const std::string path =
        FileManager::stringByAppendingPathComponent(folder, VRErrorReport::kAttachmentName);
    if (!FileManager::writeDataAtomically(data, path, error)) {
        FileManager::removeItemAtPath(folder);
        return std::nullopt;
    }
    return path;
}

ErrorRef composeMail(const std::string& title, const std::string& recipient,
                     const std::string& body, const std::optional<PlistData>& data) {
    platform::MailMessage mail{title, {recipient}, body, {}};
    std::optional<std::string> attachment;
    if (data) {
        ErrorRef error;
        attachment = writeAttachment(*data, &error);
        if (!attachment) return error;
        mail.attachments.push_back(*attachment);
    }
    ErrorRef error = platform::MailComposer::composeMail(mail);
    if (attachment)
        FileManager::removeItemAtPath(FileManager::stringByDeletingLastPathComponent(*attachment));
    return error;
}

}  // namespace

std::string VRErrorReport::mailBody(const std::string& message) {
    return "Error message: \"" + message + "\"\n\n" + VXHelper::systemMessage();
}

std::optional<PlistData> VRErrorReport::propertyListData(
    const std::optional<platform::PlistDictionary>& info) {
    if (!info) return std::nullopt;
    ErrorRef error;
    std::optional<PlistData> data = platform::PropertyListSerialization::dataWithPropertyList(
        platform::PlistValue(*info), platform::NSPropertyListXMLFormat_v1_0, 0, &error);
    platform::log("PLIST ERROR " + (error ? error->description() : std::string("(null)")));
    return data;
}

VRErrorReportOutcome VRErrorReport::emailWithTitle(const std::string& title,
                                                   const std::string& body,
                                                   const std::optional<PlistData>& data) {
    return deliver(title, VXHelper::emailAddress(), body, data);
}

VRErrorReportOutcome VRErrorReport::deliver(const std::string& title, const std::string& recipient,
                                            const std::string& body,
                                            const std::optional<PlistData>& data) {
    VRErrorReportOutcome outcome;
    if (platform::MailComposer::canSendMail()) {
        outcome.error = composeMail(title, recipient, body, data);
        if (!outcome.error) {
            outcome.sent = true;
            return outcome;
        }
        platform::log("~~ error report not sent: " + outcome.error->description());
    }
    ErrorRef writeError;
    outcome.reportFolder = writeReportFolder(title, recipient, body, data, &writeError);
    if (!outcome.reportFolder) {
        platform::log("~~ error report not written: " +
                      (writeError ? writeError->description() : std::string("(null)")));
        outcome.error = writeError;
    }
    return outcome;
}

VRErrorReportOutcome VRErrorReport::send(const std::string& message,
                                         const std::optional<platform::PlistDictionary>& info) {
    return emailWithTitle(kSubject, mailBody(message), propertyListData(info));
}

void VRErrorReport::emailWithTitleInBackground(
    const std::string& title, const std::string& body, const std::optional<PlistData>& data,
    std::function<void(const VRErrorReportOutcome&)> completionOnMainThread) {
    // The settings are read here; only the files and the mail program wait on the background
    // queue.
    platform::DispatchQueue::global().async([title, recipient = VXHelper::emailAddress(), body,
                                             data, completion = std::move(completionOnMainThread)] {
        VRErrorReportOutcome outcome = deliver(title, recipient, body, data);
        platform::DispatchQueue::main().async([outcome, completion] {
            if (completion) completion(outcome);
        });
    });
}

void VRErrorReport::sendInBackground(
    const std::string& message, const std::optional<platform::PlistDictionary>& info,
    std::function<void(const VRErrorReportOutcome&)> completionOnMainThread) {
    emailWithTitleInBackground(kSubject, mailBody(message), propertyListData(info),
                               std::move(completionOnMainThread));
}

std::string VRErrorReport::reportsDirectory() {
    return FileManager::stringByAppendingPathComponent(platform::Environment::documentsDirectory(),
                                                       "error-reports");
}

std::optional<std::string> VRErrorReport::writeReportFolder(const std::string& title,
                                                            const std::string& recipient,
                                                            const std::string& body,
                                                            const std::optional<PlistData>& data,
                                                            ErrorRef* error) {
    const std::string parent = reportsDirectory();
    if (!FileManager::createDirectoryAtPath(parent, true, error)) return std::nullopt;
    std::string folder;
    bool made = false;
    for (int attempt = 0; attempt < kFolderNameTries && !made; ++attempt) {
        folder = FileManager::stringByAppendingPathComponent(
            parent, "report-" + timestamp() + "-" + platform::UUIDString().substr(0, 8));
        made = FileManager::createDirectoryAtPath(folder, false, error);
    }
    if (!made) return std::nullopt;
    const std::string text = "To: " + recipient + "\nSubject: " + title + "\n\n" + body + "\n";
    bool written = FileManager::writeDataAtomically(
        bytesOf(text), FileManager::stringByAppendingPathComponent(folder, kMailTextName), error);
    if (written && data) {
        written = FileManager::writeDataAtomically(
            *data, FileManager::stringByAppendingPathComponent(folder, kAttachmentName), error);
    }
    if (!written) {
        FileManager::removeItemAtPath(folder);
        return std::nullopt;
    }
    if (error) *error = nullptr;
    return folder;
}

namespace VXHelper {

std::string emailAddress() {
    return VRSettings::supportEmailAddress();
}

}  // namespace VXHelper
