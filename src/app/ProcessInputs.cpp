#include "app/ProcessInputs.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "assets/VRURLAsset.h"
#include "platform/PhotoLibrary.h"

namespace app {
namespace {

namespace fs = std::filesystem;

std::string absolutePath(const std::string& path) {
    std::error_code ec;
    return fs::absolute(path, ec).lexically_normal().string();
}

bool walk(const fs::path& folder, bool recursive, int depth, std::vector<std::string>& files,
          std::string* problem) {
    std::error_code ec;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
        entries.push_back(*it);
    if (ec) {
        if (problem) *problem = folder.string() + ": " + ec.message();
        return false;
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.path().filename() < b.path().filename();
    });
    for (const auto& entry : entries) {
        const std::string name = entry.path().filename().string();
        if (name.empty() || name[0] == '.') continue;
        std::error_code kind;
        if (entry.is_directory(kind)) {
            // Deep trees are cut off rather than followed into an endless chain of links.
            if (recursive && depth < 32 && !walk(entry.path(), true, depth + 1, files, problem))
                return false;
        } else if (entry.is_regular_file(kind) &&
                   VRURLAsset::mediaTypeForPath(name) != VRFormatMediaTypeNone) {
            files.push_back(entry.path().string());
        }
    }
    return true;
}

// Each still of `files` with the movie the library would pair it with; stills are looked up by
// folder and stem, so only files of one name are read for their pairing keys.
std::map<std::string, std::string> livePhotoPairs(const std::vector<std::string>& files) {
    std::map<std::string, std::string> stillByStem;
    for (const auto& file : files)
        if (VRURLAsset::mediaTypeForPath(file) == VRFormatMediaTypePhoto)
            stillByStem.emplace(fs::path(file).replace_extension().string(), file);
    std::map<std::string, std::string> movieOfStill;
    for (const auto& file : files) {
        if (VRURLAsset::mediaTypeForPath(file) != VRFormatMediaTypeVideo) continue;
        auto still = stillByStem.find(fs::path(file).replace_extension().string());
        if (still != stillByStem.end() && !movieOfStill.count(still->second) &&
            platform::isLivePhotoPair(still->second, file))
            movieOfStill[still->second] = file;
    }
    return movieOfStill;
}

// `path` as given, or inside `folder`, relative to it; with '/' between its parts.
std::string shardKeyOf(const std::string& path, const std::optional<std::string>& folder) {
    if (!folder) return fs::path(path).lexically_normal().generic_string();
    return fs::path(path).lexically_relative(*folder).generic_string();
}

void addFolder(const std::string& folder, const std::vector<std::string>& files,
               const FolderOptions& options, std::vector<ProcessInput>& inputs) {
    std::map<std::string, std::string> pairs;
    if (options.livePhotos) pairs = livePhotoPairs(files);
    std::set<std::string> paired;
    for (const auto& [still, movie] : pairs) paired.insert(movie);
    for (const auto& file : files) {
        if (paired.count(file)) continue;
        auto movie = pairs.find(file);
        auto object = movie == pairs.end() ? VRURLAsset::urlAssetWithURL(file)
                                           : VRURLAsset::livePhotoAssetWithURL(file, movie->second);
        inputs.push_back({VRAsset::assetWithObject(object), file, file, shardKeyOf(file, folder)});
    }
}

}  // namespace

std::optional<std::vector<std::string>> mediaFilesInFolder(const std::string& folder,
                                                           bool recursive, std::string* problem) {
    std::vector<std::string> files;
    if (!walk(absolutePath(folder), recursive, 0, files, problem)) return std::nullopt;
    return files;
}

std::optional<std::vector<ProcessInput>> expandProcessInputs(
    const std::vector<std::string>& arguments, const FolderOptions& options, std::string* problem) {
    std::vector<ProcessInput> inputs;
    for (const auto& argument : arguments) {
        std::error_code ec;
        if (!fs::is_directory(argument, ec)) {
            // A missing or unreadable file is kept: it fails in the run with its own words.
            auto object = VRURLAsset::urlAssetWithURL(absolutePath(argument));
            inputs.push_back({VRAsset::assetWithObject(object), argument, argument,
                              shardKeyOf(argument, std::nullopt)});
            continue;
        }
        auto files = mediaFilesInFolder(argument, options.recursive, problem);
        if (!files) return std::nullopt;
        addFolder(absolutePath(argument), *files, options, inputs);
    }
    return inputs;
}

std::vector<ProcessInput> takeShard(std::vector<ProcessInput> inputs, const Shard& shard) {
    std::erase_if(inputs, [&](const ProcessInput& input) {
        return shardOfKey(input.shardKey, shard.count) != shard.index;
    });
    return inputs;
}

}  // namespace app
