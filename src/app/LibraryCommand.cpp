// `unwarp library info|albums|list|show|thumbnail|add`: the photo library as the program sees
// it, for people and (with --json, one object a line) for scripts, and saving files into it.
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/LibraryAssets.h"
#include "platform/PhotoLibrary.h"
#include "storage/VRSettings.h"

namespace {

using nlohmann::json;
using namespace platform;
using app::library::assetJSON;
using app::library::isoDate;
using app::library::mediaWord;

const char* statusWord(PHAuthorizationStatus status) {
    switch (status) {
        case PHAuthorizationStatusNotDetermined:
            return "not determined";
        case PHAuthorizationStatusAuthorized:
            return "authorized";
        default:
            return "denied";
    }
}

class LibraryCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* library = program.add_subcommand(
            "library", "Show the photo library: its place, albums and assets");
        library->require_subcommand(1);
        // --json and --library may follow the action.
        library->fallthrough();
        library->add_option("--library", _libraryPath,
                            "The library's folder (default: the pictures folder)");
        library->add_flag("--json", _json, "One JSON object a line");
        library->add_subcommand("info", "Where the library is, its access status and its counts")
            ->callback([this] { _action = "info"; });
        library->add_subcommand("albums", "The albums (folders under the library's folder)")
            ->callback([this] { _action = "albums"; });
        auto* list = library->add_subcommand("list", "The assets, oldest first")->callback([this] {
            _action = "list";
        });
        list->add_option("--album", _album, "Only the assets of this album");
        list->add_option("--media", _media, "Only photos or only videos")
            ->check(CLI::IsMember({"photo", "video"}));
        auto* show = library->add_subcommand("show", "One asset's facts, albums and files")
                         ->callback([this] { _action = "show"; });
        show->add_option("ID", _identifier, "The asset's identifier, as `list` prints it")
            ->required();
        auto* thumbnail =
            library->add_subcommand("thumbnail", "Write an asset's thumbnail as PNG or JPEG")
                ->callback([this] { _action = "thumbnail"; });
        thumbnail->add_option("ID", _identifier, "The asset's identifier")->required();
        thumbnail->add_option("--size", _size, "The box it fits into, like 256x256")->required();
        thumbnail
            ->add_option("--out", _out,
                         "The file (.png, .jpg); taken, the next free name beside it is used")
            ->required();
        auto* add = library->add_subcommand("add", "Save copies of files into the library")
                        ->callback([this] { _action = "add"; });
        add->add_option("FILE", _files,
                        "Photos and movies; a still and a movie of one name "
                        "are saved as one Live Photo")
            ->required();
        add->add_option("--album", _album,
                        "The album to save into, made when missing "
                        "(default: none, the library's folder itself)");
        return library;
    }

    int run() override {
        ErrorRef error;
        // --library, else the libraryPath setting, else the pictures folder.
        if (_libraryPath.empty()) _libraryPath = VRSettings::libraryPath();
        auto locations = defaultPhotoLibraryLocations(
            _libraryPath.empty() ? std::nullopt : std::optional<std::string>(_libraryPath));
        auto library = PhotoLibrary::open(locations, &error);
        if (!library)
            return app::reportFailure(
                "the photo library could not be opened: " +
                (error ? error->localizedDescription() : std::string("unknown error")));
        if (_action == "info") return info(*library);
        if (_action == "albums") return albums(*library);
        if (_action == "show") return app::library::showAsset(*library, _identifier, _json);
        if (_action == "thumbnail")
            return app::library::writeThumbnail(*library, _identifier, _size, _out);
        if (_action == "add") return app::library::addFiles(*library, _files, _album, _json);
        return list(*library);
    }

  private:
    int info(PhotoLibrary& library) {
        auto all = library.fetchAssetsWithOptions({});
        std::size_t photos = 0, videos = 0, live = 0;
        for (const auto& a : all.objects()) {
            photos += a.mediaType == PHAssetMediaTypeImage;
            videos += a.mediaType == PHAssetMediaTypeVideo;
            live += a.isLivePhoto();
        }
        const auto& where = library.locations();
        const char* status =
            statusWord(library.authorizationStatusForAccessLevel(PHAccessLevelReadWrite));
        const std::size_t albumCount = library.fetchAlbums().count();
        if (_json) {
            std::cout << json{{"root", where.root},
                              {"catalogue", where.catalogPath},
                              {"thumbnails", where.thumbnailsCache},
                              {"status", status},
                              {"assets", all.count()},
                              {"photos", photos},
                              {"videos", videos},
                              {"livePhotos", live},
                              {"albums", albumCount}}
                             .dump()
                      << "\n";
            return app::kExitSuccess;
        }
        std::cout << "library:     " << where.root << "\n"
                  << "status:      " << status << "\n"
                  << "catalogue:   " << where.catalogPath << "\n"
                  << "thumbnails:  " << where.thumbnailsCache << "\n"
                  << "assets:      " << all.count() << " (" << photos << " photos, " << videos
                  << " videos, " << live << " Live Photos)\n"
                  << "albums:      " << albumCount << "\n";
        return app::kExitSuccess;
    }

    int albums(PhotoLibrary& library) {
        for (const auto& album : library.fetchAlbums().objects()) {
            if (_json) {
                std::cout << json{{"id", album.localIdentifier},
                                  {"title", album.localizedTitle},
                                  {"count", album.estimatedAssetCount}}
                                 .dump()
                          << "\n";
            } else {
                std::cout << album.localizedTitle << "\t" << album.estimatedAssetCount << "\n";
            }
        }
        return app::kExitSuccess;
    }

    int list(PhotoLibrary& library) {
        PHFetchOptions options;
        if (_media == "photo") options.mediaTypes = {PHAssetMediaTypeImage};
        if (_media == "video") options.mediaTypes = {PHAssetMediaTypeVideo};
        PHFetchResult<PHAsset> assets;
        if (_album.empty()) {
            assets = library.fetchAssetsWithOptions(options);
        } else {
            auto album = library.albumWithTitle(_album);
            if (!album)
                return app::reportFailure("no album \"" + _album + "\" in " +
                                          library.locations().root);
            assets = library.fetchAssetsInAssetCollection(album->localIdentifier, options);
        }
        for (const auto& a : assets.objects()) {
            if (_json) {
                std::cout << assetJSON(a).dump() << "\n";
                continue;
            }
            std::cout << a.localIdentifier << "\t"
                      << (a.isLivePhoto() ? "live" : mediaWord(a.mediaType)) << "\t" << a.pixelWidth
                      << "x" << a.pixelHeight << "\t" << isoDate(a.creationDate) << "\t"
                      << (a.resources.empty() ? "" : a.resources[0].path) << "\n";
        }
        return app::kExitSuccess;
    }

    std::string _libraryPath;
    bool _json = false;
    std::string _action;
    std::string _album;
    std::string _media;
    std::string _identifier;
    std::string _size;
    std::string _out;
    std::vector<std::string> _files;
};

}  // namespace

UNWARP_REGISTER_COMMAND(LibraryCommand)
