#include "model/VRImageFormat.h"

#include "model/TypeIdentifiers.h"

VRImageFormat::FormatDescription VRImageFormat::descriptionForType(FormatType type) {
    switch (type) {
        case FormatType::jpeg:
            return {"JPEG", kUTTypeJPEG, "jpg", 0.85f};
        case FormatType::tiff:
            return {"TIFF", kUTTypeTIFF, "tif", 1.0f};
        case FormatType::png:
            return {"PNG", kUTTypePNG, "png", 1.0f};
        case FormatType::gif:
            return {"GIF", kUTTypeGIF, "gif", 1.0f};
        case FormatType::heic:
            return {"HEIC", kUTTypeHEIC, "heic", 0.85f};
        case FormatType::autoType:
            break;
    }
    return {"Auto", kUTTypeJPEG, "jpg", 0.85f};
}

VRImageFormat::FormatType VRImageFormat::formatTypeForUTType(const std::string& utType) {
    if (utType == kUTTypeJPEG) return FormatType::jpeg;
    if (utType == kUTTypePNG) return FormatType::png;
    if (utType == kUTTypeGIF) return FormatType::gif;
    if (utType == kUTTypeTIFF) return FormatType::tiff;
    if (utType == kUTTypeHEIC || utType == kUTTypeHEIF) return FormatType::heic;
    return FormatType::autoType;
}

VRImageFormat::VRImageFormat(FormatType type, std::optional<float> compression) : _type(type) {
    FormatDescription description = descriptionForType(type);
    _name = std::move(description.name);
    _utType = std::move(description.utType);
    _ext = std::move(description.ext);
    _compression = compression.value_or(description.compression);
}
