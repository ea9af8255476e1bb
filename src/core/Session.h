// What an editing walk has collected so far: the selection in order, the same assets split by
// media type with the shapes that occur, how the walk began, the template being formed and the
// asset it is shaped on. Made and changed by the navigation manager on the main thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "assets/VRAsset.h"
#include "editing/VRSizeController.h"
#include "templates/VXTemplate.h"

// The assets of one media type and their shapes (shapeForSize of each pixel size).
struct MediaItems {
    std::vector<VRAssetRef> assets;
    std::set<std::uint64_t> shapes;
};

class Session;
using SessionRef = std::shared_ptr<Session>;

class Session {
  public:
    // Photos (media type 1) and videos (2) are split out in order; an asset of any other media
    // type joins neither but stays in the selection. Null when no asset is a photo or a video.
    // The template is copied, so forming it never changes the caller's.
    static SessionRef sessionWithAssets(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                        VRSizeController::Source source);

    const std::vector<VRAssetRef>& assets() const { return _assets; }
    // Only the media types that occur.
    const std::map<std::uint64_t, MediaItems>& items() const { return _items; }
    // Null when the media type doesn't occur.
    const MediaItems* itemsForMediaType(std::uint64_t mediaType) const;

    VRSizeController::Source source() const { return _source; }
    const VXTemplateRef& tpl() const { return _tpl; }
    void setTemplate(VXTemplateRef tpl) { _tpl = std::move(tpl); }
    const VRAssetRef& targetAsset() const { return _targetAsset; }
    void setTargetAsset(VRAssetRef asset) { _targetAsset = std::move(asset); }

    // Only while no target is set: the first photo, else the first video.
    void chooseTargetAsset();
    // Photos come before videos: after 0 (nothing yet) the photos when present, else the
    // videos; after 1 the videos when present; after 2 nothing. 0 when nothing is left.
    std::uint64_t nextMediaTypeAfter(std::uint64_t mediaType) const;

    Session(std::vector<VRAssetRef> assets, std::map<std::uint64_t, MediaItems> items,
            VXTemplateRef tpl, VRSizeController::Source source);

  private:
    std::vector<VRAssetRef> _assets;
    std::map<std::uint64_t, MediaItems> _items;
    VRSizeController::Source _source = 0;
    VXTemplateRef _tpl;
    VRAssetRef _targetAsset;
};
