// Files opened from outside while `unwarp serve` runs: the server is a front end on the launch
// channel, so `unwarp open FILE` hands its copy here. The file goes through the launch manager
// as the home screen takes it, and the pages learn of it by an "external" event; a page that
// opens later asks for the item still waiting. A page shows it through its own walk: the home
// flow of the tab presents the external screen, and the screen's template choice begins the
// walk with the file.
#include <iostream>

#include "app/web/WebApi.h"
#include "app/web/WebFlow.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "assets/VRURLAsset.h"
#include "core/VRLaunchChannel.h"
#include "core/VRLaunchManager.h"
#include "editing/VRPresetViewAbstract.h"
#include "model/VRFormatMediaType.h"
#include "platform/FileManager.h"
#include "templates/TemplateManager.h"

namespace app::web {
namespace {

using nlohmann::json;

// Counts the files handed over (main thread only), so a page tells a new arrival from an
// answer about one it already let go.
std::uint64_t gArrivals = 0;

json externalJSON(const std::string& path) {
    const auto type = VRURLAsset::mediaTypeForPath(path);
    return {{"id", "file:" + path},
            {"number", gArrivals},
            {"name", platform::FileManager::lastPathComponent(path)},
            {"media", type == VRFormatMediaTypeVideo ? "video" : "photo"},
            {"title", "External " + titleForMediaType(type)}};
}

// The launch manager's external file, when it is one the pages can open; none while the
// tutorial runs, which keeps the file until it ends.
std::optional<json> waitingItem(WebSession& session) {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    const auto& path = manager.externalURL();
    if (!path || manager.tutorialState() == VRLaunchManager::VRTutorialStateRunning)
        return std::nullopt;
    if (VRURLAsset::mediaTypeForPath(*path) == VRFormatMediaTypeNone) {
        manager.setExternalURL(std::nullopt);
        return std::nullopt;
    }
    // The copy lies in this process's own temporary folder: the pages may name it.
    session.server.paths().addRoot(platform::FileManager::stringByDeletingLastPathComponent(*path));
    return externalJSON(*path);
}

void receive(WebSession& session, const std::string& path) {
    ++gArrivals;
    VRLaunchManager::defaultManager().setExternalURL(path);
    if (auto item = waitingItem(session))
        session.server.events().publish("external",
                                        item->dump(-1, ' ', false, json::error_handler_t::replace));
}

// The waiting file, presented on the tab's walk as the home screen does: the stack goes back
// to home first, and the file is delivered to this tab only. With none waiting (another tab
// took it) the walk is answered as it is.
Reply present(WebSession& session, FlowRequest& request) {
    auto item = waitingItem(session);
    if (!item) return Reply::json(flowJSON(*request.flow, request.id));
    VRLaunchManager::defaultManager().setExternalURL(std::nullopt);
    HomeNavigation& home = *request.flow->home;
    home.viewDidAppear();
    home.launchManagerDidRequestExtenralURL(item->at("id").get<std::string>().substr(5));
    return Reply::json(flowJSON(*request.flow, request.id));
}

Reply externalWork(FlowRequest& request,
                   const std::function<void(NavigationManager&, const VRScreenRef&)>& work) {
    const VRScreenRef& shown = request.flow->shown();
    if (!shown->external()) return Reply::error(409, "No external item is shown.");
    work(request.flow->navigation(), shown);
    return Reply::json(flowJSON(*request.flow, request.id));
}

// The template the user chose for the file ("template": key), or none for a size of its own.
Reply finish(WebSession&, FlowRequest& request) {
    const std::string key = stringMember(request.body, "template");
    VXTemplateRef tpl;
    if (!key.empty()) {
        tpl = VRPresetViewAbstract::templateWithSourceOptions(
            TemplateManager::shared().templateWithKey(key));
        if (!tpl) return Reply::error(404, "No template with the key \"" + key + "\".");
    }
    return externalWork(request, [&](NavigationManager& manager, const VRScreenRef& screen) {
        manager.externalControllerDidFinish(screen, tpl);
    });
}

Reply cancel(WebSession&, FlowRequest& request) {
    return externalWork(request, [](NavigationManager& manager, const VRScreenRef& screen) {
        manager.externalControllerDidCancel(screen);
    });
}

}  // namespace

void installExternalRoutes(WebServer& server, WebSession& session) {
    std::string problem;
    session.launchChannel = VRLaunchChannel::publish(
        [&session](const std::string& path) { receive(session, path); }, &problem);
    if (!session.launchChannel)
        std::cerr << "unwarp: files opened from outside won't arrive: " << problem << "\n";
    getOnMain(server, "/api/external", [&session](const httplib::Request&) {
        auto item = waitingItem(session);
        return Reply::json({{"item", item ? *item : json()}});
    });
    // The page took the item (its "Next") or let it go ("Cancel"): it is delivered once.
    postOnMain(server, "/api/external/done", [](const httplib::Request&) {
        VRLaunchManager::defaultManager().setExternalURL(std::nullopt);
        return Reply::json({{"item", nullptr}});
    });
    postFlow(server, session, "/api/flow/external", true, present);
    postFlow(server, session, "/api/flow/external/finish", false, finish);
    postFlow(server, session, "/api/flow/external/cancel", false, cancel);
}

}  // namespace app::web
