#include "app/TemplateEdit.h"

#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/TemplateArguments.h"
#include "editing/VRPresetEditView.h"
#include "editing/VRSizeController.h"
#include "model/VXHelperText.h"
#include "templates/TemplateBodies.h"
#include "templates/TemplateManager.h"

namespace app {

namespace {

using nlohmann::json;

constexpr const char* kUnitWords[] = {"px", "%", "up", "down"};

std::optional<VRSizeEntryType> parseUnit(const std::string& text) {
    for (std::uint32_t type = 0; type < 4; ++type) {
        if (text == kUnitWords[type]) return static_cast<VRSizeEntryType>(type);
    }
    if (text == "percent") return VRSizeTypePercent;
    return std::nullopt;
}

std::string unitWord(VRSizeEntryType type) {
    return type < 4 ? kUnitWords[type] : "?";
}

// The editor with its input view: field texts go through the input rules, the options
// through the buttons.
class Editing {
  public:
    Editing(VXTemplateRef tpl, std::uint64_t mediaType)
        : _controller(1, std::move(tpl), mediaType) {
        const VRSizeEntry entry =
            _controller.presetView().currentSizeEntry().value_or(VRSizeEntry());
        _input.setInputType(entry.type());
        _input.setWidthValue(entry.width());
        _input.setHeightValue(entry.height());
        _input.setMediaType(static_cast<std::int64_t>(mediaType));
        _input.setSizeMax(_controller.sizeMax());
    }

    // False with `problem` set for a field or value that is not one.
    bool apply(const std::string& field, const std::string& value, std::string* problem) {
        if (field == "width" || field == "height") {
            auto which = field == "width" ? VRPresetEditField::width : VRPresetEditField::height;
            if (!_input.shouldChangeText(which, value))
                _refused.push_back(field + " \"" + value + "\"");
            _sizeTyped = true;
            return true;
        }
        if (field == "type" || field == "unit") {
            auto unit = parseUnit(value);
            if (!unit) return fail(problem, "type is px, %, up or down: " + value);
            _input.setInputType(*unit);
            _sizeTyped = true;
            return true;
        }
        if (field == "mode") {
            if (value != "normal" && value != "smart")
                return fail(problem, "mode is normal or smart: " + value);
            finishTyping();
            _controller.presetView().didTouchOptionButton(value == "smart" ? VRSizeOptionSmart
                                                                           : VRSizeOptionNormal);
            return true;
        }
        if (field == "method") {
            auto method = parseMethod(value, problem);
            if (!method) return false;
            finishTyping();
            _controller.presetView().didTouchOptionButton(*method);
            return true;
        }
        return fail(problem, "no field " + field + " (width, height, type, mode, method)");
    }

    // Closing the input view: the typed size becomes the current one.
    void finishTyping() {
        if (!_sizeTyped) return;
        _sizeTyped = false;
        const VRSizeEntry typed = VRSizeEntry::sizeEntryWithWidth(
            _input.widthValue(), _input.heightValue(), _input.inputType());
        auto current = _controller.presetView().currentSizeEntry();
        if (!current || !(typed.sizeArray() == current->sizeArray()))
            _controller.presetView()._didTouchPresetButton(typed.sizeArray());
    }

    VRSizeController& controller() { return _controller; }
    const std::vector<std::string>& refused() const { return _refused; }

  private:
    static bool fail(std::string* problem, const std::string& text) {
        *problem = text;
        return false;
    }

