// The files a `process` run takes, as the batch's assets: plain files as given, and the photos
// and movies of a folder in name order (its subfolders too with `recursive`). A still and a
// movie of a folder that the photo library would pair are one Live Photo asset when Live
// Photos are on. With `--shard`, the slice of them that this process takes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/ProcessShard.h"
#include "assets/VRAsset.h"

namespace app {

// One asset of the batch and the name it goes by in what is printed.
struct ProcessInput {
    VRAssetRef asset;
    std::string name;
    // A file given by path (not a library asset): its own problems explain a failure.
    std::optional<std::string> path;
    // What places the input in a shard: the same wherever the files are mounted and whichever
    // home runs the shard. A folder's file by its path relative to the folder as given
    // ("sub/IMG_1.jpg"), a file given alone by its path as given, lexically normalised
    // ("./a.jpg" is "a.jpg"), a library asset by its still's path relative to the library.
    std::string shardKey;
};

struct FolderOptions {
    bool recursive = false;
    // Pair stills and movies by the library's Live Photo rule.
    bool livePhotos = false;
};

// The media files of `folder` in name order (byte order of the names, a subfolder's files at
// the subfolder's place); hidden names and files of no media type are left out. Nothing, with
// the reason, when the folder can't be read.
std::optional<std::vector<std::string>> mediaFilesInFolder(const std::string& folder,
                                                           bool recursive, std::string* problem);

// The inputs of `arguments` (files and folders) in order. A folder's Live Photo pair stands at
// its still's place. Nothing, with the reason, for a folder that can't be read.
std::optional<std::vector<ProcessInput>> expandProcessInputs(
    const std::vector<std::string>& arguments, const FolderOptions& options, std::string* problem);

// The inputs of `shard`, in their order.
std::vector<ProcessInput> takeShard(std::vector<ProcessInput> inputs, const Shard& shard);

}  // namespace app
