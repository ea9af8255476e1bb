// The template routes: the catalogue's sections with search (the recents, the collection, the
// built-in sections and the user's own templates), each item with its key, detail lines,
// description line, sizes and picture; the user's own templates created, renamed, duplicated
// and removed through the store the command line uses; the collection's keys; the pictures.
#include <cctype>
#include <fstream>
#include <sstream>

#include "app/OwnTemplates.h"
#include "app/TemplateJSON.h"
#include "app/web/WebApi.h"
#include "app/web/WebPictures.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "platform/FileManager.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"
#include "templates/TemplateCatalogue.h"
#include "templates/TemplateManager.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace app::web {
namespace {

using nlohmann::json;

// A list item's picture, decided in this one place by the item's image source: a built-in
// template's picture is drawn from the template; an item with a thumbnail in its folder shows
// that file; any other, or one whose thumbnail is not (yet) written, the sample picture.
struct ItemPicture {
    enum class Kind { drawn, thumbnail, sample } kind = Kind::sample;
    std::string path;  // of the thumbnail
};

ItemPicture pictureOf(const VRTemplateListItem& item) {
    switch (item.imageSource().kind()) {
        case TemplatePictureSource::Kind::bundle:
            return {ItemPicture::Kind::drawn, {}};
        case TemplatePictureSource::Kind::templateIdentifier: {
            std::string path = VRSettings::templateImagePathWithIdentifier(item.identifier());
            if (platform::FileManager::fileExistsAtPath(path))
                return {ItemPicture::Kind::thumbnail, path};
            break;
        }
        case TemplatePictureSource::Kind::empty:
            break;
    }
    return {};
}

const char* pictureWord(ItemPicture::Kind kind) {
    switch (kind) {
        case ItemPicture::Kind::drawn:
            return "drawn";
        case ItemPicture::Kind::thumbnail:
            return "thumbnail";
        case ItemPicture::Kind::sample:
            return "sample";
    }
    return "";
}

std::string queryEscaped(const std::string& text) {
    static const char* hex = "0123456789ABCDEF";
    std::string escaped;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
            escaped += static_cast<char>(c);
        } else {
            escaped += '%';
            escaped += hex[c >> 4];
            escaped += hex[c & 15];
        }
    }
    return escaped;
}

// The item of a key in the lists the screen shows: the catalogue, the user's own templates, the
// recent ones and the example.
const VRTemplateListItem* listedItem(TemplateManager& manager, const std::string& key) {
    auto itemIn = [&](const std::vector<VRTemplateListItem>& items) -> const VRTemplateListItem* {
        auto found = std::find_if(items.begin(), items.end(),
                                  [&](const auto& item) { return item.identifier() == key; });
        return found == items.end() ? nullptr : &*found;
    };
    const VRTemplateListItem* item = nullptr;
    for (const auto& section : manager.standardTemplates())
        if (!item) item = itemIn(section->items());
    if (!item) item = itemIn(manager.userTemplates());
    if (!item) item = itemIn(manager.recentTemplates());
    if (!item && manager.exampleTemplate().identifier() == key) item = &manager.exampleTemplate();
    return item;
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
        object["picture"] = "/api/templates/picture?key=" + queryEscaped(item.identifier());
        object["pictureSource"] = pictureWord(pictureOf(item).kind);
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
        if (section.visibleItems().empty()) {
            if (!search.empty()) section.clearSearch();
            return;
        }
        const auto& config = section.config();
        json entry = {{"title", section.title()},
                      {"subtitle", config.subtitleVisible ? section.subtitle() : ""},
                      {"list", list},
                      {"items", itemsJSON(manager, section.visibleItems(), list)}};
        if (config.needsSmartNote)
            entry["note"] = styledTextJSON(TemplateCatalogue::smartSizeNote());
        sections.push_back(std::move(entry));
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
                                  VRTemplateListSection::Config{false, false, true},
                                  manager.userTemplates());
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

// The picture of a listed template, and whether a browser may keep it: a drawn one changes
// only with the program; a thumbnail when the template is saved again, and the sample stands
// only until a thumbnail is written.
Reply picture(const std::string& key, bool* keep) {
    auto& manager = TemplateManager::shared();
    const VRTemplateListItem* item = listedItem(manager, key);
    if (!item) return Reply::error(404, "No template with the key \"" + key + "\".");
    const ItemPicture shown = pictureOf(*item);
    *keep = false;
    if (shown.kind == ItemPicture::Kind::drawn) {
        if (auto tpl = manager.templateForItem(*item)) {
            *keep = true;
            return Reply{200, templatePictureSVG(*tpl, item->imageSource().bundleName()),
                         "image/svg+xml"};
        }
    } else if (shown.kind == ItemPicture::Kind::thumbnail) {
        std::ifstream in(shown.path, std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        if (in) return Reply{200, bytes.str(), "image/jpeg"};
    }
    return Reply{200, samplePictureSVG(false), "image/svg+xml"};
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

VXTemplateRef listedTemplateWithKey(const std::string& key) {
    auto& manager = TemplateManager::shared();
    const VRTemplateListItem* item = listedItem(manager, key);
    return item ? manager.templateForItem(*item) : manager.templateWithKey(key);
}

void installTemplateRoutes(WebServer& server, WebSession&) {
    getOnMain(server, "/api/templates",
              [](const httplib::Request& request) { return catalogue(request); });
    server.http().Get(
        "/api/templates/picture", [](const httplib::Request& request, httplib::Response& response) {
            const std::string key = request.get_param_value("key");
            bool keep = false;
            const Reply reply = WebServer::onMain([&] { return picture(key, &keep); });
            WebServer::send(response, reply);
            if (keep && reply.status == 200)
                WebServer::allowCaching(response, "private, max-age=86400");
        });
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
