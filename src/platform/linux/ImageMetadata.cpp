// Reading EXIF, GPS, IPTC and XMP from exiv2 into the property families. exiv2 throws; every
// call is caught here, and a damaged block is left out.
// exiv2 hands out std::auto_ptr, which C++20 marks deprecated.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
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
    for (const auto& tag : exifTags()) {
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

void iptcToFamily(const Exiv2::IptcData& iptc, PlistDictionary& properties) {
    PlistDictionary family;
    for (const auto& tag : iptcTags()) {
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

}  // namespace platform::codecs
#pragma GCC diagnostic pop
