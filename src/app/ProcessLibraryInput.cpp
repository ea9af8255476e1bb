#include "app/ProcessLibraryInput.h"

#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "platform/PhotoLibrary.h"
#include "storage/VRSettings.h"

namespace app {
namespace {

std::optional<std::vector<VRAssetRef>> fail(std::string* problem, const std::string& why) {
    if (problem) *problem = why;
    return std::nullopt;
}

void append(std::vector<VRAssetRef>& assets, std::vector<platform::PHAsset> found) {
    for (auto& asset : found)
        assets.push_back(
            VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(std::move(asset)), 0));
}

}  // namespace

std::optional<std::vector<VRAssetRef>> resolveLibraryInput(const LibraryInput& input,
                                                           std::string* problem) {
    std::vector<VRAssetRef> assets;
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

    if (!input.identifiers.empty()) {
        auto found = library->fetchAssetsWithLocalIdentifiers(input.identifiers, {});
        for (const auto& identifier : input.identifiers) {
            const auto* asset = found.objectAtIndex(found.indexOfObject(identifier));
            if (!asset)
                return fail(problem, "--asset " + identifier + ": no such asset in the library");
            append(assets, {*asset});
        }
    }
    if (input.album) {
        auto album = library->albumWithTitle(*input.album);
        if (!album)
            return fail(problem, "--album " + *input.album + ": no such album in the library");
        append(assets, library->fetchAssetsInAssetCollection(album->localIdentifier, {}).objects());
    }
    if (input.recents) {
        platform::PHFetchOptions options;
        options.newestFirst = true;
        options.fetchLimit = *input.recents;
        append(assets, library->fetchAssetsWithOptions(options).objects());
    }
    return assets;
}

}  // namespace app
