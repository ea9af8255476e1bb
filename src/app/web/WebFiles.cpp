// The file routes: the server-side file browser over the allowed folders, downloads of one
// file, and uploads from the browser into the uploads folder.
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "app/web/StaticFiles.h"
#include "app/web/WebApi.h"
#include "app/web/WebRoutes.h"
#include "app/web/WebSession.h"
#include "assets/VRURLAsset.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"

namespace app::web {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

const char* mediaWord(VRFormatMediaType type) {
    return type == VRFormatMediaTypePhoto ? "photo" : type == VRFormatMediaTypeVideo ? "video" : "";
}

// The folder's entries, folders first, hidden names left out; or the roots for no path.
Reply listFolder(WebServer& server, const httplib::Request& request) {
    if (!request.has_param("path")) {
        json roots = json::array();
        for (const auto& root : server.paths().roots())
            roots.push_back({{"name", root}, {"path", root}, {"folder", true}});
        return Reply::json({{"path", nullptr}, {"entries", roots}});
    }
    auto folder = server.paths().resolve(request.get_param_value("path"));
    if (!folder)
        return Reply::error(403, "That folder lies outside the folders this server may show.");
    std::error_code code;
    json folders = json::array(), files = json::array();
    for (const auto& entry : fs::directory_iterator(*folder, code)) {
        const std::string name = entry.path().filename().string();
        if (name.empty() || name.front() == '.') continue;
        std::error_code statCode;
        if (entry.is_directory(statCode)) {
            folders.push_back({{"name", name}, {"path", entry.path().string()}, {"folder", true}});
        } else {
            const auto type = VRURLAsset::mediaTypeForPath(entry.path().string());
            if (type == VRFormatMediaTypeNone) continue;
            files.push_back({{"name", name},
                             {"path", entry.path().string()},
                             {"id", "file:" + entry.path().string()},
                             {"media", mediaWord(type)},
                             {"size", entry.file_size(statCode)}});
        }
    }
    if (code) return Reply::error(404, "The folder can't be read: " + code.message());
    auto byName = [](const json& a, const json& b) { return a["name"] < b["name"]; };
    std::sort(folders.begin(), folders.end(), byName);
    std::sort(files.begin(), files.end(), byName);
    for (auto& file : files) folders.push_back(std::move(file));
    return Reply::json({{"path", *folder}, {"entries", folders}});
}

// A name of the browser's kept to its last part and to safe characters.
std::string safeName(const std::string& given) {
    std::string name = platform::FileManager::lastPathComponent(given);
    for (char& c : name)
        if (c == '/' || c == '\\' || static_cast<unsigned char>(c) < 0x20) c = '_';
    if (name.empty() || name.front() == '.') name = "upload" + name;
    return name.substr(0, 200);
}

// Each upload gets a folder of its own, so no upload replaces another's file.
Reply storeUploads(const httplib::Request& request, const std::string& uploads) {
    static std::atomic<unsigned> counter{0};
    json stored = json::array();
    for (const auto& [field, file] : request.files) {
        const std::string name = safeName(file.filename);
        if (VRURLAsset::mediaTypeForPath(name) == VRFormatMediaTypeNone)
            return Reply::error(415, "Not a photo or movie: " + name);
        const std::string folder =
            uploads + "/" + std::to_string(getpid()) + "-" + std::to_string(++counter);
        std::error_code code;
        fs::create_directories(folder, code);
        const std::string path = folder + "/" + name;
        const std::string partial = folder + "/.partial-" + name;
        {
            std::ofstream out(partial, std::ios::binary);
            out.write(file.content.data(), static_cast<std::streamsize>(file.content.size()));
            if (!out) {
                fs::remove_all(folder, code);
                return Reply::error(507, "The upload could not be stored.");
            }
        }
        fs::rename(partial, path, code);
        if (code) {
            fs::remove_all(folder, code);
            return Reply::error(507, "The upload could not be stored.");
        }
        stored.push_back({{"name", name}, {"path", path}, {"id", "file:" + path}});
    }
    if (stored.empty()) return Reply::error(400, "No file was sent.");
    return Reply::json({{"files", stored}});
}

}  // namespace

void installFileRoutes(WebServer& server, WebSession& session) {
    (void)session;
    server.http().Get("/api/files",
                      [&server](const httplib::Request& request, httplib::Response& response) {
                          WebServer::send(response, listFolder(server, request));
                      });
    server.http().Get(
        "/api/file", [&server](const httplib::Request& request, httplib::Response& response) {
            auto path = server.paths().resolve(request.get_param_value("path"));
            std::error_code code;
            if (!path || !fs::is_regular_file(*path, code))
                return WebServer::send(response, Reply::error(403, "That file can't be sent."));
            auto file = std::make_shared<std::ifstream>(*path, std::ios::binary);
            const std::string name = platform::FileManager::lastPathComponent(*path);
            if (request.has_param("download"))
                response.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
            const auto size = fs::file_size(*path, code);
            response.set_content_provider(
                size, std::string(contentTypeForName(name)),
                [file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                    std::vector<char> buffer(std::min<std::size_t>(length, 1 << 16));
                    file->seekg(static_cast<std::streamoff>(offset));
                    file->read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
                    return file->gcount() > 0 &&
                           sink.write(buffer.data(), static_cast<std::size_t>(file->gcount()));
                });
        });
    server.http().Post(
        "/api/upload", [&server](const httplib::Request& request, httplib::Response& response) {
            const std::string uploads = platform::FileManager::stringByAppendingPathComponent(
                platform::Environment::documentsDirectory(), "uploads");
            WebServer::send(response, storeUploads(request, uploads));
        });
}

}  // namespace app::web
