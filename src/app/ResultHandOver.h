// Hands a finished file (and a Live Photo's movie) over to the user's output folder for the
// `process` command: under the result's name, or the next free one by the incrementing rule
// ("IMG_1234.jpg", "IMG_1234-1.jpg", "IMG_1234-2.jpg", ...), so that nothing there is ever
// replaced, by this run or by another process writing into the same folder.
#pragma once

#include <optional>
#include <string>

#include "platform/Error.h"

namespace app {

struct HandedOver {
    std::string output;
    // A Live Photo's movie, beside its still under the same name; absent when there was none
    // or it could not be moved (it is dropped then, as a failed video half is).
    std::optional<std::string> pairedOutput;
};

// The name for attempt `n` (0 is the name itself): "<stem>-<n>.<extension>".
std::string freeNameCandidate(const std::string& stem, const std::string& extension, int n);

// Moves `file` (and `paired`) into `folder`. Each name is claimed atomically (a no-replace
// rename, or a link after a copy across file systems), so two processes never take one name.
// The moved files lose the backup exclusion that the program's own storage carries. On
// failure nothing in `folder` is touched and the files stay where they were.
std::optional<HandedOver> handOverResult(const std::string& file,
                                         const std::optional<std::string>& paired,
                                         const std::string& folder, platform::ErrorRef* error);

}  // namespace app
