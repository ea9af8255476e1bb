#include <gtest/gtest.h>

#include <cstdlib>

#include "model/VRFormat.h"
#include "photo/PhotoMetadata.h"
#include "platform/ImagePropertyKeys.h"

using namespace platform;

namespace {

// Dates are local; the tests pin the zone so that texts and instants are known.
class PhotoMetadata : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* old = std::getenv("TZ");
        _oldTZ = old ? std::optional<std::string>(old) : std::nullopt;
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    void TearDown() override {
        if (_oldTZ)
            setenv("TZ", _oldTZ->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    std::optional<std::string> _oldTZ;
};

VRPhotoMetadataSettings settings() {
    VRPhotoMetadataSettings s;
    s.software = "Unwarp v9.9";
    return s;
}

// Read in the pinned zone, so not at static initialisation.
PlistDate nowDate() {
    return *VRPhotoDateFromText("2024:05:06 07:08:09");
}
PlistDate assetDate() {
    return *VRPhotoDateFromText("2021:01:02 03:04:05");
}

PlistDictionary family(const PlistDictionary& m, const char* key) {
    auto it = m.find(key);
    return it != m.end() && it->second.dictionary() ? *it->second.dictionary() : PlistDictionary{};
}

std::string text(const PlistDictionary& d, const char* key) {
    auto it = d.find(key);
    return it != d.end() && it->second.string() ? *it->second.string() : "<none>";
}

PlistDictionary rewritten(PlistDictionary m, std::uint64_t format,
                          std::optional<PlistDate> assetDate,
                          const VRPhotoMetadataSettings& s = settings(), CGSize size = {640, 480}) {
    std::optional<PlistDictionary> metadata = std::move(m);
    VRUpdatePhotoMetadata(metadata, format, assetDate, size, s, nowDate());
    return *metadata;
}

TEST_F(PhotoMetadata, TheDateInTheFileWinsThenTheAssetDateThenNow) {
    struct Case {
        const char* name;
        PlistDictionary source;
        std::optional<PlistDate> assetDate;
        std::string date;
    };
    const std::vector<Case> cases = {
        {"TIFF date first",
         {{kCGImagePropertyTIFFDictionary,
           PlistDictionary{{kCGImagePropertyTIFFDateTime, "2019:03:04 10:11:12"}}},
          {kCGImagePropertyExifDictionary,
           PlistDictionary{{kCGImagePropertyExifDateTimeOriginal, "2018:01:01 00:00:00"}}}},
         assetDate(),
         "2019:03:04 10:11:12"},
        {"EXIF original, then digitized",
         {{kCGImagePropertyExifDictionary,
           PlistDictionary{{kCGImagePropertyExifDateTimeDigitized, "2017:07:07 07:07:07"}}}},
         assetDate(),
         "2017:07:07 07:07:07"},
        {"PNG creation time",
         {{kCGImagePropertyPNGDictionary,
           PlistDictionary{{kCGImagePropertyPNGCreationTime, "2016:06:06 06:06:06"}}}},
         assetDate(),
         "2016:06:06 06:06:06"},
        {"unparsable text falls to the asset's date",
         {{kCGImagePropertyTIFFDictionary,
           PlistDictionary{{kCGImagePropertyTIFFDateTime, "yesterday"}}}},
         assetDate(),
         "2021:01:02 03:04:05"},
        {"trailing text does not parse",
         {{kCGImagePropertyTIFFDictionary,
           PlistDictionary{{kCGImagePropertyTIFFDateTime, "2019:03:04 10:11:12x"}}}},
         std::nullopt,
         "2024:05:06 07:08:09"},
        {"no date anywhere: now", {}, std::nullopt, "2024:05:06 07:08:09"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PlistDictionary m = rewritten(c.source, VRFormatTypeJPEG, c.assetDate);
        PlistDictionary tiff = family(m, kCGImagePropertyTIFFDictionary);
        PlistDictionary exif = family(m, kCGImagePropertyExifDictionary);
        EXPECT_EQ(text(tiff, kCGImagePropertyTIFFDateTime), c.date);
        EXPECT_EQ(text(exif, kCGImagePropertyExifDateTimeOriginal), c.date);
        EXPECT_EQ(text(tiff, kCGImagePropertyTIFFSoftware), "Unwarp v9.9");
    }
    // A digitized date of the source is kept; an absent one takes the date.
    PlistDictionary m = rewritten(
        {{kCGImagePropertyExifDictionary,
          PlistDictionary{{kCGImagePropertyExifDateTimeOriginal, "2015:05:05 05:05:05"},
                          {kCGImagePropertyExifDateTimeDigitized, "2014:04:04 04:04:04"}}}},
        VRFormatTypeJPEG, std::nullopt);
    EXPECT_EQ(
        text(family(m, kCGImagePropertyExifDictionary), kCGImagePropertyExifDateTimeDigitized),
        "2014:04:04 04:04:04");
}

TEST_F(PhotoMetadata, DpiIsWrittenOnlyWhenFixed) {
    struct Case {
        double dpi;
        bool automatic;
        std::uint64_t format;
        bool fixed;
    };
    const std::vector<Case> cases = {
        {299.6, false, VRFormatTypeJPEG, true}, {299.6, true, VRFormatTypeJPEG, false},
        {0.4, false, VRFormatTypeJPEG, false},  {72, false, VRFormatTypePNG, true},
        {72, false, VRFormatTypeHEIC, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.dpi << (c.automatic ? " auto" : "") << " " << c.format);
        VRPhotoMetadataSettings s = settings();
        s.photoDPI = c.dpi;
        s.isPhotoDPIAuto = c.automatic;
        PlistDictionary m =
            rewritten({{kCGImagePropertyDPIWidth, 180.0}}, c.format, assetDate(), s);
        PlistDictionary tiff = family(m, kCGImagePropertyTIFFDictionary);
        if (c.fixed) {
            EXPECT_EQ(m[kCGImagePropertyDPIWidth], PlistValue(c.dpi));
            EXPECT_EQ(m[kCGImagePropertyDPIHeight], PlistValue(c.dpi));
            EXPECT_EQ(tiff[kCGImagePropertyTIFFXResolution], PlistValue(c.dpi));
            EXPECT_EQ(tiff[kCGImagePropertyTIFFResolutionUnit], PlistValue(2));
        } else {
            EXPECT_EQ(m[kCGImagePropertyDPIWidth], PlistValue(180.0));
            EXPECT_FALSE(m.count(kCGImagePropertyDPIHeight));
            EXPECT_FALSE(tiff.count(kCGImagePropertyTIFFXResolution));
        }
        // JFIF only for JPEG output, with the rounded value, and only when fixed.
        const bool jfif = c.fixed && c.format == VRFormatTypeJPEG;
        ASSERT_EQ(m.count(kCGImagePropertyJFIFDictionary), jfif ? 1u : 0u);
        if (jfif) {
            PlistDictionary j = family(m, kCGImagePropertyJFIFDictionary);
            EXPECT_EQ(j[kCGImagePropertyJFIFXDensity], PlistValue(300));
            EXPECT_EQ(j[kCGImagePropertyJFIFDensityUnit], PlistValue(1));
        }
    }
}

TEST_F(PhotoMetadata, SizesAndOrientationsAreRewritten) {
    PlistDictionary source = {
        {kCGImagePropertyPixelWidth, 4000},
        {kCGImagePropertyOrientation, 6},
        {kCGImagePropertyTIFFDictionary, PlistDictionary{{kCGImagePropertyTIFFOrientation, 6}}},
        {kCGImagePropertyExifDictionary,
         PlistDictionary{{kCGImagePropertyExifPixelXDimension, 4000}}},
        {kCGImagePropertyIPTCDictionary,
         PlistDictionary{{kCGImagePropertyIPTCImageOrientation, "P"}}},
        {kCGImagePropertyHEICSDictionary,
         PlistDictionary{{kCGImagePropertyHEICSCanvasPixelWidth, 4000}}},
    };
    PlistDictionary m =
        rewritten(source, VRFormatTypeHEIC, assetDate(), settings(), {533.4, 300.5});
    EXPECT_EQ(m[kCGImagePropertyWidth], PlistValue(533));
    EXPECT_EQ(m[kCGImagePropertyHeight], PlistValue(301));
    EXPECT_EQ(m[kCGImagePropertyPixelWidth], PlistValue(533));
    EXPECT_FALSE(m.count(kCGImagePropertyPixelHeight));  // only rewritten where present
    EXPECT_FALSE(m.count(kCGImagePropertyOrientation));
    EXPECT_FALSE(family(m, kCGImagePropertyTIFFDictionary).count(kCGImagePropertyTIFFOrientation));
    EXPECT_FALSE(
        family(m, kCGImagePropertyIPTCDictionary).count(kCGImagePropertyIPTCImageOrientation));
    PlistDictionary exif = family(m, kCGImagePropertyExifDictionary);
    EXPECT_EQ(exif[kCGImagePropertyExifPixelXDimension], PlistValue(533));
    EXPECT_FALSE(exif.count(kCGImagePropertyExifPixelYDimension));
    PlistDictionary heics = family(m, kCGImagePropertyHEICSDictionary);
    EXPECT_EQ(heics[kCGImagePropertyHEICSCanvasPixelWidth], PlistValue(533));
    EXPECT_FALSE(heics.count(kCGImagePropertyHEICSCanvasPixelHeight));
}

TEST_F(PhotoMetadata, CopySettingsKeepOrDropFamiliesAndTheirXmp) {
    const PlistDictionary source = {
        {kCGImagePropertyExifDictionary, PlistDictionary{{kCGImagePropertyExifLensModel, "Lens 50"},
                                                         {kCGImagePropertyExifExposureTime, 0.01}}},
        {kCGImagePropertyGPSDictionary, PlistDictionary{{kCGImagePropertyGPSLatitude, 52.5}}},
        {kCGImagePropertyIPTCDictionary, PlistDictionary{{kCGImagePropertyIPTCKeywords, "k"}}},
        {kImagePropertyXMPDictionary, PlistDictionary{{"Xmp.exif.ExposureTime", "1/100"},
                                                      {"Xmp.aux.Lens", "Lens 50"},
                                                      {"Xmp.exif.GPSLatitude", "52,30N"},
                                                      {"Xmp.iptc.Location", "Here"},
                                                      {"Xmp.dc.title", "Title"}}},
    };
    struct Case {
        bool exif, gps, iptc;
    };
    for (const Case c : {Case{true, true, true}, Case{false, true, true}, Case{true, false, false},
                         Case{false, false, true}}) {
        SCOPED_TRACE(testing::Message()
                     << "exif " << c.exif << " gps " << c.gps << " iptc " << c.iptc);
        VRPhotoMetadataSettings s = settings();
        s.shouldCopyExifMetadata = c.exif;
        s.shouldCopyGpsMetadata = c.gps;
        s.shouldCopyIptcMetadata = c.iptc;
        PlistDictionary m = rewritten(source, VRFormatTypeJPEG, assetDate(), s);
        PlistDictionary exif = family(m, kCGImagePropertyExifDictionary);
        PlistDictionary xmp = family(m, kImagePropertyXMPDictionary);
        // A disabled EXIF copy leaves exactly the two dates.
        EXPECT_EQ(exif.size(), c.exif ? 4u : 2u);
        EXPECT_EQ(exif.count(kCGImagePropertyExifLensModel), c.exif ? 1u : 0u);
        EXPECT_EQ(xmp.count("Xmp.exif.ExposureTime"), c.exif ? 1u : 0u);
        EXPECT_EQ(xmp.count("Xmp.aux.Lens"), c.exif ? 1u : 0u);
        EXPECT_EQ(m.count(kCGImagePropertyGPSDictionary), c.gps ? 1u : 0u);
        EXPECT_EQ(xmp.count("Xmp.exif.GPSLatitude"), c.gps ? 1u : 0u);
        EXPECT_EQ(m.count(kCGImagePropertyIPTCDictionary), c.iptc ? 1u : 0u);
        EXPECT_EQ(xmp.count("Xmp.iptc.Location"), c.iptc ? 1u : 0u);
        EXPECT_EQ(xmp.count("Xmp.dc.title"), 1u);
    }
}

TEST_F(PhotoMetadata, IptcAndPngFamiliesAreDatedOnlyWhereTheyBelong) {
    // IPTC on: dated where present; nothing is created for a source without it.
    PlistDictionary m =
        rewritten({{kCGImagePropertyIPTCDictionary,
                    PlistDictionary{{kCGImagePropertyIPTCDigitalCreationDate, "20000101"}}},
                   {kCGImagePropertyTIFFDictionary,
                    PlistDictionary{{kCGImagePropertyTIFFDateTime, "2019:03:04 10:11:12"}}}},
                  VRFormatTypeJPEG, assetDate());
    PlistDictionary iptc = family(m, kCGImagePropertyIPTCDictionary);
    EXPECT_EQ(text(iptc, kCGImagePropertyIPTCDateCreated), "20190304");
    EXPECT_EQ(text(iptc, kCGImagePropertyIPTCTimeCreated), "101112");
    EXPECT_EQ(text(iptc, kCGImagePropertyIPTCDigitalCreationDate), "20000101");
    EXPECT_FALSE(iptc.count(kCGImagePropertyIPTCDigitalCreationTime));
    EXPECT_FALSE(
        rewritten({}, VRFormatTypeJPEG, assetDate()).count(kCGImagePropertyIPTCDictionary));

    // PNG: created for PNG output, rewritten for a PNG source whatever the output.
    for (std::uint64_t format : {VRFormatTypePNG, VRFormatTypeJPEG, VRFormatTypeTIFF}) {
        for (bool pngSource : {false, true}) {
            SCOPED_TRACE(testing::Message() << format << (pngSource ? " from PNG" : ""));
            PlistDictionary source;
            if (pngSource)
                source[kCGImagePropertyPNGDictionary] =
                    PlistDictionary{{kCGImagePropertyPNGSoftware, "GIMP"}};
            PlistDictionary out = rewritten(source, format, assetDate());
            const bool png = pngSource || format == VRFormatTypePNG;
            ASSERT_EQ(out.count(kCGImagePropertyPNGDictionary), png ? 1u : 0u);
            if (!png) continue;
            PlistDictionary p = family(out, kCGImagePropertyPNGDictionary);
            EXPECT_EQ(text(p, kCGImagePropertyPNGCreationTime), "2021:01:02 03:04:05");
            EXPECT_EQ(text(p, kCGImagePropertyPNGModificationTime), "2024:05:06 07:08:09");
            EXPECT_EQ(text(p, kCGImagePropertyPNGSoftware), "Unwarp v9.9");
        }
    }
}

TEST_F(PhotoMetadata, NoDictionaryStaysNone) {
    std::optional<PlistDictionary> none;
    VRUpdatePhotoMetadata(none, VRFormatTypeJPEG, assetDate(), {10, 10}, settings(), nowDate());
    EXPECT_FALSE(none);
}

}  // namespace
