#include "photo/PhotoMetadata.h"

#include <cmath>
#include <ctime>

#include "model/VRFormat.h"
#include "model/VXHelperDevice.h"
#include "platform/ImagePropertyKeys.h"
#include "storage/VRSettings.h"

using namespace platform;

namespace {

constexpr const char* kDateFormat = "%Y:%m:%d %H:%M:%S";

// A family that is a dictionary, or nothing.
std::optional<PlistDictionary> familyOf(const PlistDictionary& metadata, const char* key) {
    auto it = metadata.find(key);
    if (it == metadata.end() || !it->second.dictionary()) return std::nullopt;
    return *it->second.dictionary();
}

std::optional<std::string> textOf(const std::optional<PlistDictionary>& family, const char* key) {
    if (!family) return std::nullopt;
    auto it = family->find(key);
    if (it == family->end() || !it->second.string()) return std::nullopt;
    return *it->second.string();
}

void setIfPresent(PlistDictionary& d, const char* key, const PlistValue& value) {
    auto it = d.find(key);
    if (it != d.end()) it->second = value;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

// XMP keeps no copy of what the settings removed from the other families.
void filterXmp(PlistDictionary& metadata, const VRPhotoMetadataSettings& settings) {
    auto xmp = familyOf(metadata, kImagePropertyXMPDictionary);
    if (!xmp) return;
    for (auto it = xmp->begin(); it != xmp->end();) {
        const std::string& key = it->first;
        const bool gps = startsWith(key, "Xmp.exif.GPS");
        const bool drop = (gps && !settings.shouldCopyGpsMetadata) ||
                          (!gps && !settings.shouldCopyExifMetadata &&
                           (startsWith(key, "Xmp.exif.") || startsWith(key, "Xmp.exifEX.") ||
                            startsWith(key, "Xmp.aux."))) ||
                          (!settings.shouldCopyIptcMetadata && startsWith(key, "Xmp.iptc"));
        it = drop ? xmp->erase(it) : std::next(it);
    }
    metadata[kImagePropertyXMPDictionary] = std::move(*xmp);
}

}  // namespace

VRPhotoMetadataSettings VRPhotoMetadataSettings::current() {
    VRPhotoMetadataSettings s;
    s.photoDPI = VRSettings::photoDPI();
    s.isPhotoDPIAuto = VRSettings::isPhotoDPIAuto();
    s.shouldCopyExifMetadata = VRSettings::shouldCopyExifMetadata();
    s.shouldCopyIptcMetadata = VRSettings::shouldCopyIptcMetadata();
    s.shouldCopyGpsMetadata = VRSettings::shouldCopyGpsMetadata();
    s.software = VXHelper::appFullName();
    return s;
}

std::string VRPhotoDateText(PlistDate date, const char* strftimeFormat) {
    const std::time_t t = static_cast<std::time_t>(std::floor(date.timeIntervalSince1970()));
    std::tm local{};
    localtime_r(&t, &local);
    char text[64];
    const std::size_t n = std::strftime(text, sizeof text, strftimeFormat, &local);
    return std::string(text, n);
}

std::optional<PlistDate> VRPhotoDateFromText(const std::string& text) {
    std::tm local{};
    const char* end = strptime(text.c_str(), kDateFormat, &local);
    if (!end || *end != '\0') return std::nullopt;
    local.tm_isdst = -1;
    const std::time_t t = std::mktime(&local);
    if (t == static_cast<std::time_t>(-1)) return std::nullopt;
    return PlistDate::fromTimeIntervalSince1970(static_cast<double>(t));
}

void VRUpdatePhotoMetadata(std::optional<PlistDictionary>& metadata, std::uint64_t formatType,
                           const std::optional<PlistDate>& assetCreationDate, CGSize imageSize,
                           const VRPhotoMetadataSettings& settings, PlistDate now) {
    if (!metadata) return;
    PlistDictionary& m = *metadata;

    const double d = std::round(settings.photoDPI);
    const bool fixedDPI = d > 0 && !settings.isPhotoDPIAuto;
    if (fixedDPI) {
        m[kCGImagePropertyDPIWidth] = settings.photoDPI;
        m[kCGImagePropertyDPIHeight] = settings.photoDPI;
    }

    const auto w = static_cast<std::int64_t>(std::round(imageSize.width));
    const auto h = static_cast<std::int64_t>(std::round(imageSize.height));
    m[kCGImagePropertyWidth] = w;
    m[kCGImagePropertyHeight] = h;
    setIfPresent(m, kCGImagePropertyPixelWidth, w);
    setIfPresent(m, kCGImagePropertyPixelHeight, h);
    m.erase(kCGImagePropertyOrientation);

    auto tiff = familyOf(m, kCGImagePropertyTIFFDictionary);
    auto png = familyOf(m, kCGImagePropertyPNGDictionary);
    auto exif = familyOf(m, kCGImagePropertyExifDictionary);
    auto jfif = familyOf(m, kCGImagePropertyJFIFDictionary);
    auto iptc = familyOf(m, kCGImagePropertyIPTCDictionary);
    auto heics = familyOf(m, kCGImagePropertyHEICSDictionary);

    // The date written in the file wins over the library's date.
    std::optional<std::string> sourceText = textOf(tiff, kCGImagePropertyTIFFDateTime);
    if (!sourceText) sourceText = textOf(exif, kCGImagePropertyExifDateTimeOriginal);
    if (!sourceText) sourceText = textOf(exif, kCGImagePropertyExifDateTimeDigitized);
    if (!sourceText) sourceText = textOf(png, kCGImagePropertyPNGCreationTime);
    if (!sourceText) sourceText = textOf(png, kCGImagePropertyPNGModificationTime);
    std::optional<PlistDate> date = sourceText ? VRPhotoDateFromText(*sourceText) : std::nullopt;
    if (!date) date = assetCreationDate;
    if (!date) date = now;
    const std::string dateText = VRPhotoDateText(*date, kDateFormat);
    const std::string nowText = VRPhotoDateText(now, kDateFormat);

    if (!tiff) tiff.emplace();
    (*tiff)[kCGImagePropertyTIFFDateTime] = dateText;
    (*tiff)[kCGImagePropertyTIFFSoftware] = settings.software;
    if (fixedDPI) {
        (*tiff)[kCGImagePropertyTIFFXResolution] = settings.photoDPI;
        (*tiff)[kCGImagePropertyTIFFYResolution] = settings.photoDPI;
        (*tiff)[kCGImagePropertyTIFFResolutionUnit] = 2;
    }
    tiff->erase(kCGImagePropertyTIFFOrientation);
    m[kCGImagePropertyTIFFDictionary] = std::move(*tiff);

    if (formatType == VRFormatTypePNG && !png) png.emplace();
    if (png) {
        (*png)[kCGImagePropertyPNGCreationTime] = dateText;
        (*png)[kCGImagePropertyPNGModificationTime] = nowText;
        (*png)[kCGImagePropertyPNGSoftware] = settings.software;
        m[kCGImagePropertyPNGDictionary] = std::move(*png);
    }

    if (formatType == VRFormatTypeJPEG && !jfif) jfif.emplace();
    if (jfif && fixedDPI) {
        (*jfif)[kCGImagePropertyJFIFXDensity] = static_cast<std::uint64_t>(d);
        (*jfif)[kCGImagePropertyJFIFYDensity] = static_cast<std::uint64_t>(d);
        (*jfif)[kCGImagePropertyJFIFDensityUnit] = 1;
        m[kCGImagePropertyJFIFDictionary] = std::move(*jfif);
    }

    // A disabled copy replaces EXIF by a dated family rather than removing it.
    if (!exif || !settings.shouldCopyExifMetadata) exif.emplace();
    (*exif)[kCGImagePropertyExifDateTimeOriginal] = dateText;
    if (!exif->count(kCGImagePropertyExifDateTimeDigitized))
        (*exif)[kCGImagePropertyExifDateTimeDigitized] = dateText;
    setIfPresent(*exif, kCGImagePropertyExifPixelXDimension, w);
    setIfPresent(*exif, kCGImagePropertyExifPixelYDimension, h);
    m[kCGImagePropertyExifDictionary] = std::move(*exif);

    if (heics) {
        setIfPresent(*heics, kCGImagePropertyHEICSCanvasPixelWidth, w);
        setIfPresent(*heics, kCGImagePropertyHEICSCanvasPixelHeight, h);
        m[kCGImagePropertyHEICSDictionary] = std::move(*heics);
    }

    if (!settings.shouldCopyIptcMetadata) {
        m.erase(kCGImagePropertyIPTCDictionary);
    } else if (iptc) {
        const std::string dateCreated = VRPhotoDateText(*date, "%Y%m%d");
        const std::string timeCreated = VRPhotoDateText(*date, "%H%M%S");
        (*iptc)[kCGImagePropertyIPTCDateCreated] = dateCreated;
        (*iptc)[kCGImagePropertyIPTCTimeCreated] = timeCreated;
        if (!iptc->count(kCGImagePropertyIPTCDigitalCreationDate)) {
            (*iptc)[kCGImagePropertyIPTCDigitalCreationDate] = dateCreated;
            (*iptc)[kCGImagePropertyIPTCDigitalCreationTime] = timeCreated;
        }
        iptc->erase(kCGImagePropertyIPTCImageOrientation);
        m[kCGImagePropertyIPTCDictionary] = std::move(*iptc);
    }

    if (!settings.shouldCopyGpsMetadata) m.erase(kCGImagePropertyGPSDictionary);
    filterXmp(m, settings);
}
