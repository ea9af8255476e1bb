// EXIF, GPS, IPTC and XMP between exiv2 and the property families, keyed as the platform keys
// them. exiv2 throws; every call is caught here. Its headers use std::auto_ptr, which C++20
// marks deprecated, hence the pragma around them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <sstream>

#include "platform/ImagePropertyKeys.h"
#include "platform/Log.h"
#include "platform/linux/ImageCodecs.h"

namespace platform::codecs {
namespace {

enum class Kind { Plain, Version, GPSCoordinate, GPSTime, Comment };

struct ExifTag {
    const char* family;
    const char* key;
    const char* exiv2;
    Kind kind = Kind::Plain;
};

const ExifTag kExifTags[] = {
    {"{TIFF}", "Make", "Exif.Image.Make"},
    {"{TIFF}", "Model", "Exif.Image.Model"},
    {"{TIFF}", "Software", "Exif.Image.Software"},
    {"{TIFF}", "DateTime", "Exif.Image.DateTime"},
    {"{TIFF}", "Artist", "Exif.Image.Artist"},
    {"{TIFF}", "Copyright", "Exif.Image.Copyright"},
    {"{TIFF}", "ImageDescription", "Exif.Image.ImageDescription"},
    {"{TIFF}", "HostComputer", "Exif.Image.HostComputer"},
    {"{TIFF}", "DocumentName", "Exif.Image.DocumentName"},
    {"{TIFF}", "XResolution", "Exif.Image.XResolution"},
    {"{TIFF}", "YResolution", "Exif.Image.YResolution"},
    {"{TIFF}", "ResolutionUnit", "Exif.Image.ResolutionUnit"},
    {"{TIFF}", "Orientation", "Exif.Image.Orientation"},
    {"{Exif}", "ExposureTime", "Exif.Photo.ExposureTime"},
    {"{Exif}", "FNumber", "Exif.Photo.FNumber"},
    {"{Exif}", "ExposureProgram", "Exif.Photo.ExposureProgram"},
    {"{Exif}", "SpectralSensitivity", "Exif.Photo.SpectralSensitivity"},
    {"{Exif}", "ISOSpeedRatings", "Exif.Photo.ISOSpeedRatings"},
    {"{Exif}", "ExifVersion", "Exif.Photo.ExifVersion", Kind::Version},
    {"{Exif}", "DateTimeOriginal", "Exif.Photo.DateTimeOriginal"},
    {"{Exif}", "DateTimeDigitized", "Exif.Photo.DateTimeDigitized"},
    {"{Exif}", "OffsetTime", "Exif.Photo.OffsetTime"},
    {"{Exif}", "OffsetTimeOriginal", "Exif.Photo.OffsetTimeOriginal"},
    {"{Exif}", "OffsetTimeDigitized", "Exif.Photo.OffsetTimeDigitized"},
    {"{Exif}", "ComponentsConfiguration", "Exif.Photo.ComponentsConfiguration"},
    {"{Exif}", "CompressedBitsPerPixel", "Exif.Photo.CompressedBitsPerPixel"},
    {"{Exif}", "ShutterSpeedValue", "Exif.Photo.ShutterSpeedValue"},
    {"{Exif}", "ApertureValue", "Exif.Photo.ApertureValue"},
    {"{Exif}", "BrightnessValue", "Exif.Photo.BrightnessValue"},
    {"{Exif}", "ExposureBiasValue", "Exif.Photo.ExposureBiasValue"},
    {"{Exif}", "MaxApertureValue", "Exif.Photo.MaxApertureValue"},
    {"{Exif}", "SubjectDistance", "Exif.Photo.SubjectDistance"},
    {"{Exif}", "MeteringMode", "Exif.Photo.MeteringMode"},
    {"{Exif}", "LightSource", "Exif.Photo.LightSource"},
    {"{Exif}", "Flash", "Exif.Photo.Flash"},
    {"{Exif}", "FocalLength", "Exif.Photo.FocalLength"},
    {"{Exif}", "SubjectArea", "Exif.Photo.SubjectArea"},
    {"{Exif}", "UserComment", "Exif.Photo.UserComment", Kind::Comment},
    {"{Exif}", "SubsecTime", "Exif.Photo.SubSecTime"},
    {"{Exif}", "SubsecTimeOriginal", "Exif.Photo.SubSecTimeOriginal"},
    {"{Exif}", "SubsecTimeDigitized", "Exif.Photo.SubSecTimeDigitized"},
    {"{Exif}", "FlashPixVersion", "Exif.Photo.FlashpixVersion", Kind::Version},
    {"{Exif}", "ColorSpace", "Exif.Photo.ColorSpace"},
    {"{Exif}", "PixelXDimension", "Exif.Photo.PixelXDimension"},
    {"{Exif}", "PixelYDimension", "Exif.Photo.PixelYDimension"},
    {"{Exif}", "FocalPlaneXResolution", "Exif.Photo.FocalPlaneXResolution"},
    {"{Exif}", "FocalPlaneYResolution", "Exif.Photo.FocalPlaneYResolution"},
    {"{Exif}", "FocalPlaneResolutionUnit", "Exif.Photo.FocalPlaneResolutionUnit"},
    {"{Exif}", "ExposureIndex", "Exif.Photo.ExposureIndex"},
    {"{Exif}", "SensingMethod", "Exif.Photo.SensingMethod"},
    {"{Exif}", "FileSource", "Exif.Photo.FileSource"},
    {"{Exif}", "SceneType", "Exif.Photo.SceneType"},
    {"{Exif}", "CustomRendered", "Exif.Photo.CustomRendered"},
    {"{Exif}", "ExposureMode", "Exif.Photo.ExposureMode"},
    {"{Exif}", "WhiteBalance", "Exif.Photo.WhiteBalance"},
    {"{Exif}", "DigitalZoomRatio", "Exif.Photo.DigitalZoomRatio"},
    {"{Exif}", "FocalLenIn35mmFilm", "Exif.Photo.FocalLengthIn35mmFilm"},
    {"{Exif}", "SceneCaptureType", "Exif.Photo.SceneCaptureType"},
    {"{Exif}", "GainControl", "Exif.Photo.GainControl"},
    {"{Exif}", "Contrast", "Exif.Photo.Contrast"},
    {"{Exif}", "Saturation", "Exif.Photo.Saturation"},
    {"{Exif}", "Sharpness", "Exif.Photo.Sharpness"},
    {"{Exif}", "SubjectDistRange", "Exif.Photo.SubjectDistanceRange"},
    {"{Exif}", "ImageUniqueID", "Exif.Photo.ImageUniqueID"},
    {"{Exif}", "CameraOwnerName", "Exif.Photo.CameraOwnerName"},
    {"{Exif}", "BodySerialNumber", "Exif.Photo.BodySerialNumber"},
    {"{Exif}", "LensSpecification", "Exif.Photo.LensSpecification"},
    {"{Exif}", "LensMake", "Exif.Photo.LensMake"},
    {"{Exif}", "LensModel", "Exif.Photo.LensModel"},
    {"{Exif}", "LensSerialNumber", "Exif.Photo.LensSerialNumber"},
    {"{GPS}", "Version", "Exif.GPSInfo.GPSVersionID"},
    {"{GPS}", "LatitudeRef", "Exif.GPSInfo.GPSLatitudeRef"},
    {"{GPS}", "Latitude", "Exif.GPSInfo.GPSLatitude", Kind::GPSCoordinate},
    {"{GPS}", "LongitudeRef", "Exif.GPSInfo.GPSLongitudeRef"},
    {"{GPS}", "Longitude", "Exif.GPSInfo.GPSLongitude", Kind::GPSCoordinate},
    {"{GPS}", "AltitudeRef", "Exif.GPSInfo.GPSAltitudeRef"},
    {"{GPS}", "Altitude", "Exif.GPSInfo.GPSAltitude"},
    {"{GPS}", "TimeStamp", "Exif.GPSInfo.GPSTimeStamp", Kind::GPSTime},
    {"{GPS}", "Satellites", "Exif.GPSInfo.GPSSatellites"},
    {"{GPS}", "Status", "Exif.GPSInfo.GPSStatus"},
    {"{GPS}", "MeasureMode", "Exif.GPSInfo.GPSMeasureMode"},
    {"{GPS}", "DOP", "Exif.GPSInfo.GPSDOP"},
    {"{GPS}", "SpeedRef", "Exif.GPSInfo.GPSSpeedRef"},
    {"{GPS}", "Speed", "Exif.GPSInfo.GPSSpeed"},
    {"{GPS}", "TrackRef", "Exif.GPSInfo.GPSTrackRef"},
    {"{GPS}", "Track", "Exif.GPSInfo.GPSTrack"},
    {"{GPS}", "ImgDirectionRef", "Exif.GPSInfo.GPSImgDirectionRef"},
    {"{GPS}", "ImgDirection", "Exif.GPSInfo.GPSImgDirection"},
    {"{GPS}", "MapDatum", "Exif.GPSInfo.GPSMapDatum"},
    {"{GPS}", "DestLatRef", "Exif.GPSInfo.GPSDestLatitudeRef"},
    {"{GPS}", "DestLat", "Exif.GPSInfo.GPSDestLatitude", Kind::GPSCoordinate},
    {"{GPS}", "DestLongRef", "Exif.GPSInfo.GPSDestLongitudeRef"},
    {"{GPS}", "DestLong", "Exif.GPSInfo.GPSDestLongitude", Kind::GPSCoordinate},
    {"{GPS}", "DestBearingRef", "Exif.GPSInfo.GPSDestBearingRef"},
    {"{GPS}", "DestBearing", "Exif.GPSInfo.GPSDestBearing"},
    {"{GPS}", "DestDistanceRef", "Exif.GPSInfo.GPSDestDistanceRef"},
    {"{GPS}", "DestDistance", "Exif.GPSInfo.GPSDestDistance"},
    {"{GPS}", "DateStamp", "Exif.GPSInfo.GPSDateStamp"},
    {"{GPS}", "Differental", "Exif.GPSInfo.GPSDifferential"},
    {"{GPS}", "HPositioningError", "Exif.GPSInfo.GPSHPositioningError"},
};

struct IptcTag {
    const char* key;
    const char* exiv2;
    bool repeated = false;
};

const IptcTag kIptcTags[] = {
    {"ObjectName", "Iptc.Application2.ObjectName"},
    {"Urgency", "Iptc.Application2.Urgency"},
    {"Category", "Iptc.Application2.Category"},
    {"SupplementalCategory", "Iptc.Application2.SuppCategory", true},
    {"Keywords", "Iptc.Application2.Keywords", true},
    {"SpecialInstructions", "Iptc.Application2.SpecialInstructions"},
    {"DateCreated", "Iptc.Application2.DateCreated"},
    {"TimeCreated", "Iptc.Application2.TimeCreated"},
    {"DigitalCreationDate", "Iptc.Application2.DigitizationDate"},
    {"DigitalCreationTime", "Iptc.Application2.DigitizationTime"},
    {"OriginatingProgram", "Iptc.Application2.Program"},
    {"ProgramVersion", "Iptc.Application2.ProgramVersion"},
    {"By-line", "Iptc.Application2.Byline", true},
    {"By-lineTitle", "Iptc.Application2.BylineTitle", true},
    {"City", "Iptc.Application2.City"},
    {"Sub-location", "Iptc.Application2.SubLocation"},
    {"Province/State", "Iptc.Application2.ProvinceState"},
    {"Country/PrimaryLocationCode", "Iptc.Application2.CountryCode"},
    {"Country/PrimaryLocationName", "Iptc.Application2.CountryName"},
    {"OriginalTransmissionReference", "Iptc.Application2.TransmissionReference"},
    {"Headline", "Iptc.Application2.Headline"},
    {"Credit", "Iptc.Application2.Credit"},
    {"Source", "Iptc.Application2.Source"},
    {"CopyrightNotice", "Iptc.Application2.Copyright"},
    {"Contact", "Iptc.Application2.Contact", true},
    {"Caption/Abstract", "Iptc.Application2.Caption"},
    {"Writer/Editor", "Iptc.Application2.Writer", true},
    {"ImageOrientation", "Iptc.Application2.ImageOrientation"},
};

void initialiseExiv2() {
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
    });
}

