#include "core/CrashReporting.h"

#include "platform/CrashReporter.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"

namespace CrashReporting {
namespace {

using platform::CrashReporter;

std::optional<std::string> storedReportURL() {
    const platform::PlistValue value = VRSettings::objectForKey(VRCrashReportURLKey);
    const std::string* text = value.string();
    if (!text || text->empty()) return std::nullopt;
    return *text;
}

std::vector<std::string> paths(const std::vector<CrashReporter::PendingReport>& reports) {
    std::vector<std::string> list;
    for (const auto& report : reports) list.push_back(report.path);
    return list;
}

}  // namespace

std::string reportsDirectory() {
    using platform::FileManager;
    const std::string data =
        FileManager::stringByDeletingLastPathComponent(platform::Environment::documentsDirectory());
    return FileManager::stringByAppendingPathComponent(data, "crashes");
}

bool start(const std::vector<std::string>& commandLine, std::chrono::milliseconds hangThreshold) {
    CrashReporter::Configuration configuration;
    configuration.directory = reportsDirectory();
    configuration.version = platform::Environment::appVersion();
    configuration.commandLine = commandLine;
    configuration.hangThreshold = hangThreshold;
    return CrashReporter::install(configuration);
}

EarlierReports handleEarlierReports() {
    EarlierReports outcome;
    const std::string directory = reportsDirectory();
    const auto reports = CrashReporter::pendingReports(directory, true);
    for (const auto& report : reports) {
        if (report.newlyListed) outcome.newlyListed.push_back(report.path);
    }
    outcome.pending = paths(reports);
    if (reports.empty()) return outcome;
    const auto url = storedReportURL();
    outcome.hasReportURL = url.has_value();
    if (!url) return outcome;
    platform::ErrorRef error;
    outcome.sent = CrashReporter::sendPendingReports(directory, *url, &error);
    if (error) {
        outcome.sendProblem = error->localizedDescription();
        platform::log("~~ Unable to send crash reports: " + *outcome.sendProblem);
    }
    outcome.pending = paths(CrashReporter::pendingReports(directory, false));
    return outcome;
}

std::vector<std::string> pendingReports() {
    return paths(CrashReporter::pendingReports(reportsDirectory(), false));
}

std::string reportURLText() {
    return storedReportURL().value_or("none");
}

bool setReportURL(const std::string& text, std::string* problem) {
    if (text.empty() || text == "none") {
        VRSettings::setObject(platform::PlistValue(), VRCrashReportURLKey);
        return true;
    }
    if (!CrashReporter::isReportURL(text)) {
        *problem = "expected an http:// or https:// address, or none: " + text;
        return false;
    }
    VRSettings::setObject(platform::PlistValue(text), VRCrashReportURLKey);
    return true;
}

}  // namespace CrashReporting
