// `process --adjust FILE.json`: per-item adjustments (turns, mirrors, drags in screen points,
// fill colours) run through one adjust session per media type, as the adjust screen would run
// them, giving the adjust state of each asset of the run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "model/VRAdjustState.h"
#include "templates/VXTemplate.h"

namespace app {

// The option's help: the JSON format.
extern const char* const kAdjustOptionHelp;

// The run's inputs in order: each asset with the name an item may give for it (a file's path
// as given or absolute, a library asset's identifier).
struct AdjustInput {
    VRAssetRef asset;
    std::string name;
    std::optional<std::string> path;
};
using AdjustInputs = std::vector<AdjustInput>;

// The states of the file's items, keyed by the assets' objectIdentifier; absent with the
// reason in `problem` for a file that can't be read, JSON that is no such document, or an
// item that names no input of the run. Notes on drags that moved nothing go to `notes`.
std::optional<VRAdjustState> adjustStatesFromJSON(const std::string& text,
                                                  const AdjustInputs& inputs, const VXTemplate& tpl,
                                                  std::string* problem,
                                                  std::vector<std::string>* notes = nullptr);
std::optional<VRAdjustState> adjustStatesFromFile(const std::string& path,
                                                  const AdjustInputs& inputs, const VXTemplate& tpl,
                                                  std::string* problem,
                                                  std::vector<std::string>* notes = nullptr);

// The command's step: with a path, reads it into `states` (notes and errors on standard
// error); the exit code.
int prepareAdjustStates(const std::optional<std::string>& path, const AdjustInputs& inputs,
                        const VXTemplate& tpl, std::optional<VRAdjustState>& states);
// The asset's state from the file, else `fallback` (the adjustment flags' state).
VRAdjustAssetStateRef adjustStateForAsset(const std::optional<VRAdjustState>& states,
                                          const VRAsset& asset,
                                          const VRAdjustAssetStateRef& fallback);

}  // namespace app
