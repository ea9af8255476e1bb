#include "results/SharingNameRules.h"

#include <algorithm>

#include "results/VXHelperNames.h"

bool isValidSharingBaseName(const std::string& text) {
    // At most one "%" may stand for the number; with more, the text is tested as it is and
    // fails on the "%" itself.
    auto percents = std::count(text.begin(), text.end(), '%');
    if (percents >= 2) return VXHelper::isValidFileName(text);
    std::string withoutPercent = text;
    std::erase(withoutPercent, '%');
    return VXHelper::isValidFileName(withoutPercent);
}

std::string sharingNamePreviewText(const std::string& name, std::uint64_t digits,
                                   const std::vector<std::string>& extensions) {
    if (extensions.size() < 2) {
        if (extensions.empty() || extensions.front().empty()) return name;
        return name + "." + extensions.front();
    }
    return VXHelper::sharingFileNameWithBaseName(name, 1, digits, extensions.front()) + ", " +
           VXHelper::sharingFileNameWithBaseName(name, 2, digits, extensions.back()) + ", etc";
}
