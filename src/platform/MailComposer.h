// The platform's mail composer: hands a message to the user's mail program (`xdg-email`, from
// xdg-utils), where the user reviews and sends it. Used by the error report and the share
// sheet's mail action. Stateless; any thread, but composing blocks, so never the main queue.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"

namespace platform {

inline constexpr const char* MFMailComposeErrorDomain = "MFMailComposeErrorDomain";
// The mail program could not be started, or it ended with a failure.
inline constexpr std::int64_t MFMailComposeErrorCodeSendFailed = 1;
// The user-information key of the mail program's exit status, when it ended with one.
inline constexpr const char* MFMailComposeExitStatusKey = "exitStatus";

struct MailMessage {
    std::string subject;
    std::vector<std::string> recipients;
    // Plain text.
    std::string body;
    // Paths of the files to attach; the mail program names each by its file name.
    std::vector<std::string> attachments;
};

class MailComposer {
  public:
    // The mail program, found on the PATH; absent when there is none.
    static std::optional<std::string> mailProgramPath();
    // canSendMail: there is a mail program to hand a message to.
    static bool canSendMail();

    // Runs `xdg-email --utf8 --subject S --body B --attach F... RECIPIENT...` without a shell
    // and waits until it returns: null when it ended with status 0. Otherwise an error of
    // MFMailComposeErrorDomain (code MFMailComposeErrorCodeSendFailed) whose description holds
    // the program's last words, or, for a message that can't be handed over (a recipient that
    // would read as an option), NSPOSIXErrorDomain EINVAL. The mail program may read the
    // attachments only after it returns, when it hands them on to a running mail client.
    static ErrorRef composeMail(const MailMessage& message);
};

}  // namespace platform
