#include "templates/VRTemplateListSection.h"

#include "platform/UUID.h"

namespace {

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
      _identifier(platform::UUIDString()) {}

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
