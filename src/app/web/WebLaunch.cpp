// The launch routes: the launch step due at this start with its words and button, the button
// taken, and the home-screen mode chosen; the launch controller keeps its own rules and
// stores the launch state as the launch screens do.
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "core/AppDelegate.h"
#include "core/VRLaunchController.h"
#include "storage/VRSettings.h"

namespace app::web {
namespace {

using nlohmann::json;

class LaunchFinish : public VRLaunchControllerDelegate {
  public:
    explicit LaunchFinish(bool& finished) : _finished(finished) {}
    void launchControllerDidFinishFromStep(VRLaunchController&, std::int64_t) override {
        _finished = true;
    }

  private:
    bool& _finished;
};

json launchJSON(WebSession& session) {
    if (session.launchFinished || !session.launch) return {{"done", true}};
    const auto& controller = *session.launch;
    return {{"done", false},
            {"step", controller.step()},
            {"title", controller.content().title},
            {"text", controller.content().text},
            {"button", controller.content().button},
            {"single", controller.staticMode()},
            {"chooseMode", controller.isHomeScreenModeControllerPresented()}};
}

// The controller is made once, at the first page's visit, for the step this start needs.
void prepareLaunch(WebSession& session) {
    if (session.launch || session.launchFinished) return;
    const VRLaunchNeeds& needs = AppDelegate::shared().launchNeeds();
    if (needs.showsHomeScreen) {
        session.launchFinished = true;
        return;
    }
    session.launchDelegate = std::make_shared<LaunchFinish>(session.launchFinished);
    session.launch = std::make_unique<VRLaunchController>(session.launchDelegate, needs.step,
                                                          VRLaunchControllerEvents{},
                                                          VRLaunchServices::standard());
    session.launch->setStaticMode(needs.staticMode);
    session.launch->viewDidLoad();
}

Reply chooseMode(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!session.launch || !session.launch->isHomeScreenModeControllerPresented())
        return Reply::error(409, "No home-screen choice is open.");
    auto mode = body ? body->find("mode") : body->end();
    if (!body || mode == body->end() || !mode->is_number_unsigned() || mode->get<int>() > 1)
        return Reply::error(400, "The mode is 0 or 1.");
    VRSettings::setHomeScreenMode(mode->get<std::int64_t>());
    session.launch->homeScreenModeControllerDidFinish();
    return Reply::json(launchJSON(session));
}

}  // namespace

void installLaunchRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/launch", [&session](const httplib::Request&) {
        prepareLaunch(session);
        return Reply::json(launchJSON(session));
    });
    postOnMain(server, "/api/launch/button", [&session](const httplib::Request&) {
        prepareLaunch(session);
        if (!session.launch || session.launchFinished)
            return Reply::error(409, "No launch step is open.");
        session.launch->touchButton();
        return Reply::json(launchJSON(session));
    });
    postOnMain(server, "/api/launch/mode", [&session](const httplib::Request& request) {
        return chooseMode(session, request);
    });
}

}  // namespace app::web
