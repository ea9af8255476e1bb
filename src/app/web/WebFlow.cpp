// The editing walk of each page (a browser tab names its walk by an id of its own): a navigation
// manager with its own stack decides which screen comes after the home screen, each size editor
// and the summary, and where the settings open and close; the size editor's fields and buttons
// run through the editor's logic here.
// The page draws the screen on top of its stack and reports the user's answers.
#include "app/web/WebFlow.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "app/OwnTemplates.h"
#include "app/SizeEditing.h"
#include "app/TemplateJSON.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "core/VRLaunchManager.h"
#include "editing/TemplatePictures.h"
#include "editing/VRPresetViewAbstract.h"
#include "model/VXHelperText.h"
#include "templates/TemplateBodies.h"
#include "templates/TemplateManager.h"
#include "templates/VXHelperTemplate.h"

namespace app::web {

using nlohmann::json;

WebFlow::WebFlow()
    : manager(std::make_unique<NavigationManager>(NavigationServices::standard())),
      home(HomeNavigation::create(
          *manager, {[] { return VRLaunchManager::defaultManager().tutorialState(); }})) {}

const VRScreenRef& WebFlow::shown() const {
    const VRScreenRef& presented = manager->navController()->presentedViewController();
    return presented ? presented : top();
}

void WebFlow::unwind() {
    VRNavigationController& stack = *manager->navController();
    if (stack.presentedViewController()) stack.dismissViewControllerAnimated(false);
    stack.backAnimated(false, NavigationManager::kStepsToRoot);
}

class WebFlows {
  public:
    // Pages that were left keep their walk until this many newer ones crowd it out.
    static constexpr std::size_t kMaximumFlows = 64;

    // The walk of a page id (letters, digits and dashes, up to 64); made on first use.
    WebFlow* flow(const std::string& id, bool make) {
        if (id.empty() || id.size() > 64 || !std::all_of(id.begin(), id.end(), [](unsigned char c) {
                return std::isalnum(c) || c == '-';
            }))
            return nullptr;
        auto found = _flows.find(id);
        if (found == _flows.end()) {
            if (!make) return nullptr;
            if (_flows.size() >= kMaximumFlows) {
                auto oldest = std::min_element(_flows.begin(), _flows.end(), [](auto& a, auto& b) {
                    return a.second->lastUse < b.second->lastUse;
                });
                _flows.erase(oldest);
            }
            found = _flows.emplace(id, std::make_unique<WebFlow>()).first;
        }
        found->second->lastUse = ++_clock;
        return found->second.get();
    }

  private:
    std::map<std::string, std::unique_ptr<WebFlow>> _flows;
    std::uint64_t _clock = 0;
};

namespace {

constexpr const char* kFlowKeyPrefix = "flow:";

const char* kindWord(VRScreenKind kind) {
    switch (kind) {
        case VRScreenKind::home:
            return "home";
        case VRScreenKind::sizeEditor:
            return "sizeEditor";
        case VRScreenKind::summary:
            return "summary";
        case VRScreenKind::results:
            return "results";
        case VRScreenKind::external:
            return "external";
        case VRScreenKind::settings:
            return "settings";
    }
    return "";
}

WebFlows& flowsOf(WebSession& session) {
    if (!session.flows) session.flows = std::make_shared<WebFlows>();
    return *session.flows;
}

// The editor of a size editor screen, opened on the screen's template and target.
SizeEditing& editorOf(WebFlow& flow, const VRScreenRef& screen) {
    auto& editing = flow.editors[screen->identifier()];
    if (!editing) {
        const VRSizeEditorScreen& editor = *screen->sizeEditor();
        editing = std::make_unique<SizeEditing>(editor.tpl, editor.mediaType, editor.source);
        if (editor.targetAsset)
            editing->controller().presetView()._updateTargetPortrait(
                editor.targetAsset->pixelSize());
    }
    return *editing;
}

std::string templateTitle(const VXTemplate& tpl) {
    if (tpl.name() && !tpl.name()->empty()) return *tpl.name();
    for (auto media : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo})
        if (auto entry = tpl.sizeEntryForMediaType(media))
            return VXHelper::stringFromSizeEntry(*entry, true);
    return "";
}

json screenJSON(const VRScreen& screen) {
    json shown{{"id", screen.identifier()}, {"kind", kindWord(screen.kind())}};
    if (const VRExternalScreen* external = screen.external()) {
        const VRAsset& asset = *external->asset;
        shown["title"] = external->title;
        shown["cancel"] = external->cancelButtonTitle;
        shown["item"] = {
            {"id", WebSession::identifierForAsset(asset)},
            {"name", asset.originalFilename()},
            {"media", asset.mediaType() == VRFormatMediaTypeVideo ? "video" : "photo"}};
    } else if (const VRSettingsScreen* settings = screen.settings()) {
        shown["summarySettings"] = settings->summarySettings;
        shown["processingDisabled"] = settings->processingDisabled;
    }
    return shown;
}

}  // namespace

