#include "storage/VXHelperState.h"

#include "storage/VRSettings.h"

namespace VXHelper {

namespace {

platform::UserDefaults& store() {
    return VRSettings::userDefaults();
}

std::optional<std::string> stringFor(const char* key) {
    platform::PlistValue value = store().objectForKey(key);
    if (const std::string* text = value.string()) return *text;
    return std::nullopt;
}

}  // namespace

std::optional<std::string> storedAppVersion() {
    return stringFor(VXAppVersionKey);
}

std::optional<std::string> releaseNotesVersion() {
    return stringFor(VXReleaseNotesVersionKey);
}
void setReleaseNotesVersion(const std::string& version) {
    store().setObject(version, VXReleaseNotesVersionKey);
}
bool isLaunchComplete() {
    return store().boolForKey(VXLaunchCompleteKey);
}
void setLaunchComplete(bool complete) {
    store().setObject(complete, VXLaunchCompleteKey);
}
std::int64_t launchStep() {
    return store().integerForKey(VXLaunchStepKey);
}
void setLaunchStep(std::int64_t step) {
    store().setObject(step, VXLaunchStepKey);
}
bool isTutorialComplete() {
    return store().boolForKey(VXTutorialCompleteKey);
}
void setTutorialComplete(bool complete) {
    store().setObject(complete, VXTutorialCompleteKey);
}

platform::PlistDictionary rateInfo() {
    platform::PlistValue value = store().objectForKey(VXRateInfoKey);
    if (const platform::PlistDictionary* info = value.dictionary()) return *info;
    return {};
}
void setRateInfo(const platform::PlistDictionary& info) {
    store().setObject(info, VXRateInfoKey);
}
bool isRateComplete() {
    return store().boolForKey(VXRateCompleteKey);
}
void setRateComplete(bool complete) {
    store().setObject(complete, VXRateCompleteKey);
}
std::int64_t rateEndAttempt() {
    return store().integerForKey(VXRateEndAttemptKey);
}
void setRateEndAttempt(std::int64_t attempt) {
    store().setObject(attempt, VXRateEndAttemptKey);
}

bool updateAppVersion(const std::string& runningVersion) {
    std::optional<std::string> stored = storedAppVersion();
    if (stored && *stored == runningVersion) return true;
    store().setObject(runningVersion, VXAppVersionKey);
    setRateInfo({});
    setRateEndAttempt(0);
    setRateComplete(false);
    store().synchronize();
    return stored.has_value();
}

}  // namespace VXHelper
