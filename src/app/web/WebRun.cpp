// The run routes: a batch run of the page's picked assets with a template and the adjust
// steps of its summary, its list, its main button, its alerts and its selection, with every
// event of the run forwarded to the pages' event streams.
#include <chrono>

#include "app/ProcessAdjust.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "assets/VRLocalAsset.h"
#include "core/VRLifecycleSignals.h"
#include "editing/VRPresetViewAbstract.h"
#include "templates/TemplateManager.h"

namespace app::web {
namespace {

using nlohmann::json;

const char* mediaWord(VRFormatMediaType type) {
    return type == VRFormatMediaTypeVideo ? "video" : type == VRFormatMediaTypePhoto ? "photo" : "";
}

const char* alertKindWord(VRBatchAlert::Kind kind) {
    switch (kind) {
        case VRBatchAlert::Kind::error:
            return "error";
        case VRBatchAlert::Kind::exceedingMaxSize:
            return "limit";
        case VRBatchAlert::Kind::processingRestrictions:
            return "restrictions";
        case VRBatchAlert::Kind::storedLocally:
            return "storedLocally";
        case VRBatchAlert::Kind::mailWarning:
            return "mailWarning";
        case VRBatchAlert::Kind::tutorialNote:
            return "tutorialNote";
    }
    return "";
}

json itemJSON(const VRResultController& run, std::size_t index) {
    const auto& list = run.pickerView().assetList();
    const VRAsset& asset = *list[index];
    const std::size_t cursor = run.pickerView().processingIndex();
    json item{{"index", index},
              {"id", WebSession::identifierForAsset(asset)},
              {"name", asset.originalFilename()},
              {"media", mediaWord(asset.mediaType())},
              {"width", asset.pixelSize().width},
              {"height", asset.pixelSize().height},
              {"pending", index >= cursor},
              {"processing", index == cursor && run.pickerView().processing()},
              {"selected", run.pickerView().isSelected(asset)},
              // Kept in the app's own storage after the library refused it.
              {"storedLocally", asset.flag() == 2}};
    if (auto* local = dynamic_cast<const VRLocalAsset*>(asset.object().get())) {
        item["file"] = local->url();
        item["thumbnail"] = local->thumbnailURL();
    }
    return item;
}

json alertJSON(std::uint64_t number, const VRBatchAlert& alert) {
    json j{{"number", number},
           {"kind", alertKindWord(alert.kind)},
           {"title", alert.title},
           {"message", alert.message},
           {"buttons", alert.buttons}};
    if (alert.reportFolder) j["reportFolder"] = *alert.reportFolder;
    if (alert.kind == VRBatchAlert::Kind::tutorialNote) j["runs"] = styledTextJSON(alert.message);
    return j;
}

json runJSON(WebSession& session) {
    if (!session.run) return {{"running", false}};
    const auto& run = *session.run;
    json items = json::array();
    for (std::size_t i = 0; i < run.pickerView().assetList().size(); ++i)
        items.push_back(itemJSON(run, i));
    const auto bar = run.selectionBar();
    return {{"running", true},
            {"state", static_cast<int>(run.processingState())},
            {"title", VRProcessingButtonTitle(run.processingState()).value_or("")},
            {"progress", run.pickerView().processingProgress()},
            {"cursor", run.pickerView().processingIndex()},
            {"selectionTitle", bar.title},
            {"selection",
             {{"resetHidden", bar.resetHidden},
              {"buttonsHidden", bar.buttonsHidden},
              {"note", bar.note ? json(*bar.note) : json()}}},
            {"shareHidden", run.isShareButtonHidden()},
            {"alert", session.alert ? alertJSON(session.alertNumber, *session.alert) : json()},
            {"items", items}};
}

void publish(WebSession& session, const std::string& name, const json& data) {
    session.server.events().publish(name,
                                    data.dump(-1, ' ', false, json::error_handler_t::replace));
}

void showAlert(WebSession& session, const VRBatchAlert& alert) {
    session.alert = alert;
    ++session.alertNumber;
    publish(session, "alert", alertJSON(session.alertNumber, alert));
}

// Milliseconds since 1970 with microseconds: a page on the same machine tells how long an
// event took to reach it by its own clock.
double wallMilliseconds() {
    using namespace std::chrono;
    return duration<double, std::milli>(system_clock::now().time_since_epoch()).count();
}

VRResultControllerEvents runEvents(WebSession& session) {
    VRResultControllerEvents events;
    events.progress = [&session](std::size_t index, double progress) {
        publish(session, "progress",
                {{"index", index}, {"progress", progress}, {"at", wallMilliseconds()}});
    };
    events.committed = [&session](std::size_t index, const VRAssetRef&) {
        if (session.run) publish(session, "committed", itemJSON(*session.run, index));
    };
    events.buttonState = [&session](VRProcessingState state, const std::string& title) {
        publish(session, "button", {{"state", static_cast<int>(state)}, {"title", title}});
    };
    events.alert = [&session](const VRBatchAlert& alert) { showAlert(session, alert); };
    events.listChanged = [&session] { publish(session, "list", json::object()); };
    events.shareButtonHidden = [&session](bool hidden) {
        publish(session, "share", {{"hidden", hidden}});
    };
    events.tutorialNote = [&session](const VRBatchAlert& note) { showAlert(session, note); };
    events.focusView = [&session](const std::optional<VRFocusViewState>& focus) {
        session.focus = focus;
        publish(session, "focus", {{"target", focus ? focus->targetView : ""}});
    };
    events.errorReported = [&session](const VRErrorReportOutcome& outcome) {
        publish(session, "reported", {{"sent", outcome.sent}});
    };
    return events;
}

// The adjust steps of the summary run through the adjust session over the picked assets.
std::optional<VRAdjustState> adjustStates(const std::vector<VRAssetRef>& assets,
                                          const VXTemplate& tpl, const json& body,
                                          std::string* problem) {
    auto adjust = body.find("adjust");
    if (adjust == body.end() || adjust->is_null()) return VRAdjustState();
    AdjustInputs inputs;
    for (const auto& asset : assets)
        inputs.push_back({asset, WebSession::identifierForAsset(*asset), std::nullopt});
    return adjustStatesFromJSON(adjust->dump(), inputs, tpl, problem);
}

// What the summary sends for a run: the picked assets, the template and the adjust states.
struct RunRequest {
    std::vector<VRAssetRef> assets;
    VXTemplateRef tpl;
    VRAdjustState states;
};

std::optional<RunRequest> runRequest(WebSession& session, const json& body, std::string* problem) {
    auto assets = pickedAssets(session, body, problem);
    if (!assets) return std::nullopt;
    auto tpl = chosenTemplate(session, body, problem);
    if (!tpl) return std::nullopt;
    // The summary's adjust session holds the states; a document of steps is run here.
    auto adjust = body.find("adjust");
    auto states = adjust != body.end() && *adjust == "session"
                      ? adjustSessionStates(session)
                      : adjustStates(*assets, *tpl, body, problem);
    if (!states) return std::nullopt;
    return RunRequest{std::move(*assets), std::move(tpl), std::move(*states)};
}

Reply startRun(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    if (session.run && session.run->processingState() == VRProcessingState::processing)
        return Reply::error(409, "A run is going on; pause it or wait for its end.");
    std::string problem;
    auto picked = runRequest(session, *body, &problem);
    if (!picked) return Reply::error(400, problem);
    auto adjust = std::make_shared<VRAdjustState>(std::move(picked->states));
    session.lifecycle.reset();
    session.run.reset();
    session.alert.reset();
    if (const std::string key = stringMember(*body, "template"); isFlowTemplateKey(key)) {
        // The page's walk goes on to its results screen.
        session.run = startFlowRun(session, key, adjust, runEvents(session), &problem);
        if (!session.run) return Reply::error(409, problem);
    } else {
        session.run = std::make_shared<VRResultController>(picked->assets, picked->tpl, adjust,
                                                           runEvents(session));
    }
    // A stopped process (Ctrl-Z, the machine's sleep) pauses the run; the return tells why.
    VRLifecycleSignals::Handlers handlers;
    handlers.didEnterBackground = [&session] {
        if (session.run) session.run->_didEnterBackground();
    };
    // The "Processing Restrictions" alert went out when the run paused; the page reads it on
    // the return, so it is not sent a second time.
    handlers.willEnterForeground = [&session] {
        if (session.run) session.run->_willEnterForeground();
    };
    session.lifecycle = VRLifecycleSignals::install(std::move(handlers));
    session.run->loadView();
    session.run->viewDidAppear();
    return Reply::json(runJSON(session));
}

Reply answerAlert(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body || !session.alert) return Reply::error(409, "No question is open.");
    auto number = body->find("number");
    auto button = body->find("button");
    if (number == body->end() || !number->is_number_unsigned() ||
        number->get<std::uint64_t>() != session.alertNumber)
        return Reply::error(409, "That question was already answered.");
    if (button == body->end() || !button->is_number_unsigned() ||
        button->get<std::size_t>() >= session.alert->buttons.size())
        return Reply::error(400, "No such button.");
    VRBatchAlert alert = std::move(*session.alert);
    session.alert.reset();
    if (alert.answer) alert.answer(button->get<std::size_t>());
    return Reply::json(runJSON(session));
}

Reply selectItems(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body || !session.run) return Reply::error(409, "No run is open.");
    const auto& list = session.run->pickerView().assetList();
    std::vector<VRAssetRef> selected;
    auto indexes = body->find("indexes");
    if (indexes != body->end() && indexes->is_array()) {
        for (const auto& index : *indexes)
            if (index.is_number_unsigned() && index.get<std::size_t>() < list.size())
                selected.push_back(list[index.get<std::size_t>()]);
    }
    session.run->setSelectedAssets(selected);
    return Reply::json(runJSON(session));
}

