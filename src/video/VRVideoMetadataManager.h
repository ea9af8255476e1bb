// Builds the movie-level metadata of a resized video from the source's: the program's name
// stamped as software, the processing time as last-modified date, the capture date kept,
// location items dropped unless they are to be copied, and the missing creation date,
// software and recording time added. VRVideoResizer2 makes one per job, just before reading.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/AVAsset.h"
#include "platform/AVMetadataItem.h"
#include "platform/PlistValue.h"
#include "video/VRVideoResizeOptions.h"

class VRVideoMetadataManager {
  public:
    VRVideoMetadataManager(AVAssetRef asset, VRVideoMetadataOptions config)
        : _asset(std::move(asset)), _config(config) {}

    // Never fails: a source whose metadata cannot be loaded counts as having none.
    std::vector<AVMetadataItem> metadata() const;
    // The rules on given items, with the program's name and the time of processing.
    std::vector<AVMetadataItem> metadataWithItems(const std::vector<AVMetadataItem>& items,
                                                  const std::string& software,
                                                  platform::PlistDate now) const;

  private:
    AVAssetRef _asset;
    VRVideoMetadataOptions _config;
};
