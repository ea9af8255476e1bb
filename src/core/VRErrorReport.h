// The error report behind "Contact us" of an error dialog: a mail to the operator's support
// address with the machine's facts in the text and the error's details attached as
// "format.plist", handed to the user's mail program; written as a report folder under the
// home when no mail program takes it. Used by the batch run's dialog, the command line and
// the web front end.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/PlistValue.h"

struct VRErrorReportOutcome {
    // The mail program took the report.
    bool sent = false;
    // Not sent: the report folder (the mail's text in "mail.txt", the details in
    // "format.plist") that a front end shows with the "Warning" alert; absent when it could not
    // be written either.
    std::optional<std::string> reportFolder;
    // Why the mail program failed, or why the folder could not be written; null when neither.
    platform::ErrorRef error;
};

class VRErrorReport {
  public:
    static constexpr const char* kSubject = "App error";
    static constexpr const char* kAttachmentName = "format.plist";
    static constexpr const char* kMailTextName = "mail.txt";
    // The alert of a report that no mail program took, with its one button.
    static constexpr const char* kWarningTitle = "Warning";
    static constexpr const char* kWarningMessage =
        "You must configure your email client before using this action. To do this just open "
        "\"Mail\" app and create at least one account.";
    static constexpr const char* kWarningButton = "Ok";

    // "Error message: \"<message>\"\n\n" and the machine's lines (VXHelper::systemMessage).
    static std::string mailBody(const std::string& message);
    // The details as an XML property list; absent without details or when they can't be
    // written (a Null or a string that isn't UTF-8 inside). Logs "PLIST ERROR <error>" for
    // any details given, "(null)" when there was no error.
    static std::optional<platform::PlistData> propertyListData(
        const std::optional<platform::PlistDictionary>& info);

    // _emailWithTitle:message:properyListData:. Hands the mail (the subject, the support
    // address as sole recipient, the text, the data as "format.plist" from a temporary folder
    // of its own, removed afterwards) to the mail program; without one, or when it fails,
    // writes the report folder. Blocks until the mail program returns: not on the main queue.
    static VRErrorReportOutcome emailWithTitle(const std::string& title, const std::string& body,
                                               const std::optional<platform::PlistData>& data);
    // _emailError:info:: the body and the details of an error's words, then emailWithTitle
    // with the subject "App error". Blocks as emailWithTitle does.
    static VRErrorReportOutcome send(const std::string& message,
                                     const std::optional<platform::PlistDictionary>& info);
    // emailWithTitle on a background queue (the support address is read first, on the
    // caller's thread); the outcome arrives on the main queue.
    static void emailWithTitleInBackground(
        const std::string& title, const std::string& body,
        const std::optional<platform::PlistData>& data,
        std::function<void(const VRErrorReportOutcome&)> completionOnMainThread);
    // send on a background queue, the same way.
    static void sendInBackground(
        const std::string& message, const std::optional<platform::PlistDictionary>& info,
        std::function<void(const VRErrorReportOutcome&)> completionOnMainThread);

    // emailWithTitle to a given recipient; it reads no settings, so any thread may call it.
    static VRErrorReportOutcome deliver(const std::string& title, const std::string& recipient,
                                        const std::string& body,
                                        const std::optional<platform::PlistData>& data);

    // Where report folders go: documents/error-reports.
    static std::string reportsDirectory();
    // Writes a new report folder "report-<date>-<time>-<random>" there with the mail's text
    // (recipient, subject and body) and, when there is data, "format.plist". A folder that
    // can't be written whole is removed again.
    static std::optional<std::string> writeReportFolder(
        const std::string& title, const std::string& recipient, const std::string& body,
        const std::optional<platform::PlistData>& data, platform::ErrorRef* error = nullptr);
};

namespace VXHelper {

// The support address of the error reports: the setting supportEmailAddress.
std::string emailAddress();

}  // namespace VXHelper
