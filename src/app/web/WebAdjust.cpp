// The summary's adjust routes: one adjust session per media type over the picked assets, held
// on the server while the summary is open. The page shows the session's current item, drawn
// by the session's preview, and reports taps, drags and colours; the session decides what
// they do and which of its buttons may be touched.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>
#include <map>

#include "app/ProcessArguments.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "editing/VRAdjustColors.h"
#include "editing/VRAdjustSizeController.h"

namespace app::web {

using nlohmann::json;

class WebAdjust {
  public:
    WebAdjust(std::vector<VRAssetRef> picked, const VXTemplate& tpl) : assets(std::move(picked)) {
        for (std::uint64_t type : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}) {
            std::vector<VRAssetRef> ofType;
            for (const auto& a : assets)
                if (a->mediaType() == type) ofType.push_back(a);
            if (!ofType.empty())
                sessions.emplace(type, std::make_unique<VRAdjustSizeController>(ofType, tpl, type));
        }
        for (std::size_t i = 0; i < assets.size(); ++i)
            if (show(i)) break;
    }

    // The session showing the picked asset `index`, made current; null for an index beyond
    // the list or an asset of no media type.
    VRAdjustSizeController* show(std::size_t index) {
        VRAdjustSizeController* found = sessionOf(index);
        if (!found) return nullptr;
        const auto& list = found->assets();
        for (std::size_t i = 0; i < list.size(); ++i)
            if (list[i] == assets[index]) found->setMainIndex(i);
        current = index;
        return found;
    }

    VRAdjustSizeController* sessionOf(std::size_t index) const {
        if (index >= assets.size()) return nullptr;
        auto it = sessions.find(assets[index]->mediaType());
        return it == sessions.end() ? nullptr : it->second.get();
    }

    VRAdjustSizeController* currentSession() const { return sessionOf(current); }

    VRAdjustState states() const {
        VRAdjustState merged;
        for (const auto& [type, session] : sessions)
            merged.mergeWithAdjustState(session->adjustState());
        return merged;
    }

    std::vector<VRAssetRef> assets;
    std::map<std::uint64_t, std::unique_ptr<VRAdjustSizeController>> sessions;
    std::size_t current = 0;
    // Counts the changes, so that a page asks for a new preview after each.
    std::uint64_t revision = 0;
};

VRAdjustState adjustSessionStates(const WebSession& session) {
    return session.adjust ? session.adjust->states() : VRAdjustState();
}

