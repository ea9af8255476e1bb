// The library routes: albums, a page of an album's assets, and thumbnails of library items and
// of files (uploads, the file browser's picks, the camera's photos) alike.
#include <algorithm>
#include <deque>

#include "app/web/WebApi.h"
#include "app/web/WebPictures.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "assets/VRAssetThumbnails.h"
#include "assets/VRURLAsset.h"
#include "platform/Bitmap.h"
#include "platform/BitmapContext.h"
#include "platform/FileManager.h"

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

// What a grid cell and the screens after it need of an asset, and no more: a page of an
// album of ten thousand stays small.
json gridItemJSON(const PHAsset& asset) {
    return {{"id", "library:" + asset.localIdentifier},
            {"name",
             asset.resources.empty() ? std::string() : asset.resources.front().originalFilename},
            {"media", asset.mediaType == PHAssetMediaTypeVideo   ? "video"
                      : asset.mediaType == PHAssetMediaTypeImage ? "photo"
                                                                 : "unknown"},
            {"livePhoto", asset.isLivePhoto()},
            {"width", asset.pixelWidth},
            {"height", asset.pixelHeight},
            {"duration", asset.duration}};
}

// The listings a page is paging through, so that its later pages come from the fetch of its
// first: a fetch reads the whole listing, and the pages stay in step when the library
// changes meanwhile. The first page fetches anew. Used on the main queue only.
class Listings {
  public:
    const PHFetchResult<PHAsset>& fetch(const std::string& key, bool fresh,
                                        const std::function<PHFetchResult<PHAsset>()>& fetcher) {
        auto found = std::find_if(_kept.begin(), _kept.end(),
                                  [&](const auto& kept) { return kept.first == key; });
        if (found != _kept.end() && !fresh) return found->second;
        if (found != _kept.end()) _kept.erase(found);
        // Two listings at most: two pages (or two tabs) browsing at once.
        if (_kept.size() >= 2) _kept.pop_front();
        _kept.emplace_back(key, fetcher());
        return _kept.back().second;
    }

  private:
    std::deque<std::pair<std::string, PHFetchResult<PHAsset>>> _kept;
};

