// A movie file and its tracks, opened lazily on the first load. Every load can fail and says
// why (an unreadable or unrecognised file fails every load with the same error). The asset
// processor and the video resizer use it; the reader re-opens the file by its path.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/AVAssetTrack.h"
#include "platform/AVLoadResult.h"
#include "platform/AVMetadataItem.h"
#include "platform/CMTime.h"

class AVAsset {
  public:
    // A movie at a file path. Never null; the file is read on the first load.
    static std::shared_ptr<AVAsset> assetWithURL(const std::string& path);

    virtual ~AVAsset() = default;

    virtual const std::string& URL() const = 0;
    // Tracks in file order. Cover pictures and other still images are not tracks.
    virtual AVLoadResult<std::vector<AVAssetTrackRef>> loadTracks() const = 0;
    virtual AVLoadResult<std::vector<AVAssetTrackRef>> loadTracksWithMediaType(
        const std::string& mediaType) const;
    virtual AVLoadResult<CMTime> loadDuration() const = 0;
    // Movie-level items in their own key spaces (QuickTime metadata "mdta", QuickTime user
    // data "udta", iTunes "itsk", 3GP user data "uiso", ID3), plus the movie header's creation
    // time as a Common creationDate.
    virtual AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const = 0;
};

using AVAssetRef = std::shared_ptr<AVAsset>;
