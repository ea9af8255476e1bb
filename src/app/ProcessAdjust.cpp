#include "app/ProcessAdjust.h"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/ProcessArguments.h"
#include "assets/VRURLAsset.h"
#include "editing/VRAdjustColors.h"
#include "editing/VRAdjustSizeController.h"
#include "platform/FileManager.h"

namespace app {

const char* const kAdjustOptionHelp =
    "Adjust items one by one from a JSON file, as the adjust screen does: "
    "{\"view\": {\"width\": W, \"height\": H, \"scale\": S}, \"items\": [{\"file\": NAME or "
    "\"index\": N (1 is the first input), \"steps\": [\"rotateRight\", \"flipHorizontally\" "
    "(left to right), \"flipVertically\" (top to bottom), \"center\", {\"drag\": [X, Y], "
    "\"view\": {...}}], \"fill\": \"#RRGGBB\" (picked), a palette number 1-43 or null, "
    "\"applyToAll\": true}]}. A drag is in view points (right, down) over a view of the output "
    "frame (default: one point a pixel, scale 1); a picture moves only along the axis where it "
    "leaves a margin, and no further than the margin. Items not named take the other flags";

namespace {

using nlohmann::json;

constexpr std::size_t kMaxFileBytes = 1u << 20;
constexpr double kMaxCoordinate = 100000;

struct View {
    std::optional<CGSize> size;
    double scale = 1;
};

bool fail(std::string* problem, const std::string& why) {
    if (problem) *problem = why;
    return false;
}

bool number(const json& value, double low, double high, double& out) {
    if (!value.is_number()) return false;
    out = value.get<double>();
    return std::isfinite(out) && out >= low && out <= high;
}

bool onlyKeys(const json& object, std::initializer_list<const char*> keys, const std::string& at,
              std::string* problem) {
    for (const auto& [key, value] : object.items()) {
        bool known = false;
        for (const char* k : keys) known = known || key == k;
        if (!known) return fail(problem, at + ": unknown key \"" + key + "\"");
    }
    return true;
}

bool readView(const json& value, const std::string& at, View& view, std::string* problem) {
    double w = 0, h = 0, s = 1;
    if (!value.is_object() || !onlyKeys(value, {"width", "height", "scale"}, at, problem) ||
        !value.contains("width") || !value.contains("height") ||
        !number(value["width"], 1, kMaxCoordinate, w) ||
        !number(value["height"], 1, kMaxCoordinate, h) ||
        (value.contains("scale") && !number(value["scale"], 0.1, 10, s)))
        return fail(problem, at + ": give {\"width\": W, \"height\": H, \"scale\": S} in points, "
                                  "the scale from 0.1 to 10");
    view = {CGSize{w, h}, s};
    return true;
}

// One adjust session per media type over the run's assets of that type, in the run's order.
class Sessions {
  public:
    Sessions(const std::vector<VRAssetRef>& assets, const VXTemplate& tpl) : _assets(assets) {
        for (std::uint64_t type : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}) {
            std::vector<VRAssetRef> ofType;
            for (const auto& a : assets)
                if (a->mediaType() == type) ofType.push_back(a);
            if (!ofType.empty())
                _sessions.emplace(type,
                                  std::make_unique<VRAdjustSizeController>(ofType, tpl, type));
        }
    }

    // The session showing the run's input `index`, or null for an input of no media type.
    VRAdjustSizeController* show(std::size_t index) {
        const VRAssetRef& asset = _assets[index];
        auto it = _sessions.find(asset->mediaType());
        if (it == _sessions.end()) return nullptr;
        const auto& list = it->second->assets();
        for (std::size_t i = 0; i < list.size(); ++i)
            if (list[i] == asset) it->second->setMainIndex(i);
        return it->second.get();
    }

    VRAdjustState states() const {
        VRAdjustState merged;
        for (const auto& [type, session] : _sessions)
            merged.mergeWithAdjustState(session->adjustState());
        return merged;
    }

  private:
    const std::vector<VRAssetRef>& _assets;
    std::map<std::uint64_t, std::unique_ptr<VRAdjustSizeController>> _sessions;
};

class AdjustReader {
  public:
    AdjustReader(const AdjustInputs& inputs, const VXTemplate& tpl, std::vector<std::string>* notes)
        : _notes(notes) {
        for (const auto& input : inputs) {
            std::string path = input.name;
            if (input.path) {
                std::error_code ec;
                path = std::filesystem::absolute(*input.path, ec).lexically_normal().string();
            }
            _names.push_back({input.name, path});
            _assets.push_back(input.asset);
        }
        _sessions = std::make_unique<Sessions>(_assets, tpl);
    }