namespace {

std::string hexOfColor(const VRColor& color) {
    auto byte = [](double v) {
        return static_cast<int>(std::lround(std::clamp(v, 0.0, 1.0) * 255));
    };
    char text[8];
    std::snprintf(text, sizeof text, "#%02X%02X%02X", byte(color.red), byte(color.green),
                  byte(color.blue));
    return text;
}

const char* directionWord(VRDisplacementDirection direction) {
    switch (direction) {
        case VRDisplacementDirectionHorizontal:
            return "horizontal";
        case VRDisplacementDirectionVertical:
            return "vertical";
        case VRDisplacementDirectionAll:
            return "both";
        default:
            return "none";
    }
}

json menuJSON(const VRAdjustMenuState& menu) {
    return {{"applyToAll", menu.applyToAll},
            {"undoAll", menu.undoAll},
            {"resetAll", menu.resetAll},
            {"resetCurrent", menu.resetCurrent},
            {"setFillColorAsDefault", menu.setFillColorAsDefault},
            {"resetDefaultFillColor", menu.resetDefaultFillColor},
            {"rotate", menu.rotateAndFlip},
            {"flip", menu.rotateAndFlip},
            {"center", menu.center}};
}

json stateJSON(const WebAdjust& adjust) {
    const VRAdjustState states = adjust.states();
    json items = json::array();
    for (std::size_t i = 0; i < adjust.assets.size(); ++i) {
        const VRAsset& asset = *adjust.assets[i];
        items.push_back(
            {{"index", i},
             {"id", WebSession::identifierForAsset(asset)},
             {"name", asset.originalFilename()},
             {"adjusted", static_cast<bool>(states.stateWithKey(asset.objectIdentifier()))}});
    }
    json answer{{"current", adjust.current}, {"items", items}, {"revision", adjust.revision}};
    const VRAdjustSizeController* session = adjust.currentSession();
    if (!session) return answer;
    const std::size_t main = session->mainIndex();
    const CGSize frame = session->geometryAtIndex(main).innerDimensions;
    const auto selected = session->selectedColorIndex();
    answer["title"] = session->title();
    answer["frame"] = {{"width", frame.width}, {"height", frame.height}};
    answer["direction"] = directionWord(session->displacementPermittedDirection());
    answer["menu"] = menuJSON(session->menuState());
    answer["fill"] = {{"color", hexOfColor(session->displayedFillColorAtIndex(main))},
                      {"selected", selected ? json(*selected) : json()}};
    answer["palette"] = session->colors();
    answer["defaultFill"] = {{"button", session->defaultFillColorButtonTitle()},
                             {"message", session->defaultFillColorMessage()}};
    return answer;
}

Reply changed(WebAdjust& adjust) {
    ++adjust.revision;
    return Reply::json(stateJSON(adjust));
}

Reply open(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    std::string problem;
    auto assets = pickedAssets(session, *body, &problem);
    if (!assets) return Reply::error(400, problem);
    auto tpl = chosenTemplate(session, *body, &problem);
    if (!tpl) return Reply::error(400, problem);
    session.adjust = std::make_shared<WebAdjust>(std::move(*assets), *tpl);
    return Reply::json(stateJSON(*session.adjust));
}

Reply showItem(WebAdjust& adjust, const json& body) {
    auto index = body.find("index");
    if (index == body.end() || !index->is_number_unsigned() ||
        !adjust.show(index->get<std::size_t>()))
        return Reply::error(400, "No such photo or video.");
    return Reply::json(stateJSON(adjust));
}

// A menu entry or button of the current item, refused while the session disables it.
Reply act(WebAdjust& adjust, const std::string& action) {
    VRAdjustSizeController* s = adjust.currentSession();
    if (!s) return Reply::error(409, "No item to adjust.");
    const VRAdjustMenuState menu = s->menuState();
    const std::map<std::string, std::pair<bool, void (VRAdjustSizeController::*)()>> actions{
        {"rotateRight", {menu.rotateAndFlip, &VRAdjustSizeController::rotateRight}},
        {"flipHorizontally", {menu.rotateAndFlip, &VRAdjustSizeController::flipHorizontally}},
        {"flipVertically", {menu.rotateAndFlip, &VRAdjustSizeController::flipVertically}},
        {"center", {menu.center, &VRAdjustSizeController::centerContent}},
        {"applyToAll", {menu.applyToAll, &VRAdjustSizeController::applyToAll}},
        {"undoAll", {menu.undoAll, &VRAdjustSizeController::undoAll}},
        {"resetAll", {menu.resetAll, &VRAdjustSizeController::resetAll}},
        {"resetCurrent", {menu.resetCurrent, &VRAdjustSizeController::resetCurrent}},
        {"undo", {menu.resetCurrent, &VRAdjustSizeController::undoCurrent}},
        {"setFillColorAsDefault",
         {menu.setFillColorAsDefault, &VRAdjustSizeController::setFillColorAsDefault}},
        {"resetDefaultFillColor",
         {menu.resetDefaultFillColor, &VRAdjustSizeController::resetDefaultFillColor}}};
    auto it = actions.find(action);
    if (it == actions.end()) return Reply::error(400, "No such action: " + action);
    if (!it->second.first) return Reply::error(409, "That is not available now.");
    (s->*it->second.second)();
    return changed(adjust);
}

// A drag over the frame in view points, with the view's size and the screen's scale.
Reply drag(WebAdjust& adjust, const json& body) {
    VRAdjustSizeController* s = adjust.currentSession();
    if (!s) return Reply::error(409, "No item to adjust.");
    auto number = [](const json& j, const char* key, double fallback) {
        auto it = j.find(key);
        return it != j.end() && it->is_number() ? it->get<double>() : fallback;
    };
    const json d = body.value("drag", json());
    const json view = body.value("view", json::object());
    if (!d.is_array() || d.size() != 2 || !d[0].is_number() || !d[1].is_number() ||
        !view.is_object())
        return Reply::error(400, "Give the drag as [X, Y] in points with its view.");
    const CGPoint translation{std::clamp(d[0].get<double>(), -1e5, 1e5),
                              std::clamp(d[1].get<double>(), -1e5, 1e5)};
    const CGSize bounds{std::clamp(number(view, "width", 0), 0.0, 1e5),
                        std::clamp(number(view, "height", 0), 0.0, 1e5)};
    if (!s->beginPan(translation, std::clamp(number(view, "scale", 1), 0.1, 10.0)))
        return Reply::json(stateJSON(adjust));
    s->changePan(translation, bounds);
    s->endPan();
    return changed(adjust);
}

// A palette control ("palette": 1 to 43), a colour of the picker ("color": "#RRGGBB") or the
// reset control ("color": null).
Reply fill(WebAdjust& adjust, const json& body) {
    VRAdjustSizeController* s = adjust.currentSession();
    if (!s) return Reply::error(409, "No item to adjust.");
    if (auto palette = body.find("palette"); palette != body.end()) {
        if (!palette->is_number_unsigned() || palette->get<std::size_t>() == 0 ||
            palette->get<std::size_t>() >= s->colors().size())
            return Reply::error(400, "No such colour of the palette.");
        s->selectColorAtIndex(palette->get<std::size_t>());
        return changed(adjust);
    }
    auto color = body.find("color");
    if (color == body.end()) return Reply::error(400, "Give a palette entry or a colour.");
    if (color->is_null()) {
        s->resetFillColor();
        return changed(adjust);
    }
    std::string problem;
    auto parsed =
        color->is_string() ? parseFillColor(color->get<std::string>(), &problem) : std::nullopt;
    if (!parsed) return Reply::error(400, "Give a colour as #RRGGBB.");
    s->setPickedColor(*parsed);
    return changed(adjust);
}

// The item drawn by its session as its state makes it, fitted into `size` pixels.
void preview(WebSession& session, const httplib::Request& request, httplib::Response& response) {
    const std::size_t index = countParameter(request, "index", 0, 1u << 20);
    const double side = static_cast<double>(countParameter(request, "size", 512, 2048));
    auto promise = std::make_shared<std::promise<std::optional<platform::Bitmap>>>();
    auto future = promise->get_future();
    Reply refused = WebServer::onMain([&] {
        const VRAdjustSizeController* s =
            session.adjust ? session.adjust->sessionOf(index) : nullptr;
        if (!s) return Reply::error(404, "No such item in the adjust session.");
        s->requestPreviewImageForAsset(session.adjust->assets[index], CGSize{side, side},
                                       [promise](std::optional<platform::Bitmap> image) {
                                           promise->set_value(std::move(image));
                                       });
        return Reply{};
    });
    if (refused.status != 200) return WebServer::send(response, refused);
    if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready)
        return WebServer::send(response, Reply::error(503, "The preview took too long."));
    auto image = future.get();
    std::string problem = "the item can't be read";
    auto bytes = image ? encodedImage(*image, true, &problem) : std::nullopt;
    if (!bytes) return WebServer::send(response, Reply::error(404, "No preview: " + problem));
    response.set_header("Cache-Control", "private, max-age=600");
    response.set_content(*bytes, "image/jpeg");
}

