// The crash reporter at the start of the program: where reports are kept, installing the
// reporter as the first step of the start, and what becomes of the reports of earlier runs
// (listed at one start, posted to the `crashReportURL` setting when it is set).
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// The setting that holds the address reports are posted to; absent, reports stay on disk.
inline constexpr const char* VRCrashReportURLKey = "crashReportURL";

namespace CrashReporting {

inline constexpr std::chrono::milliseconds kHangThreshold{10000};

// "crashes" beside the documents directory: HOME/crashes with --home, else
// $XDG_DATA_HOME/unwarp/crashes.
std::string reportsDirectory();

// Installs the reporter for this process; the home root must be set before.
bool start(const std::vector<std::string>& commandLine,
           std::chrono::milliseconds hangThreshold = kHangThreshold);

struct EarlierReports {
    // Every report still on disk after sending, oldest first.
    std::vector<std::string> pending;
    // The reports this start is the first to list.
    std::vector<std::string> newlyListed;
    int sent = 0;
    // Why sending stopped, when it failed.
    std::optional<std::string> sendProblem;
    bool hasReportURL = false;
};
// Lists the reports of earlier runs and posts them when `crashReportURL` is set; the settings
// are read only when there are reports.
EarlierReports handleEarlierReports();
// The reports on disk, without marking or sending anything.
std::vector<std::string> pendingReports();

// The setting in text form ("none" when absent), and its setter: "none" or an empty text
// removes it, anything else must be an http or https address.
std::string reportURLText();
bool setReportURL(const std::string& text, std::string* problem);

}  // namespace CrashReporting
