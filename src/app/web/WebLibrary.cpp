// The library routes: albums, a page of an album's assets, and thumbnails.
#include "app/LibraryAssets.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "platform/Bitmap.h"

namespace app::web {
namespace {

using nlohmann::json;
using namespace platform;

std::optional<PHAssetMediaType> mediaFilter(const httplib::Request& request) {
    if (!request.has_param("media")) return std::nullopt;
    const std::string media = request.get_param_value("media");
    if (media == "photo") return PHAssetMediaTypeImage;
    if (media == "video") return PHAssetMediaTypeVideo;
    return std::nullopt;
}

Reply albums(WebSession& session) {
    std::string problem;
    auto library = session.openLibrary(&problem);
    if (!library) return Reply::error(503, problem);
    json list = json::array();
    for (const auto& album : library->fetchAlbums().objects())
        list.push_back({{"id", album.localIdentifier},
                        {"title", album.localizedTitle},
                        {"count", album.estimatedAssetCount}});
    return Reply::json({{"root", library->locations().root}, {"albums", list}});
}

// A page of assets: all of them, an album's (`album`), or the newest first (`recents`).
Reply assets(WebSession& session, const httplib::Request& request) {
    std::string problem;
    auto library = session.openLibrary(&problem);
    if (!library) return Reply::error(503, problem);
    PHFetchOptions options;
    if (auto media = mediaFilter(request)) options.mediaTypes = {*media};
    options.newestFirst = request.has_param("recents");
    PHFetchResult<PHAsset> found;
    if (request.has_param("album")) {
        found = library->fetchAssetsInAssetCollection(request.get_param_value("album"), options);
    } else {
        found = library->fetchAssetsWithOptions(options);
    }
    const std::size_t offset = countParameter(request, "offset", 0, found.count());
    const std::size_t limit = countParameter(request, "limit", 200, 2000);
    json items = json::array();
    for (std::size_t i = offset; i < found.count() && i < offset + limit; ++i) {
        json item = library::assetJSON(*found.objectAtIndex(i));
        item["id"] = "library:" + found.objectAtIndex(i)->localIdentifier;
        const auto& resources = found.objectAtIndex(i)->resources;
        item["name"] = resources.empty() ? std::string() : resources.front().originalFilename;
        items.push_back(std::move(item));
    }
    return Reply::json({{"total", found.count()}, {"offset", offset}, {"items", items}});
}

}  // namespace

void installLibraryRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/library/albums",
              [&session](const httplib::Request&) { return albums(session); });
    getOnMain(server, "/api/library/assets",
              [&session](const httplib::Request& request) { return assets(session, request); });
    // Thumbnails are drawn on the server's thread: the library's cache is safe across
    // threads and processes, and the main queue stays free for the run.
    server.http().Get("/api/library/thumbnail", [&session](const httplib::Request& request,
                                                           httplib::Response& response) {
        const std::string id = request.get_param_value("id");
        const auto side = static_cast<std::uint32_t>(countParameter(request, "size", 256, 1024));
        std::shared_ptr<PhotoLibrary> library;
        WebServer::onMain([&] {
            std::string problem;
            library = session.openLibrary(&problem);
            return Reply{};
        });
        if (!library) return WebServer::send(response, Reply::error(503, "No library."));
        const std::string local = id.rfind("library:", 0) == 0 ? id.substr(8) : id;
        ErrorRef error;
        auto picture = library->requestThumbnail(local, std::max<std::uint32_t>(side, 64), &error);
        std::string problem;
        auto bytes = picture ? encodedImage(*picture, true, &problem) : std::nullopt;
        if (!bytes)
            return WebServer::send(
                response, Reply::error(404, "No thumbnail: " +
                                                (error ? error->localizedDescription() : problem)));
        response.set_header("Cache-Control", "private, max-age=3600");
        response.set_content(*bytes, "image/jpeg");
    });
}

}  // namespace app::web