template <typename Work>
RouteWork withAdjust(WebSession& session, Work work) {
    return [&session, work](const httplib::Request& request) {
        if (!session.adjust) return Reply::error(409, "No adjust session is open.");
        auto body = jsonBody(request);
        if (!body) return Reply::error(400, "The request is no JSON object.");
        return work(*session.adjust, *body);
    };
}

}  // namespace

void installAdjustRoutes(WebServer& server, WebSession& session) {
    postOnMain(server, "/api/adjust/open",
               [&session](const httplib::Request& request) { return open(session, request); });
    getOnMain(server, "/api/adjust", [&session](const httplib::Request&) {
        if (!session.adjust) return Reply::error(409, "No adjust session is open.");
        return Reply::json(stateJSON(*session.adjust));
    });
    postOnMain(server, "/api/adjust/item", withAdjust(session, showItem));
    postOnMain(server, "/api/adjust/action",
               withAdjust(session, [](WebAdjust& adjust, const json& body) {
                   return act(adjust, stringMember(body, "action"));
               }));
    postOnMain(server, "/api/adjust/drag", withAdjust(session, drag));
    postOnMain(server, "/api/adjust/fill", withAdjust(session, fill));
    server.http().Get("/api/adjust/preview",
                      [&session](const httplib::Request& request, httplib::Response& response) {
                          preview(session, request, response);
                      });
}

}  // namespace app::web