    VRSizeController _controller;
    VRPresetEditView _input;
    std::vector<std::string> _refused;
    bool _sizeTyped = false;
};

// Whole numbers print without a fraction, as everywhere in the command's output.
json sizeJSON(double value) {
    if (value == 0) return "auto";
    if (value == std::trunc(value) && std::fabs(value) < 1e15)
        return static_cast<std::int64_t>(value);
    return value;
}

json shownJSON(Editing& editing, const std::optional<std::string>& saved) {
    VRSizeController& controller = editing.controller();
    const VRPresetViewAbstract& view = controller.presetView();
    const VRSizeEntry entry = view.currentSizeEntry().value_or(VRSizeEntry());
    json buttons = json::array();
    for (const auto& button : view.optionButtons())
        buttons.push_back({{"title", button.title},
                           {"option", static_cast<std::int64_t>(button.option)},
                           {"selected", button.selected}});
    json sizes = json::array();
    for (const auto& size : view.sizesMutable()) {
        if (const auto* array = size.array()) {
            if (auto listed = VRSizeEntry::sizeEntryWithSizeArray(*array))
                sizes.push_back(VXHelper::stringFromSizeEntry(*listed, true));
        }
    }
    const CGSize max = controller.sizeMax();
    const auto& swap = view.sizeSwapControl();
    return {{"fields",
             {{"width", sizeJSON(entry.width())},
              {"height", sizeJSON(entry.height())},
              {"unit", unitWord(entry.type())},
              {"max", {{"width", max.width}, {"height", max.height}}}}},
            {"refused", editing.refused()},
            {"buttons", buttons},
            {"swapControl",
             {{"enabled", swap.enabled}, {"alpha", swap.alpha}, {"portrait", swap.portrait}}},
            {"ratioToggle", {{"enabled", view.isRatioToggleEnabled()}}},
            {"recentSizes", sizes},
            {"result",
             {{"size", VXHelper::stringFromSizeEntry(entry, true)},
              {"options", view.options()},
              {"method", methodWord(view.options())},
              {"format", controller.format().name()}}},
            {"saved", saved ? json(*saved) : json(nullptr)}};
}

void printText(const json& shown, const std::string& title) {
    const json& fields = shown["fields"];
    auto side = [](const json& v) { return v.is_string() ? std::string("Auto") : v.dump(); };
    std::cout << title << "\n"
              << "width:  " << side(fields["width"]) << "\n"
              << "height: " << side(fields["height"]) << "\n"
              << "unit:   " << fields["unit"].get<std::string>() << "\n";
    for (const auto& refused : shown["refused"])
        std::cout << "refused: " << refused.get<std::string>() << "\n";
    std::cout << "buttons:";
    for (const auto& button : shown["buttons"]) {
        const std::string t = button["title"].get<std::string>();
        std::cout << " " << (button["selected"].get<bool>() ? "[" + t + "]" : t) << ";";
    }
    std::cout << "\nswap control: "
              << (shown["swapControl"]["enabled"].get<bool>() ? "enabled" : "disabled")
              << "\nratio toggle: "
              << (shown["ratioToggle"]["enabled"].get<bool>() ? "enabled" : "disabled")
              << "\nresult: " << shown["result"]["size"].get<std::string>() << ", "
              << shown["result"]["method"].get<std::string>() << ", options "
              << shown["result"]["options"].dump() << ", "
              << shown["result"]["format"].get<std::string>() << "\n";
    if (shown["saved"].is_string())
        std::cout << "saved: " << shown["saved"].get<std::string>() << "\n";
}

// The template as the editor hands it on, stored where the key's list keeps it: a user
// template in place, anything else (built-in, recent) as a new recent.
std::optional<std::string> store(Editing& editing, const std::string& key, bool userTemplate,
                                 std::string* problem) {
    VXTemplateRef finished = editing.controller().presetViewDidFinish({});
    auto& manager = TemplateManager::shared();
    platform::ErrorRef error;
    if (userTemplate) {
        finished->setIdentifier(key);
        if (!TemplateBodies::saveRawTemplate(*finished)) {
            *problem = "the template could not be stored";
            return std::nullopt;
        }
        if (manager.updateUserTemplate(finished, key, &error)) return key;
    } else if (auto identifier =
                   manager.saveRecentTemplate(finished->newTemplate(), std::nullopt, &error)) {
        return identifier;
    }
    *problem = "the template list could not be written" +
               (error ? ": " + error->localizedDescription() : std::string());
    return std::nullopt;
}

}  // namespace

int runTemplateEdit(const TemplateEditRequest& request, const VXTemplateRef& tpl,
                    bool userTemplate) {
    std::string problem;
    auto mediaType = parseMediaType(request.media, &problem);
    std::optional<CGSize> target;
    if (request.target) target = parseSourceSize(*request.target, &problem);
    if (!mediaType || (request.target && !target)) return reportUsageError(problem);
    if (!tpl->sizeEntryForMediaType(*mediaType))
        return reportUsageError("template " + request.key + " has no " + request.media +
                                " settings");

    std::vector<std::pair<std::string, std::string>> edits;
    for (const auto& [field, value] : {std::pair{"type", request.type},
                                       {"width", request.width},
                                       {"height", request.height},
                                       {"mode", request.mode},
                                       {"method", request.method}}) {
        if (value) edits.emplace_back(field, *value);
    }
    for (const std::string& assignment : request.assignments) {
        const auto equals = assignment.find('=');
        if (equals == std::string::npos)
            return reportUsageError("an edit is FIELD=VALUE: " + assignment);
        edits.emplace_back(assignment.substr(0, equals), assignment.substr(equals + 1));
    }

    Editing editing(tpl, *mediaType);
    for (const auto& [field, value] : edits) {
        if (!editing.apply(field, value, &problem)) return reportUsageError(problem);
    }
    editing.finishTyping();
    VRPresetViewAbstract& view = editing.controller().presetView();
    if (target) view._updateTargetPortrait(*target);
    if (request.swap) view.didTouchSizeSwapControl();
    if (request.toggleRatio) view._toggleRatioMode();

    std::optional<std::string> saved;
    if (request.save && !(saved = store(editing, request.key, userTemplate, &problem)))
        return reportFailure("not saved: " + problem);
    const json shown = shownJSON(editing, saved);
    if (request.json) {
        std::cout << shown.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
    } else {
        printText(shown, tpl->name().value_or("(untitled)") + "  [" + request.key + "], " +
                             request.media + " size editor");
    }
    return kExitSuccess;
}

}  // namespace app
