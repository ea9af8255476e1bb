#include "core/VRErrorReport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/BatchRunSupport.h"
#include "core/ErrorMessages.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "platform/MailComposer.h"
#include "platform/PropertyListSerialization.h"
#include "storage/VRSettings.h"
#include "support/FakeMailProgram.h"
#include "support/TestHome.h"

using batch_support::BatchFixture;
using batch_support::urlAsset;
using platform::PlistArray;
using platform::PlistDictionary;
using platform::PlistValue;
using testing_support::FakeMailProgram;

namespace {

constexpr std::chrono::seconds kPatience{30};

// Details as a failed video leaves them: text, numbers, lists of lines.
PlistDictionary videoDetails() {
    return {{"Operation", "Encode"},
            {"Source Number of tracks", "2"},
            {"Source Track 0 description #0", PlistArray{"avc1", "1920 x 1080"}},
            {"Target size", "{3840, 1080}"},
            {"exitCode", 3}};
}

std::optional<PlistValue> parsePlist(const std::string& text) {
    return platform::PropertyListSerialization::propertyListWithData(
        platform::PlistData(text.begin(), text.end()));
}

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

struct LogLines {
    LogLines() {
        platform::setLogSink(
            [](const std::string& line, void* self) {
                static_cast<LogLines*>(self)->lines.push_back(line);
            },
            this);
    }
    ~LogLines() { platform::setLogSink(nullptr, nullptr); }
    std::vector<std::string> startingWith(const std::string& prefix) const {
        std::vector<std::string> found;
        for (const auto& line : lines)
            if (line.rfind(prefix, 0) == 0) found.push_back(line);
        return found;
    }
    std::vector<std::string> lines;
};

}  // namespace

// The mail: subject, the support address (the setting, or its default) as sole recipient, the
// words and the machine's lines, and the details as "format.plist" that reads back as they
// were. The attachment's temporary folder is gone once the mail program has returned.
TEST(VRErrorReport, MailCarriesTheReportAndLeavesNoTemporary) {
    for (const std::string address : {"", "ops@example.org"}) {
        SCOPED_TRACE(address);
        testing_support::TestHome home;
        FakeMailProgram mail(home.root());
        if (!address.empty()) VRSettings::setSupportEmailAddress(address);

        VRErrorReportOutcome outcome = VRErrorReport::send("Boom", videoDetails());

        EXPECT_TRUE(outcome.sent);
        EXPECT_EQ(outcome.error, nullptr);
        EXPECT_FALSE(outcome.reportFolder);
        const auto arguments = mail.arguments();
        ASSERT_FALSE(arguments.empty());
        EXPECT_EQ(arguments.back(), address.empty() ? "support@vorela.com" : address);
        EXPECT_EQ(mail.value("--subject"), "App error");
        const std::string body = mail.value("--body").value_or("");
        EXPECT_EQ(body.rfind("Error message: \"Boom\"\n\nMachine name: ", 0), 0u) << body;
        EXPECT_NE(body.find("\nApp version: "), std::string::npos) << body;
        EXPECT_NE(body.find("\nFree disk space: "), std::string::npos) << body;
        const std::string attached = mail.value("--attach").value_or("");
        EXPECT_EQ(std::filesystem::path(attached).filename(), "format.plist");
        auto parsed = parsePlist(mail.attachment(1).value_or(""));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(*parsed, PlistValue(videoDetails()));
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(attached).parent_path()));
        EXPECT_TRUE(testing_support::namesIn(VRErrorReport::reportsDirectory()).empty());
    }
}

