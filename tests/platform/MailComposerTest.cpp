#include "platform/MailComposer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/FakeMailProgram.h"
#include "support/TestHome.h"

using platform::MailComposer;
using testing_support::FakeMailProgram;

// Every part of the message reaches the mail program as one argument, as written: no shell
// reads it, so quotes, new lines and command substitutions stay text.
TEST(MailComposer, MessageArrivesAsOneArgumentEach) {
    testing_support::TestHome home;
    FakeMailProgram mail(home.root());
    const std::string first = home.path("a b.plist");
    const std::string second = home.path("it's.txt");
    std::ofstream(first) << "<plist/>";
    std::ofstream(second) << "second";
    const std::string body =
        "Error message: \"it's $(touch " + home.path("injected") + "); `id`\"\n\nline two";

    ASSERT_TRUE(MailComposer::canSendMail());
    EXPECT_EQ(MailComposer::mailProgramPath(), home.path("bin/xdg-email"));
    platform::ErrorRef error = MailComposer::composeMail(
        {"App error", {"support@example.com", "other@example.com"}, body, {first, second}});

    EXPECT_EQ(error, nullptr) << error->description();
    EXPECT_EQ(mail.arguments(),
              (std::vector<std::string>{"--utf8", "--subject", "App error", "--body", body,
                                        "--attach", first, "--attach", second,
                                        "support@example.com", "other@example.com"}));
    EXPECT_EQ(mail.attachment(1), "<plist/>");
    EXPECT_EQ(mail.attachment(2), "second");
    EXPECT_FALSE(std::filesystem::exists(home.path("injected")));
}

// What keeps a message from the mail program, and what a failing mail program reports.
TEST(MailComposer, FailuresAreErrorObjects) {
    struct Case {
        const char* name;
        bool installed;
        bool executable;
        int exitStatus;
        std::string recipient;
        bool canSend;
        std::string domain;
        std::int64_t code;
        std::string inDescription;
    };
    const Case cases[] = {
        {"no program", false, true, 0, "a@example.com", false, platform::MFMailComposeErrorDomain,
         platform::MFMailComposeErrorCodeSendFailed, "not on the PATH"},
        {"not executable", true, false, 0, "a@example.com", false,
         platform::MFMailComposeErrorDomain, platform::MFMailComposeErrorCodeSendFailed,
         "not on the PATH"},
        {"exit status 3", true, true, 3, "a@example.com", true, platform::MFMailComposeErrorDomain,
         platform::MFMailComposeErrorCodeSendFailed, "status 3: no mail client found"},
        {"recipient like an option", true, true, 0, "--attach=/etc/passwd", true,
         platform::NSPOSIXErrorDomain, EINVAL, "--attach=/etc/passwd"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testing_support::TestHome home;
        FakeMailProgram mail(home.root(), c.installed, c.exitStatus, "no mail client found");
        if (!c.executable) chmod(home.path("bin/xdg-email").c_str(), 0644);

        EXPECT_EQ(MailComposer::canSendMail(), c.canSend);
        platform::ErrorRef error = MailComposer::composeMail({"s", {c.recipient}, "b", {}});
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->domain(), c.domain);
        EXPECT_EQ(error->code(), c.code);
        EXPECT_NE(error->localizedDescription().find(c.inDescription), std::string::npos)
            << error->localizedDescription();
        EXPECT_EQ(mail.ran(), c.exitStatus != 0);
    }
}
