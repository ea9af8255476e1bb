#include "app/TemplateEdit.h"

#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/SizeEditing.h"
#include "app/TemplateArguments.h"
#include "model/VXHelperText.h"
#include "templates/TemplateBodies.h"
#include "templates/TemplateManager.h"

namespace app {

namespace {

using nlohmann::json;

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
std::optional<std::string> store(SizeEditing& editing, const std::string& key, bool userTemplate,
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

    SizeEditing editing(tpl, *mediaType);
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
    const json shown = sizeEditingJSON(editing, saved);
    if (request.json) {
        std::cout << shown.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
    } else {
        printText(shown, tpl->name().value_or("(untitled)") + "  [" + request.key + "], " +
                             request.media + " size editor");
    }
    return kExitSuccess;
}

}  // namespace app
