// The web front end's files, built into the program from src/app/web/static by the build.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace app::web {

struct EmbeddedFile {
    const char* name;
    const char* data;
    std::size_t size;
};

// The generated table, ended by an entry with a null name.
const EmbeddedFile* embeddedFiles();

struct StaticFile {
    std::string_view bytes;
    std::string_view contentType;
};

// The file served at `path` ("/" is index.html); none for any other path, a folder or a name
// the front end does not have.
std::optional<StaticFile> staticFileAtPath(std::string_view path);

// The content type by the name's extension; "application/octet-stream" when unknown.
std::string_view contentTypeForName(std::string_view name);

}  // namespace app::web
