// One list file of the template store (templates/list, recents, collection), shared by every
// process on the home: reads that keep an unreadable file aside instead of overwriting it,
// and changes made under the file's lock on what the file holds at that moment.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace TemplateListFile {

// What reading a list file found.
enum class ReadState { read, missing, unreadable };

// The file's bytes, bounded by VRTemplateListCoding::kMaxFileBytes; `missing` when there is
// no file, `unreadable` (with the reason) when it can't be read.
std::optional<platform::PlistData> readData(const std::string& path, ReadState* state,
                                            platform::ErrorRef* error);
// Renames an unreadable file beside itself ("NAME.unreadable-<time>") with a log line, so
// that the next write can't replace it.
void keepAside(const std::string& path, const platform::ErrorRef& reason);
// Creates the folder, writes atomically, and marks the file as excluded from backups.
bool writeData(const platform::PlistData& data, const std::string& path, platform::ErrorRef* error);
// Runs `body` holding the file's lock (after creating its folder); false with the reason when
// the lock can't be had.
bool withLock(const std::string& path, const std::function<bool()>& body,
              platform::ErrorRef* error);

template <class T>
using Decode = std::optional<std::vector<T>> (*)(const platform::PlistData&, platform::ErrorRef*);
template <class T>
using Encode = platform::PlistData (*)(const std::vector<T>&);

// The list in the file; absent when there is none or it is unreadable (then kept aside).
template <class T>
std::optional<std::vector<T>> read(const std::string& path, Decode<T> decode) {
    ReadState state = ReadState::missing;
    platform::ErrorRef error;
    auto data = readData(path, &state, &error);
    std::optional<std::vector<T>> items;
    if (data) items = decode(*data, &error);
    if (!items && state != ReadState::missing) keepAside(path, error);
    return items;
}

// Under the file's lock: reads the list again (another process may have changed it since it
// was loaded; `fallback` when there is no readable file), lets `change` change it, and writes
// it when `change` returns true. `result` receives the list as changed, also when nothing was
// written. False with the reason when the lock or the write failed; false with no error when
// `change` changed nothing.
template <class T>
bool change(const std::string& path, Decode<T> decode, Encode<T> encode,
            const std::vector<T>& fallback, const std::function<bool(std::vector<T>&)>& change,
            std::vector<T>* result, platform::ErrorRef* error) {
    if (error) error->reset();
    bool written = false;
    bool locked = withLock(
        path,
        [&] {
            std::vector<T> items = read(path, decode).value_or(fallback);
            bool changed = change(items);
            *result = items;
            if (!changed) return true;
            written = writeData(encode(items), path, error);
            return written;
        },
        error);
    return locked && written;
}

}  // namespace TemplateListFile
