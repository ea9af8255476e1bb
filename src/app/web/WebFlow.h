// The editing walk of one browser tab, shared by the route files whose screens are on it (the
// size editors and summary, the external item, the settings): each tab has a navigation manager
// of its own, and its answers tell the page the stack and the modal screen to draw.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "app/SizeEditing.h"
#include "app/web/WebServer.h"
#include "core/HomeNavigation.h"
#include "core/NavigationManager.h"

namespace app::web {

class WebSession;

struct WebFlow {
    WebFlow();

    std::unique_ptr<NavigationManager> manager;
    // The home flow of the tab: the delegate of its external screen, which begins the walk
    // with the file once a template is chosen.
    std::shared_ptr<HomeNavigation> home;
    // The size editors of the screens on the stack, by screen number.
    std::map<std::uint64_t, std::unique_ptr<SizeEditing>> editors;
    std::uint64_t lastUse = 0;

    NavigationManager& navigation() { return *manager; }
    const VRScreenRef& top() const { return manager->navController()->topViewController(); }
    // The modal screen, else the screen on top: the one the user answers.
    const VRScreenRef& shown() const;
    // Back to the home screen with no modal, as a page that lost its walk finds it.
    void unwind();
};

struct FlowRequest {
    WebFlow* flow = nullptr;
    std::string id;
    nlohmann::json body;
};

// What the page draws: the walk's id, the screen on top, the stack, the modal screen and the
// content of the screen on top.
nlohmann::json flowJSON(WebFlow& flow, const std::string& id);

using FlowWork = std::function<Reply(WebSession& session, FlowRequest& request)>;
// POST `pattern` on the walk the body names ("flow"), made first when `make`. A body that
// names a "screen" is refused unless that screen is the one shown (the modal, else the top).
void postFlow(WebServer& server, WebSession& session, const std::string& pattern, bool make,
              FlowWork work);

}  // namespace app::web