json flowJSON(WebFlow& flow, const std::string& id) {
    const auto& stack = *flow.manager->navController();
    const VRScreenRef& top = stack.topViewController();
    // Editors of screens no longer on the stack are let go.
    for (auto it = flow.editors.begin(); it != flow.editors.end();) {
        const bool onStack = std::any_of(
            stack.viewControllers().begin(), stack.viewControllers().end(),
            [&](const VRScreenRef& screen) { return screen->identifier() == it->first; });
        it = onStack ? std::next(it) : flow.editors.erase(it);
    }
    json screen = screenJSON(*top);
    screen["depth"] = stack.viewControllers().size();
    json screens = json::array();
    for (const VRScreenRef& onStack : stack.viewControllers())
        screens.push_back(screenJSON(*onStack));
    const VRScreenRef& presented = stack.presentedViewController();
    json answer{{"flow", id},
                {"screen", screen},
                {"stack", screens},
                {"presented", presented ? screenJSON(*presented) : json()}};
    if (const VRSizeEditorScreen* editor = top->sizeEditor()) {
        json shown = sizeEditingJSON(editorOf(flow, top), std::nullopt);
        shown["media"] = editor->mediaType == VRFormatMediaTypeVideo ? "video" : "photo";
        shown["title"] = titleForMediaType(editor->mediaType);
        shown["count"] = editor->assets.size();
        answer["editor"] = shown;
    } else if (const VRSummaryScreen* summary = top->summary()) {
        json assets = json::array();
        for (const auto& asset : summary->assets)
            assets.push_back(WebSession::identifierForAsset(*asset));
        answer["summary"] = {
            {"template",
             {{"identifier", kFlowKeyPrefix + id + ":" + std::to_string(top->identifier())},
              {"title", summary->tpl ? templateTitle(*summary->tpl) : ""},
              {"descriptionLine",
               summary->tpl ? VXHelper::descriptionForTemplate(*summary->tpl) : ""},
              {"photo", summary->tpl ? mediaJSON(*summary->tpl, VRFormatMediaTypePhoto) : json()},
              {"video", summary->tpl ? mediaJSON(*summary->tpl, VRFormatMediaTypeVideo) : json()}}},
            {"assets", assets}};
    }
    return answer;
}

namespace {

// The walk a request names, made when `make`; with `screen`, the screen must be on top.
std::optional<FlowRequest> flowRequest(WebSession& session, const httplib::Request& request,
                                       bool make, Reply* refusal) {
    auto body = jsonBody(request);
    if (!body) {
        *refusal = Reply::error(400, "The request is no JSON object.");
        return std::nullopt;
    }
    FlowRequest result{nullptr, stringMember(*body, "flow"), *body};
    result.flow = flowsOf(session).flow(result.id, make);
    if (!result.flow) {
        *refusal = Reply::error(404, "No such page walk.");
        return std::nullopt;
    }
    auto screen = body->find("screen");
    if (screen != body->end() &&
        (!screen->is_number_unsigned() ||
         screen->get<std::uint64_t>() != result.flow->shown()->identifier())) {
        *refusal = Reply::error(409, "That screen is no longer shown.");
        return std::nullopt;
    }
    return result;
}

}  // namespace

void postFlow(WebServer& server, WebSession& session, const std::string& pattern, bool make,
              FlowWork work) {
    postOnMain(server, pattern, [&session, make, work](const httplib::Request& request) {
        Reply refusal;
        auto flow = flowRequest(session, request, make, &refusal);
        if (!flow) return refusal;
        return work(session, *flow);
    });
}

