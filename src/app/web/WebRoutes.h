// Small helpers shared by the API's route files: reading a request's JSON body and
// parameters, and adding a route whose work runs on the main queue.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "app/web/WebServer.h"
#include "platform/Bitmap.h"

namespace app::web {

// The body as a JSON object; none for anything else.
std::optional<nlohmann::json> jsonBody(const httplib::Request& request);
// A string member of `body`, or the default when it is absent or of another type.
std::string stringMember(const nlohmann::json& body, const char* name,
                         const std::string& fallback = {});
// A query parameter as a bounded count; the default for a missing or malformed one.
std::size_t countParameter(const httplib::Request& request, const char* name, std::size_t fallback,
                           std::size_t maximum);

using RouteWork = std::function<Reply(const httplib::Request& request)>;
// GET or POST `pattern`; `work` runs on the main queue.
void getOnMain(WebServer& server, const std::string& pattern, RouteWork work);
void postOnMain(WebServer& server, const std::string& pattern, RouteWork work);

// A help text's [red] marks as runs: [{"text": ..., "style": "red" or ""}].
nlohmann::json styledTextJSON(const std::string& text);

// Encodes a bitmap as JPEG (or PNG) bytes for a response.
std::optional<std::string> encodedImage(const platform::Bitmap& image, bool jpeg,
                                        std::string* problem);

}  // namespace app::web
