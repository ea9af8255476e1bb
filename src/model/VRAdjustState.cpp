#include "model/VRAdjustState.h"

#include <algorithm>

VRAdjustAssetStateRef VRAdjustState::stateWithKey(const std::string& key) const {
    auto it = _stateArrays.find(key);
    if (it == _stateArrays.end() || it->second.empty()) return nullptr;
    return it->second.back();
}

void VRAdjustState::addState(const VRAdjustAssetStateRef& state, const std::string& key) {
    if (!state) return;
    auto it = _stateArrays.find(key);
    if (it == _stateArrays.end()) {
        _stateArrays[key] = StateArray{state};
        return;
    }
    const StateArray& current = it->second;
    if (!current.empty() && state->isEqualToState(*current.back())) return;
    StateArray replaced = current;
    replaced.push_back(state);
    it->second = std::move(replaced);
}

void VRAdjustState::undoStateWithKey(const std::string& key) {
    auto it = _stateArrays.find(key);
    if (it == _stateArrays.end()) return;
    if (it->second.size() < 2) {
        _stateArrays.erase(it);
        return;
    }
    it->second = StateArray(it->second.begin(), it->second.end() - 1);
}

void VRAdjustState::resetStateWithKey(const std::string& key) {
    _stateArrays.erase(key);
}

void VRAdjustState::resetAll() {
    _stateArrays.clear();
}

void VRAdjustState::undoAll() {
    std::vector<std::string> keys;
    for (const auto& [key, states] : _stateArrays) keys.push_back(key);
    for (const auto& key : keys) undoStateWithKey(key);
}

void VRAdjustState::addStateToAllKeys(const std::vector<std::string>& keys,
                                      const std::optional<std::string>& fromKey) {
    if (!fromKey) return;
    VRAdjustAssetStateRef state = stateWithKey(*fromKey);
    if (!state) state = std::make_shared<const VRAdjustAssetState>();
    for (const auto& key : keys) {
        if (key != *fromKey) addState(state, key);
    }
}

bool VRAdjustState::isEmpty() const {
    return std::all_of(_stateArrays.begin(), _stateArrays.end(), [](const auto& entry) {
        const StateArray& states = entry.second;
        return states.empty() || (states.size() == 1 && states.front()->isEmpty());
    });
}

void VRAdjustState::mergeWithAdjustState(const VRAdjustState& other) {
    for (const auto& [key, states] : other._stateArrays) _stateArrays[key] = states;
}

VRAdjustState VRAdjustState::mergeStates(
    const std::vector<std::shared_ptr<const VRAdjustState>>& states) {
    VRAdjustState merged;
    for (const auto& state : states) {
        if (state) merged.mergeWithAdjustState(*state);
    }
    return merged;
}
