#include "platform/UserDefaults.h"

#include <ctime>
#include <map>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/PropertyListSerialization.h"

namespace platform {
namespace {

constexpr const char* kDefaultsFileName = "defaults.plist";

// Keeps the unreadable file for inspection under a name that no earlier one has taken.
void moveAside(const std::string& path, const std::string& reason) {
    const std::string base = path + ".unreadable-" + std::to_string(std::time(nullptr));
    std::string aside = base;
    for (int attempt = 1; FileManager::fileExistsAtPath(aside) && attempt < 1000; ++attempt) {
        aside = base + "-" + std::to_string(attempt);
    }
    ErrorRef error;
    if (FileManager::moveItemAtPath(path, aside, &error)) {
        log("~~ DEFAULTS unreadable file " + path + " (" + reason + ") moved to " + aside +
            "; starting empty");
    } else {
        log("~~ DEFAULTS unreadable file " + path + " (" + reason +
            ") could not be moved aside: " + error->localizedDescription() + "; starting empty");
    }
}

std::optional<PlistDictionary> readDefaults(const std::string& path) {
    if (!FileManager::fileExistsAtPath(path)) return PlistDictionary{};
    ErrorRef error;
    auto data =
        FileManager::contentsAtPath(path, &error, PropertyListSerialization::kMaxInputBytes);
    if (!data) {
        moveAside(path, error->localizedDescription());
        return std::nullopt;
    }
    auto value = PropertyListSerialization::propertyListWithData(*data, nullptr, &error);
    if (!value) {
        moveAside(path, error ? error->localizedDescription() : "not a property list");
        return std::nullopt;
    }
    if (!value->isDictionary()) {
        moveAside(path, "not a dictionary");
        return std::nullopt;
    }
    return *value->dictionary();
}

}  // namespace

UserDefaults& UserDefaults::standardUserDefaults() {
    // One store per settings directory: the home root may change (tests do), and a store that
    // outlived its directory would write into the wrong place. Stores are never destroyed, so
    // references handed out stay valid.
    static std::mutex mutex;
    static auto* stores = new std::map<std::string, std::unique_ptr<UserDefaults>>();
    const std::string path = FileManager::stringByAppendingPathComponent(
        Environment::settingsDirectory(), kDefaultsFileName);
    std::lock_guard lock(mutex);
    auto& store = (*stores)[path];
    if (!store) store = std::make_unique<UserDefaults>(path);
    return *store;
}

UserDefaults::UserDefaults(std::string path) : _path(std::move(path)) {
    _values = readDefaults(_path).value_or(PlistDictionary{});
}

PlistValue UserDefaults::objectForKey(const std::string& key) const {
    std::lock_guard lock(_mutex);
    auto it = _values.find(key);
    return it == _values.end() ? PlistValue() : it->second;
}

void UserDefaults::setObject(const PlistValue& value, const std::string& key) {
    std::lock_guard lock(_mutex);
    auto it = _values.find(key);
    if (value.isNull()) {
        if (it == _values.end()) return;
        _values.erase(it);
    } else {
        if (it != _values.end() && it->second == value) return;
        _values[key] = value;
    }
    _dirty = true;
}

PlistDictionary UserDefaults::dictionaryRepresentation() const {
    std::lock_guard lock(_mutex);
    return _values;
}

bool UserDefaults::synchronize() {
    std::lock_guard lock(_mutex);
    if (!_dirty) return true;
    ErrorRef error;
    auto data = PropertyListSerialization::dataWithPropertyList(
        PlistValue(_values), NSPropertyListBinaryFormat_v1_0, 0, &error);
    const std::string directory = FileManager::stringByDeletingLastPathComponent(_path);
    if (data && !directory.empty() &&
        !FileManager::createDirectoryAtPath(directory, true, &error)) {
        data.reset();
    }
    if (!data || !FileManager::writeDataAtomically(*data, _path, &error)) {
        log("~~ DEFAULTS could not write " + _path + ": " +
            (error ? error->localizedDescription() : std::string("unknown error")));
        return false;
    }
    _dirty = false;
    return true;
}

}  // namespace platform
