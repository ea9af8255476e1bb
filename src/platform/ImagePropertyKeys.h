// The keys of image property dictionaries, spelled as the platform spells them. The image
// source writes them, the metadata rewrite and the image destination read them.
#pragma once

namespace platform {

// Top level.
inline constexpr const char* kCGImagePropertyPixelWidth = "PixelWidth";
inline constexpr const char* kCGImagePropertyPixelHeight = "PixelHeight";
inline constexpr const char* kCGImagePropertyWidth = "Width";
inline constexpr const char* kCGImagePropertyHeight = "Height";
inline constexpr const char* kCGImagePropertyOrientation = "Orientation";
inline constexpr const char* kCGImagePropertyDPIWidth = "DPIWidth";
inline constexpr const char* kCGImagePropertyDPIHeight = "DPIHeight";
inline constexpr const char* kCGImagePropertyDepth = "Depth";
inline constexpr const char* kCGImagePropertyHasAlpha = "HasAlpha";
inline constexpr const char* kCGImagePropertyProfileName = "ProfileName";
inline constexpr const char* kCGImagePropertyColorModel = "ColorModel";
inline constexpr const char* kCGImagePropertyFileSize = "FileSize";
inline constexpr const char* kCGImageDestinationLossyCompressionQuality =
    "kCGImageDestinationLossyCompressionQuality";

// Families.
inline constexpr const char* kCGImagePropertyTIFFDictionary = "{TIFF}";
inline constexpr const char* kCGImagePropertyExifDictionary = "{Exif}";
inline constexpr const char* kCGImagePropertyGPSDictionary = "{GPS}";
inline constexpr const char* kCGImagePropertyIPTCDictionary = "{IPTC}";
inline constexpr const char* kCGImagePropertyPNGDictionary = "{PNG}";
inline constexpr const char* kCGImagePropertyJFIFDictionary = "{JFIF}";
inline constexpr const char* kCGImagePropertyHEICSDictionary = "{HEICS}";
inline constexpr const char* kCGImagePropertyGIFDictionary = "{GIF}";
// XMP properties as exiv2 keys ("Xmp.dc.title") to their text; this build's own family.
inline constexpr const char* kImagePropertyXMPDictionary = "{XMP}";

// {TIFF}
inline constexpr const char* kCGImagePropertyTIFFOrientation = "Orientation";
inline constexpr const char* kCGImagePropertyTIFFMake = "Make";
inline constexpr const char* kCGImagePropertyTIFFModel = "Model";
inline constexpr const char* kCGImagePropertyTIFFSoftware = "Software";
inline constexpr const char* kCGImagePropertyTIFFDateTime = "DateTime";
inline constexpr const char* kCGImagePropertyTIFFXResolution = "XResolution";
inline constexpr const char* kCGImagePropertyTIFFYResolution = "YResolution";
inline constexpr const char* kCGImagePropertyTIFFResolutionUnit = "ResolutionUnit";
inline constexpr const char* kCGImagePropertyTIFFArtist = "Artist";
inline constexpr const char* kCGImagePropertyTIFFCopyright = "Copyright";
inline constexpr const char* kCGImagePropertyTIFFImageDescription = "ImageDescription";

// {Exif}
inline constexpr const char* kCGImagePropertyExifDateTimeOriginal = "DateTimeOriginal";
inline constexpr const char* kCGImagePropertyExifDateTimeDigitized = "DateTimeDigitized";
inline constexpr const char* kCGImagePropertyExifPixelXDimension = "PixelXDimension";
inline constexpr const char* kCGImagePropertyExifPixelYDimension = "PixelYDimension";
inline constexpr const char* kCGImagePropertyExifLensModel = "LensModel";
inline constexpr const char* kCGImagePropertyExifExposureTime = "ExposureTime";
inline constexpr const char* kCGImagePropertyExifFNumber = "FNumber";
inline constexpr const char* kCGImagePropertyExifISOSpeedRatings = "ISOSpeedRatings";

// {GPS}: degrees as positive reals with their "N"/"S" and "E"/"W" references.
inline constexpr const char* kCGImagePropertyGPSLatitude = "Latitude";
inline constexpr const char* kCGImagePropertyGPSLatitudeRef = "LatitudeRef";
inline constexpr const char* kCGImagePropertyGPSLongitude = "Longitude";
inline constexpr const char* kCGImagePropertyGPSLongitudeRef = "LongitudeRef";
inline constexpr const char* kCGImagePropertyGPSAltitude = "Altitude";
inline constexpr const char* kCGImagePropertyGPSAltitudeRef = "AltitudeRef";
inline constexpr const char* kCGImagePropertyGPSTimeStamp = "TimeStamp";
inline constexpr const char* kCGImagePropertyGPSDateStamp = "DateStamp";

// {IPTC}
inline constexpr const char* kCGImagePropertyIPTCKeywords = "Keywords";
inline constexpr const char* kCGImagePropertyIPTCCaptionAbstract = "Caption/Abstract";
inline constexpr const char* kCGImagePropertyIPTCDateCreated = "DateCreated";
inline constexpr const char* kCGImagePropertyIPTCTimeCreated = "TimeCreated";
inline constexpr const char* kCGImagePropertyIPTCDigitalCreationDate = "DigitalCreationDate";
inline constexpr const char* kCGImagePropertyIPTCDigitalCreationTime = "DigitalCreationTime";
inline constexpr const char* kCGImagePropertyIPTCImageOrientation = "ImageOrientation";

// {PNG}
inline constexpr const char* kCGImagePropertyPNGCreationTime = "CreationTime";
inline constexpr const char* kCGImagePropertyPNGModificationTime = "ModificationTime";
inline constexpr const char* kCGImagePropertyPNGSoftware = "Software";
inline constexpr const char* kCGImagePropertyPNGXPixelsPerMeter = "XPixelsPerMeter";
inline constexpr const char* kCGImagePropertyPNGYPixelsPerMeter = "YPixelsPerMeter";

// {JFIF}
inline constexpr const char* kCGImagePropertyJFIFXDensity = "XDensity";
inline constexpr const char* kCGImagePropertyJFIFYDensity = "YDensity";
inline constexpr const char* kCGImagePropertyJFIFDensityUnit = "DensityUnit";
inline constexpr const char* kCGImagePropertyJFIFIsProgressive = "IsProgressive";

// {HEICS}
inline constexpr const char* kCGImagePropertyHEICSCanvasPixelWidth = "CanvasPixelWidth";
inline constexpr const char* kCGImagePropertyHEICSCanvasPixelHeight = "CanvasPixelHeight";

}  // namespace platform
