#include "templates/TemplateManager.h"

#include <algorithm>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "templates/TemplateCatalogue.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace {

constexpr const char* kCollectionTitle = "My Collection";
constexpr const char* kCollectionSubtitle = "Create content for various purposes";

std::string templatesDirectory() {
    return platform::Environment::documentsDirectory() + "/templates";
}

VRTemplateListItem itemWithLegacyInfo(const VRLegacyTemplateInfo& info) {
    std::set<std::uint64_t> mediaTypes;
    for (auto type : info.mediaTypes) {
        if (type >= 0) mediaTypes.insert(static_cast<std::uint64_t>(type));
    }
    std::vector<std::string> subtitles;
    if (auto tpl = VRSettings::templateWithIdentifier(info.identifier)) {
        subtitles = VXHelper::subtitlesForTemplate(*tpl);
    }
    return VRTemplateListItem(info.identifier, info.title, info.templateDescription,
                              std::move(mediaTypes), ImageSource::templateIdentifier(),
                              ImageSource::empty(), std::move(subtitles));
}

// The item with a new title or picture and no keywords; everything else stays.
VRTemplateListItem rebuiltItem(const VRTemplateListItem& item,
                               const std::optional<std::string>& title,
                               const ImageSource& imageSource) {
    return VRTemplateListItem::withStoredFields(item.identifier(), title, item.description(),
                                                item.mediaTypes(), imageSource, item.iconSource(),
                                                item.subtitles(), {});
}

std::optional<std::size_t> indexOf(const std::vector<VRTemplateListItem>& items,
                                   const std::string& identifier) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (items[i].identifier() == identifier) return i;
    }
    return std::nullopt;
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
    auto tpl = VRSettings::templateWithIdentifier(key);
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
        if (item.imageSource().kind() == ImageSource::Kind::bundle) {
            tpl->setBundleImageName(item.imageSource().bundleName());
        }
    }
    return tpl;
}

VRTemplateListItem TemplateManager::listItemWithTemplate(const VXTemplate& tpl,
                                                         const std::string& identifier) {
    auto types = tpl.mediaTypes();
    return VRTemplateListItem(identifier, tpl.name(), tpl.templateDescription(),
                              {types.begin(), types.end()},
                              tpl.bundleImageName() ? ImageSource::bundle(*tpl.bundleImageName())
                                                    : ImageSource::templateIdentifier(),
                              ImageSource::empty(), VXHelper::subtitlesForTemplate(tpl));
}

// Files --------------------------------------------------------------------------------------

std::optional<std::vector<VRTemplateListItem>> TemplateManager::_readItems(
    const std::string& path) {
    std::optional<std::vector<VRTemplateListItem>> items;
    _queue().sync([&] {
        if (!platform::FileManager::fileExistsAtPath(path)) return;
        platform::ErrorRef error;
        auto data = platform::FileManager::contentsAtPath(path, &error,
                                                          VRTemplateListCoding::kMaxFileBytes);
        if (data) items = VRTemplateListCoding::decodeItems(*data, &error);
        if (!items) {
            platform::log("~~ unreadable template list " + path + ": " +
                          (error ? error->description() : std::string("unknown error")));
        }
    });
    return items;
}

void TemplateManager::_writeItems(const std::vector<VRTemplateListItem>& items,
                                  const std::string& path) {
    // Writes are barriers so that they land in the order they were made: a later list must
    // never be overwritten by an earlier one still in flight.
    _queue().asyncBarrier(
        [items, path] { VXHelper::saveData(VRTemplateListCoding::encodeItems(items), path); });
}

