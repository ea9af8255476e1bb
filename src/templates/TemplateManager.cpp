#include "templates/TemplateManager.h"

#include <algorithm>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "templates/TemplateBodies.h"
#include "templates/TemplateCatalogue.h"
#include "templates/TemplateListFile.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace {

constexpr const char* kCollectionTitle = "My Collection";
constexpr const char* kCollectionSubtitle = "Create content for various purposes";
constexpr const char* kCollectionImageName = "sample-square.jpg";

std::string templatesDirectory() {
    return platform::Environment::documentsDirectory() + "/templates";
}

VRTemplateListItem itemWithLegacyInfo(const VRLegacyTemplateInfo& info) {
    std::set<std::uint64_t> mediaTypes;
    for (auto type : info.mediaTypes) {
        if (type >= 0) mediaTypes.insert(static_cast<std::uint64_t>(type));
    }
    std::vector<std::string> subtitles;
    if (auto tpl = TemplateBodies::templateWithIdentifier(info.identifier)) {
        subtitles = VXHelper::subtitlesForTemplate(*tpl);
    }
    return VRTemplateListItem(info.identifier, info.title, info.templateDescription,
                              std::move(mediaTypes), TemplatePictureSource::templateIdentifier(),
                              TemplatePictureSource::empty(), std::move(subtitles));
}

// The item with a new title or picture and no keywords; everything else stays.
VRTemplateListItem rebuiltItem(const VRTemplateListItem& item,
                               const std::optional<std::string>& title,
                               const TemplatePictureSource& imageSource) {
    return VRTemplateListItem::withStoredFields(item.identifier(), title, item.description(),
                                                item.mediaTypes(), imageSource, item.iconSource(),
                                                item.subtitles(), {});
}

std::optional<std::vector<VRTemplateListItem>> decodeItems(const platform::PlistData& data,
                                                           platform::ErrorRef* error) {
    return VRTemplateListCoding::decodeItems(data, error);
}
platform::PlistData encodeItems(const std::vector<VRTemplateListItem>& items) {
    return VRTemplateListCoding::encodeItems(items);
}
std::optional<std::vector<std::string>> decodeStrings(const platform::PlistData& data,
                                                      platform::ErrorRef* error) {
    return VRTemplateListCoding::decodeStrings(data, error);
}

std::optional<std::size_t> indexOf(const std::vector<VRTemplateListItem>& items,
                                   const std::string& identifier) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (items[i].identifier() == identifier) return i;
    }
    return std::nullopt;
}

// An edit of a stored list that takes out the item of `identifier`; false when it is not there.
auto eraseItem(const std::string& identifier) {
    return [&identifier](std::vector<VRTemplateListItem>& items) {
        auto index = indexOf(items, identifier);
        if (!index) return false;
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(*index));
        return true;
    };
}

}  // namespace

TemplateManager& TemplateManager::shared() {
    // Lives for the whole process: destroying it at exit would wait on a queue whose
    // thread-local state is already gone. Callers wait for their writes before exiting.
    static TemplateManager* manager = new TemplateManager();
    return *manager;
}

TemplateManager::TemplateManager()
    : _standardTemplates(TemplateCatalogue::standardSections()),
      _executableTemplates(TemplateCatalogue::executableTemplates()),
      _userListURL(userListPath()),
      _recentsURL(recentsPath()),
      _collectionURL(collectionPath()) {
    for (const auto& [key, tpl] : _executableTemplates) _catalogueKeys.insert(key);
}

TemplateManager::~TemplateManager() {
    if (_saveQueue) waitForPendingWrites();
}

std::string TemplateManager::userListPath() {
    return templatesDirectory() + "/list";
}
std::string TemplateManager::recentsPath() {
    return templatesDirectory() + "/recents";
}
std::string TemplateManager::collectionPath() {
    return templatesDirectory() + "/collection";
}

platform::DispatchQueue& TemplateManager::_queue() {
    if (!_saveQueue) {
        _saveQueue = platform::DispatchQueue::create(
            "template-save-queue", platform::DispatchQueue::Attributes::concurrent,
            platform::DispatchQoS::utility);
    }
    return *_saveQueue;
}

void TemplateManager::waitForPendingWrites() {
    _queue().syncBarrier([] {});
}

const VRTemplateListItem& TemplateManager::exampleTemplate() {
    if (!_exampleTemplate) _exampleTemplate = TemplateCatalogue::exampleItem();
    return *_exampleTemplate;
}

