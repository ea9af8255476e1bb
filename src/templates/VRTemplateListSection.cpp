#include "templates/VRTemplateListSection.h"

#include <cstdio>
#include <random>

namespace {

// A random (version 4) UUID in its upper-case text form.
std::string newUUIDString() {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t hi = generator(), lo = generator();
    hi = (hi & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;
    lo = (lo & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
    char text[37];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(hi >> 32),
                  static_cast<unsigned>((hi >> 16) & 0xFFFF), static_cast<unsigned>(hi & 0xFFFF),
                  static_cast<unsigned>(lo >> 48),
                  static_cast<unsigned long long>(lo & 0xFFFFFFFFFFFFull));
    return text;
}

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\n\r\f\v";
    auto first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    auto last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

}  // namespace

const char* VRTemplateSortingName(VRTemplateSorting sorting) {
    return sorting == VRTemplateSorting::selection ? "selection" : "standard";
}

std::optional<VRTemplateSorting> VRTemplateSortingFromName(const std::string& name) {
    if (name == "standard") return VRTemplateSorting::standard;
    if (name == "selection") return VRTemplateSorting::selection;
    return std::nullopt;
}

VRTemplateListSection::VRTemplateListSection(std::string title, std::string subtitle, Config config,
                                             std::vector<VRTemplateListItem> items)
    : _title(std::move(title)),
      _subtitle(std::move(subtitle)),
      _config(config),
      _items(std::move(items)),
      _identifier(newUUIDString()) {}

void VRTemplateListSection::search(const std::string& query) {
    auto needle = trimmed(query);
    if (needle.empty()) {
        clearSearch();
        return;
    }
    std::vector<VRTemplateListItem> found;
    for (const auto& item : _items) {
        if (item.matches(needle)) found.push_back(item);
    }
    _searchItems = std::move(found);
}