    bool read(const json& document, std::string* problem) {
        if (!document.is_object())
            return fail(problem, "the file: give an object {\"items\": [...]}");
        if (!onlyKeys(document, {"view", "items"}, "the file", problem)) return false;
        if (document.contains("view") && !readView(document["view"], "view", _view, problem))
            return false;
        if (!document.contains("items") || !document["items"].is_array())
            return fail(problem, "the file: give the items as a list, \"items\": [...]");
        const json& items = document["items"];
        for (std::size_t i = 0; i < items.size(); ++i)
            if (!readItem(items[i], "items[" + std::to_string(i) + "]", problem)) return false;
        return true;
    }

    VRAdjustState states() const { return _sessions->states(); }

  private:
    std::optional<std::size_t> inputIndex(const json& item, const std::string& at,
                                          std::string* problem) const {
        if (item.contains("index") == item.contains("file")) {
            fail(problem, at + ": name the input by \"file\" or by \"index\"");
            return std::nullopt;
        }
        if (item.contains("index")) {
            double n = 0;
            if (!number(item["index"], 1, static_cast<double>(_assets.size()), n) ||
                std::trunc(n) != n) {
                fail(problem, at + ": \"index\" is 1 to " + std::to_string(_assets.size()));
                return std::nullopt;
            }
            return static_cast<std::size_t>(n) - 1;
        }
        if (item["file"].is_string()) {
            const std::string name = item["file"].get<std::string>();
            std::error_code ec;
            const std::string path =
                std::filesystem::absolute(name, ec).lexically_normal().string();
            for (std::size_t i = 0; i < _names.size(); ++i)
                if (_names[i].first == name || _names[i].second == path) return i;
            fail(problem, at + ": " + name + " is not among the inputs of this run");
            return std::nullopt;
        }
        fail(problem, at + ": \"file\" is a name");
        return std::nullopt;
    }

    bool readItem(const json& item, const std::string& at, std::string* problem) {
        if (!item.is_object())
            return fail(problem,
                        at + ": give an object such as {\"file\": NAME, \"steps\": [...]}");
        if (!onlyKeys(item, {"file", "index", "steps", "fill", "applyToAll"}, at, problem))
            return false;
        auto index = inputIndex(item, at, problem);
        if (!index) return false;
        VRAdjustSizeController* session = _sessions->show(*index);
        if (!session)
            return fail(problem, at + ": " + _names[*index].first + " is no photo or video");
        const std::string name = _names[*index].first;
        if (item.contains("steps")) {
            const json& steps = item["steps"];
            if (!steps.is_array()) return fail(problem, at + ".steps: give a list");
            for (std::size_t s = 0; s < steps.size(); ++s)
                if (!readStep(*session, steps[s], at + ".steps[" + std::to_string(s) + "]", name,
                              problem))
                    return false;
        }
        if (item.contains("fill") && !readFill(*session, item["fill"], at + ".fill", problem))
            return false;
        if (item.contains("applyToAll")) {
            if (!item["applyToAll"].is_boolean())
                return fail(problem, at + ".applyToAll: true or false");
            if (item["applyToAll"].get<bool>()) session->applyToAll();
        }
        return true;
    }

    bool readStep(VRAdjustSizeController& session, const json& step, const std::string& at,
                  const std::string& name, std::string* problem) {
        static const char* kSteps =
            " (rotateRight, flipHorizontally, flipVertically, center or {\"drag\": [X, Y]})";
        if (step.is_string()) {
            const std::string s = step.get<std::string>();
            if (s == "rotateRight")
                session.rotateRight();
            else if (s == "flipHorizontally")
                session.flipHorizontally();
            else if (s == "flipVertically")
                session.flipVertically();
            else if (s == "center")
                session.centerContent();
            else
                return fail(problem, at + ": unknown step \"" + s + "\"" + kSteps);
            return true;
        }
        if (!step.is_object() || !step.contains("drag"))
            return fail(problem, at + ": unknown step" + kSteps);
        if (!onlyKeys(step, {"drag", "view"}, at, problem)) return false;
        const json& drag = step["drag"];
        double x = 0, y = 0;
        if (!drag.is_array() || drag.size() != 2 ||
            !number(drag[0], -kMaxCoordinate, kMaxCoordinate, x) ||
            !number(drag[1], -kMaxCoordinate, kMaxCoordinate, y))
            return fail(problem, at + ": give the drag as [X, Y] in points, such as [40, 0]");
        View view = _view;
        if (step.contains("view") && !readView(step["view"], at + ".view", view, problem))
            return false;
        // Without a view, one point is one pixel of the output frame as it is shown now.
        const CGSize bounds =
            view.size.value_or(session.geometryAtIndex(session.mainIndex()).innerDimensions);
        const CGPoint translation{x, y};
        if (!session.beginPan(translation, view.scale)) {
            note(name + ": the drag [" + numberText(x) + ", " + numberText(y) +
                 "] was refused: " + directionText(session.displacementPermittedDirection()));
            return true;
        }
        session.changePan(translation, bounds);
        session.endPan();
        return true;
    }

