#include "templates/TemplatePictureSource.h"

#include "platform/FileManager.h"

using platform::FileManager;

namespace {

bool isFile(const std::string& path) {
    bool isDirectory = false;
    return FileManager::fileExistsAtPath(path, &isDirectory) && !isDirectory;
}

}  // namespace

std::string TemplatePictureSource::resolvedPath(const std::string& resourceDirectory,
                                                const std::string& templateImagePath) const {
    switch (_kind) {
        case Kind::bundle:
            // A name with a path separator or a parent step would leave the resources.
            if (!_name.empty() && _name.find('/') == std::string::npos && _name != "..") {
                for (const char* suffix : {"", ".png", ".jpg"}) {
                    auto path = FileManager::stringByAppendingPathComponent(resourceDirectory,
                                                                            _name + suffix);
                    if (isFile(path)) return path;
                }
            }
            break;
        case Kind::templateIdentifier:
            if (isFile(templateImagePath)) return templateImagePath;
            break;
        case Kind::empty:
            break;
    }
    return FileManager::stringByAppendingPathComponent(resourceDirectory,
                                                       VRTemplateFallbackImageName);
}
