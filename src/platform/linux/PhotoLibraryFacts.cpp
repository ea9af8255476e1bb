#include "platform/linux/PhotoLibraryFacts.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <utility>

#include "platform/AVAsset.h"
#include "platform/AVAssetTrack.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVMetadataItem.h"
#include "platform/AVVideoCodecs.h"
#include "platform/CMTime.h"
#include "platform/ImageFormats.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"

namespace platform::photolibrary {
namespace {

// Apple writes the pairing key of a Live Photo into the movie's QuickTime metadata and into
// the still's XMP (namespace http://ns.apple.com/faceinfo/1.0/, prefix apple-fi).
constexpr const char* kMovieContentIdentifier = "com.apple.quicktime.content.identifier";
constexpr const char* kStillContentIdentifier = "Xmp.apple-fi.ContentIdentifier";

const PlistValue* find(const PlistDictionary& d, const char* key) {
    auto it = d.find(key);
    return it == d.end() ? nullptr : &it->second;
}

const PlistDictionary* family(const PlistDictionary& d, const char* key) {
    const PlistValue* v = find(d, key);
    return v ? v->dictionary() : nullptr;
}

std::string stringOf(const PlistDictionary* d, const char* key) {
    if (!d) return {};
    const PlistValue* v = find(*d, key);
    return v && v->string() ? *v->string() : std::string();
}

std::optional<PHLocation> gpsLocation(const PlistDictionary* gps) {
    if (!gps) return std::nullopt;
    const PlistValue* lat = find(*gps, kCGImagePropertyGPSLatitude);
    const PlistValue* lon = find(*gps, kCGImagePropertyGPSLongitude);
    if (!lat || !lon || !lat->isNumber() || !lon->isNumber()) return std::nullopt;
    PHLocation place{lat->doubleValue(), lon->doubleValue()};
    if (stringOf(gps, kCGImagePropertyGPSLatitudeRef) == "S") place.latitude = -place.latitude;
    if (stringOf(gps, kCGImagePropertyGPSLongitudeRef) == "W") place.longitude = -place.longitude;
    return place;
}

void readPhoto(const std::string& path, FileFacts& facts) {
    auto source = ImageSource::createWithURL(path);
    if (!source) return;
    facts.pixelWidth = source->pixelWidth();
    facts.pixelHeight = source->pixelHeight();
    auto props = source->copyPropertiesAtIndex(0);
    if (!props) return;
    if (const PlistValue* o = find(*props, kCGImagePropertyOrientation); o && o->isNumber()) {
        if (o->integerValue() >= 5 && o->integerValue() <= 8)
            std::swap(facts.pixelWidth, facts.pixelHeight);
    }
    const PlistDictionary* exif = family(*props, kCGImagePropertyExifDictionary);
    std::string date = stringOf(exif, kCGImagePropertyExifDateTimeOriginal);
    if (date.empty()) date = stringOf(exif, kCGImagePropertyExifDateTimeDigitized);
    if (date.empty())
        date =
            stringOf(family(*props, kCGImagePropertyTIFFDictionary), kCGImagePropertyTIFFDateTime);
    facts.creationDate = parseExifDate(date, stringOf(exif, "OffsetTimeOriginal"));
    facts.location = gpsLocation(family(*props, kCGImagePropertyGPSDictionary));
    facts.contentIdentifier =
        stringOf(family(*props, kImagePropertyXMPDictionary), kStillContentIdentifier);
}

void readMovie(const std::string& path, FileFacts& facts) {
    auto asset = AVAsset::assetWithURL(path);
    if (auto duration = asset->loadDuration()) facts.duration = CMTimeGetSeconds(duration.value());
    if (auto tracks = asset->loadTracksWithMediaType(AVMediaTypeVideo);
        tracks && !tracks.value().empty()) {
        const auto& track = tracks.value().front();
        CGSize size = track->loadNaturalSize().valueOr(CGSizeZero);
        CGAffineTransform t = track->loadPreferredTransform().valueOr(CGAffineTransform{});
        // A quarter turn shows the picture on its side.
        if (std::fabs(t.a) < 1e-6 && std::fabs(t.d) < 1e-6) std::swap(size.width, size.height);
        facts.pixelWidth = static_cast<std::uint32_t>(std::lround(size.width));
        facts.pixelHeight = static_cast<std::uint32_t>(std::lround(size.height));
    }
    auto items = asset->loadMetadata();
    if (!items) return;
    std::optional<PlistDate> quickTimeDate, commonDate;
    for (const auto& item : items.value()) {
        auto key = item.stringKey();
        if (!key) continue;
        if (*key == kMovieContentIdentifier)
            facts.contentIdentifier = item.stringValue().value_or("");
        else if (*key == AVMetadataQuickTimeMetadataKeyCreationDate)
            quickTimeDate = item.dateValue();
        else if (*key == AVMetadataCommonKeyCreationDate)
            commonDate = item.dateValue();
        else if (*key == AVMetadataQuickTimeMetadataKeyLocationISO6709 && item.stringValue())
            facts.location = parseISO6709(*item.stringValue());
    }
    facts.creationDate = quickTimeDate ? quickTimeDate : commonDate;
}

}  // namespace

PHAssetMediaType mediaTypeForPath(const std::string& path) {
    auto dot = path.rfind('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos)
        return PHAssetMediaTypeUnknown;
    const std::string ext = path.substr(dot + 1);
    // Every photo format the codecs read belongs in the library, so the codec table decides.
    if (platform::imageFormatForExtension(ext)) return PHAssetMediaTypeImage;
    // Movies: the files of the containers the program writes.
    if (movieContainerWithExtension(ext)) return PHAssetMediaTypeVideo;
    return PHAssetMediaTypeUnknown;
}

FileFacts readFileFacts(const std::string& path) {
    FileFacts facts;
    facts.mediaType = mediaTypeForPath(path);
    if (facts.mediaType == PHAssetMediaTypeImage) readPhoto(path, facts);
    if (facts.mediaType == PHAssetMediaTypeVideo) readMovie(path, facts);
    return facts;
}

std::optional<PlistDate> parseExifDate(const std::string& text, const std::string& offset) {
    std::tm tm{};
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%4d:%2d:%2d %2d:%2d:%2d%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                    &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &consumed) != 6 ||
        tm.tm_year < 1 || tm.tm_mon < 1 || tm.tm_mon > 12 || tm.tm_mday < 1 || tm.tm_mday > 31)
        return std::nullopt;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    int sign = 0, hours = 0, minutes = 0;
    char s = 0;
    if (std::sscanf(offset.c_str(), "%c%2d:%2d", &s, &hours, &minutes) == 3 &&
        (s == '+' || s == '-'))
        sign = s == '+' ? 1 : -1;
    if (sign != 0) {
        time_t utc = timegm(&tm) - sign * (hours * 3600 + minutes * 60);
        return PlistDate::fromTimeIntervalSince1970(static_cast<double>(utc));
    }
    tm.tm_isdst = -1;
    return PlistDate::fromTimeIntervalSince1970(static_cast<double>(mktime(&tm)));
}

std::optional<PHLocation> parseISO6709(const std::string& text) {
    double lat = 0, lon = 0;
    int n = 0;
    if (std::sscanf(text.c_str(), "%lf%lf%n", &lat, &lon, &n) != 2) return std::nullopt;
    if (text[0] != '+' && text[0] != '-') return std::nullopt;
    if (std::fabs(lat) > 90 || std::fabs(lon) > 180) return std::nullopt;
    return PHLocation{lat, lon};
}

}  // namespace platform::photolibrary
