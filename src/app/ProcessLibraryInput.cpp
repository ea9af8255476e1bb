#include "app/ProcessLibraryInput.h"

#include <filesystem>

#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "platform/PhotoLibrary.h"
#include "storage/VRSettings.h"

namespace app {
namespace {

std::optional<std::vector<ProcessInput>> fail(std::string* problem, const std::string& why) {
    if (problem) *problem = why;
    return std::nullopt;
}

// The asset's first file relative to the library's folder; its identifier when it has no file
// inside the folder.
std::string shardKeyOf(const platform::PHAsset& asset, const std::string& root) {
    namespace fs = std::filesystem;
    auto absolute = [](const std::string& path) {
        std::error_code ec;
        return fs::absolute(path, ec).lexically_normal();
    };
    if (!asset.resources.empty() && !root.empty()) {
        const fs::path relative =
            absolute(asset.resources.front().path).lexically_relative(absolute(root));
        if (!relative.empty() && *relative.begin() != "..") return relative.generic_string();
    }
    return asset.localIdentifier;
}

void append(std::vector<ProcessInput>& inputs, std::vector<platform::PHAsset> found,
            const std::string& root) {
    for (auto& asset : found) {
        std::string key = shardKeyOf(asset, root);
        auto wrapped =
            VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(std::move(asset)), 0);
        std::string name = wrapped->objectIdentifier();
        inputs.push_back({std::move(wrapped), std::move(name), std::nullopt, std::move(key)});
    }
}

}  // namespace

std::optional<std::vector<ProcessInput>> resolveLibraryInput(const LibraryInput& input,
                                                             std::string* problem) {
    std::vector<ProcessInput> assets;
    if (!input.any()) return assets;
    if (input.recents && *input.recents == 0)
        return fail(problem, "--recents 0: give how many of the newest assets to take");
    std::string root = input.libraryPath.empty() ? VRSettings::libraryPath() : input.libraryPath;
    platform::ErrorRef error;
    auto library = platform::PhotoLibrary::open(
        platform::defaultPhotoLibraryLocations(root.empty() ? std::nullopt
                                                            : std::optional<std::string>(root)),
        &error);
    if (!library)
        return fail(problem, "the photo library could not be opened: " +
                                 (error ? error->localizedDescription() : std::string("unknown")));
    VRAssetManager2::defaultManager().setPhotoLibrary(library);
    const std::string& libraryRoot = library->locations().root;

    if (!input.identifiers.empty()) {
        auto found = library->fetchAssetsWithLocalIdentifiers(input.identifiers, {});
        for (const auto& identifier : input.identifiers) {
            const auto* asset = found.objectAtIndex(found.indexOfObject(identifier));
            if (!asset)
                return fail(problem, "--asset " + identifier + ": no such asset in the library");
            append(assets, {*asset}, libraryRoot);
        }
    }
    if (input.album) {
        auto album = library->albumWithTitle(*input.album);
        if (!album)
            return fail(problem, "--album " + *input.album + ": no such album in the library");
        append(assets, library->fetchAssetsInAssetCollection(album->localIdentifier, {}).objects(),
               libraryRoot);
    }
    if (input.recents) {
        platform::PHFetchOptions options;
        options.newestFirst = true;
        options.fetchLimit = *input.recents;
        append(assets, library->fetchAssetsWithOptions(options).objects(), libraryRoot);
    }
    return assets;
}

}  // namespace app
