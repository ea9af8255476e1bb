// The template routes: the catalogue's sections with search, the user's own templates and the
// recents, each item with its key, detail lines, description line and sizes.
#include "app/TemplateJSON.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "templates/TemplateManager.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace app::web {
namespace {

using nlohmann::json;

json itemsJSON(TemplateManager& manager, const std::vector<VRTemplateListItem>& items) {
    json list = json::array();
    for (const auto& item : items) {
        json object = json::parse(VRTemplateListCoding::itemJSON(item), nullptr, false);
        if (object.is_discarded()) continue;
        auto tpl = manager.templateForItem(item);
        object["descriptionLine"] = tpl ? VXHelper::descriptionForTemplate(*tpl) : "";
        object["photo"] = tpl ? mediaJSON(*tpl, VRFormatMediaTypePhoto) : json(nullptr);
        object["video"] = tpl ? mediaJSON(*tpl, VRFormatMediaTypeVideo) : json(nullptr);
        list.push_back(std::move(object));
    }
    return list;
}

Reply catalogue(const httplib::Request& request) {
    auto& manager = TemplateManager::shared();
    const std::string search = request.has_param("search") ? request.get_param_value("search") : "";
    json sections = json::array();
    auto addSection = [&](VRTemplateListSection& section) {
        if (!search.empty()) section.search(search);
        if (!section.visibleItems().empty())
            sections.push_back({{"title", section.title()},
                                {"subtitle", section.subtitle()},
                                {"items", itemsJSON(manager, section.visibleItems())}});
        if (!search.empty()) section.clearSearch();
    };
    if (search.empty() && !manager.recentTemplates().empty())
        sections.push_back({{"title", "Recents"},
                            {"subtitle", ""},
                            {"items", itemsJSON(manager, manager.recentTemplates())}});
    for (const auto& section : manager.standardTemplates()) addSection(*section);
    if (!manager.userTemplates().empty()) {
        VRTemplateListSection own("Your Templates", "Templates you created",
                                  VRTemplateListSection::Config{}, manager.userTemplates());
        addSection(own);
    }
    return Reply::json({{"sections", sections}});
}

}  // namespace

void installTemplateRoutes(WebServer& server, WebSession&) {
    getOnMain(server, "/api/templates",
              [](const httplib::Request& request) { return catalogue(request); });
}

}  // namespace app::web
