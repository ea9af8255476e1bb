// Feeds arbitrary bytes to the keyed unarchiver; whatever it decodes must archive again (or be
// refused with an error) and decode once more.
#include <cstdint>
#include <cstdlib>

#include "platform/KeyedArchive.h"

using namespace platform;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (const char* name : {"VXTemplate", "VRSizeEntry", "VRFormat"})
        KeyedUnarchiver::registerClassName(name);
    KeyedUnarchiver::setClassForClassName("VXTemplate", "VRTemplate");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ErrorRef error;
    auto root = KeyedUnarchiver::unarchiveObjectWithData(PlistData(data, data + size), &error);
    if (!root) {
        if (!error || error->code() != NSCoderReadCorruptError) std::abort();
        return 0;
    }
    ErrorRef writeError;
    auto archived = KeyedArchiver::archivedDataWithRootObject(*root, &writeError);
    if (!archived) {
        if (!writeError) std::abort();
        return 0;
    }
    ErrorRef readError;
    if (!KeyedUnarchiver::unarchiveObjectWithData(*archived, &readError)) std::abort();
    return 0;
}
