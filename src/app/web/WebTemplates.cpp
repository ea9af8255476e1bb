// The template routes: the catalogue's sections with search (the recents, the collection, the
// built-in sections and the user's own templates), each item with its key, detail lines,
// description line, sizes and picture; the user's own templates created, renamed, duplicated
// and removed through the store the command line uses; the collection's keys.
#include <fstream>
#include <sstream>

#include "app/OwnTemplates.h"
#include "app/TemplateJSON.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "platform/FileManager.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"
#include "templates/TemplateManager.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace app::web {
namespace {

using nlohmann::json;

// The picture of a list item that has one on disk: the thumbnail in the template's folder.
std::optional<std::string> picturePath(const VRTemplateListItem& item) {
    if (item.imageSource().kind() != TemplatePictureSource::Kind::templateIdentifier)
        return std::nullopt;
    std::string path = VRSettings::templateImagePathWithIdentifier(item.identifier());
    if (!platform::FileManager::fileExistsAtPath(path)) return std::nullopt;
    return path;
}

json itemsJSON(TemplateManager& manager, const std::vector<VRTemplateListItem>& items,
               const char* list) {
    const auto& collection = manager.userCollection();
    json result = json::array();
    for (const auto& item : items) {
        json object = json::parse(VRTemplateListCoding::itemJSON(item), nullptr, false);
        if (object.is_discarded()) continue;
        auto tpl = manager.templateForItem(item);
        object["list"] = list;
        object["descriptionLine"] = tpl ? VXHelper::descriptionForTemplate(*tpl) : "";
        object["photo"] = tpl ? mediaJSON(*tpl, VRFormatMediaTypePhoto) : json(nullptr);
        object["video"] = tpl ? mediaJSON(*tpl, VRFormatMediaTypeVideo) : json(nullptr);
        object["inCollection"] =
            std::find(collection.begin(), collection.end(), item.identifier()) != collection.end();
        if (picturePath(item))
            object["picture"] = "/api/templates/picture?key=" + item.identifier();
        result.push_back(std::move(object));
    }
    return result;
}

// How a query is trimmed: blanks at both ends don't count.
std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
}

Reply catalogue(const httplib::Request& request) {
    auto& manager = TemplateManager::shared();
    const std::string search =
        trimmed(request.has_param("search") ? request.get_param_value("search") : "");
    json sections = json::array();
    auto addSection = [&](VRTemplateListSection& section, const char* list) {
        if (!search.empty()) section.search(search);
        if (!section.visibleItems().empty())
            sections.push_back({{"title", section.title()},
                                {"subtitle", section.subtitle()},
                                {"list", list},
                                {"items", itemsJSON(manager, section.visibleItems(), list)}});
        if (!search.empty()) section.clearSearch();
    };
    if (!manager.recentTemplates().empty()) {
        // Newest first, as the screen lists them.
        std::vector<VRTemplateListItem> recents(manager.recentTemplates().rbegin(),
                                                manager.recentTemplates().rend());
        VRTemplateListSection section("Recents", "", VRTemplateListSection::Config{}, recents);
        addSection(section, "recent");
    }
    const auto sorting = VRSettings2::templateSorting() == VRTemplateSortingStandardName
                             ? VRTemplateSorting::standard
                             : VRTemplateSorting::selection;
    if (auto collection = manager.userCollectionSection(false, sorting)) {
        VRTemplateListSection copy(collection->title(), collection->subtitle(),
                                   collection->config(), collection->items());
        addSection(copy, "collection");
    }
    if (!manager.userTemplates().empty()) {
        VRTemplateListSection own("Your Templates", "Templates you created",
                                  VRTemplateListSection::Config{}, manager.userTemplates());
        addSection(own, "own");
    }
    for (const auto& section : manager.standardTemplates()) addSection(*section, "catalogue");
    return Reply::json({{"sections", sections}});
}