bool isRational(Exiv2::TypeId t) {
    return t == Exiv2::unsignedRational || t == Exiv2::signedRational;
}

bool isInteger(Exiv2::TypeId t) {
    switch (t) {
        case Exiv2::unsignedByte:
        case Exiv2::unsignedShort:
        case Exiv2::unsignedLong:
        case Exiv2::signedByte:
        case Exiv2::signedShort:
        case Exiv2::signedLong:
            return true;
        default:
            return false;
    }
}

double rationalAt(const Exiv2::Value& v, long i) {
    Exiv2::Rational r = v.toRational(i);
    return r.second == 0 ? 0.0 : static_cast<double>(r.first) / r.second;
}

PlistValue integerArray(const std::vector<std::int64_t>& values) {
    PlistArray a(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) a[i] = PlistValue(values[i]);
    return PlistValue(std::move(a));
}

PlistValue plainValue(const Exiv2::Value& v) {
    long n = v.count();
    Exiv2::TypeId t = v.typeId();
    if (isRational(t) || isInteger(t)) {
        auto at = [&](long i) -> PlistValue {
            if (isRational(t)) return rationalAt(v, i);
            return static_cast<std::int64_t>(v.toLong(i));
        };
        if (n == 1) return at(0);
        PlistArray a;
        for (long i = 0; i < n && i < 256; ++i) a.push_back(at(i));
        return a;
    }
    if (t == Exiv2::undefined) {
        if (n <= 8) {
            if (n == 1) return static_cast<std::int64_t>(v.toLong(0));
            std::vector<std::int64_t> values;
            for (long i = 0; i < n; ++i) values.push_back(v.toLong(i));
            return integerArray(values);
        }
        PlistData data(static_cast<std::size_t>(v.size()));
        v.copy(data.data(), Exiv2::bigEndian);
        return data;
    }
    std::string s = v.toString();
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return s;
}

