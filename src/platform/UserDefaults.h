// The user defaults store: property-list values by key, kept in one property-list file in the
// settings directory ("defaults.plist"). Safe to use from any thread, and shared with the other
// processes on the same home: every change is kept as an edit and made again, at the next
// synchronize, on the file as it is then (read under its FileLock), so that changes made
// meanwhile by other processes are kept.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Error.h"
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
    // The value under `subkey` of the dictionary stored under `key` (null when either is
    // missing): only that value is copied, not the whole dictionary.
    PlistValue objectForKey(const std::string& key, const std::string& subkey) const;
    // Looks at the values in memory under the store's lock, without copying them; `look` must
    // not call back into the store.
    void read(const std::function<void(const PlistDictionary& values)>& look) const;
    // Same as objectForKey (key-value coding on a plain store).
    PlistValue valueForKey(const std::string& key) const { return objectForKey(key); }
    // A null value removes the key.
    void setObject(const PlistValue& value, const std::string& key);
    // A change of the stored values: applied to the values in memory at once, and applied
    // again at the next synchronize to the values read afresh from the file under its lock.
    // Write edits so that they give the right result on whatever another process stored
    // meanwhile: set the keys they own, and decide from the values they are given (a
    // migration checks its marker there, a counter counts from the stored number).
    using Edit = std::function<void(PlistDictionary& values)>;
    void modify(Edit edit);
    void removeObjectForKey(const std::string& key) { setObject(PlistValue(), key); }

    bool boolForKey(const std::string& key) const { return objectForKey(key).boolValue(); }
    std::int64_t integerForKey(const std::string& key) const {
        return objectForKey(key).integerValue();
    }
    double doubleForKey(const std::string& key) const { return objectForKey(key).doubleValue(); }
    PlistDictionary dictionaryRepresentation() const;

    // Takes in what other processes stored meanwhile. When something changed since the last
    // write: under the file's lock, reads the file
    // again, makes the pending edits on it, and writes it (temporary file, fsync, rename, so a
    // crash leaves the old or the new file, never a torn one); the values in memory become
    // that result. False with the reason when the lock, the folder or the write failed (the
    // edits stay pending and the next call tries again).
    bool synchronize(ErrorRef* error = nullptr);

    const std::string& path() const { return _path; }

  private:
    std::string _path;
    mutable std::mutex _mutex;
    PlistDictionary _values;
    std::vector<Edit> _pendingEdits;
};

}  // namespace platform
