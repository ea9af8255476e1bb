#include "app/SizeEditing.h"

#include <cmath>

#include "app/TemplateArguments.h"
#include "model/VXHelperText.h"

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

bool fail(std::string* problem, const std::string& text) {
    *problem = text;
    return false;
}

// Whole numbers print without a fraction, as everywhere in the command's output.
json sizeJSON(double value) {
    if (value == 0) return "auto";
    if (value == std::trunc(value) && std::fabs(value) < 1e15)
        return static_cast<std::int64_t>(value);
    return value;
}

}  // namespace

json sizeEditingJSON(SizeEditing& editing, const std::optional<std::string>& saved) {
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
    json formats = json::array();
    for (const auto& format : VRFormat::availableFormatsWithMediaType(controller.mediaType()))
        formats.push_back({{"name", format.name()},
                           {"type", format.rawType()},
                           {"selected", format.rawType() == controller.format().rawType()}});
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
            {"typing",
             {{"width", sizeJSON(editing.input().widthValue())},
              {"height", sizeJSON(editing.input().heightValue())},
              {"unit", unitWord(editing.input().inputType())},
              {"open", editing.isTyping()}}},
            {"formats", formats},
            {"saved", saved ? json(*saved) : json(nullptr)}};
}

SizeEditing::SizeEditing(VXTemplateRef tpl, std::uint64_t mediaType,
                         VRSizeController::Source source)
    : _controller(source, std::move(tpl), mediaType) {
    _input.setMediaType(static_cast<std::int64_t>(mediaType));
    _input.setSizeMax(_controller.sizeMax());
    loadInput();
}

void SizeEditing::loadInput() {
    const VRSizeEntry entry = _controller.presetView().currentSizeEntry().value_or(VRSizeEntry());
    _input.setInputType(entry.type());
    _input.setWidthValue(entry.width());
    _input.setHeightValue(entry.height());
}

bool SizeEditing::apply(const std::string& field, const std::string& value, std::string* problem) {
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
    if (field == "format") {
        auto format = parseFormat(value, _controller.mediaType(), problem);
        if (!format) return false;
        _controller.setFormat(*format);
        return true;
    }
    return fail(problem, "no field " + field + " (width, height, type, mode, method, format)");
}

void SizeEditing::finishTyping() {
    if (!_sizeTyped) return;
    _sizeTyped = false;
    const VRSizeEntry typed = VRSizeEntry::sizeEntryWithWidth(
        _input.widthValue(), _input.heightValue(), _input.inputType());
    auto current = _controller.presetView().currentSizeEntry();
    if (!current || !(typed.sizeArray() == current->sizeArray()))
        _controller.presetView()._didTouchPresetButton(typed.sizeArray());
}

bool SizeEditing::touchRecentSize(std::size_t index) {
    finishTyping();
    const auto& sizes = _controller.presetView().sizesMutable();
    if (index >= sizes.size() || !sizes[index].array()) return false;
    const platform::PlistArray chosen = *sizes[index].array();
    _controller.presetView()._didTouchPresetButton(chosen);
    loadInput();
    return true;
}

}  // namespace app