void TemplateManager::_writeCollection() {
    _queue().asyncBarrier([keys = _userCollection, path = _collectionURL] {
        VXHelper::saveData(VRTemplateListCoding::encodeStrings(keys), path);
    });
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
    _writeItems(_userTemplates, _userListURL);
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
    _queue().sync([&] {
        auto data = platform::FileManager::contentsAtPath(_collectionURL, nullptr,
                                                          VRTemplateListCoding::kMaxFileBytes);
        if (data) keys = VRTemplateListCoding::decodeStrings(*data);
    });
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

std::optional<std::size_t> TemplateManager::_userIndex(const std::string& identifier) {
    _loadUserTemplates();
    return indexOf(_userTemplates, identifier);
}

void TemplateManager::updateUserTemplate(const VXTemplateRef& tpl, const std::string& identifier) {
    if (!tpl) return;
    _userListChanged();
    auto item = listItemWithTemplate(*tpl, identifier);
    if (auto index = _userIndex(identifier)) {
        _userTemplates[*index] = std::move(item);
        _executableTemplates[identifier] = tpl;
    } else {
        // The template comes in through the resolving step on its first use.
        _userTemplates.push_back(std::move(item));
    }
    _writeItems(_userTemplates, _userListURL);
}

void TemplateManager::resetUserTemplateImageSourceWith(const std::string& identifier) {
    _userListChanged();
    auto index = _userIndex(identifier);
    if (!index) return;
    auto& item = _userTemplates[*index];
    item = rebuiltItem(item, item.title(), ImageSource::templateIdentifier());
    if (auto it = _executableTemplates.find(identifier); it != _executableTemplates.end()) {
        it->second->setBundleImageName(std::nullopt);
    }
    _writeItems(_userTemplates, _userListURL);
}

void TemplateManager::renameUserTemplateWith(const std::optional<std::string>& name,
                                             const std::string& identifier) {
    _userListChanged();
    auto index = _userIndex(identifier);
    if (!index) return;
    auto& item = _userTemplates[*index];
    item = rebuiltItem(item, name, item.imageSource());
    if (auto it = _executableTemplates.find(identifier); it != _executableTemplates.end()) {
        it->second->setName(name);
    }
    _writeItems(_userTemplates, _userListURL);
}

std::optional<std::string> TemplateManager::duplicateUserTemplateWith(
    const std::string& identifier, const VXTemplateRef& newTemplate) {
    _userListChanged();
    auto index = _userIndex(identifier);
    if (!index || !newTemplate) return std::nullopt;
    auto newIdentifier = VRSettings::saveTemplate(*newTemplate, false);
    if (!newIdentifier) return std::nullopt;
    VRSettings::copyTemplateImageDataToTemplateWithIdentifier(*newIdentifier, identifier);
    auto item = listItemWithTemplate(*newTemplate, *newIdentifier);
    _userTemplates.insert(_userTemplates.begin() + static_cast<std::ptrdiff_t>(*index) + 1,
                          std::move(item));
    _writeItems(_userTemplates, _userListURL);
    return newIdentifier;
}

bool TemplateManager::removeUserTemplateWith(const std::string& identifier) {
    _userListChanged();
    auto index = _userIndex(identifier);
    if (!index) return false;
    _userTemplates.erase(_userTemplates.begin() + static_cast<std::ptrdiff_t>(*index));
    _writeItems(_userTemplates, _userListURL);
    return true;
}

bool TemplateManager::_isCatalogueKey(const std::string& key) const {
    return _catalogueKeys.count(key) != 0;
}

// The recents --------------------------------------------------------------------------------

const std::vector<VRTemplateListItem>& TemplateManager::recentTemplates() {
    _loadRecentTemplates();
    return _recentTemplates;
}

void TemplateManager::_removeRecentAt(std::size_t index) {
    std::string identifier = _recentTemplates[index].identifier();
    _recentTemplates.erase(_recentTemplates.begin() + static_cast<std::ptrdiff_t>(index));
    // The seeded example is a catalogue template: it leaves the recents but stays resolvable.
    if (_isCatalogueKey(identifier)) return;
    _executableTemplates.erase(identifier);
    VRSettings::removeTemplateDirWithIdentifier(identifier);
}

void TemplateManager::updateRecentTemplate(const VXTemplateRef& tpl,
                                           const std::string& identifier) {
    if (!tpl) return;
    _loadRecentTemplates();
    auto item = listItemWithTemplate(*tpl, identifier);
    if (auto index = indexOf(_recentTemplates, identifier)) {
        _recentTemplates[*index] = std::move(item);
        _executableTemplates[identifier] = tpl;
        _writeItems(_recentTemplates, _recentsURL);
        return;
    }
    std::optional<std::size_t> repeat;
    for (std::size_t i = _recentTemplates.size(); i-- > 0;) {
        const auto& candidate = _recentTemplates[i];
        if (candidate.title() == item.title() && candidate.subtitles() == item.subtitles()) {
            repeat = i;
            break;
        }
    }
    if (repeat) {
        _removeRecentAt(*repeat);
    } else if (_recentTemplates.size() >= _numberOfRecentTemplates) {
        _removeRecentAt(0);
    }
    _recentTemplates.push_back(std::move(item));
    _writeItems(_recentTemplates, _recentsURL);
}

bool TemplateManager::removeRecentTemplateWith(const std::string& identifier) {
    _loadRecentTemplates();
    auto index = indexOf(_recentTemplates, identifier);
    if (!index) return false;
    _recentTemplates.erase(_recentTemplates.begin() + static_cast<std::ptrdiff_t>(*index));
    _writeItems(_recentTemplates, _recentsURL);
    return true;
}

// The collection -----------------------------------------------------------------------------

const std::vector<std::string>& TemplateManager::userCollection() {
    _loadUserCollection();
    return _userCollection;
}

void TemplateManager::updateUserCollection(std::vector<std::string> keys) {
    _loadUserCollection();
    _cachedUserCollectionEntry.reset();
    _userCollection = std::move(keys);
    _writeCollection();
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
    _cachedUserCollectionEntry = UserCollectionEntry{personalTemplatesIncluded, sorting, section};
    return section;
}