// A page of assets: all of them, an album's (`album`), or the newest first (`recents`).
Reply assets(WebSession& session, Listings& listings, const httplib::Request& request) {
    std::string problem;
    auto library = session.openLibrary(&problem);
    if (!library) return Reply::error(503, problem);
    PHFetchOptions options;
    if (auto media = mediaFilter(request)) options.mediaTypes = {*media};
    options.newestFirst = request.has_param("recents");
    const std::string album = request.get_param_value("album");
    const std::string key = album + "|" + request.get_param_value("media") + "|" +
                            (options.newestFirst ? "recents" : "");
    const std::size_t offset = countParameter(request, "offset", 0, 1'000'000'000);
    const auto& found = listings.fetch(key, offset == 0, [&] {
        return request.has_param("album") ? library->fetchAssetsInAssetCollection(album, options)
                                          : library->fetchAssetsWithOptions(options);
    });
    const std::size_t limit = countParameter(request, "limit", 200, 2000);
    json items = json::array();
    for (std::size_t i = offset; i < found.count() && i < offset + limit; ++i)
        items.push_back(gridItemJSON(*found.objectAtIndex(i)));
    return Reply::json(
        {{"total", found.count()}, {"offset", std::min(offset, found.count())}, {"items", items}});
}

// The picture scaled to cover a square of `side` pixels and cut to it around its centre, as a
// grid cell shows it: the browser then draws it pixel for pixel, with no scaling of its own.
std::optional<Bitmap> squareCover(const Bitmap& image, std::uint32_t side, ErrorRef* error) {
    const double width = double(image.width()), height = double(image.height());
    const double scale = std::max(double(side) / width, double(side) / height);
    const ColorSpace space =
        image.layout().colorComponents == 3 ? image.colorSpace() : ColorSpace::deviceRGB();
    const PixelLayout layout{8, 3, kCGImageAlphaPremultipliedLast};
    auto context =
        BitmapContext::create(side, side, 8, space, Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->setInterpolationQuality(kCGInterpolationHigh);
    const CGSize drawn{width * scale, height * scale};
    const CGPoint origin{(double(side) - drawn.width) / 2, (double(side) - drawn.height) / 2};
    if (!context->drawImage(CGRect{origin, drawn}, image, error)) return std::nullopt;
    return context->createImage();
}

std::optional<Bitmap> libraryThumbnail(WebSession& session, const std::string& id,
                                       std::uint32_t side, std::string* problem) {
    std::shared_ptr<PhotoLibrary> library;
    WebServer::onMain([&] {
        library = session.openLibrary(problem);
        return Reply{};
    });
    if (!library) return std::nullopt;
    const std::string local = id.rfind("library:", 0) == 0 ? id.substr(8) : id;
    ErrorRef error;
    auto picture = library->requestThumbnail(local, side, &error);
    if (!picture && error) *problem = error->localizedDescription();
    return picture;
}

// A file inside the allowed folders, drawn as the library draws its items: whole, its longer
// side `side`, a movie by a frame of its own. A file that can't be drawn (a broken one waiting
// in a run) gets a stand-in, so that the list still shows it.
Reply fileThumbnail(WebSession& session, const std::string& given, std::uint32_t side, bool* keep) {
    auto path = session.server.paths().resolve(given);
    if (!path || VRURLAsset::mediaTypeForPath(*path) == VRFormatMediaTypeNone)
        return Reply::error(403, "That file lies outside the folders this server may read.");
    if (!FileManager::fileExistsAtPath(*path)) return Reply::error(404, "No such file.");
    auto picture =
        VRThumbnailForURL(*path, CGSize{double(side), double(side)}, PHImageContentModeAspectFit);
    std::string problem;
    auto bytes = picture ? encodedImage(*picture, true, &problem) : std::nullopt;
    *keep = bytes.has_value();
    if (!bytes) return Reply{200, unreadablePictureSVG(int(side)), "image/svg+xml"};
    return Reply{200, *bytes, "image/jpeg"};
}

Reply libraryThumbnailReply(WebSession& session, const std::string& id, std::uint32_t side,
                            std::uint32_t square, bool* keep) {
    std::string problem;
    auto picture = libraryThumbnail(session, id, side, &problem);
    // `square` (0 for none): exactly that many pixels a side, for a cell of that many device
    // pixels.
    if (picture && square != 0) {
        ErrorRef error;
        picture = squareCover(*picture, square, &error);
        if (!picture && error) problem = error->localizedDescription();
    }
    auto bytes = picture ? encodedImage(*picture, true, &problem) : std::nullopt;
    if (!bytes) return Reply::error(404, "No thumbnail: " + problem);
    *keep = true;
    return Reply{200, *bytes, "image/jpeg"};
}

}  // namespace

void installLibraryRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/library/albums",
              [&session](const httplib::Request&) { return albums(session); });
    auto listings = std::make_shared<Listings>();
    getOnMain(server, "/api/library/assets", [&session, listings](const httplib::Request& request) {
        return assets(session, *listings, request);
    });
    // Thumbnails are drawn on the server's thread: the library's cache is safe across
    // threads and processes, and the main queue stays free for the run.
    server.http().Get("/api/library/thumbnail", [&session](const httplib::Request& request,
                                                           httplib::Response& response) {
        const std::string id = request.get_param_value("id");
        const auto asked = static_cast<std::uint32_t>(countParameter(request, "size", 256, 1024));
        // Pictures are drawn no smaller than 64; a square for a small cell is cut from that.
        const auto side = std::max<std::uint32_t>(asked, 64);
        const std::uint32_t square =
            request.has_param("square") ? std::max<std::uint32_t>(asked, 16) : 0;
        bool keep = false;
        const Reply reply = id.rfind("file:", 0) == 0
                                ? fileThumbnail(session, id.substr(5), side, &keep)
                                : libraryThumbnailReply(session, id, side, square, &keep);
        WebServer::send(response, reply);
        // The grid shows a cell's picture again on the way back up without asking anew.
        if (keep) WebServer::allowCaching(response, "private, max-age=3600");
    });
}

}  // namespace app::web
