#include "model/VRFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "model/TypeIdentifiers.h"
#include "model/VXHelperDevice.h"
#include "platform/ImageDestination.h"

namespace {

struct TypeRow {
    const char* name;
    const char* extension;
    const char* uti;
    std::uint64_t mediaType;
};

// Types 1 to 10; type 0 and unknown types depend on the media type.
constexpr TypeRow kTypeRows[] = {
    {"JPEG", "jpg", kUTTypeJPEG, VRFormatMediaTypePhoto},
    {"TIFF", "tif", kUTTypeTIFF, VRFormatMediaTypePhoto},
    {"PNG", "png", kUTTypePNG, VRFormatMediaTypePhoto},
    {"GIF", "gif", kUTTypeGIF, VRFormatMediaTypePhoto},
    {"HEIC", "heic", kUTTypeHEIC, VRFormatMediaTypePhoto},
    {"MP4", "mp4", kUTTypeMPEG4, VRFormatMediaTypeVideo},
    {"MOV", "mov", kUTTypeQuickTimeMovie, VRFormatMediaTypeVideo},
    {"M4V", "m4v", AVFileTypeAppleM4V, VRFormatMediaTypeVideo},
    {"3GP", "3gp", AVFileType3GPP, VRFormatMediaTypeVideo},
    {"3G2", "3g2", AVFileType3GPP2, VRFormatMediaTypeVideo},
};
constexpr TypeRow kWebPRow = {"WebP", "webp", kUTTypeWebP, VRFormatMediaTypePhoto};

const TypeRow* rowForType(std::uint64_t type) {
    if (type == VRFormatTypeWebP) return &kWebPRow;
    if (type < VRFormatTypeJPEG || type > VRFormatType3G2) return nullptr;
    return &kTypeRows[type - 1];
}

float clampedCompression(float compression) {
    if (std::isnan(compression)) return 0.0f;
    return std::clamp(compression, 0.0f, 1.0f);
}

bool isVideo(std::uint64_t mediaType) {
    return mediaType == VRFormatMediaTypeVideo;
}

}  // namespace

VRFormat::VRFormat(std::uint64_t type, std::uint64_t mediaType, float compression)
    : _compression(clampedCompression(compression)), _type(type), _mediaType(mediaType) {
    if (const TypeRow* row = rowForType(type)) _mediaType = row->mediaType;
}

VRFormat::VRFormat(std::uint64_t type, float compression)
    : VRFormat(type, VRFormatMediaTypePhoto, compression) {}

VRFormat VRFormat::formatWithType(std::uint64_t type, float compression) {
    return VRFormat(type, compression);
}

VRFormat VRFormat::formatWithTypeMediaType(std::uint64_t type, std::uint64_t mediaType) {
    const bool lossy =
        type == VRFormatTypeJPEG || type == VRFormatTypeHEIC || type == VRFormatTypeWebP;
    return VRFormat(type, mediaType, lossy ? 0.85f : 1.0f);
}

VRFormat VRFormat::formatWithType(std::uint64_t type) {
    return formatWithTypeMediaType(type, VRFormatMediaTypePhoto);
}

VRFormat VRFormat::formatFromUTI(const std::string& uti) {
    using TypeIdentifiers::typeConformsTo;
    std::uint64_t type = VRFormatTypeAuto;
    if (typeConformsTo(uti, kUTTypeJPEG)) {
        type = VRFormatTypeJPEG;
    } else if (typeConformsTo(uti, kUTTypePNG)) {
        type = VRFormatTypePNG;
    } else if (typeConformsTo(uti, kUTTypeGIF)) {
        type = VRFormatTypeGIF;
    } else if (typeConformsTo(uti, kUTTypeTIFF)) {
        type = VRFormatTypeTIFF;
    } else if (uti == kUTTypeHEIF || uti == kUTTypeHEIC) {
        type = VRFormatTypeHEIC;
    } else if (typeConformsTo(uti, kUTTypeQuickTimeMovie)) {
        type = VRFormatTypeMOV;
    } else if (typeConformsTo(uti, AVFileTypeAppleM4V)) {
        type = VRFormatTypeM4V;
    } else if (typeConformsTo(uti, kUTTypeMPEG4)) {
        type = VRFormatTypeMP4;
    } else if (typeConformsTo(uti, AVFileType3GPP)) {
        type = VRFormatType3GP;
    } else if (typeConformsTo(uti, AVFileType3GPP2)) {
        type = VRFormatType3G2;
    }
    return formatWithType(type);
}

