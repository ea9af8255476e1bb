// The tutorial routes: whether the walk is due or on, the focus of its step with its text in
// styled runs, the user's doings that move it on, and the touch on the results screen's focus.
// The walk's state is the launch manager's, as for every front end.
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "core/VRLaunchManager.h"
#include "presentation/VRTutorialWalk.h"

namespace app::web {
namespace {

using nlohmann::json;

json focusJSON(const std::string& screen, const std::string& target, const std::string& text) {
    return {{"screen", screen}, {"target", target}, {"text", text}, {"runs", styledTextJSON(text)}};
}

json tutorialJSON(const WebSession& session) {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    json j{{"required", manager.isTutorialRequired()},
           {"active", manager.isTutorialActive()},
           {"state", manager.tutorialState()},
           {"step", manager.tutorialStep()},
           {"focus", nullptr}};
    if (!manager.isTutorialActive()) return j;
    if (auto stop = VRTutorial::walkStopAtStep(manager.tutorialStep()))
        j["focus"] = focusJSON(stop->screen, stop->target, stop->text);
    else if (session.focus)
        j["focus"] = focusJSON("results", session.focus->targetView, session.focus->text);
    return j;
}

// The user did something the walk may wait for; back on the home screen after the last step
// the tutorial is complete.
Reply tutorialEvent(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "Send {\"event\": what happened}.");
    const std::string event = stringMember(*body, "event");
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    if (manager.tutorialState() == VRLaunchManager::VRTutorialStateRunning) {
        if (event == "screen:home" &&
            manager.tutorialStep() == VRLaunchManager::kLastTutorialStep) {
            manager.completeTutorial();
        } else {
            manager.setTutorialStep(VRTutorial::stepAfterEvent(manager.tutorialStep(), event));
        }
    }
    return Reply::json(tutorialJSON(session));
}

}  // namespace

void installTutorialRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/tutorial",
              [&session](const httplib::Request&) { return Reply::json(tutorialJSON(session)); });
    postOnMain(server, "/api/tutorial/start", [&session](const httplib::Request&) {
        VRLaunchManager& manager = VRLaunchManager::defaultManager();
        if (!manager.isTutorialRequired()) return Reply::error(409, "The tutorial is complete.");
        if (manager.tutorialState() != VRLaunchManager::VRTutorialStateRunning)
            manager.startTutorial();
        return Reply::json(tutorialJSON(session));
    });
    postOnMain(server, "/api/tutorial/event", [&session](const httplib::Request& request) {
        return tutorialEvent(session, request);
    });
    // The touch on the results screen's focus: the run takes the walk to its last step.
    postOnMain(server, "/api/tutorial/touch", [&session](const httplib::Request&) {
        if (!session.run || !session.focus) return Reply::error(409, "Nothing is in focus.");
        session.run->focusViewDidRegisterTouch();
        return Reply::json(tutorialJSON(session));
    });
}

}  // namespace app::web
