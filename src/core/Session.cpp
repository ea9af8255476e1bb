#include "core/Session.h"

#include "model/VRFormatMediaType.h"
#include "model/VXHelperSize.h"

SessionRef Session::sessionWithAssets(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                      VRSizeController::Source source) {
    std::map<std::uint64_t, MediaItems> items;
    for (const auto& asset : assets) {
        if (!asset) continue;
        const std::uint64_t mediaType = asset->mediaType();
        if (mediaType != VRFormatMediaTypePhoto && mediaType != VRFormatMediaTypeVideo) continue;
        MediaItems& media = items[mediaType];
        media.assets.push_back(asset);
        media.shapes.insert(VXHelper::shapeForSize(asset->pixelSize()));
    }
    if (items.empty()) return nullptr;
    return std::make_shared<Session>(std::move(assets), std::move(items),
                                     tpl ? tpl->copy() : nullptr, source);
}

Session::Session(std::vector<VRAssetRef> assets, std::map<std::uint64_t, MediaItems> items,
                 VXTemplateRef tpl, VRSizeController::Source source)
    : _assets(std::move(assets)), _items(std::move(items)), _source(source), _tpl(std::move(tpl)) {}

const MediaItems* Session::itemsForMediaType(std::uint64_t mediaType) const {
    auto found = _items.find(mediaType);
    return found == _items.end() ? nullptr : &found->second;
}

void Session::chooseTargetAsset() {
    if (_targetAsset) return;
    for (std::uint64_t mediaType : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}) {
        if (const MediaItems* media = itemsForMediaType(mediaType)) {
            _targetAsset = media->assets.front();
            return;
        }
    }
}

std::uint64_t Session::nextMediaTypeAfter(std::uint64_t mediaType) const {
    const bool photos = itemsForMediaType(VRFormatMediaTypePhoto) != nullptr;
    const bool videos = itemsForMediaType(VRFormatMediaTypeVideo) != nullptr;
    switch (mediaType) {
        case VRFormatMediaTypeNone:
            if (photos) return VRFormatMediaTypePhoto;
            return videos ? VRFormatMediaTypeVideo : VRFormatMediaTypeNone;
        case VRFormatMediaTypePhoto:
            return videos ? VRFormatMediaTypeVideo : VRFormatMediaTypeNone;
        default:
            return VRFormatMediaTypeNone;
    }
}
