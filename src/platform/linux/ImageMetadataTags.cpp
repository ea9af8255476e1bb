// The tag tables between exiv2's keys and the property families, keyed as the platform keys
// them, and exiv2's one-time set-up.
#include <cstring>
#include <mutex>

#include "platform/linux/ImageMetadataTags.h"

namespace platform::codecs {
namespace {

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

}  // namespace

std::span<const ExifTag> exifTags() {
    return kExifTags;
}

std::span<const IptcTag> iptcTags() {
    return kIptcTags;
}

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

std::string withoutSeparators(std::string s, const char* separators) {
    std::string out;
    for (char c : s)
        if (!std::strchr(separators, c)) out.push_back(c);
    return out;
}

}  // namespace platform::codecs
