// A source of assets as the pickers show it: a library album (or the recents), or one of the
// program's own fixed lists (unsaved items, copied photos, the tutorial's samples).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <variant>

#include "platform/PhotoLibrary.h"

// The fixed pseudo-collections: two strings each, compared by `uniqueID` within one class.
struct VRPseudoCollection {
    std::string uniqueID;
    std::string name;
};

struct VRUnsaved : VRPseudoCollection {
    static VRUnsaved collection() { return {{"vr-unsaved", "Unsaved items"}}; }
};
struct VRClipboard : VRPseudoCollection {
    static VRClipboard clipboard() { return {{"vr-clipboard", "Copied Photos"}}; }
};
// The sample pictures the first-run tutorial works on.
struct VRTutorialCollection : VRPseudoCollection {
    static VRTutorialCollection collection() { return {{"vr-tutorial", "Tutorial"}}; }
};

enum VRCollectionType : unsigned {
    VRCollectionTypeNone = 0,
    VRCollectionTypeAssetCollection = 1,
    VRCollectionTypeClipboard = 2,
    VRCollectionTypeUnsaved = 3,
    VRCollectionTypeTutorial = 4,
};

class VRCollection {
  public:
    using Object = std::variant<std::monostate, platform::PHAssetCollection, VRClipboard, VRUnsaved,
                                VRTutorialCollection>;

    // collectionWithObject:estimatedAssetCount:. The type follows the object; no object gives
    // type 0, whose identifier and title are empty.
    static VRCollection collectionWithObject(Object object, std::size_t estimatedAssetCount);

    VRCollection() = default;

    const Object& object() const { return _object; }
    VRCollectionType type() const { return _type; }
    std::size_t estimatedAssetCount() const { return _estimatedAssetCount; }

    // The album's local identifier, the pseudo-collection's uniqueID, else empty.
    std::string objectIdentifier() const;
    // The album's title, the pseudo-collection's name, else empty.
    std::string localizedTitle() const;
    // The library album behind a type 1 collection.
    const platform::PHAssetCollection* assetCollection() const {
        return std::get_if<platform::PHAssetCollection>(&_object);
    }

    // Equal type and equal object (same identifier); the count is no part of it.
    bool isEqual(const VRCollection& other) const;
    std::size_t hash() const;
    friend bool operator==(const VRCollection& a, const VRCollection& b) { return a.isEqual(b); }

  private:
    Object _object;
    VRCollectionType _type = VRCollectionTypeNone;
    std::size_t _estimatedAssetCount = 0;
};
