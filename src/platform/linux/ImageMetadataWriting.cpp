// Writing the property families through exiv2: into a file after its encode, or as an EXIF
// block and an XMP packet for the encoders that embed them. exiv2 throws; every call is
// caught here.
// exiv2 hands out std::auto_ptr, which C++20 marks deprecated.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "platform/ImagePropertyKeys.h"
#include "platform/Log.h"
#include "platform/linux/ImageCodecs.h"
#include "platform/linux/ImageMetadataTags.h"

namespace platform::codecs {
namespace {

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
    for (const auto& tag : exifTags()) {
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
    for (const auto& tag : iptcTags()) {
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