PlistValue exifValue(const Exiv2::Exifdatum& d, Kind kind) {
    const Exiv2::Value& v = d.value();
    switch (kind) {
        case Kind::Version: {
            // Four ASCII digits, "0231", as the platform's [2, 3, 1].
            std::string s(static_cast<std::size_t>(v.size()), '\0');
            v.copy(reinterpret_cast<Exiv2::byte*>(s.data()), Exiv2::bigEndian);
            std::vector<std::int64_t> digits;
            for (std::size_t i = 0; i < s.size(); ++i)
                if (s[i] >= '0' && s[i] <= '9' && !(i == 0 && s[i] == '0'))
                    digits.push_back(s[i] - '0');
            return integerArray(digits);
        }
        case Kind::GPSCoordinate:
            if (v.count() == 3)
                return rationalAt(v, 0) + rationalAt(v, 1) / 60.0 + rationalAt(v, 2) / 3600.0;
            return plainValue(v);
        case Kind::GPSTime: {
            if (v.count() != 3) return plainValue(v);
            char text[32];
            std::snprintf(text, sizeof text, "%02d:%02d:%05.2f", static_cast<int>(rationalAt(v, 0)),
                          static_cast<int>(rationalAt(v, 1)), rationalAt(v, 2));
            return std::string(text);
        }
        case Kind::Comment: {
            auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&v);
            return comment ? comment->comment() : v.toString();
        }
        case Kind::Plain:
            break;
    }
    return plainValue(v);
}

