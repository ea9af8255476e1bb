// The `library` actions on single assets (show, thumbnail, add) and the facts of an asset as
// every `library` action prints them, shared with the listing actions.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/PhotoLibrary.h"

namespace app::library {

const char* mediaWord(platform::PHAssetMediaType type);
// "2021-01-01T10:00:00Z"; empty without a date.
std::string isoDate(const std::optional<platform::PlistDate>& date);
// The object `list --json` prints for one asset.
nlohmann::json assetJSON(const platform::PHAsset& asset);

// One asset's facts with the albums holding it; exit 1 when it is gone or never existed.
int showAsset(platform::PhotoLibrary& library, const std::string& identifier, bool json);

// Writes the asset's picture fitted into `size` ("WxH") as PNG, or JPEG for a ".jpg" or
// ".jpeg" name, under `out` or the next free name beside it; prints the path written.
int writeThumbnail(platform::PhotoLibrary& library, const std::string& identifier,
                   const std::string& size, const std::string& out);

// Saves copies of `files` into the album titled `album` (the root when empty), a still and a
// movie of one stem as one Live Photo; prints one identifier a saved asset. Exit 1 when any
// file failed; the others are saved all the same.
int addFiles(platform::PhotoLibrary& library, const std::vector<std::string>& files,
             const std::string& album, bool json);

}  // namespace app::library