// Resolving ----------------------------------------------------------------------------------

VXTemplateRef TemplateManager::templateWithKey(const std::string& key) {
    if (auto it = _executableTemplates.find(key); it != _executableTemplates.end()) {
        return it->second->copy();
    }
    auto tpl = TemplateBodies::templateWithIdentifier(key);
    if (!tpl) return nullptr;
    _executableTemplates[key] = tpl;
    return tpl->copy();
}

VXTemplateRef TemplateManager::templateForItem(const VRTemplateListItem& item) {
    auto tpl = templateWithKey(item.identifier());
    if (tpl && !tpl->identifier()) {
        tpl->setName(item.title());
        tpl->setIdentifier(item.identifier());
        tpl->setTemplateDescription(item.description());
        tpl->setStored(true);
        if (item.imageSource().kind() == TemplatePictureSource::Kind::bundle) {
            tpl->setBundleImageName(item.imageSource().bundleName());
        }
    }
    return tpl;
}

VRTemplateListItem TemplateManager::listItemWithTemplate(const VXTemplate& tpl,
                                                         const std::string& identifier) {
    auto types = tpl.mediaTypes();
    return VRTemplateListItem(
        identifier, tpl.name(), tpl.templateDescription(), {types.begin(), types.end()},
        tpl.bundleImageName() ? TemplatePictureSource::bundle(*tpl.bundleImageName())
                              : TemplatePictureSource::templateIdentifier(),
        TemplatePictureSource::empty(), VXHelper::subtitlesForTemplate(tpl));
}

// Files --------------------------------------------------------------------------------------

std::optional<std::vector<VRTemplateListItem>> TemplateManager::_readItems(
    const std::string& path) {
    std::optional<std::vector<VRTemplateListItem>> items;
    _queue().sync([&] { items = TemplateListFile::read(path, decodeItems); });
    return items;
}

bool TemplateManager::_changeItems(std::vector<VRTemplateListItem>& items, const std::string& path,
                                   const ItemsChange& change, platform::ErrorRef* error) {
    bool written = false;
    // A barrier: the lists in memory are changed by one change at a time.
    _queue().syncBarrier([&] {
        written = TemplateListFile::change<VRTemplateListItem>(path, decodeItems, encodeItems,
                                                               items, change, &items, error);
    });
    if (!written && error && *error) {
        platform::log("~~ template list " + path + " not written: " + (*error)->description());
    }
    return written;
}

// Lazy loads ---------------------------------------------------------------------------------

void TemplateManager::_loadUserTemplates() {
    if (_userTemplatesLoaded) return;
    if (auto items = _readItems(_userListURL)) {
        _userTemplates = std::move(*items);
        _userTemplatesLoaded = true;
        return;
    }
    std::vector<VRTemplateListItem> collected;
    VRSettings::eraseOldTemplateList(
        [&](const VRLegacyTemplateInfo& info) { collected.push_back(itemWithLegacyInfo(info)); });
    _userTemplates = std::move(collected);
    _userTemplatesLoaded = true;
    // Written only when still no list is there: another process may have made it meanwhile.
    _changeItems(_userTemplates, _userListURL, [](std::vector<VRTemplateListItem>&) {
        return !platform::FileManager::fileExistsAtPath(userListPath());
    });
}

void TemplateManager::_loadRecentTemplates() {
    if (_recentTemplatesLoaded) return;
    _recentTemplatesLoaded = true;
    if (auto items = _readItems(_recentsURL)) {
        _recentTemplates = std::move(*items);
    } else {
        _recentTemplates = {exampleTemplate()};
    }
}

void TemplateManager::_loadUserCollection() {
    if (_userCollectionLoaded) return;
    _userCollectionLoaded = true;
    std::optional<std::vector<std::string>> keys;
    _queue().sync([&] { keys = TemplateListFile::read(_collectionURL, decodeStrings); });
    _userCollection = keys ? std::move(*keys) : std::vector<std::string>{};
}

// The user list ------------------------------------------------------------------------------

const std::vector<VRTemplateListItem>& TemplateManager::userTemplates() {
    _loadUserTemplates();
    return _userTemplates;
}

void TemplateManager::_userListChanged() {
    if (_cachedUserCollectionEntry && _cachedUserCollectionEntry->personalTemplatesIncluded) {
        _cachedUserCollectionEntry.reset();
    }
}