void exifToFamilies(const Exiv2::ExifData& exif, PlistDictionary& properties) {
    for (const auto& tag : kExifTags) {
        auto it = exif.findKey(Exiv2::ExifKey(tag.exiv2));
        if (it == exif.end()) continue;
        PlistValue value = exifValue(*it, tag.kind);
        auto& family = properties[tag.family];
        if (!family.isDictionary()) family = PlistDictionary{};
        (*family.mutableDictionary())[tag.key] = std::move(value);
    }
    const PlistValue& orientation = properties["{TIFF}"]["Orientation"];
    if (orientation.isInteger()) properties[kCGImagePropertyOrientation] = orientation;
}

std::string withoutSeparators(std::string s, const char* separators) {
    std::string out;
    for (char c : s)
        if (!std::strchr(separators, c)) out.push_back(c);
    return out;
}

void iptcToFamily(const Exiv2::IptcData& iptc, PlistDictionary& properties) {
    PlistDictionary family;
    for (const auto& tag : kIptcTags) {
        Exiv2::IptcKey key(tag.exiv2);
        PlistArray values;
        for (const auto& d : iptc) {
            if (d.key() != key.key()) continue;
            std::string text = d.toString();
            if (std::strcmp(tag.key, "DateCreated") == 0 ||
                std::strcmp(tag.key, "DigitalCreationDate") == 0)
                text = withoutSeparators(text, "-");
            if (std::strcmp(tag.key, "TimeCreated") == 0 ||
                std::strcmp(tag.key, "DigitalCreationTime") == 0)
                text = withoutSeparators(text, ":");
            values.push_back(text);
        }
        if (values.empty()) continue;
        family[tag.key] = tag.repeated ? PlistValue(values) : values.front();
    }
    if (!family.empty()) properties[kCGImagePropertyIPTCDictionary] = std::move(family);
}

