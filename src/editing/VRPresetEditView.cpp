#include "editing/VRPresetEditView.h"

#include <algorithm>
#include <charconv>

namespace {

bool allDigits(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

bool VRPresetEditView::shouldChangeText(VRPresetEditField field, const std::string& newText) {
    double& value = field == VRPresetEditField::width ? _widthValue : _heightValue;
    double& other = field == VRPresetEditField::width ? _heightValue : _widthValue;
    if (newText == "0" && _inputType == VRSizeTypePixels) {
        // A zero means Auto in pixels, and only one side may be Auto: the other one is cleared.
        if (other != 0) other = 0;
        return false;
    }
    if (!isValidFieldText(newText)) return false;
    double newValue = floatValue(newText);
    double maximum = field == VRPresetEditField::width ? _maxValue.width : _maxValue.height;
    if (maximum > 0 && newValue > maximum) return false;
    value = newValue;
    return true;
}

std::string VRPresetEditView::textAfterChange(const std::string& text, std::size_t location,
                                              std::size_t length, const std::string& replacement) {
    location = std::min(location, text.size());
    length = std::min(length, text.size() - location);
    std::string result = text;
    result.replace(location, length, replacement);
    return result;
}

bool VRPresetEditView::isValidFieldText(const std::string& text) {
    return text.empty() || (text.front() != '0' && allDigits(text));
}

bool VRPresetEditView::isValidListCellText(const std::string& text) {
    return text == "0" || isValidFieldText(text);
}

float VRPresetEditView::floatValue(const std::string& text) {
    std::size_t start = text.find_first_not_of(" \t\n\r\v\f");
    if (start == std::string::npos) return 0;
    const char* first = text.data() + start;
    if (*first == '+') ++first;
    float value = 0;
    std::from_chars_result result = std::from_chars(first, text.data() + text.size(), value);
    return result.ec == std::errc() ? value : 0;
}
