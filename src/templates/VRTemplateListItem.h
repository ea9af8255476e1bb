// One row of the template screens: a template's key with the title, detail lines, pictures and
// search words that show it. The catalogue sections and the user, recent and collection lists
// are made of these; the store keeps the template itself.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "templates/TemplatePictureSource.h"

class VRTemplateListItem {
  public:
    // One subtitle gets a single blank appended as its second line.
    VRTemplateListItem(std::string identifier, std::optional<std::string> title,
                       std::optional<std::string> description, std::set<std::uint64_t> mediaTypes,
                       TemplatePictureSource imageSource, TemplatePictureSource iconSource,
                       std::vector<std::string> subtitles, std::vector<std::string> keywords = {});

    // As decoded from a list file: the fields exactly as stored.
    static VRTemplateListItem withStoredFields(
        std::string identifier, std::optional<std::string> title,
        std::optional<std::string> description, std::set<std::uint64_t> mediaTypes,
        TemplatePictureSource imageSource, TemplatePictureSource iconSource,
        std::vector<std::string> subtitles, std::vector<std::string> keywords);

    const std::string& identifier() const { return _identifier; }
    const std::optional<std::string>& title() const { return _title; }
    const std::optional<std::string>& description() const { return _description; }
    const std::set<std::uint64_t>& mediaTypes() const { return _mediaTypes; }
    const TemplatePictureSource& imageSource() const { return _imageSource; }
    const TemplatePictureSource& iconSource() const { return _iconSource; }
    const std::vector<std::string>& subtitles() const { return _subtitles; }
    const std::vector<std::string>& keywords() const { return _keywords; }

    // Search: the query as a case-insensitive substring of the title when there is one, else of
    // any subtitle, else of any keyword. Description and identifier are not searched.
    bool matches(const std::string& query) const;

    friend bool operator==(const VRTemplateListItem&, const VRTemplateListItem&) = default;

  private:
    VRTemplateListItem() = default;

    std::string _identifier;
    std::optional<std::string> _title;
    std::optional<std::string> _description;
    std::set<std::uint64_t> _mediaTypes;
    TemplatePictureSource _imageSource = TemplatePictureSource::empty();
    TemplatePictureSource _iconSource = TemplatePictureSource::empty();
    std::vector<std::string> _subtitles;
    std::vector<std::string> _keywords;
};

// The case-insensitive substring test of the list search: case folds in every script ("élan"
// finds "Élan"). An empty query is found everywhere.
bool VRTemplateContainsCaseInsensitive(const std::string& text, const std::string& query);
