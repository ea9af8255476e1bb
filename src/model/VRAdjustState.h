// The undo stacks of adjust states of one editing run, by the assets' objectIdentifier.
// Built on the main thread while editing, then handed to the processor, which only reads it.
// Arrays are replaced on change and states never change once added, so copies share safely.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/VRAdjustAssetState.h"

class VRAdjustState {
  public:
    using StateArray = std::vector<VRAdjustAssetStateRef>;

    // Oldest first; the state of a key is the last element.
    const std::map<std::string, StateArray>& stateArrays() const { return _stateArrays; }

    // The last state of the key, or null.
    VRAdjustAssetStateRef stateWithKey(const std::string& key) const;
    // A null state does nothing. Appended unless equal to the key's current state.
    void addState(const VRAdjustAssetStateRef& state, const std::string& key);
    // With fewer than 2 states the key goes; otherwise its last state.
    void undoStateWithKey(const std::string& key);
    void resetStateWithKey(const std::string& key);
    void resetAll();
    void undoAll();
    // The source key's state (or a new empty one) added to every other key of the list, the
    // same object shared by all. Without a source key nothing happens.
    void addStateToAllKeys(const std::vector<std::string>& keys,
                           const std::optional<std::string>& fromKey);
    // No keys, or every array empty or holding exactly one empty state.
    bool isEmpty() const;
    // The other's keys are added; on a shared key the other's array replaces this one's.
    void mergeWithAdjustState(const VRAdjustState& other);
    // All given states merged in order into a new one; null entries are skipped.
    static VRAdjustState mergeStates(
        const std::vector<std::shared_ptr<const VRAdjustState>>& states);

  private:
    std::map<std::string, StateArray> _stateArrays;
};