// The warning mark of an item kept in the app's own storage: the run tells why, as an alert.
Reply touchWarning(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body || !session.run) return Reply::error(409, "No run is open.");
    if (session.alert) return Reply::error(409, "A question is open.");
    const auto& list = session.run->pickerView().assetList();
    auto index = body->find("index");
    if (index == body->end() || !index->is_number_unsigned() ||
        index->get<std::size_t>() >= list.size())
        return Reply::error(400, "No such item.");
    session.run->_didTouchWarningOfAsset(*list[index->get<std::size_t>()]);
    return Reply::json(runJSON(session));
}

}  // namespace

std::optional<std::vector<VRAssetRef>> pickedAssets(WebSession& session, const json& body,
                                                    std::string* problem) {
    auto ids = body.find("assets");
    if (ids == body.end() || !ids->is_array() || ids->empty() || ids->size() > 100000) {
        *problem = "Pick at least one photo or video.";
        return std::nullopt;
    }
    std::vector<VRAssetRef> assets;
    for (const auto& id : *ids) {
        if (!id.is_string()) {
            *problem = "An item is no identifier.";
            return std::nullopt;
        }
        auto asset = session.assetForIdentifier(id.get<std::string>(), problem);
        if (!asset) return std::nullopt;
        assets.push_back(asset);
    }
    return assets;
}

