// What `unwarp process` prints for each item of its run: a result line ("SOURCE -> OUTPUT  W x H
// FORMAT", or one JSON object) on standard output, and a failure with the error's words and
// its plainest cause on standard error (or as a JSON object on standard output).
#pragma once

#include <string>

#include "app/BatchRun.h"

namespace app {

// `output` is where the result can be found: the file shared into --out, or the result's own
// place. `format` is the format's name.
void printResult(const BatchRunItem& item, const std::string& output, const std::string& format,
                 bool json);

// Prints the failure of `item`; answers the exit code of a processing failure.
int printFailure(const BatchRunItem& item, bool json);

}  // namespace app
