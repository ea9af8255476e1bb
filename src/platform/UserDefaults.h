// The user defaults store: property-list values by key, kept in one property-list file in the
// settings directory ("defaults.plist"). Safe to use from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/PlistValue.h"

namespace platform {

class UserDefaults {
  public:
    // The store of the current settings directory, made on first use.
    static UserDefaults& standardUserDefaults();

    // A store on an explicit file, for tests and tools. Reads the file at once; a file that
    // cannot be read is moved aside as "<name>.unreadable-<unix time>" with a log line, and
    // the store starts empty.
    explicit UserDefaults(std::string path);

    // Null when absent.
    PlistValue objectForKey(const std::string& key) const;
    // Same as objectForKey (key-value coding on a plain store).
    PlistValue valueForKey(const std::string& key) const { return objectForKey(key); }
    // A null value removes the key.
    void setObject(const PlistValue& value, const std::string& key);
    void removeObjectForKey(const std::string& key) { setObject(PlistValue(), key); }

    bool boolForKey(const std::string& key) const { return objectForKey(key).boolValue(); }
    std::int64_t integerForKey(const std::string& key) const {
        return objectForKey(key).integerValue();
    }
    double doubleForKey(const std::string& key) const { return objectForKey(key).doubleValue(); }
    PlistDictionary dictionaryRepresentation() const;

    // Writes the file when something changed since the last write: temporary file, fsync,
    // rename, so a crash leaves the old or the new file, never a torn one. False when the
    // write failed (the values stay in memory and the next call tries again).
    bool synchronize();

    const std::string& path() const { return _path; }

  private:
    std::string _path;
    mutable std::mutex _mutex;
    PlistDictionary _values;
    bool _dirty = false;
};

}  // namespace platform