void xmpToFamily(const Exiv2::XmpData& xmp, PlistDictionary& properties) {
    PlistDictionary family;
    for (const auto& d : xmp) family[d.key()] = d.toString();
    if (!family.empty()) properties[kImagePropertyXMPDictionary] = std::move(family);
}

// ---- writing ----

std::string rationalText(double value, bool isSigned) {
    if (!std::isfinite(value)) value = 0;
    Exiv2::Rational r = Exiv2::floatToRationalCast(static_cast<float>(value));
    if (!isSigned && r.first < 0) r.first = -r.first;
    // Whole numbers and common fractions keep exact denominators.
    double whole = std::round(value);
    if (std::fabs(value - whole) < 1e-9 && std::fabs(whole) < 2e9)
        return std::to_string(
                   static_cast<long long>(std::fabs(whole) * (isSigned && whole < 0 ? -1 : 1))) +
               "/1";
    if (std::fabs(value) < 2e4) {
        long long n = std::llround(value * 10000);
        return std::to_string(isSigned ? n : std::llabs(n)) + "/10000";
    }
    return std::to_string(r.first) + "/" + std::to_string(r.second);
}

std::string numberText(const PlistValue& v, Exiv2::TypeId type) {
    if (isRational(type)) return rationalText(v.doubleValue(), type == Exiv2::signedRational);
    if (v.isReal()) return std::to_string(std::llround(v.doubleValue()));
    return std::to_string(v.integerValue());
}

std::string gpsCoordinateText(double degrees) {
    degrees = std::fabs(degrees);
    double d = std::floor(degrees);
    double m = std::floor((degrees - d) * 60);
    double s = (degrees - d - m / 60) * 3600;
    return std::to_string(static_cast<long long>(d)) + "/1 " +
           std::to_string(static_cast<long long>(m)) + "/1 " +
           std::to_string(std::llround(s * 10000)) + "/10000";
}

