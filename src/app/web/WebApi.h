// The JSON API of `unwarp serve` over the program's own objects: the library, the templates,
// the run, the results and the settings. The routes' work runs on the main queue; the state a
// page builds (its picked assets, its run) lives in one WebSession there.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/web/WebServer.h"

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
void installExternalRoutes(WebServer& server, WebSession& session);
// The theme's colours as CSS for a colorThemeType setting (0 follows the browser).
std::string themeStyleSheet(std::int64_t colorThemeType);

}  // namespace app::web
