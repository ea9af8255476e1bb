// The folders a web client may name files in (the library, the result store, the folders the
// user chose): a client's path is resolved with every symbolic link followed and used only
// when what it names lies inside one of them, so neither ".." nor a link leads out.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace app::web {

class PathGuard {
  public:
    // A root that does not exist yet is kept by its plain absolute form.
    void addRoot(const std::string& folder);
    std::vector<std::string> roots() const;

    // The resolved path when it lies inside a root (or is one); none otherwise, and for a
    // relative path, an empty one or one with a NUL. The path need not exist, but its existing
    // part is resolved, so a link to the outside is refused even for a new file below it.
    std::optional<std::string> resolve(const std::string& path) const;

  private:
    mutable std::mutex _mutex;
    std::vector<std::string> _roots;
};

}  // namespace app::web