bool setExif(Exiv2::ExifData& exif, const ExifTag& tag, const PlistValue& value) {
    Exiv2::ExifKey key(tag.exiv2);
    Exiv2::TypeId type = key.defaultTypeId();
    std::string text;
    switch (tag.kind) {
        case Kind::Version: {
            if (const auto* a = value.array()) {
                std::string digits;
                for (const auto& d : *a) digits += std::to_string(d.integerValue() % 10);
                while (digits.size() < 4) digits.insert(digits.begin(), '0');
                for (char c : digits) text += std::to_string(static_cast<int>(c)) + " ";
            }
            break;
        }
        case Kind::GPSCoordinate:
            if (value.isNumber()) text = gpsCoordinateText(value.doubleValue());
            break;
        case Kind::GPSTime:
            if (const auto* s = value.string()) {
                double h = 0, m = 0, sec = 0;
                if (std::sscanf(s->c_str(), "%lf:%lf:%lf", &h, &m, &sec) == 3)
                    text = rationalText(h, false) + " " + rationalText(m, false) + " " +
                           rationalText(sec, false);
            }
            break;
        case Kind::Comment:
            if (const auto* s = value.string()) text = "charset=Ascii " + *s;
            break;
        case Kind::Plain:
            if (const auto* s = value.string()) {
                text = *s;
            } else if (value.isNumber()) {
                text = numberText(value, type);
            } else if (const auto* a = value.array()) {
                for (const auto& e : *a)
                    if (e.isNumber()) text += numberText(e, type) + " ";
            }
            break;
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    if (text.empty()) return false;
    if (type == Exiv2::undefined && tag.kind == Kind::Plain && value.isNumber())
        text = std::to_string(value.integerValue());
    exif[tag.exiv2].setValue(text);
    return true;
}

const PlistDictionary* familyOf(const PlistDictionary& properties, const char* key) {
    auto it = properties.find(key);
    return it == properties.end() ? nullptr : it->second.dictionary();
}

void familiesToExif(const PlistDictionary& properties, Exiv2::ExifData& exif) {
    for (const auto& tag : kExifTags) {
        const PlistDictionary* family = familyOf(properties, tag.family);
        if (!family) continue;
        auto it = family->find(tag.key);
        if (it == family->end() || std::strcmp(tag.key, "Orientation") == 0) continue;
        try {
            setExif(exif, tag, it->second);
        } catch (const std::exception& e) {
            platform::logf("~~ IMAGE: metadata %s not written: %s", tag.exiv2, e.what());
        }
    }
    const PlistValue& orientation = properties.count(kCGImagePropertyOrientation)
                                        ? properties.at(kCGImagePropertyOrientation)
                                        : PlistValue();
    int o = orientation.isNumber() ? static_cast<int>(orientation.integerValue()) : 1;
    exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(o >= 1 && o <= 8 ? o : 1);
    auto dpi = [&](const char* key) -> double {
        auto it = properties.find(key);
        return it != properties.end() && it->second.isNumber() ? it->second.doubleValue() : 0;
    };
    if (dpi(kCGImagePropertyDPIWidth) > 0 && dpi(kCGImagePropertyDPIHeight) > 0) {
        exif["Exif.Image.XResolution"].setValue(rationalText(dpi(kCGImagePropertyDPIWidth), false));
        exif["Exif.Image.YResolution"].setValue(
            rationalText(dpi(kCGImagePropertyDPIHeight), false));
        exif["Exif.Image.ResolutionUnit"] = static_cast<std::uint16_t>(2);
    }
}

std::string dashedDate(const std::string& s) {
    std::string d = withoutSeparators(s, "-:");
    if (d.size() == 8) return d.substr(0, 4) + "-" + d.substr(4, 2) + "-" + d.substr(6, 2);
    return s;
}

std::string colonTime(const std::string& s) {
    std::string t = withoutSeparators(s, ":");
    if (t.size() < 6) return s;
    std::string out = t.substr(0, 2) + ":" + t.substr(2, 2) + ":" + t.substr(4, 2);
    std::string zone = t.substr(6);
    if (zone.size() == 5) return out + zone.substr(0, 3) + ":" + zone.substr(3);
    return out + "+00:00";
}

void familyToIptc(const PlistDictionary& properties, Exiv2::IptcData& iptc) {
    const PlistDictionary* family = familyOf(properties, kCGImagePropertyIPTCDictionary);
    if (!family) return;
    for (const auto& tag : kIptcTags) {
        auto it = family->find(tag.key);
        if (it == family->end()) continue;
        std::vector<std::string> texts;
        if (const auto* a = it->second.array()) {
            for (const auto& e : *a)
                if (e.string()) texts.push_back(*e.string());
        } else if (const auto* s = it->second.string()) {
            texts.push_back(*s);
        } else if (it->second.isNumber()) {
            texts.push_back(std::to_string(it->second.integerValue()));
        }
        for (auto text : texts) {
            if (std::strstr(tag.key, "Date")) text = dashedDate(text);
            if (std::strstr(tag.key, "Time")) text = colonTime(text);
            try {
                Exiv2::Iptcdatum d{Exiv2::IptcKey(tag.exiv2)};
                d.setValue(text);
                iptc.add(d);
            } catch (const std::exception& e) {
                platform::logf("~~ IMAGE: metadata %s not written: %s", tag.exiv2, e.what());
            }
        }
        if (!tag.repeated && texts.size() > 1) break;
    }
}

// XMP properties that would contradict the written image, or leak what the caller removed.
bool keepXmp(const std::string& key, const PlistDictionary& properties) {
    if (key == "Xmp.tiff.Orientation" || key == "Xmp.exif.PixelXDimension" ||
        key == "Xmp.exif.PixelYDimension" || key == "Xmp.tiff.ImageWidth" ||
        key == "Xmp.tiff.ImageLength")
        return false;
    if (key.rfind("Xmp.exif.GPS", 0) == 0 && !familyOf(properties, kCGImagePropertyGPSDictionary))
        return false;
    if (key.rfind("Xmp.iptc", 0) == 0 && !familyOf(properties, kCGImagePropertyIPTCDictionary))
        return false;
    return true;
}

void familyToXmp(const PlistDictionary& properties, Exiv2::XmpData& xmp) {
    const PlistDictionary* family = familyOf(properties, kImagePropertyXMPDictionary);
    if (!family) return;
    for (const auto& [key, value] : *family) {
        if (!value.string() || !keepXmp(key, properties)) continue;
        try {
            xmp[key].setValue(*value.string());
        } catch (const std::exception& e) {
            platform::logf("~~ IMAGE: metadata %s not written: %s", key.c_str(), e.what());
        }
    }
}

}  // namespace