VXTemplateRef chosenTemplate(WebSession& session, const json& body, std::string* problem) {
    const std::string key = stringMember(body, "template");
    auto tpl = VRPresetViewAbstract::templateWithSourceOptions(
        isFlowTemplateKey(key) ? flowTemplate(session, key)
                               : TemplateManager::shared().templateWithKey(key));
    if (!tpl) *problem = "No template with the key \"" + key + "\".";
    return tpl;
}

void installRunRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/run",
              [&session](const httplib::Request&) { return Reply::json(runJSON(session)); });
    postOnMain(server, "/api/run",
               [&session](const httplib::Request& request) { return startRun(session, request); });
    postOnMain(server, "/api/run/button", [&session](const httplib::Request&) {
        if (!session.run) return Reply::error(409, "No run is open.");
        session.run->touchProcessingButton();
        return Reply::json(runJSON(session));
    });
    postOnMain(server, "/api/run/alert", [&session](const httplib::Request& request) {
        return answerAlert(session, request);
    });
    postOnMain(server, "/api/run/select", [&session](const httplib::Request& request) {
        return selectItems(session, request);
    });
    postOnMain(server, "/api/run/warning", [&session](const httplib::Request& request) {
        return touchWarning(session, request);
    });
    postOnMain(server, "/api/run/selectAll", [&session](const httplib::Request&) {
        if (!session.run) return Reply::error(409, "No run is open.");
        session.run->_selectionAction();
        return Reply::json(runJSON(session));
    });
    postOnMain(server, "/api/run/clear", [&session](const httplib::Request&) {
        if (!session.run) return Reply::error(409, "No run is open.");
        session.run->_didTapDeleteButton();
        return Reply::json(runJSON(session));
    });
    postOnMain(server, "/api/run/close", [&session](const httplib::Request&) {
        if (session.run) session.run->_backToMainScreenResettingSelection(true);
        session.lifecycle.reset();
        session.run.reset();
        session.alert.reset();
        return Reply::json(runJSON(session));
    });
}

}  // namespace app::web
