// The result routes: the store's list, clearing, the sharing name prompt with its preview,
// sharing into a folder under the sharing names, and downloads of several files as one zip
// archive made while it is sent.
#include <filesystem>

#include "app/ResultsSharing.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "app/web/ZipStream.h"
#include "assets/VRLocalAsset.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "results/ResultManager.h"
#include "results/SharingNameRules.h"
#include "results/VRExportShareStatus.h"
#include "results/VRImageSaveActivity.h"
#include "results/VRSharingNamePrompt.h"
#include "storage/VRSettings.h"

namespace app::web {
namespace {

using nlohmann::json;
using platform::FileManager;

json storeItemJSON(std::size_t index, const VRAssetRef& asset) {
    json item{{"index", index}};
    if (!asset) return item;
    item["name"] = asset->originalFilename();
    item["media"] = asset->mediaType() == VRFormatMediaTypeVideo ? "video" : "photo";
    if (auto* local = dynamic_cast<const VRLocalAsset*>(asset->object().get())) {
        item["file"] = local->url();
        item["thumbnail"] = local->thumbnailURL();
    }
    return item;
}

Reply storeList() {
    json items = json::array();
    auto assets = ResultManager::shared().assets();
    for (std::size_t i = 0; i < assets.size(); ++i) items.push_back(storeItemJSON(i, assets[i]));
    return Reply::json({{"items", items}});
}

// The assets a share or clear names: positions in the open run's list ("run") or the store.
std::vector<VRAssetRef> namedAssets(WebSession& session, const json& body) {
    std::vector<VRAssetRef> list;
    if (stringMember(body, "from") == "run" && session.run) {
        list = session.run->pickerView().assetList();
    } else {
        list = ResultManager::shared().assets();
    }
    std::vector<VRAssetRef> named;
    auto indexes = body.find("indexes");
    if (indexes == body.end() || !indexes->is_array()) return named;
    for (const auto& index : *indexes) {
        if (!index.is_number_unsigned() || index.get<std::size_t>() >= list.size()) continue;
        if (list[index.get<std::size_t>()]) named.push_back(list[index.get<std::size_t>()]);
    }
    return named;
}

std::vector<std::string> extensionsOf(const std::vector<VRAssetRef>& assets) {
    std::vector<std::string> extensions;
    for (const auto& asset : assets) {
        auto* local = dynamic_cast<const VRLocalAsset*>(asset->object().get());
        extensions.push_back(local ? FileManager::pathExtension(local->url()) : "jpg");
    }
    return extensions;
}

Reply namePrompt(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    auto assets = namedAssets(session, *body);
    if (assets.empty())
        return Reply::error(400, VRExportShareStatusMessage(VRExportShareStatusEmptySelection,
                                                            results::kApplicationName));
    auto prompt = sharingNamePromptForCount(assets.size(), extensionsOf(assets));
    if (!prompt) return Reply::json({{"ask", false}});
    const std::string name = stringMember(*body, "name", prompt->name);
    const bool valid = isValidSharingBaseName(name);
    return Reply::json({{"ask", true},
                        {"title", VRSharingNamePrompt::kTitle},
                        {"message", VRSharingNamePrompt::kMessage},
                        {"placeholder", VRSharingNamePrompt::kPlaceholder},
                        {"name", prompt->name},
                        {"valid", valid},
                        {"preview", valid ? prompt->previewForName(name)
                                          : VRSharingNamePrompt::kInvalidNameText}});
}

// Whether `path` is the result store's folder or lies inside it.
bool insideResultStore(const std::string& path) {
    const std::string store =
        std::filesystem::weakly_canonical(ResultManager::shared().resultsURL()).string();
    return path == store || path.rfind(store + "/", 0) == 0;
}

// A new folder for each share under documents/"shared", unless the page names an allowed one
// to export into; the result store keeps only its own files.
std::optional<std::string> shareFolder(WebSession& session, const json& body) {
    const std::string given = stringMember(body, "folder");
    if (!given.empty()) {
        auto folder = session.server.paths().resolve(given);
        std::error_code code;
        if (!folder || !std::filesystem::is_directory(*folder, code) || insideResultStore(*folder))
            return std::nullopt;
        return folder;
    }
    const std::string shared = FileManager::stringByAppendingPathComponent(
        platform::Environment::documentsDirectory(), "shared");
    FileManager::createDirectoryAtPath(shared, true);
    session.server.paths().addRoot(shared);
    std::string folder = shared + "/share-XXXXXX";
    if (!mkdtemp(folder.data())) return std::nullopt;
    return folder;
}

Reply share(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    auto assets = namedAssets(session, *body);
    if (assets.empty())
        return Reply::error(400, VRExportShareStatusMessage(VRExportShareStatusEmptySelection,
                                                            results::kApplicationName));
    auto folder = shareFolder(session, *body);
    if (!folder)
        return Reply::error(403,
                            "That folder can't take the files: it lies outside the folders "
                            "this server may use, or in the result store.");
    std::optional<std::string> name;
    if (body->contains("name") && (*body)["name"].is_string())
        name = (*body)["name"].get<std::string>();
    if (name && !acceptSharingName(*name)) return Reply::error(400, "That name can't be used.");
    auto exported = results::exportIntoFolder(assets, *folder, name);
    if (exported.code != 0)
        return Reply::error(500, exported.error ? exported.error->localizedDescription()
                                                : "The files were not all written.");
    return Reply::json({{"folder", *folder},
                        {"files", exported.written},
                        {"message", VRExportShareStatusMessage(VRExportShareStatusDone,
                                                               results::kApplicationName)}});
}

// The save action as the share sheet would offer it: its title for the named results, or
// none when saving to the albums is turned off.
Reply albumsPrompt(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    if (!VRSettings::areAlbumsForResultsEnabled()) return Reply::json({{"enabled", false}});
    auto assets = namedAssets(session, *body);
    std::vector<std::string> files;
    for (const auto& asset : assets)
        if (auto* local = dynamic_cast<const VRLocalAsset*>(asset->object().get()))
            files.push_back(local->url());
    VRImageSaveActivity activity({}, nullptr);
    activity.prepareWithActivityItems(files);
    return Reply::json({{"enabled", true}, {"title", activity.activityTitle()}});
}

// Saves the named results into the library's albums; answers the share's status with the
// words the results screen shows for it.
Reply saveToAlbums(WebSession& session, const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    if (!VRSettings::areAlbumsForResultsEnabled())
        return Reply::error(409, "Saving to the albums is turned off in the settings.");
    std::string problem;
    if (!session.openLibrary(&problem)) return Reply::error(503, problem);
    auto assets = namedAssets(session, *body);
    const auto saved = assets.empty() ? results::AlbumSave{VRExportShareStatusEmptySelection, {}}
                                      : results::saveIntoAlbums(assets);
    return Reply::json(
        {{"status", static_cast<int>(saved.status)},
         {"title", saved.title},
         {"message", VRExportShareStatusMessage(saved.status, results::kApplicationName)}});
}

Reply clearStored(const httplib::Request& request) {
    auto body = jsonBody(request);
    if (!body) return Reply::error(400, "The request is no JSON object.");
    std::set<std::size_t> indexes;
    if (auto list = body->find("indexes"); list != body->end() && list->is_array())
        for (const auto& index : *list)
            if (index.is_number_unsigned()) indexes.insert(index.get<std::size_t>());
    auto removed = ResultManager::shared().removeAssetsAt(indexes);
    ResultManager::shared().waitUntilStored();
    return Reply::json({{"removed", removed.size()}});
}

void sendZip(WebServer& server, const httplib::Request& request, httplib::Response& response) {
    std::vector<std::string> paths, names;
    for (std::size_t i = 0; i < request.get_param_value_count("path"); ++i) {
        auto path = server.paths().resolve(request.get_param_value("path", i));
        if (!path) return WebServer::send(response, Reply::error(403, "A file can't be sent."));
        paths.push_back(*path);
        names.push_back(FileManager::lastPathComponent(*path));
    }
    names = uniqueArchiveNames(names);
    std::vector<ZipStream::Entry> entries;
    for (std::size_t i = 0; i < paths.size(); ++i) entries.push_back({paths[i], names[i]});
    auto zip = std::make_shared<ZipStream>(std::move(entries));
    if (auto problem = zip->check()) return WebServer::send(response, Reply::error(400, *problem));
    response.set_header("Content-Disposition", "attachment; filename=\"unwarp-results.zip\"");
    response.set_chunked_content_provider("application/zip",
                                          [zip](std::size_t, httplib::DataSink& sink) {
                                              bool ok = true;
                                              std::string piece = zip->next(&ok);
                                              if (!ok) return false;
                                              if (piece.empty()) {
                                                  sink.done();
                                                  return true;
                                              }
                                              return sink.write(piece.data(), piece.size());
                                          });
}

}  // namespace

void installResultRoutes(WebServer& server, WebSession& session) {
    getOnMain(server, "/api/results", [](const httplib::Request&) { return storeList(); });
    postOnMain(server, "/api/results/clear",
               [](const httplib::Request& request) { return clearStored(request); });
    postOnMain(server, "/api/share/prompt", [&session](const httplib::Request& request) {
        return namePrompt(session, request);
    });
    postOnMain(server, "/api/albums/prompt", [&session](const httplib::Request& request) {
        return albumsPrompt(session, request);
    });
    postOnMain(server, "/api/albums", [&session](const httplib::Request& request) {
        return saveToAlbums(session, request);
    });
    postOnMain(server, "/api/share",
               [&session](const httplib::Request& request) { return share(session, request); });
    server.http().Get("/api/zip",
                      [&server](const httplib::Request& request, httplib::Response& response) {
                          sendZip(server, request, response);
                      });
}

}  // namespace app::web
