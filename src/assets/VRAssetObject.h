// The source object behind a VRAsset: what each kind of source (URL, data, and later library,
// local and file assets) answers about itself. VRAsset asks it and never looks at the kind;
// the asset manager knows how to fetch each kind's bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "assets/VRAssetIdentifier.h"
#include "model/VRFormatMediaType.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"

class VRAssetObject {
  public:
    virtual ~VRAssetObject() = default;

    virtual VRAssetIdentifierType assetType() const = 0;
    // The kind's own key (see VRAssetIdentifierType).
    virtual std::string uniqueID() const = 0;
    virtual std::string originalFilename() const = 0;
    virtual std::optional<platform::PlistDate> creationDate() const = 0;
    virtual std::optional<platform::PlistDate> modificationDate() const = 0;
    virtual VRFormatMediaType mediaType() const = 0;
    virtual CGSize pixelSize() const = 0;
    virtual double duration() const = 0;
    // Only library assets can be Live Photos.
    virtual bool livePhoto() const { return false; }
    // Kinds that need access to read their bytes give an access ID; the others nothing.
    virtual std::optional<std::string> startAccessing() { return std::nullopt; }
    virtual void stopAccessing(const std::string& /*accessID*/) {}

    // Within one kind; objects of different kinds are never equal.
    virtual bool isEqual(const VRAssetObject& other) const = 0;
    virtual std::size_t hash() const = 0;
};