Reply outcomeReply(const OwnTemplateOutcome& outcome) {
    if (!outcome.identifier) return Reply::error(outcome.notFound ? 404 : 500, outcome.problem);
    return Reply::json({{"key", *outcome.identifier}});
}

std::optional<std::string> optionalName(const json& body) {
    auto name = body.find("name");
    if (name == body.end() || !name->is_string()) return std::nullopt;
    return name->get<std::string>();
}

// A new template of its own from a template of the catalogue or the lists (`from`), or one
// of both media types at the catalogue's example size.
Reply createTemplate(const json& body) {
    auto& manager = TemplateManager::shared();
    const std::string from = stringMember(body, "from");
    VXTemplateRef tpl;
    if (!from.empty()) {
        auto source = manager.templateWithKey(from);
        if (!source) return Reply::error(404, "No template with the key \"" + from + "\".");
        tpl = source->newTemplate();
    } else {
        auto example = manager.templateForItem(manager.exampleTemplate());
        if (!example) return Reply::error(500, "The example template is missing.");
        tpl = example->newTemplate();
    }
    tpl->setLocked(false);
    return outcomeReply(createOwnTemplate(manager, tpl, optionalName(body)));
}

Reply changeCollection(const json& body) {
    auto& manager = TemplateManager::shared();
    const std::string key = stringMember(body, "key");
    if (!manager.executableTemplates().count(key) || !manager.templateWithKey(key) ||
        !manager.templateWithKey(key)->locked())
        return Reply::error(404, "Only templates of the catalogue join the collection.");
    std::vector<std::string> keys = manager.userCollection();
    keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
    auto included = body.find("included");
    if (included != body.end() && included->is_boolean() && included->get<bool>())
        keys.push_back(key);
    platform::ErrorRef error;
    if (!manager.updateUserCollection(keys, &error) && error)
        return Reply::error(
            500, "The collection could not be written: " + error->localizedDescription());
    return Reply::json({{"collection", manager.userCollection()}});
}

Reply picture(const httplib::Request& request) {
    auto& manager = TemplateManager::shared();
    const std::string key = request.has_param("key") ? request.get_param_value("key") : "";
    for (const auto* list : {&manager.userTemplates(), &manager.recentTemplates()}) {
        for (const auto& item : *list) {
            if (item.identifier() != key) continue;
            auto path = picturePath(item);
            if (!path) break;
            std::ifstream in(*path, std::ios::binary);
            std::ostringstream bytes;
            bytes << in.rdbuf();
            return Reply{200, bytes.str(), "image/jpeg"};
        }
    }
    return Reply::error(404, "No picture for that template.");
}

using BodyWork = std::function<Reply(const json& body)>;
void postJSON(WebServer& server, const std::string& pattern, BodyWork work) {
    postOnMain(server, pattern, [work = std::move(work)](const httplib::Request& request) {
        auto body = jsonBody(request);
        if (!body) return Reply::error(400, "The request is no JSON object.");
        return work(*body);
    });
}

}  // namespace

void installTemplateRoutes(WebServer& server, WebSession&) {
    getOnMain(server, "/api/templates",
              [](const httplib::Request& request) { return catalogue(request); });
    getOnMain(server, "/api/templates/picture",
              [](const httplib::Request& request) { return picture(request); });
    postJSON(server, "/api/templates/create", createTemplate);
    postJSON(server, "/api/templates/rename", [](const json& body) {
        return outcomeReply(renameOwnTemplate(TemplateManager::shared(), stringMember(body, "key"),
                                              stringMember(body, "name")));
    });
    postJSON(server, "/api/templates/duplicate", [](const json& body) {
        return outcomeReply(duplicateOwnTemplate(TemplateManager::shared(),
                                                 stringMember(body, "key"), optionalName(body)));
    });
    postJSON(server, "/api/templates/remove", [](const json& body) {
        return outcomeReply(
            removeOwnTemplate(TemplateManager::shared(), stringMember(body, "key")));
    });
    postJSON(server, "/api/templates/collection", changeCollection);
}

}  // namespace app::web