namespace {

Reply begin(WebSession& session, FlowRequest& request) {
    auto ids = request.body.find("assets");
    if (ids == request.body.end() || !ids->is_array() || ids->empty() || ids->size() > 100000)
        return Reply::error(400, "Pick at least one photo or video.");
    std::vector<VRAssetRef> assets;
    std::string problem;
    for (const auto& id : *ids) {
        auto asset =
            id.is_string() ? session.assetForIdentifier(id.get<std::string>(), &problem) : nullptr;
        if (!asset)
            return Reply::error(400, problem.empty() ? "An item is no identifier." : problem);
        assets.push_back(asset);
    }
    VXTemplateRef tpl;
    const std::string key = stringMember(request.body, "template");
    if (!key.empty()) {
        // With its title: the summary is headed by the name of the template chosen.
        tpl = VRPresetViewAbstract::templateWithSourceOptions(listedTemplateWithKey(key));
        if (!tpl) return Reply::error(404, "No template with the key \"" + key + "\".");
    }
    NavigationManager& manager = *request.flow->manager;
    // The page keeps the walk in step, so it is at home here; a page that was loaded anew
    // over an older walk finds it wherever it was left.
    request.flow->unwind();
    const std::string album = stringMember(request.body, "album");
    if (!manager.beginWith(std::move(assets), tpl, 0,
                           album.empty() ? std::nullopt : std::optional<std::string>(album), true,
                           {}))
        return Reply::error(400, "Pick at least one photo or video.");
    return Reply::json(flowJSON(*request.flow, request.id));
}

Reply editorWork(FlowRequest& request,
                 const std::function<Reply(SizeEditing& editing, const VRScreenRef&)>& work) {
    const VRScreenRef top = request.flow->manager->navController()->topViewController();
    if (!top->sizeEditor()) return Reply::error(409, "No size editor is shown.");
    return work(editorOf(*request.flow, top), top);
}

// Field changes in order ([[field, value], ...]), then a touched recent size, the swap control
// or the ratio direction. The width and height stay in the input view while the user types:
// only its closing ("done"), or a control that closes it, makes the typed size the current one
// and so a recent size; a size half typed is none.
Reply edit(WebSession&, FlowRequest& request) {
    return editorWork(request, [&](SizeEditing& editing, const VRScreenRef&) {
        std::string problem;
        editing.clearRefused();
        auto edits = request.body.find("edits");
        if (edits != request.body.end() && !edits->is_array())
            return Reply::error(400, "The edits are a list of [field, value].");
        if (edits != request.body.end()) {
            for (const auto& pair : *edits) {
                if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string() ||
                    !pair[1].is_string())
                    return Reply::error(400, "An edit is [field, value].");
                if (!editing.apply(pair[0].get<std::string>(), pair[1].get<std::string>(),
                                   &problem))
                    return Reply::error(400, problem);
            }
        }
        const bool swap = request.body.value("swap", false);
        const bool toggleRatio = request.body.value("toggleRatio", false);
        if (request.body.value("done", false) || swap || toggleRatio) editing.finishTyping();
        VRPresetViewAbstract& view = editing.controller().presetView();
        auto recent = request.body.find("recent");
        if (recent != request.body.end() &&
            (!recent->is_number_unsigned() || !editing.touchRecentSize(recent->get<std::size_t>())))
            return Reply::error(400, "No such recent size.");
        if (swap) view.didTouchSizeSwapControl();
        if (toggleRatio) view._toggleRatioMode();
        if (!editing.isTyping()) editing.loadInput();
        return Reply::json(flowJSON(*request.flow, request.id));
    });
}

// The editor's template as it would be handed on, stored as one of the user's own.
Reply save(WebSession&, FlowRequest& request) {
    return editorWork(request, [&](SizeEditing& editing, const VRScreenRef& screen) {
        editing.finishTyping();
        auto finished =
            editing.controller().presetViewDidFinish(screen->sizeEditor()->assetsShapes);
        auto name = request.body.find("name");
        auto outcome = createOwnTemplate(TemplateManager::shared(),
                                         finished ? finished->newTemplate() : nullptr,
                                         name != request.body.end() && name->is_string()
                                             ? std::optional<std::string>(name->get<std::string>())
                                             : std::nullopt);
        if (!outcome.identifier) return Reply::error(500, outcome.problem);
        // The list shows the template with a picture of the asset it was shaped on, once drawn.
        VRTemplatePictures::createTemplateImageForAsset(
            screen->sizeEditor()->targetAsset, VRTemplatePictures::templateThumbnailSize(),
            [identifier = *outcome.identifier](std::optional<platform::Bitmap> image) {
                auto data =
                    image ? VRTemplatePictures::templateImageDataWithImage(*image) : std::nullopt;
                if (data) TemplateBodies::saveTemplateImageData(*data, identifier);
            });
        json answer = flowJSON(*request.flow, request.id);
        answer["saved"] = *outcome.identifier;
        return Reply::json(answer);
    });
}

Reply next(WebSession&, FlowRequest& request) {
    return editorWork(request, [&](SizeEditing& editing, const VRScreenRef& screen) {
        editing.finishTyping();
        auto finished =
            editing.controller().presetViewDidFinish(screen->sizeEditor()->assetsShapes);
        request.flow->manager->sizeControllerDidFinishWithTemplate(screen, finished);
        return Reply::json(flowJSON(*request.flow, request.id));
    });
}