bool TemplateManager::updateUserTemplate(const VXTemplateRef& tpl, const std::string& identifier,
                                         platform::ErrorRef* error) {
    if (!tpl) return false;
    _userListChanged();
    _loadUserTemplates();
    auto item = listItemWithTemplate(*tpl, identifier);
    return _changeItems(
        _userTemplates, _userListURL,
        [&](std::vector<VRTemplateListItem>& items) {
            if (auto index = indexOf(items, identifier)) {
                items[*index] = item;
                _executableTemplates[identifier] = tpl;
            } else {
                // The template comes in through the resolving step on its first use.
                items.push_back(item);
            }
            return true;
        },
        error);
}

bool TemplateManager::resetUserTemplateImageSourceWith(const std::string& identifier,
                                                       platform::ErrorRef* error) {
    return _changeUserItem(
        identifier,
        [](VRTemplateListItem& item, VXTemplate* tpl) {
            item = rebuiltItem(item, item.title(), TemplatePictureSource::templateIdentifier());
            if (tpl) tpl->setBundleImageName(std::nullopt);
        },
        error);
}

bool TemplateManager::renameUserTemplateWith(const std::optional<std::string>& name,
                                             const std::string& identifier,
                                             platform::ErrorRef* error) {
    return _changeUserItem(
        identifier,
        [&name](VRTemplateListItem& item, VXTemplate* tpl) {
            item = rebuiltItem(item, name, item.imageSource());
            if (tpl) tpl->setName(name);
        },
        error);
}

bool TemplateManager::_changeUserItem(
    const std::string& identifier,
    const std::function<void(VRTemplateListItem& item, VXTemplate* tpl)>& change,
    platform::ErrorRef* error) {
    _userListChanged();
    _loadUserTemplates();
    return _changeItems(
        _userTemplates, _userListURL,
        [&](std::vector<VRTemplateListItem>& items) {
            auto index = indexOf(items, identifier);
            if (!index) return false;
            auto it = _executableTemplates.find(identifier);
            change(items[*index], it != _executableTemplates.end() ? it->second.get() : nullptr);
            return true;
        },
        error);
}

std::optional<std::string> TemplateManager::duplicateUserTemplateWith(
    const std::string& identifier, const VXTemplateRef& newTemplate, platform::ErrorRef* error) {
    _userListChanged();
    if (!_userIndex(identifier) || !newTemplate) return std::nullopt;
    auto newIdentifier = TemplateBodies::saveTemplate(*newTemplate, false);
    if (!newIdentifier) return std::nullopt;
    VRSettings::copyTemplateImageDataToTemplateWithIdentifier(*newIdentifier, identifier);
    auto item = listItemWithTemplate(*newTemplate, *newIdentifier);
    bool written = _changeItems(
        _userTemplates, _userListURL,
        [&](std::vector<VRTemplateListItem>& items) {
            // Removed by another process meanwhile: the copy goes to the end.
            auto index = indexOf(items, identifier);
            auto at = index ? items.begin() + static_cast<std::ptrdiff_t>(*index) + 1 : items.end();
            items.insert(at, item);
            return true;
        },
        error);
    if (written) return newIdentifier;
    VRSettings::removeTemplateDirWithIdentifier(*newIdentifier);
    return std::nullopt;
}

bool TemplateManager::removeUserTemplateWith(const std::string& identifier,
                                             platform::ErrorRef* error) {
    _userListChanged();
    _loadUserTemplates();
    return _changeItems(_userTemplates, _userListURL, eraseItem(identifier), error);
}

std::optional<std::size_t> TemplateManager::_userIndex(const std::string& identifier) {
    _loadUserTemplates();
    return indexOf(_userTemplates, identifier);
}

bool TemplateManager::_isCatalogueKey(const std::string& key) const {
    return _catalogueKeys.count(key) != 0;
}

// The recents --------------------------------------------------------------------------------

const std::vector<VRTemplateListItem>& TemplateManager::recentTemplates() {
    _loadRecentTemplates();
    return _recentTemplates;
}

void TemplateManager::_removeRecentAt(std::vector<VRTemplateListItem>& items, std::size_t index) {
    std::string identifier = items[index].identifier();
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(index));
    // The seeded example is a catalogue template: it leaves the recents but stays resolvable.
    if (_isCatalogueKey(identifier)) return;
    _executableTemplates.erase(identifier);
    VRSettings::removeTemplateDirWithIdentifier(identifier);
}

