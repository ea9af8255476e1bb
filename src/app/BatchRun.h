// The `process` command's batch run: a VRResultController over the command's inputs, run on
// the main thread until it ends. Its events drive a BatchRunView; its alerts are asked on a
// terminal or answered by the options; Ctrl-C cancels it and Ctrl-Z / fg pause and resume it.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/BatchRunView.h"
#include "app/ProcessInputs.h"
#include "core/VRError.h"
#include "model/VRAdjustAssetState.h"
#include "templates/VXTemplate.h"

namespace app {

struct BatchRunOptions {
    // A failed asset is recorded and cleared from the run, and the next one goes on.
    bool keepGoing = false;
    // Over the size limit, "Proceed" without asking.
    bool proceedOverLimit = false;
    // The error dialog is answered "Contact us" instead of "Ok" where nobody is asked.
    bool reportErrors = false;
    // The alerts are asked on the terminal.
    bool ask = false;
};

// An item that ended with a result. The result is the object the run's list holds, shared and
// not copied; the item is named by its place in the run's inputs.
struct BatchRunResult {
    VRAssetRef result;
    // From the start of the item's first pass to its end (a limit retry included).
    double seconds = 0;
    std::size_t input = 0;
};

// An item that failed: its place in the run's inputs and the error that stopped it.
struct BatchRunFailure {
    VRErrorRef error;
    std::size_t input = 0;
};

struct BatchRunOutcome {
    std::vector<BatchRunResult> results;
    std::vector<BatchRunFailure> failures;
    bool interrupted = false;
};

struct BatchRunHandlers {
    // An item's first pass starts.
    std::function<void(const ProcessInput& input)> started;
    // An item failed; the run stops after it unless it keeps going.
    std::function<void(const ProcessInput& input, const VRError& error)> failed;
    // "Contact us" of the error dialog: the message and the details the run hands on.
    std::function<void(const std::string& message,
                       const std::optional<platform::PlistDictionary>& info)>
        contactUs;
};

// The adjust state of one item of the run.
using AdjustStateForAsset = std::function<VRAdjustAssetStateRef(const VRAsset& asset)>;

// Runs `inputs` with `tpl` and each item's adjust state. `interrupted` is watched for
// a cancel (set by a signal handler). Returns when the run ends, stops at a failure or is
// cancelled; a cancelled item leaves no file and no result. An input's asset is let go as soon
// as its item has ended (its name and path stay), so that a long run holds its results and
// not its inputs as well.
BatchRunOutcome runBatch(std::vector<ProcessInput>& inputs, const VXTemplateRef& tpl,
                         const AdjustStateForAsset& stateFor, const BatchRunOptions& options,
                         BatchRunView& view, const BatchRunHandlers& handlers,
                         const std::atomic<bool>& interrupted);

}  // namespace app
