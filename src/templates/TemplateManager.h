// Every template the user can reach: the built-in catalogue, the user's own templates, the
// recents and the collection of favourites. Keeps the lists in memory, loads each from
// documents/templates on first use and writes them on its "template-save-queue". The lists
// are used from the main thread. The files are shared with other processes on the home: each
// change is made under the file's lock on the list as stored then, and its write is finished
// (or has failed, with the reason) when the operation returns. An unreadable list file is
// kept aside beside itself, never overwritten.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Error.h"
#include "templates/VRTemplateListItem.h"
#include "templates/VRTemplateListSection.h"
#include "templates/VXTemplate.h"

class TemplateManager {
  public:
    struct UserCollectionEntry {
        bool personalTemplatesIncluded = false;
        VRTemplateSorting sorting = VRTemplateSorting::standard;
        VRTemplateListSectionRef section;
    };

    // Made on first use and never destroyed; call waitForPendingWrites() before exiting.
    static TemplateManager& shared();

    // A manager on the current documents directory; the program uses shared(), tests make
    // their own under a scratch home.
    TemplateManager();
    ~TemplateManager();
    TemplateManager(const TemplateManager&) = delete;
    TemplateManager& operator=(const TemplateManager&) = delete;

    // The catalogue sections, built at initialisation.
    const std::vector<VRTemplateListSectionRef>& standardTemplates() const {
        return _standardTemplates;
    }
    // The item of key "example".
    const VRTemplateListItem& exampleTemplate();
    // The locked templates of the catalogue and the templates read from disk so far, by key.
    const std::map<std::string, VXTemplateRef>& executableTemplates() const {
        return _executableTemplates;
    }

    // A copy of the template under the key: a catalogue or cached template, else one read
    // from its folder (and cached under the key). Null when there is none.
    VXTemplateRef templateWithKey(const std::string& key);
    // As templateWithKey; a template without identifier takes the item's title as name, its
    // key, its description, the stored mark and its bundle picture name.
    VXTemplateRef templateForItem(const VRTemplateListItem& item);
    // The list item that shows a template under an identifier: its name, description, media
    // types, picture (its bundle picture, else the thumbnail in its folder) and detail lines.
    static VRTemplateListItem listItemWithTemplate(const VXTemplate& tpl,
                                                   const std::string& identifier);

    // The user's list, in display order. Loaded on first use; a missing or unreadable
    // templates/list is replaced by what the legacy list in the settings yields.
    const std::vector<VRTemplateListItem>& userTemplates();
    // The operations on the lists below return true when the list was changed and written;
    // false with `error` left null when nothing matched, false with `error` set when the file
    // could not be locked or written (the list in memory holds the change all the same).

    // Replaces the item of the identifier in place (and caches the template), or appends one.
    bool updateUserTemplate(const VXTemplateRef& tpl, const std::string& identifier,
                            platform::ErrorRef* error = nullptr);
    // The item shows the thumbnail of its folder again; keywords are cleared.
    bool resetUserTemplateImageSourceWith(const std::string& identifier,
                                          platform::ErrorRef* error = nullptr);
    bool renameUserTemplateWith(const std::optional<std::string>& name,
                                const std::string& identifier, platform::ErrorRef* error = nullptr);
    // Stores `newTemplate` under a new identifier, copies the thumbnail of `identifier` to
    // it and puts its item right after the original. The new identifier, or absent when the
    // original is not in the list or the copy could not be stored.
    std::optional<std::string> duplicateUserTemplateWith(const std::string& identifier,
                                                         const VXTemplateRef& newTemplate,
                                                         platform::ErrorRef* error = nullptr);
    // The first item of the identifier is removed; no match changes nothing.
    bool removeUserTemplateWith(const std::string& identifier, platform::ErrorRef* error = nullptr);

    // Oldest first, at most 10. A fresh install holds only the example.
    const std::vector<VRTemplateListItem>& recentTemplates();
    // The recents rule: an identifier already present is replaced in place; otherwise a
    // repeat (same title and detail lines) or, at 10 items, the oldest goes, together with its
    // cached template and folder, and the new item is appended.
    bool updateRecentTemplate(const VXTemplateRef& tpl, const std::string& identifier,
                              platform::ErrorRef* error = nullptr);
    // Stores the template under a new "recent-" identifier with its picture (a JPEG of the
    // asset it was shaped on, when given) beside it, and lists it by the recents rule. The
    // identifier, or absent when the body could not be stored or the list not written (the
    // folder is then removed again).
    std::optional<std::string> saveRecentTemplate(
        const VXTemplateRef& tpl, const std::optional<platform::PlistData>& imageData,
        platform::ErrorRef* error = nullptr);
    bool removeRecentTemplateWith(const std::string& identifier,
                                  platform::ErrorRef* error = nullptr);

    // Keys of catalogue templates, in the user's order.
    const std::vector<std::string>& userCollection();
    bool updateUserCollection(std::vector<std::string> keys, platform::ErrorRef* error = nullptr);
    // "My Collection": the collection's catalogue items in catalogue order (standard) or in
    // the user's order (selection), then the user's templates when included. The last section
    // built is kept until its inputs or the lists it shows change.
    VRTemplateListSectionRef userCollectionSection(bool personalTemplatesIncluded,
                                                   VRTemplateSorting sorting);

    // Blocks until every list write submitted so far is on disk (each operation waits for its
    // own write already; kept for callers that finish with it).
    void waitForPendingWrites();

    // The files, in documents/templates.
    static std::string userListPath();
    static std::string recentsPath();
    static std::string collectionPath();

    static constexpr std::size_t _numberOfRecentTemplates = 10;

  private:
    platform::DispatchQueue& _queue();
    std::optional<std::vector<VRTemplateListItem>> _readItems(const std::string& path);
    using ItemsChange = std::function<bool(std::vector<VRTemplateListItem>& items)>;
    // Under the file's lock: the list as stored (`items` when there is no readable file) is
    // changed by `change` and written when it returns true; `items` becomes the result.
    bool _changeItems(std::vector<VRTemplateListItem>& items, const std::string& path,
                      const ItemsChange& change, platform::ErrorRef* error = nullptr);
    // Changes the stored user item of `identifier` and its loaded template, when there is one;
    // false when the list holds no such item.
    bool _changeUserItem(
        const std::string& identifier,
        const std::function<void(VRTemplateListItem& item, VXTemplate* tpl)>& change,
        platform::ErrorRef* error);
    void _loadUserTemplates();
    void _loadRecentTemplates();
    void _loadUserCollection();
    void _userListChanged();
    std::optional<std::size_t> _userIndex(const std::string& identifier);
    void _removeRecentAt(std::vector<VRTemplateListItem>& items, std::size_t index);
    bool _isCatalogueKey(const std::string& key) const;

    std::vector<VRTemplateListSectionRef> _standardTemplates;
    std::optional<UserCollectionEntry> _cachedUserCollectionEntry;
    std::optional<VRTemplateListItem> _exampleTemplate;
    std::map<std::string, VXTemplateRef> _executableTemplates;
    std::set<std::string> _catalogueKeys;
    std::vector<VRTemplateListItem> _userTemplates;
    bool _userTemplatesLoaded = false;
    std::vector<VRTemplateListItem> _recentTemplates;
    bool _recentTemplatesLoaded = false;
    std::vector<std::string> _userCollection;
    bool _userCollectionLoaded = false;
    std::shared_ptr<platform::DispatchQueue> _saveQueue;
    std::string _userListURL, _recentsURL, _collectionURL;
};