bool TemplateManager::updateRecentTemplate(const VXTemplateRef& tpl, const std::string& identifier,
                                           platform::ErrorRef* error) {
    if (!tpl) return false;
    _loadRecentTemplates();
    auto item = listItemWithTemplate(*tpl, identifier);
    return _changeItems(
        _recentTemplates, _recentsURL,
        [&](std::vector<VRTemplateListItem>& items) {
            if (auto index = indexOf(items, identifier)) {
                items[*index] = item;
                _executableTemplates[identifier] = tpl;
                return true;
            }
            std::optional<std::size_t> repeat;
            for (std::size_t i = items.size(); i-- > 0;) {
                if (items[i].title() == item.title() && items[i].subtitles() == item.subtitles()) {
                    repeat = i;
                    break;
                }
            }
            if (repeat) {
                _removeRecentAt(items, *repeat);
            } else if (items.size() >= _numberOfRecentTemplates) {
                _removeRecentAt(items, 0);
            }
            items.push_back(item);
            return true;
        },
        error);
}

std::optional<std::string> TemplateManager::saveRecentTemplate(
    const VXTemplateRef& tpl, const std::optional<platform::PlistData>& imageData,
    platform::ErrorRef* error) {
    if (!tpl) return std::nullopt;
    auto identifier = TemplateBodies::saveTemplate(*tpl, true);
    if (!identifier) return std::nullopt;
    // Without a picture the item shows the fallback; the template is kept all the same.
    if (imageData) TemplateBodies::saveTemplateImageData(*imageData, *identifier);
    if (updateRecentTemplate(tpl, *identifier, error)) return identifier;
    VRSettings::removeTemplateDirWithIdentifier(*identifier);
    return std::nullopt;
}

bool TemplateManager::removeRecentTemplateWith(const std::string& identifier,
                                               platform::ErrorRef* error) {
    _loadRecentTemplates();
    return _changeItems(_recentTemplates, _recentsURL, eraseItem(identifier), error);
}

// The collection -----------------------------------------------------------------------------

const std::vector<std::string>& TemplateManager::userCollection() {
    _loadUserCollection();
    return _userCollection;
}

bool TemplateManager::updateUserCollection(std::vector<std::string> keys,
                                           platform::ErrorRef* error) {
    _loadUserCollection();
    _cachedUserCollectionEntry.reset();
    bool written = false;
    _queue().syncBarrier([&] {
        written = TemplateListFile::change<std::string>(
            _collectionURL, decodeStrings, VRTemplateListCoding::encodeStrings, _userCollection,
            [&](std::vector<std::string>& stored) {
                // The keys replace the collection, whatever it held meanwhile.
                stored = keys;
                return true;
            },
            &_userCollection, error);
    });
    return written;
}

VRTemplateListSectionRef TemplateManager::userCollectionSection(bool personalTemplatesIncluded,
                                                                VRTemplateSorting sorting) {
    if (_cachedUserCollectionEntry &&
        _cachedUserCollectionEntry->personalTemplatesIncluded == personalTemplatesIncluded &&
        _cachedUserCollectionEntry->sorting == sorting) {
        return _cachedUserCollectionEntry->section;
    }
    const auto& keys = userCollection();
    std::vector<VRTemplateListItem> items;
    if (sorting == VRTemplateSorting::standard) {
        for (const auto& section : _standardTemplates) {
            for (const auto& item : section->items()) {
                if (std::find(keys.begin(), keys.end(), item.identifier()) != keys.end()) {
                    items.push_back(item);
                }
            }
        }
    } else {
        for (const auto& key : keys) {
            for (const auto& section : _standardTemplates) {
                if (auto index = indexOf(section->items(), key)) {
                    items.push_back(section->items()[*index]);
                    break;
                }
            }
        }
    }
    if (personalTemplatesIncluded) {
        const auto& personal = userTemplates();
        items.insert(items.end(), personal.begin(), personal.end());
    }
    auto section = std::make_shared<VRTemplateListSection>(
        kCollectionTitle, kCollectionSubtitle, VRTemplateListSection::Config{}, std::move(items));
    section->setImageName(kCollectionImageName);
    _cachedUserCollectionEntry = UserCollectionEntry{personalTemplatesIncluded, sorting, section};
    return section;
}