    bool readFill(VRAdjustSizeController& session, const json& fill, const std::string& at,
                  std::string* problem) {
        if (fill.is_null()) {
            session.resetFillColor();
            return true;
        }
        if (fill.is_string()) {
            std::string why;
            auto color = parseFillColor(fill.get<std::string>(), &why);
            if (!color)
                return fail(problem, at + ": give a colour as \"#RRGGBB\" or \"#RRGGBBAA\"");
            session.setPickedColor(*color);
            return true;
        }
        double n = 0;
        const double last = static_cast<double>(VRAdjustColors::palette().size() - 1);
        if (!number(fill, 1, last, n) || std::trunc(n) != n)
            return fail(problem, at + ": a palette number is 1 to " + numberText(last));
        session.selectColorAtIndex(static_cast<std::size_t>(n));
        return true;
    }

    static std::string numberText(double v) {
        json j = v;
        if (std::trunc(v) == v) j = static_cast<std::int64_t>(v);
        return j.dump();
    }

    static std::string directionText(VRDisplacementDirection direction) {
        switch (direction) {
            case VRDisplacementDirectionHorizontal:
                return "this picture moves only sideways";
            case VRDisplacementDirectionVertical:
                return "this picture moves only up and down";
            default:
                return "this picture does not move in its frame";
        }
    }

    void note(const std::string& text) {
        if (_notes) _notes->push_back(text);
    }

    std::vector<std::string>* _notes;
    std::vector<std::pair<std::string, std::string>> _names;
    std::vector<VRAssetRef> _assets;
    std::unique_ptr<Sessions> _sessions;
    View _view;
};

}  // namespace

std::optional<VRAdjustState> adjustStatesFromJSON(const std::string& text,
                                                  const AdjustInputs& inputs, const VXTemplate& tpl,
                                                  std::string* problem,
                                                  std::vector<std::string>* notes) {
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded()) {
        fail(problem, "not JSON");
        return std::nullopt;
    }
    AdjustReader reader(inputs, tpl, notes);
    std::string why;
    if (!reader.read(document, &why)) {
        fail(problem, why);
        return std::nullopt;
    }
    return reader.states();
}

std::optional<VRAdjustState> adjustStatesFromFile(const std::string& path,
                                                  const AdjustInputs& inputs, const VXTemplate& tpl,
                                                  std::string* problem,
                                                  std::vector<std::string>* notes) {
    platform::ErrorRef error;
    auto bytes = platform::FileManager::contentsAtPath(path, &error, kMaxFileBytes);
    if (!bytes) {
        fail(problem, "--adjust " + path + ": " +
                          (error ? error->localizedDescription()
                                 : std::string("can't be read (at most 1 MiB)")));
        return std::nullopt;
    }
    std::string why;
    auto states =
        adjustStatesFromJSON(std::string(bytes->begin(), bytes->end()), inputs, tpl, &why, notes);
    if (!states) fail(problem, "--adjust " + path + ": " + why);
    return states;
}

int prepareAdjustStates(const std::optional<std::string>& path, const AdjustInputs& inputs,
                        const VXTemplate& tpl, std::optional<VRAdjustState>& states) {
    if (!path) return kExitSuccess;
    std::string problem;
    std::vector<std::string> notes;
    states = adjustStatesFromFile(*path, inputs, tpl, &problem, &notes);
    if (!states) return reportUsageError(problem);
    for (const auto& line : notes) std::cerr << "unwarp: " << line << "\n";
    return kExitSuccess;
}

VRAdjustAssetStateRef adjustStateForAsset(const std::optional<VRAdjustState>& states,
                                          const VRAsset& asset,
                                          const VRAdjustAssetStateRef& fallback) {
    if (!states) return fallback;
    auto state = states->stateWithKey(asset.objectIdentifier());
    return state ? state : fallback;
}

}  // namespace app
