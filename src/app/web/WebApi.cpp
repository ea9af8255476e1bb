#include "app/web/WebApi.h"

#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "results/ResultManager.h"
#include "storage/VRSettings.h"

namespace app::web {
namespace {

using nlohmann::json;
using platform::FileManager;

class WebApiState final : public WebApi {
  public:
    explicit WebApiState(WebServer& server) : session(server) {}
    ~WebApiState() override {
        // The run's processor calls back on the main queue; it is cancelled while that runs.
        session.run.reset();
        session.flows.reset();
        session.launch.reset();
    }
    WebSession session;
};

// Uploads and camera pictures land here, inside the program's own documents.
std::string uploadsFolder() {
    return FileManager::stringByAppendingPathComponent(platform::Environment::documentsDirectory(),
                                                       "uploads");
}

Reply stateReply(WebServer& server) {
    return Reply::json({{"version", platform::Environment::appVersion()},
                        {"uploadLimit", server.uploadLimit()},
                        {"folders", server.paths().roots()},
                        {"uploads", uploadsFolder()},
                        {"streams", server.events().subscriberCount()}});
}

}  // namespace

std::shared_ptr<platform::PhotoLibrary> WebSession::openLibrary(std::string* problem) {
    if (library) return library;
    const std::string root = VRSettings::libraryPath();
    platform::ErrorRef error;
    library = platform::PhotoLibrary::open(
        platform::defaultPhotoLibraryLocations(root.empty() ? std::nullopt
                                                            : std::optional<std::string>(root)),
        &error);
    if (!library) {
        if (problem)
            *problem = "The photo library could not be opened: " +
                       (error ? error->localizedDescription() : std::string("unknown"));
        return nullptr;
    }
    VRAssetManager2::defaultManager().setPhotoLibrary(library);
    server.paths().addRoot(library->locations().root);
    return library;
}

std::string WebSession::identifierForAsset(const VRAsset& asset) {
    if (auto* url = dynamic_cast<const VRURLAsset*>(asset.object().get()))
        return "file:" + url->url();
    return "library:" + asset.objectIdentifier();
}

VRAssetRef WebSession::assetForIdentifier(const std::string& identifier, std::string* problem) {
    if (auto known = assets.find(identifier); known != assets.end()) return known->second;
    VRAssetRef asset;
    if (identifier.rfind("library:", 0) == 0) {
        auto opened = openLibrary(problem);
        if (!opened) return nullptr;
        const std::string local = identifier.substr(8);
        auto found = opened->fetchAssetsWithLocalIdentifiers({local}, {});
        if (const auto* object = found.firstObject())
            asset = VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(*object), 0);
    } else if (identifier.rfind("file:", 0) == 0) {
        auto path = server.paths().resolve(identifier.substr(5));
        if (!path) {
            if (problem) *problem = "That file lies outside the folders this server may read.";
            return nullptr;
        }
        if (VRURLAsset::mediaTypeForPath(*path) == VRFormatMediaTypeNone ||
            !FileManager::fileExistsAtPath(*path)) {
            if (problem) *problem = "Not a photo or movie: " + *path;
            return nullptr;
        }
        asset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(*path));
    }
    if (!asset) {
        if (problem) *problem = "No such item: " + identifier;
        return nullptr;
    }
    assets[identifier] = asset;
    return asset;
}

std::unique_ptr<WebApi> installWebApi(WebServer& server, const std::vector<std::string>& folders) {
    auto state = std::make_unique<WebApiState>(server);
    for (const auto& folder : folders) server.paths().addRoot(folder);
    FileManager::createDirectoryAtPath(uploadsFolder(), true);
    server.paths().addRoot(uploadsFolder());
    server.paths().addRoot(ResultManager::shared().resultsURL());
    std::string problem;
    state->session.openLibrary(&problem);

    getOnMain(server, "/api/state",
              [&server](const httplib::Request&) { return stateReply(server); });
    installLibraryRoutes(server, state->session);
    installFileRoutes(server, state->session);
    installRunRoutes(server, state->session);
    installTemplateRoutes(server, state->session);
    installResultRoutes(server, state->session);
    installThemeRoute(server);
    installLaunchRoutes(server, state->session);
    installSettingsRoutes(server);
    installTutorialRoutes(server, state->session);
    installFlowRoutes(server, state->session);
    installAdjustRoutes(server, state->session);
    installExternalRoutes(server, state->session);
    return state;
}

}  // namespace app::web