Reply back(WebSession&, FlowRequest& request) {
    NavigationManager& manager = *request.flow->manager;
    const VRScreenRef top = manager.navController()->topViewController();
    if (top->sizeEditor()) {
        manager.sizeControllerDidCancel(top);
    } else if (top->summary()) {
        manager.summaryControllerDidCancelWithNeedsReload(top, false);
    }
    return Reply::json(flowJSON(*request.flow, request.id));
}

// Opens the settings from the screen shown: pushed over home, presented over the summary as
// its own settings; open settings stay as they are.
Reply openSettings(WebSession&, FlowRequest& request) {
    WebFlow& flow = *request.flow;
    const VRScreenRef& shown = flow.shown();
    if (shown->settings()) return Reply::json(flowJSON(flow, request.id));
    if (shown->kind() == VRScreenKind::home) {
        flow.navigation().showSettingsControllerWithProcessingDisabled(false, false, nullptr);
    } else if (shown->summary()) {
        flow.navigation().showSummarySettingsControllerWithCompletion(nullptr);
    } else {
        return Reply::error(409, "The settings open from the home screen or the summary.");
    }
    return Reply::json(flowJSON(flow, request.id));
}

// The settings screen closed: the walk returns to the screen it was opened from.
Reply closeSettings(WebSession&, FlowRequest& request) {
    const VRScreenRef shown = request.flow->shown();
    if (!shown->settings()) return Reply::error(409, "No settings screen is shown.");
    request.flow->navigation().settingsControllerDidFinish(shown);
    return Reply::json(flowJSON(*request.flow, request.id));
}

// The walk and summary screen of a "flow:ID:SCREEN" key.
const VRSummaryScreen* summaryOfKey(WebSession& session, const std::string& key, WebFlow** flow,
                                    VRScreenRef* screen) {
    if (key.rfind(kFlowKeyPrefix, 0) != 0) return nullptr;
    const auto colon = key.rfind(':');
    if (colon <= 5) return nullptr;
    *flow = flowsOf(session).flow(key.substr(5, colon - 5), false);
    if (!*flow) return nullptr;
    const std::string number = key.substr(colon + 1);
    for (const auto& candidate : (*flow)->manager->navController()->viewControllers()) {
        if (std::to_string(candidate->identifier()) == number && candidate->summary()) {
            *screen = candidate;
            return candidate->summary();
        }
    }
    return nullptr;
}

}  // namespace

bool isFlowTemplateKey(const std::string& key) {
    return key.rfind(kFlowKeyPrefix, 0) == 0;
}

VXTemplateRef flowTemplate(WebSession& session, const std::string& key) {
    WebFlow* flow = nullptr;
    VRScreenRef screen;
    const VRSummaryScreen* summary = summaryOfKey(session, key, &flow, &screen);
    return summary ? summary->tpl : nullptr;
}

std::shared_ptr<VRResultController> startFlowRun(WebSession& session, const std::string& key,
                                                 std::shared_ptr<const VRAdjustState> adjustState,
                                                 VRResultControllerEvents events,
                                                 std::string* problem) {
    WebFlow* flow = nullptr;
    VRScreenRef screen;
    const VRSummaryScreen* summary = summaryOfKey(session, key, &flow, &screen);
    NavigationManager* manager = flow ? flow->manager.get() : nullptr;
    if (!summary || manager->navController()->topViewController() != screen) {
        *problem = "That summary is no longer shown.";
        return nullptr;
    }
    manager->setResultControllerEvents(std::move(events));
    manager->summaryControllerDidFinishWithTemplate(
        screen, VRPresetViewAbstract::templateWithSourceOptions(summary->tpl),
        std::move(adjustState));
    auto run = manager->navController()->topViewController()->results();
    if (!run) *problem = "The run could not be started.";
    return run;
}

void installFlowRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/flow", [&session](const httplib::Request& request) {
        const std::string id = request.has_param("flow") ? request.get_param_value("flow") : "";
        WebFlow* flow = flowsOf(session).flow(id, true);
        if (!flow) return Reply::error(404, "No such page walk.");
        return Reply::json(flowJSON(*flow, id));
    });
    postFlow(server, session, "/api/flow/begin", true, begin);
    postFlow(server, session, "/api/flow/editor", false, edit);
    postFlow(server, session, "/api/flow/save", false, save);
    postFlow(server, session, "/api/flow/next", false, next);
    postFlow(server, session, "/api/flow/back", false, back);
    postFlow(server, session, "/api/flow/settings", true, openSettings);
    postFlow(server, session, "/api/flow/settings/done", false, closeSettings);
}

}  // namespace app::web
