#include "editing/ResolutionModel.h"

#include <algorithm>
#include <cmath>

#include "editing/VRPresetEditView.h"
#include "storage/VRSettings.h"

namespace {

std::string textOfResolution(double dpi) {
    if (!std::isfinite(dpi) || dpi < 0 || dpi > 1e15) return {};
    return std::to_string(static_cast<long long>(std::llround(dpi)));
}

}  // namespace

ResolutionModel::ResolutionModel()
    : _value(textOfResolution(VRSettings::photoDPI())),
      _oldValue(_value),
      _recommended(VRSettings::isPhotoDPIAuto()) {}

bool ResolutionModel::matchesResolution(const std::string& text) {
    if (text == "0") return true;
    return !text.empty() && text.front() != '0' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool ResolutionModel::setValue(const std::string& text) {
    if (text.empty()) {
        _value = text;
        return true;
    }
    if (!matchesResolution(text)) {
        _value = _oldValue;
        return false;
    }
    _value = text;
    _oldValue = text;
    VRSettings::setPhotoDPI(VRPresetEditView::floatValue(text));
    return true;
}

void ResolutionModel::setRecommended(bool automatic) {
    _recommended = automatic;
    VRSettings::setPhotoDPIAuto(automatic);
}
