// The JSON API of `unwarp serve` over the program's own objects: the library, the templates,
// the run, the results and the settings. The routes' work runs on the main queue; the state a
// page builds (its picked assets, its run) lives in one WebSession there.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/web/WebServer.h"
#include "assets/VRAsset.h"
#include "core/VRResultController.h"
#include "model/VRAdjustState.h"
#include "templates/VXTemplate.h"

namespace app::web {

class WebSession;

// The API's state; destroy it before the main queue stops.
class WebApi {
  public:
    virtual ~WebApi() = default;
};

// Routes of the server's API; `folders` join the roots a client may name files in, beside the
// library, the result store and the uploads.
std::unique_ptr<WebApi> installWebApi(WebServer& server, const std::vector<std::string>& folders);

// The pieces, each in its own file.
void installLibraryRoutes(WebServer& server, WebSession& session);
void installFileRoutes(WebServer& server, WebSession& session);
void installRunRoutes(WebServer& server, WebSession& session);
void installTemplateRoutes(WebServer& server, WebSession& session);
void installResultRoutes(WebServer& server, WebSession& session);
void installThemeRoute(WebServer& server);
void installLaunchRoutes(WebServer& server, WebSession& session);
void installSettingsRoutes(WebServer& server);
void installTutorialRoutes(WebServer& server, WebSession& session);
void installFlowRoutes(WebServer& server, WebSession& session);
// A template key "flow:PAGE:SCREEN" names the template of a summary screen of a page's walk.
bool isFlowTemplateKey(const std::string& key);
VXTemplateRef flowTemplate(WebSession& session, const std::string& key);
// The run of that summary, started through the walk's navigation manager, which pushes its
// results screen; null with the reason when the summary is no longer on top.
std::shared_ptr<VRResultController> startFlowRun(WebSession& session, const std::string& key,
                                                 std::shared_ptr<const VRAdjustState> adjustState,
                                                 VRResultControllerEvents events,
                                                 std::string* problem);
void installAdjustRoutes(WebServer& server, WebSession& session);

// The picked assets of a request body ("assets": identifiers) in order; none with the reason
// for an identifier the page may not name.
std::optional<std::vector<VRAssetRef>> pickedAssets(WebSession& session, const nlohmann::json& body,
                                                    std::string* problem);
// The template of a request body ("template": key) with its source options.
VXTemplateRef chosenTemplate(WebSession& session, const nlohmann::json& body, std::string* problem);
// The template of a key as the template screen lists it: with its item's title and picture
// name when a list holds it (the catalogue, the example, the user's and the recent ones).
VXTemplateRef listedTemplateWithKey(const std::string& key);
// The states of the summary's adjust session, empty when none is open.
VRAdjustState adjustSessionStates(const WebSession& session);
void installExternalRoutes(WebServer& server, WebSession& session);
// The theme's colours as CSS for a colorThemeType setting (0 follows the browser).
std::string themeStyleSheet(std::int64_t colorThemeType);

}  // namespace app::web
