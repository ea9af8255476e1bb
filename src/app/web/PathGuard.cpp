#include "app/web/PathGuard.h"

#include <algorithm>
#include <filesystem>

namespace app::web {
namespace fs = std::filesystem;

namespace {

std::optional<fs::path> canonicalForm(const fs::path& path) {
    std::error_code code;
    fs::path resolved = fs::weakly_canonical(path, code);
    if (code) return std::nullopt;
    return resolved.lexically_normal();
}

bool isInside(const fs::path& path, const fs::path& root) {
    auto [rootEnd, pathAt] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    // A trailing separator of the root shows as an empty last element.
    return rootEnd == root.end() || (std::next(rootEnd) == root.end() && rootEnd->empty());
}

}  // namespace

void PathGuard::addRoot(const std::string& folder) {
    if (folder.empty()) return;
    auto resolved = canonicalForm(fs::absolute(folder));
    std::string root = resolved ? resolved->string() : fs::absolute(folder).string();
    std::lock_guard lock(_mutex);
    if (std::find(_roots.begin(), _roots.end(), root) == _roots.end()) _roots.push_back(root);
}

std::vector<std::string> PathGuard::roots() const {
    std::lock_guard lock(_mutex);
    return _roots;
}

std::optional<std::string> PathGuard::resolve(const std::string& path) const {
    if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
    fs::path given(path);
    if (!given.is_absolute()) return std::nullopt;
    auto resolved = canonicalForm(given);
    if (!resolved) return std::nullopt;
    std::lock_guard lock(_mutex);
    for (const auto& root : _roots) {
        if (isInside(*resolved, fs::path(root))) return resolved->string();
    }
    return std::nullopt;
}

}  // namespace app::web
