#include "platform/UserDefaults.h"

#include <cerrno>
#include <map>

#include "platform/Environment.h"
#include "platform/FileAside.h"
#include "platform/FileLock.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/PropertyListSerialization.h"

namespace platform {
namespace {

constexpr const char* kDefaultsFileName = "defaults.plist";

void moveAside(const std::string& path, const std::string& reason) {
    if (!moveUnreadableFileAside(path, reason)) log("~~ DEFAULTS starting empty");
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

// mkdir -p reports "File exists" when a file stands where a folder should be; name that file.
ErrorRef folderError(const std::string& folder, ErrorRef error) {
    for (std::string path = folder; !path.empty() && path != "/";
         path = FileManager::stringByDeletingLastPathComponent(path)) {
        bool isDirectory = false;
        if (FileManager::fileExistsAtPath(path, &isDirectory)) {
            if (!isDirectory)
                return Error::posixError(ENOTDIR, path + " is a file, not a folder", path);
            break;
        }
    }
    return error;
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

PlistValue UserDefaults::objectForKey(const std::string& key, const std::string& subkey) const {
    std::lock_guard lock(_mutex);
    auto it = _values.find(key);
    if (it == _values.end()) return PlistValue();
    const PlistDictionary* inner = it->second.dictionary();
    if (!inner) return PlistValue();
    auto found = inner->find(subkey);
    return found == inner->end() ? PlistValue() : found->second;
}

void UserDefaults::read(const std::function<void(const PlistDictionary& values)>& look) const {
    std::lock_guard lock(_mutex);
    look(_values);
}

void UserDefaults::setObject(const PlistValue& value, const std::string& key) {
    modify([value, key](PlistDictionary& values) {
        if (value.isNull()) {
            values.erase(key);
        } else {
            values[key] = value;
        }
    });
}

void UserDefaults::modify(Edit edit) {
    std::lock_guard lock(_mutex);
    edit(_values);
    _pendingEdits.push_back(std::move(edit));
}

PlistDictionary UserDefaults::dictionaryRepresentation() const {
    std::lock_guard lock(_mutex);
    return _values;
}

namespace {

bool writeDefaults(const PlistDictionary& values, const std::string& path, ErrorRef* error) {
    auto data = PropertyListSerialization::dataWithPropertyList(
        PlistValue(values), NSPropertyListBinaryFormat_v1_0, 0, error);
    return data && FileManager::writeDataAtomically(*data, path, error);
}

}  // namespace

bool UserDefaults::synchronize(ErrorRef* error) {
    std::lock_guard lock(_mutex);
    if (_pendingEdits.empty()) {
        // Nothing to write: only take in what other processes stored. Atomic renames keep
        // the file whole, so this read needs no lock.
        if (auto values = readDefaults(_path)) _values = std::move(*values);
        return true;
    }
    ErrorRef failure;
    const std::string directory = FileManager::stringByDeletingLastPathComponent(_path);
    std::optional<FileLock> fileLock;
    if (directory.empty() || FileManager::createDirectoryAtPath(directory, true, &failure)) {
        fileLock = FileLock::lockPath(_path, &failure);
    } else {
        failure = folderError(directory, failure);
    }
    if (fileLock) {
        // What another process wrote since this one last read is the base of the edits.
        PlistDictionary values = readDefaults(_path).value_or(PlistDictionary{});
        for (const Edit& edit : _pendingEdits) edit(values);
        if (writeDefaults(values, _path, &failure)) {
            _values = std::move(values);
            _pendingEdits.clear();
            return true;
        }
    }
    log("~~ DEFAULTS could not write " + _path + ": " +
        (failure ? failure->localizedDescription() : std::string("unknown error")));
    if (error) *error = failure;
    return false;
}

}  // namespace platform