// No mail program, or one that fails: the report becomes a folder of its own each time, with
// the mail's text and the details, and the outcome says why.
TEST(VRErrorReport, WithoutMailTheReportIsAFolder) {
    struct Case {
        const char* name;
        bool installed;
        int exitStatus;
        std::optional<PlistDictionary> info;
    };
    const Case cases[] = {
        {"no mail program", false, 0, videoDetails()},
        {"mail program fails", true, 4, videoDetails()},
        {"no details", false, 0, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testing_support::TestHome home;
        FakeMailProgram mail(home.root(), c.installed, c.exitStatus);

        VRErrorReportOutcome first = VRErrorReport::send("Boom", c.info);
        VRErrorReportOutcome second = VRErrorReport::send("Boom", c.info);

        EXPECT_FALSE(first.sent);
        ASSERT_TRUE(first.reportFolder && second.reportFolder);
        EXPECT_NE(*first.reportFolder, *second.reportFolder);
        EXPECT_EQ(std::filesystem::path(*first.reportFolder).parent_path(),
                  VRErrorReport::reportsDirectory());
        if (c.installed) {
            ASSERT_NE(first.error, nullptr);
            EXPECT_EQ(first.error->userInfo().at(platform::MFMailComposeExitStatusKey),
                      PlistValue(c.exitStatus));
        }
        const std::string folder = *first.reportFolder;
        const std::vector<std::string> files =
            c.info ? std::vector<std::string>{"format.plist", "mail.txt"}
                   : std::vector<std::string>{"mail.txt"};
        EXPECT_EQ(testing_support::namesIn(folder), files);
        EXPECT_EQ(contents(folder + "/mail.txt"), "To: support@vorela.com\nSubject: App error\n\n" +
                                                      VRErrorReport::mailBody("Boom") + "\n");
        if (c.info) {
            auto parsed = parsePlist(contents(folder + "/format.plist"));
            ASSERT_TRUE(parsed);
            EXPECT_EQ(*parsed, PlistValue(*c.info));
        }
    }
}

// Details that can't be written as a property list leave the mail without an attachment, not
// without a mail, and the failure is in the log.
TEST(VRErrorReport, DetailsThatCannotBeWrittenStillSendTheText) {
    testing_support::TestHome home;
    FakeMailProgram mail(home.root());
    LogLines log;
    PlistDictionary broken = videoDetails();
    broken["Error"] = PlistValue();

    VRErrorReportOutcome outcome = VRErrorReport::send("Boom", broken);

    EXPECT_TRUE(outcome.sent);
    EXPECT_EQ(mail.value("--attach"), std::nullopt);
    EXPECT_EQ(mail.value("--body").value_or("").rfind("Error message: \"Boom\"", 0), 0u);
    auto lines = log.startingWith("PLIST ERROR ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0], "PLIST ERROR (null)");
}

// "Contact us" of the batch run's error dialog sends the report by itself when the front end
// takes no emailError event; the run stays paused on the failed asset either way, and without
// a mail program the "Warning" alert names the report folder.
TEST(VRErrorReport, ContactUsOfTheRunSendsTheReport) {
    for (bool installed : {true, false}) {
        SCOPED_TRACE(installed);
        testing_support::TestHome home;
        FakeMailProgram mail(home.root(), installed);
        BatchFixture f({urlAsset("a.mov"), urlAsset("b.mov")});
        VRResultControllerEvents events = f.events();
        events.emailError = nullptr;
        std::optional<VRErrorReportOutcome> reported;
        events.errorReported = [&](const VRErrorReportOutcome& outcome) { reported = outcome; };
        f.controller =
            std::make_unique<VRResultController>(f.pending, nullptr, nullptr, events, f.services());
        f.controller->viewDidAppear();
        f.processor->fail(
            0, VRError::errorWithCode(VRErrorCode::encodeFailed, {{"Operation", "Encode"}}));
        ASSERT_EQ(f.alerts.size(), 1u);
        const std::size_t index = f.controller->pickerView().processingIndex();
        const int cancels = f.processor->cancels;

        f.alerts[0].answer(0);
        ASSERT_TRUE(platform::MainRunLoop::runUntil([&] { return reported.has_value(); },
                                                    std::chrono::milliseconds(kPatience)));

        EXPECT_EQ(reported->sent, installed);
        if (installed) {
            EXPECT_EQ(f.alerts.size(), 1u);
            EXPECT_EQ(mail.value("--body").value_or("").rfind(
                          "Error message: \"" + VRErrorMessageForCode(3).message + "\"\n\n", 0),
                      0u);
            auto parsed = parsePlist(mail.attachment(1).value_or(""));
            ASSERT_TRUE(parsed);
            EXPECT_EQ(*parsed, PlistValue(PlistDictionary{{"Operation", "Encode"}}));
        } else {
            ASSERT_EQ(f.alerts.size(), 2u);
            const VRBatchAlert& warning = f.alerts[1];
            EXPECT_EQ(warning.kind, VRBatchAlert::Kind::mailWarning);
            EXPECT_EQ(warning.title, "Warning");
            EXPECT_EQ(warning.message,
                      "You must configure your email client before using this action. To do "
                      "this just open \"Mail\" app and create at least one account.");
            EXPECT_EQ(warning.buttons, std::vector<std::string>{"Ok"});
            ASSERT_TRUE(warning.reportFolder);
            EXPECT_EQ(warning.reportFolder, reported->reportFolder);
            EXPECT_TRUE(std::filesystem::exists(*warning.reportFolder + "/format.plist"));
        }
        EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
        EXPECT_EQ(f.controller->pickerView().processingIndex(), index);
        EXPECT_EQ(f.processor->calls.size(), 1u);
        EXPECT_EQ(f.processor->cancels, cancels);
    }
}