VRFormat VRFormat::formatFromURL(const std::string& path) {
    const auto slash = path.find_last_of('/');
    const auto name = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0) return formatFromUTI("");
    return formatFromUTI(TypeIdentifiers::preferredIdentifierForExtension(name.substr(dot + 1)));
}

VRFormat VRFormat::formatFromData(const std::uint8_t* bytes, std::size_t length) {
    const std::string uti = TypeIdentifiers::identifierForData(bytes, length);
    if (!TypeIdentifiers::typeConformsTo(uti, kUTTypeImage)) return formatFromUTI("");
    return formatFromUTI(uti);
}

std::vector<VRFormat> VRFormat::availableFormats(unsigned deviceClass,
                                                 const std::vector<std::string>& imageWriters) {
    std::vector<VRFormat> formats{
        formatWithType(VRFormatTypeAuto), formatWithType(VRFormatTypePNG),
        formatWithType(VRFormatTypeJPEG), formatWithType(VRFormatTypeMOV),
        formatWithType(VRFormatTypeM4V),  formatWithType(VRFormatTypeMP4),
    };
    if (deviceClass != 0) {
        for (std::uint64_t type : {VRFormatTypeTIFF, VRFormatTypeHEIC}) {
            VRFormat format = formatWithType(type);
            if (std::find(imageWriters.begin(), imageWriters.end(), format.UTI()) !=
                imageWriters.end())
                formats.push_back(format);
        }
    }
    return formats;
}

// Built once; first used on the main thread, as the format menus are.
const std::vector<VRFormat>& VRFormat::availableFormats() {
    static const std::vector<VRFormat> formats =
        availableFormats(VXHelper::deviceClass(), platform::ImageDestination::typeIdentifiers());
    return formats;
}

std::vector<VRFormat> VRFormat::availableFormatsWithMediaType(std::uint64_t mediaType) {
    return availableFormatsWithMediaType(mediaType, availableFormats());
}

std::vector<VRFormat> VRFormat::availableFormatsWithMediaType(std::uint64_t mediaType,
                                                              const std::vector<VRFormat>& from) {
    std::vector<VRFormat> result;
    for (const VRFormat& format : from) {
        if (format.type() == VRFormatTypeAuto || format.mediaType() == mediaType)
            result.push_back(format);
    }
    return result;
}

void VRFormat::setCompression(float compression) {
    _compression = clampedCompression(compression);
}

std::string VRFormat::UTI() const {
    if (const TypeRow* row = rowForType(_type)) return row->uti;
    return isVideo(_mediaType) ? kUTTypeQuickTimeMovie : kUTTypeJPEG;
}

std::string VRFormat::name() const {
    if (const TypeRow* row = rowForType(_type)) return row->name;
    return _type == VRFormatTypeAuto ? "Auto" : "";
}

std::string VRFormat::extension() const {
    if (const TypeRow* row = rowForType(_type)) return row->extension;
    return isVideo(_mediaType) ? "mov" : "jpg";
}

std::uint64_t VRFormat::compressionPercent() const {
    return static_cast<std::uint64_t>(std::round(static_cast<double>(_compression) * 100.0));
}

bool VRFormat::supportsLivePhoto() const {
    return _type == VRFormatTypeAuto || _type == VRFormatTypeJPEG || _type == VRFormatTypeHEIC;
}

std::string VRFormat::description() const {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, " %f", static_cast<double>(_compression));
    return name() + buffer;
}

std::size_t VRFormat::hash() const {
    return 31 * std::hash<std::uint64_t>{}(_type) + std::hash<float>{}(_compression) + 961;
}

std::ostream& operator<<(std::ostream& out, const VRFormat& format) {
    return out << "VRFormat(" << format.description() << ", type " << format.rawType() << ", media "
               << format.mediaType() << ")";
}
