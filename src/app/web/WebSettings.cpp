// The settings routes: every setting with the screen, section and words it is shown with and
// its value, and a change of one setting by the settings screens' own rules. The
// store is read afresh first, so changes made by other processes on the same home show, and
// each change is written through it under its file lock.
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "core/VRSettingsViewModel.h"
#include "storage/VRSettings.h"

namespace app::web {
namespace {

using nlohmann::json;

const char* kindWord(VRSettingsItem::Kind kind) {
    switch (kind) {
        case VRSettingsItem::Kind::toggle:
            return "toggle";
        case VRSettingsItem::Kind::number:
            return "number";
        case VRSettingsItem::Kind::slider:
            return "slider";
        case VRSettingsItem::Kind::choice:
            return "choice";
        case VRSettingsItem::Kind::text:
            return "text";
    }
    return "text";
}

json itemJSON(const VRSettingsItem& item) {
    json choices = json::array();
    for (const auto& choice : item.choices)
        choices.push_back(
            {{"value", choice.value}, {"title", choice.title}, {"detail", choice.detail}});
    json j{{"key", item.key},
           {"name", item.accessor},
           {"label", item.label},
           {"kind", kindWord(item.kind)},
           {"value", item.accessorValue()},
           {"stored", item.get()},
           {"readOnly", item.isReadOnly()}};
    if (!item.unit.empty()) j["unit"] = item.unit;
    if (!item.placeholder.empty()) j["placeholder"] = item.placeholder;
    if (!choices.empty()) j["choices"] = choices;
    if (item.kind == VRSettingsItem::Kind::number || item.kind == VRSettingsItem::Kind::slider) {
        j["minimum"] = item.minimum;
        j["maximum"] = item.maximum;
    }
    if (item.meaning) j["meaning"] = item.meaning();
    return j;
}

// The screens in order, each with its sections and their settings in the model's order.
json settingsJSON() {
    json screens = json::array();
    for (VRSettingsScreen screen : VRSettingsViewModel::screens()) {
        json sections = json::array();
        for (const auto& rows : VRSettingsViewModel::sectionsOfScreen(screen)) {
            json section{
                {"title", rows.front()->section}, {"footer", ""}, {"items", json::array()}};
            for (const VRSettingsItem* item : rows) {
                if (section["footer"] == "" && !item->footer.empty())
                    section["footer"] = item->footer;
                section["items"].push_back(itemJSON(*item));
            }
            sections.push_back(std::move(section));
        }
        screens.push_back({{"id", VRSettingsViewModel::identifierOfScreen(screen)},
                           {"title", VRSettingsViewModel::titleOfScreen(screen)},
                           {"sections", sections}});
    }
    return {{"screens", screens}};
}

Reply takeInOthers() {
    platform::ErrorRef error;
    VRSettingsViewModel::prepare();
    if (!VRSettings::save(&error))
        return Reply::error(500, "The settings could not be read: " +
                                     (error ? error->localizedDescription() : "unknown error"));
    return Reply{};
}

// {"name": accessor or stored key, "value": text, number or true/false}: the value as the
// accessor takes it, checked by the setting's own rules; a refused value changes nothing.
Reply changeSetting(const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "Send {\"name\": setting, \"value\": value}.");
    const std::string name = stringMember(*body, "name");
    auto value = body->find("value");
    if (value == body->end() ||
        (!value->is_string() && !value->is_boolean() && !value->is_number()))
        return Reply::error(400, name + ": the value is a text, a number or true or false");
    if (Reply read = takeInOthers(); read.status != 200) return read;
    const std::string text = value->is_string() ? value->get<std::string>() : value->dump();
    std::string problem;
    if (!VRSettingsViewModel::setValue(name, text, &problem)) return Reply::error(400, problem);
    platform::ErrorRef error;
    if (!VRSettings::save(&error))
        return Reply::error(500, "The settings were not saved: " +
                                     (error ? error->localizedDescription() : "unknown error"));
    return Reply::json(settingsJSON());
}

}  // namespace

void installSettingsRoutes(WebServer& server) {
    getOnMain(server, "/api/settings", [](const httplib::Request&) {
        if (Reply read = takeInOthers(); read.status != 200) return read;
        return Reply::json(settingsJSON());
    });
    postOnMain(server, "/api/settings",
               [](const httplib::Request& request) { return changeSetting(request); });
}

}  // namespace app::web
