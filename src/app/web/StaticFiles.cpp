#include "app/web/StaticFiles.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace app::web {

std::string_view contentTypeForName(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 19> kTypes{{
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".jpg", "image/jpeg"},
        {".json", "application/json"},
        {".ico", "image/x-icon"},
        {".txt", "text/plain; charset=utf-8"},
        {".webmanifest", "application/manifest+json"},
        {".jpeg", "image/jpeg"},
        {".heic", "image/heic"},
        {".tif", "image/tiff"},
        {".tiff", "image/tiff"},
        {".gif", "image/gif"},
        {".webp", "image/webp"},
        {".mp4", "video/mp4"},
        {".mov", "video/quicktime"},
        {".zip", "application/zip"},
    }};
    for (const auto& [extension, type] : kTypes) {
        if (name.size() <= extension.size()) continue;
        auto tail = name.substr(name.size() - extension.size());
        if (std::equal(tail.begin(), tail.end(), extension.begin(), [](char a, char b) {
                return std::tolower(static_cast<unsigned char>(a)) == b;
            }))
            return type;
    }
    return "application/octet-stream";
}

std::optional<StaticFile> staticFileAtPath(std::string_view path) {
    if (path == "/" || path.empty()) path = "/index.html";
    if (path.front() != '/') return std::nullopt;
    // The files lie flat: a name with another slash is never one of them.
    std::string_view name = path.substr(1);
    if (name.find('/') != std::string_view::npos) return std::nullopt;
    for (const EmbeddedFile* file = embeddedFiles(); file->name; ++file) {
        if (name == file->name)
            return StaticFile{std::string_view(file->data, file->size), contentTypeForName(name)};
    }
    return std::nullopt;
}

}  // namespace app::web
