#include "app/web/WebRoutes.h"

#include <atomic>
#include <fstream>
#include <sstream>

#include "platform/Bitmap.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "presentation/StyledText.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

namespace app::web {

std::optional<nlohmann::json> jsonBody(const httplib::Request& request) {
    auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) return std::nullopt;
    return body;
}

std::string stringMember(const nlohmann::json& body, const char* name,
                         const std::string& fallback) {
    auto found = body.find(name);
    return found != body.end() && found->is_string() ? found->get<std::string>() : fallback;
}

std::size_t countParameter(const httplib::Request& request, const char* name, std::size_t fallback,
                           std::size_t maximum) {
    if (!request.has_param(name)) return fallback;
    const std::string text = request.get_param_value(name);
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return fallback;
    return std::min<std::size_t>(std::stoul(text), maximum);
}

namespace {

void addRoute(WebServer& server, bool post, const std::string& pattern, RouteWork work) {
    auto handler = [work = std::move(work)](const httplib::Request& request,
                                            httplib::Response& response) {
        WebServer::send(response, WebServer::onMain([&] { return work(request); }));
    };
    if (post) {
        server.http().Post(pattern, handler);
    } else {
        server.http().Get(pattern, handler);
    }
}

}  // namespace

void getOnMain(WebServer& server, const std::string& pattern, RouteWork work) {
    addRoute(server, false, pattern, std::move(work));
}

void postOnMain(WebServer& server, const std::string& pattern, RouteWork work) {
    addRoute(server, true, pattern, std::move(work));
}

nlohmann::json styledTextJSON(const std::string& text) {
    // The page colours the runs itself; the names are what matters.
    const platform::PlistDictionary styles{{"red", platform::PlistDictionary{}},
                                           {"b", platform::PlistDictionary{}}};
    nlohmann::json runs = nlohmann::json::array();
    for (const auto& run : attributedStringWithStyledText(text, styles).runs)
        runs.push_back({{"text", run.text}, {"style", run.styleName}});
    return runs;
}

std::optional<std::string> encodedImage(const platform::Bitmap& image, bool jpeg,
                                        std::string* problem) {
    using platform::FileManager;
    // The encoder writes files; each picture gets a name of its own in this process's folder.
    static std::atomic<unsigned> counter{0};
    const std::string folder = VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory());
    const std::string path = FileManager::stringByAppendingPathComponent(
        folder, "web-" + std::to_string(++counter) + (jpeg ? ".jpg" : ".png"));
    platform::ErrorRef error;
    auto destination = platform::ImageDestination::createWithURL(
        path, jpeg ? "public.jpeg" : "public.png", 1, &error);
    if (destination) {
        destination->addImage(
            image, {{"kCGImageDestinationLossyCompressionQuality", 0.8}, {"HasAlpha", !jpeg}});
        if (destination->finalize(&error)) {
            std::ifstream in(path, std::ios::binary);
            std::ostringstream bytes;
            bytes << in.rdbuf();
            FileManager::removeItemAtPath(path);
            return bytes.str();
        }
    }
    if (problem) *problem = error ? error->localizedDescription() : "the picture was not encoded";
    return std::nullopt;
}

}  // namespace app::web
