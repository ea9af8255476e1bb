// Where a template list item's picture comes from: a resource name, nothing, or the thumbnail
// in the template's own folder. Part of the list files' JSON.
#pragma once

#include <optional>
#include <string>

class TemplatePictureSource {
  public:
    enum class Kind { bundle, empty, templateIdentifier };

    static TemplatePictureSource bundle(std::string name) {
        return TemplatePictureSource(Kind::bundle, std::move(name));
    }
    static TemplatePictureSource empty() { return TemplatePictureSource(Kind::empty, {}); }
    static TemplatePictureSource templateIdentifier() {
        return TemplatePictureSource(Kind::templateIdentifier, {});
    }

    Kind kind() const { return _kind; }
    // The resource name of a bundle source; empty for the others.
    const std::string& bundleName() const { return _name; }

    // The picture file to show: a bundle name as found in `resourceDirectory` (as given, or
    // with ".png" or ".jpg" added), the item's thumbnail file `templateImagePath` when it
    // exists; otherwise, and for empty, "sample-landscape.jpg" in the resources.
    std::string resolvedPath(const std::string& resourceDirectory,
                             const std::string& templateImagePath) const;

    friend bool operator==(const TemplatePictureSource&, const TemplatePictureSource&) = default;

  private:
    TemplatePictureSource(Kind kind, std::string name) : _kind(kind), _name(std::move(name)) {}
    Kind _kind = Kind::empty;
    std::string _name;
};

inline constexpr const char* VRTemplateFallbackImageName = "sample-landscape.jpg";
