#include "platform/AVAsset.h"

#include <algorithm>

AVLoadResult<std::vector<AVAssetTrackRef>> AVAsset::loadTracksWithMediaType(
    const std::string& mediaType) const {
    auto all = loadTracks();
    if (!all) return all.error();
    std::vector<AVAssetTrackRef> matching;
    for (const auto& track : all.value()) {
        if (track->mediaType() == mediaType) matching.push_back(track);
    }
    return matching;
}

bool AVAssetTrack::hasMediaCharacteristic(const std::string& characteristic) const {
    auto list = loadMediaCharacteristics();
    if (!list) return false;
    const auto& v = list.value();
    return std::find(v.begin(), v.end(), characteristic) != v.end();
}