void readMetadataFromFile(Bytes data, std::size_t size, PlistDictionary& properties) {
    initialiseExiv2();
    Exiv2::Image::AutoPtr image;
    try {
        image = Exiv2::ImageFactory::open(data, static_cast<long>(size));
        if (!image.get()) return;
        image->readMetadata();
    } catch (const std::exception& e) {
        // exiv2 stops at the first block it refuses (a damaged colour profile, say); the
        // blocks it had read before that are whole and still carried over.
        platform::logf("~~ IMAGE: metadata read in part: %s", e.what());
        if (!image.get()) return;
    }
    try {
        exifToFamilies(image->exifData(), properties);
        iptcToFamily(image->iptcData(), properties);
        xmpToFamily(image->xmpData(), properties);
    } catch (const std::exception& e) {
        platform::logf("~~ IMAGE: metadata not read: %s", e.what());
    }
}

void readExifBlock(Bytes data, std::size_t size, PlistDictionary& properties) {
    initialiseExiv2();
    try {
        Exiv2::ExifData exif;
        // Some writers keep the "Exif\0\0" prefix of the JPEG segment.
        if (size > 6 && std::memcmp(data, "Exif\0\0", 6) == 0) data += 6, size -= 6;
        Exiv2::ExifParser::decode(exif, data, static_cast<std::uint32_t>(size));
        exifToFamilies(exif, properties);
    } catch (const std::exception& e) {
        platform::logf("~~ IMAGE: EXIF not read: %s", e.what());
    }
}

void readXmpPacket(const std::string& packet, PlistDictionary& properties) {
    initialiseExiv2();
    try {
        Exiv2::XmpData xmp;
        if (Exiv2::XmpParser::decode(xmp, packet) == 0) xmpToFamily(xmp, properties);
    } catch (const std::exception& e) {
        platform::logf("~~ IMAGE: XMP not read: %s", e.what());
    }
}

bool writeMetadataToFile(const std::string& path, const PlistDictionary& properties,
                         std::string& why) {
    initialiseExiv2();
    try {
        auto image = Exiv2::ImageFactory::open(path);
        if (!image.get()) return why = "metadata writer cannot open the file", false;
        Exiv2::ExifData exif;
        Exiv2::IptcData iptc;
        Exiv2::XmpData xmp;
        familiesToExif(properties, exif);
        familyToIptc(properties, iptc);
        familyToXmp(properties, xmp);
        image->readMetadata();
        image->setExifData(exif);
        image->setIptcData(iptc);
        image->setXmpData(xmp);
        image->writeMetadata();
        return true;
    } catch (const std::exception& e) {
        why = std::string("metadata not written: ") + e.what();
        return false;
    }
}

std::vector<std::uint8_t> encodeExifBlock(const PlistDictionary& properties) {
    initialiseExiv2();
    try {
        Exiv2::ExifData exif;
        familiesToExif(properties, exif);
        Exiv2::Blob blob;
        Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
        return blob;
    } catch (const std::exception& e) {
        platform::logf("~~ IMAGE: EXIF not encoded: %s", e.what());
        return {};
    }
}

std::string encodeXmpPacket(const PlistDictionary& properties) {
    initialiseExiv2();
    try {
        Exiv2::XmpData xmp;
        familyToXmp(properties, xmp);
        if (xmp.empty()) return {};
        std::string packet;
        if (Exiv2::XmpParser::encode(packet, xmp, Exiv2::XmpParser::omitPacketWrapper) != 0)
            return {};
        return packet;
    } catch (const std::exception& e) {
        platform::logf("~~ IMAGE: XMP not encoded: %s", e.what());
        return {};
    }
}

}  // namespace platform::codecs

#pragma GCC diagnostic pop
