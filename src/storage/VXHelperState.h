// The program-state keys kept directly in the user defaults (launch, tutorial, release notes and
// rate prompts), with their typed accessors. Used by the start of the program and the launch
// and rate logic. All use the store of VRSettings::userDefaults().
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PlistValue.h"

inline constexpr const char* VXAppVersionKey = "com.vorela.appVersion";
inline constexpr const char* VXReleaseNotesVersionKey = "com.vorela.releaseNotesVersion";
inline constexpr const char* VXLaunchCompleteKey = "com.vorela.launchComplete";
inline constexpr const char* VXLaunchStepKey = "com.vorela.launchStep";
inline constexpr const char* VXTutorialCompleteKey = "com.vorela.tutorialComplete";
inline constexpr const char* VXRateInfoKey = "com.vorela.rateInfo";
inline constexpr const char* VXRateCompleteKey = "com.vorela.rateComplete";
inline constexpr const char* VXRateEndAttemptKey = "com.vorela.rateEndAttempt";

namespace VXHelper {

std::optional<std::string> storedAppVersion();
std::optional<std::string> releaseNotesVersion();
void setReleaseNotesVersion(const std::string& version);
bool isLaunchComplete();
void setLaunchComplete(bool complete);
std::int64_t launchStep();
void setLaunchStep(std::int64_t step);
bool isTutorialComplete();
void setTutorialComplete(bool complete);
// The rate counters' dictionary; empty when absent or unreadable.
platform::PlistDictionary rateInfo();
void setRateInfo(const platform::PlistDictionary& info);
bool isRateComplete();
void setRateComplete(bool complete);
std::int64_t rateEndAttempt();
void setRateEndAttempt(std::int64_t attempt);

// When the stored version differs from `runningVersion`: stores it, resets the rate info to
// an empty dictionary, the end attempt to 0 and the rate completion to false, and synchronizes.
// True unless nothing was stored before (the first launch of the program).
bool updateAppVersion(const std::string& runningVersion);

}  // namespace VXHelper
