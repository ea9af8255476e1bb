// A heading with its template list items, as the template screens show them: the catalogue's
// sections, the collection section. Holds the filtered items while a search runs.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "templates/VRTemplateListItem.h"

// The order of the collection section: the catalogue's, or the user's selection. Stored as
// these words under vr-defaults-tpl-sorting.
enum class VRTemplateSorting { standard, selection };
const char* VRTemplateSortingName(VRTemplateSorting sorting);
std::optional<VRTemplateSorting> VRTemplateSortingFromName(const std::string& name);

class VRTemplateListSection {
  public:
    struct Config {
        bool showIcons = false;
        bool needsSmartNote = false;
        bool subtitleVisible = false;
        friend bool operator==(const Config&, const Config&) = default;
    };

    // A fresh identifier with each section built.
    VRTemplateListSection(std::string title, std::string subtitle, Config config,
                          std::vector<VRTemplateListItem> items);

    const std::string& title() const { return _title; }
    const std::string& subtitle() const { return _subtitle; }
    const Config& config() const { return _config; }
    const std::string& identifier() const { return _identifier; }
    const std::vector<VRTemplateListItem>& items() const { return _items; }
    // The resource name of the section's picture; empty for none.
    const std::string& imageName() const { return _imageName; }
    void setImageName(std::string name) { _imageName = std::move(name); }

    // The query is trimmed of white space first; an empty query ends the search. The matching
    // items keep their order.
    void search(const std::string& query);
    void clearSearch() { _searchItems.reset(); }
    bool isSearching() const { return _searchItems.has_value(); }
    // What the screen shows: the search result while searching, else all items.
    const std::vector<VRTemplateListItem>& visibleItems() const {
        return _searchItems ? *_searchItems : _items;
    }

  private:
    std::string _title;
    std::string _subtitle;
    Config _config;
    std::vector<VRTemplateListItem> _items;
    std::optional<std::vector<VRTemplateListItem>> _searchItems;
    std::string _identifier;
    std::string _imageName;
};

using VRTemplateListSectionRef = std::shared_ptr<VRTemplateListSection>;
