#include "templates/VRTemplateListItem.h"

#include <algorithm>
#include <cctype>

#include "platform/UnicodeText.h"

VRTemplateListItem::VRTemplateListItem(std::string identifier, std::optional<std::string> title,
                                       std::optional<std::string> description,
                                       std::set<std::uint64_t> mediaTypes,
                                       TemplatePictureSource imageSource,
                                       TemplatePictureSource iconSource,
                                       std::vector<std::string> subtitles,
                                       std::vector<std::string> keywords)
    : _identifier(std::move(identifier)),
      _title(std::move(title)),
      _description(std::move(description)),
      _mediaTypes(std::move(mediaTypes)),
      _imageSource(std::move(imageSource)),
      _iconSource(std::move(iconSource)),
      _subtitles(std::move(subtitles)),
      _keywords(std::move(keywords)) {
    if (_subtitles.size() == 1) _subtitles.emplace_back(" ");
}

VRTemplateListItem VRTemplateListItem::withStoredFields(
    std::string identifier, std::optional<std::string> title,
    std::optional<std::string> description, std::set<std::uint64_t> mediaTypes,
    TemplatePictureSource imageSource, TemplatePictureSource iconSource,
    std::vector<std::string> subtitles, std::vector<std::string> keywords) {
    VRTemplateListItem item;
    item._identifier = std::move(identifier);
    item._title = std::move(title);
    item._description = std::move(description);
    item._mediaTypes = std::move(mediaTypes);
    item._imageSource = std::move(imageSource);
    item._iconSource = std::move(iconSource);
    item._subtitles = std::move(subtitles);
    item._keywords = std::move(keywords);
    return item;
}

bool VRTemplateContainsCaseInsensitive(const std::string& text, const std::string& query) {
    return query.empty() || platform::containsCaseInsensitive(text, query);
}

bool VRTemplateListItem::matches(const std::string& query) const {
    if (_title && VRTemplateContainsCaseInsensitive(*_title, query)) return true;
    auto found = [&](const std::string& s) { return VRTemplateContainsCaseInsensitive(s, query); };
    return std::any_of(_subtitles.begin(), _subtitles.end(), found) ||
           std::any_of(_keywords.begin(), _keywords.end(), found);
}
