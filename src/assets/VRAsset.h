// One selectable media item: a comparable wrapper around one source object of any kind, which
// the rest of the system asks for its name, dates, media type and size without looking at the
// kind. The batch run, the processor and the result store pass these around.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "assets/VRAssetIdentifier.h"
#include "assets/VRAssetObject.h"

class VRAsset;
using VRAssetRef = std::shared_ptr<const VRAsset>;

class VRAsset : public VRAssetIdentifier {
  public:
    // assetWithObject:flag:. Null (with the log "~~ VR: Wrong input object(%@) in
    // +assetWithObject:") for no object.
    static std::shared_ptr<VRAsset> assetWithObject(std::shared_ptr<VRAssetObject> object,
                                                    std::uint64_t flag = 0);

    // The source object, shared by copies.
    const std::shared_ptr<VRAssetObject>& object() const { return _object; }

    // "img" when the source has no usable name.
    std::string originalFilename() const;
    std::optional<platform::PlistDate> creationDate() const { return _object->creationDate(); }
    std::optional<platform::PlistDate> modificationDate() const {
        return _object->modificationDate();
    }
    VRFormatMediaType mediaType() const { return _object->mediaType(); }
    CGSize pixelSize() const { return _object->pixelSize(); }
    double duration() const { return _object->duration(); }
    bool livePhoto() const { return _object->livePhoto(); }

    // Every user of an asset's bytes brackets its work with these. stopAccessing does
    // nothing for an absent ID.
    std::optional<std::string> startAccessing() const;
    void stopAccessing(const std::optional<std::string>& accessID) const;

    // copyWithZone: type, flag and identifier copied, the object shared.
    std::shared_ptr<VRAsset> copy() const { return std::make_shared<VRAsset>(*this); }
    // Equal type and equal object; the flag is ignored.
    bool isEqual(const VRAsset& other) const;
    std::size_t hash() const;

    VRAsset(std::shared_ptr<VRAssetObject> object, std::uint64_t flag);

  private:
    std::shared_ptr<VRAssetObject> _object;
};
