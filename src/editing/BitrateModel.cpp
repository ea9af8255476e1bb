#include "editing/BitrateModel.h"

#include <charconv>
#include <cstdio>

#include "storage/VRSettings.h"

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Two decimals at most, without trailing zeros, as the field shows a stored value.
std::string textOfBitrate(double megabits) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.2f", megabits);
    std::string text = buffer;
    while (!text.empty() && text.back() == '0') text.pop_back();
    if (!text.empty() && text.back() == '.') text.pop_back();
    return text;
}

}  // namespace

BitrateModel::BitrateModel()
    : _value(textOfBitrate(VRSettings::videoBitrate())),
      _oldValue(_value),
      _recommended(VRSettings::isVideoBitrateAuto()) {}

bool BitrateModel::matchesBitrate(const std::string& text) {
    std::size_t i = 0;
    // Integer part: empty, "0", or digits without a leading zero.
    if (i < text.size() && text[i] == '0') {
        ++i;
    } else {
        while (i < text.size() && isDigit(text[i])) ++i;
    }
    if (i == text.size()) return true;
    if (text[i] != '.' && text[i] != ',') return false;
    std::size_t decimals = text.size() - i - 1;
    if (decimals > 2) return false;
    for (std::size_t k = i + 1; k < text.size(); ++k) {
        if (!isDigit(text[k])) return false;
    }
    return true;
}

double BitrateModel::parseBitrate(const std::string& text) {
    std::string normalised = text;
    for (char& c : normalised) {
        if (c == ',') c = '.';
    }
    double value = 0;
    std::from_chars_result result =
        std::from_chars(normalised.data(), normalised.data() + normalised.size(), value);
    return result.ec == std::errc() ? value : 0;
}

bool BitrateModel::setValue(const std::string& text) {
    if (text.empty()) {
        _value = text;
        return true;
    }
    if (!matchesBitrate(text)) {
        _value = _oldValue;
        return false;
    }
    _value = text;
    _oldValue = text;
    VRSettings::setVideoBitrate(parseBitrate(text));
    return true;
}

void BitrateModel::setRecommended(bool automatic) {
    _recommended = automatic;
    VRSettings::setVideoBitrateAuto(automatic);
}
