// What `unwarp process` prints for each item of its run: a result line ("SOURCE -> OUTPUT  W x H
// FORMAT", or one JSON object) on standard output, and a failure with the error's words and
// its plainest cause on standard error (or as a JSON object on standard output).
#pragma once

#include <string>

#include "app/BatchRun.h"

namespace app {

// The result of the input named `source`, made in `seconds`. `output` is where the result can be
// found: the file shared into --out, or the result's own place. `format` is the format's name.
void printResult(const std::string& source, const BatchRunResult& item, const std::string& output,
                 const std::string& format, bool json);

// Prints the failure of `input`; answers the exit code of a processing failure.
int printFailure(const ProcessInput& input, const VRError& error, bool json);

}  // namespace app
