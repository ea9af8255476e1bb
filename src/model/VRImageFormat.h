// The newer, smaller still-image format value, for the few places that write an image
// directly (template thumbnails, exports).
#pragma once

#include <optional>
#include <string>

class VRImageFormat {
  public:
    enum class FormatType : int { autoType = 0, jpeg = 1, tiff = 2, png = 3, gif = 4, heic = 5 };

    struct FormatDescription {
        std::string name;
        std::string utType;
        std::string ext;
        float compression = 1.0f;
    };
    static FormatDescription descriptionForType(FormatType type);
    // By equality: jpeg, png, gif, tiff, heic, heif (as heic); anything else auto.
    static FormatType formatTypeForUTType(const std::string& utType);

    // Without a compression the description's is taken.
    explicit VRImageFormat(FormatType type, std::optional<float> compression = std::nullopt);

    FormatType type() const { return _type; }
    const std::string& name() const { return _name; }
    const std::string& utType() const { return _utType; }
    const std::string& ext() const { return _ext; }
    float compression() const { return _compression; }
    void setCompression(float compression) { _compression = compression; }

    friend bool operator==(const VRImageFormat&, const VRImageFormat&) = default;

  private:
    FormatType _type;
    std::string _name;
    std::string _utType;
    std::string _ext;
    float _compression;
};
