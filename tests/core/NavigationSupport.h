// An editing walk under test: assets of a chosen media type and size without files, services
// that record what the walk asked for, and a batch run whose processor completes on request.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "assets/VRAsset.h"
#include "core/BatchRunSupport.h"
#include "core/NavigationManager.h"

namespace navigation_support {

class FakeObject final : public VRAssetObject {
  public:
    FakeObject(std::string name, VRFormatMediaType mediaType, CGSize size)
        : _name(std::move(name)), _mediaType(mediaType), _size(size) {}
    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeURL; }
    std::string uniqueID() const override { return _name; }
    std::string originalFilename() const override { return _name; }
    std::optional<platform::PlistDate> creationDate() const override { return std::nullopt; }
    std::optional<platform::PlistDate> modificationDate() const override { return std::nullopt; }
    VRFormatMediaType mediaType() const override { return _mediaType; }
    CGSize pixelSize() const override { return _size; }
    double duration() const override { return 0; }
    bool isEqual(const VRAssetObject& other) const override { return other.uniqueID() == _name; }
    std::size_t hash() const override { return std::hash<std::string>()(_name); }

  private:
    std::string _name;
    VRFormatMediaType _mediaType;
    CGSize _size;
};

inline VRAssetRef asset(const std::string& name, VRFormatMediaType mediaType,
                        CGSize size = {400, 300}) {
    return VRAsset::assetWithObject(std::make_shared<FakeObject>(name, mediaType, size));
}
inline VRAssetRef photo(const std::string& name, CGSize size = {400, 300}) {
    return asset(name, VRFormatMediaTypePhoto, size);
}
inline VRAssetRef video(const std::string& name, CGSize size = {1920, 1080}) {
    return asset(name, VRFormatMediaTypeVideo, size);
}

// A template holding one media type's entry of that width.
inline VXTemplateRef templateWith(std::uint64_t mediaType, double width) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(width, 0, VRSizeTypePixels),
                      VRFormat::formatWithTypeMediaType(0, mediaType), VRSizeOptions{}, mediaType);
    return tpl;
}

struct Recorder {
    NavigationServices services() {
        NavigationServices s;
        s.setSourceAlbumName = [this](const std::string& name) { albumNames.push_back(name); };
        s.clearThumbnailDirectories = [this] { ++thumbnailClears; };
        s.incrementRateInfoStarted = [this] { ++batchesStarted; };
        s.saveRecentTemplate = [this](const VXTemplateRef& tpl, const VRAssetRef& target) {
            recents.emplace_back(tpl, target);
        };
        s.batchServices = [this] { return batch.services(); };
        return s;
    }

    std::vector<std::string> albumNames;
    int thumbnailClears = 0;
    int batchesStarted = 0;
    std::vector<std::pair<VXTemplateRef, VRAssetRef>> recents;
    batch_support::BatchFixture batch{{}};
};

// The kinds on the stack, root first.
inline std::vector<VRScreenKind> kinds(const VRNavigationController& stack) {
    std::vector<VRScreenKind> result;
    for (const auto& screen : stack.viewControllers()) result.push_back(screen->kind());
    return result;
}

}  // namespace navigation_support
