#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "model/VRSizeEntry.h"
#include "model/VXHelperSize.h"
#include "photo/PhotoSupport.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/Log.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"

using namespace photo_test;
using platform::PlistValue;
using testing_support::TestHome;

namespace {

const VRSizeOptions kStretch = {VRSizeOptionNormal, VRSizeOptionStretch};
const VRSizeOptions kFit = {VRSizeOptionNormal, VRSizeOptionRatioFit};
const VRSizeOptions kClip = {VRSizeOptionNormal, VRSizeOptionRatioClip};

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(PhotoPipelineMedia, EveryExifOrientationIsTurnedIntoThePixelsAsImageMagickShowsIt) {
    TestHome home;
    const std::string base = quadrants(home, "base.jpg", 60, 40, "-quality 95");
    auto tpl = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeAuto);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const std::string source = home.path("o" + std::to_string(orientation) + ".jpg");
        run("cp '" + base + "' '" + source +
            "' && exiftool -q -overwrite_original -n "
            "-IFD0:Orientation=" +
            std::to_string(orientation) + " '" + source + "'");
        const std::string expected = home.path("expected" + std::to_string(orientation) + ".png");
        run("convert '" + source + "' -auto-orient '" + expected + "'");

        Processed out = process(source, tpl);
        ASSERT_TRUE(out.result) << (out.error ? out.error->description() : "cancelled");
        EXPECT_EQ(vipsSize(out.path()), vipsSize(expected));
        EXPECT_EQ(exif(out.path())["IFD0:Orientation"], 1);
        auto pixels = decode(out.path());
        auto reference = decode(expected);
        ASSERT_TRUE(pixels && reference);
        EXPECT_EQ(corners(*pixels), corners(*reference));
        EXPECT_EQ(out.result->pixelSize(), (orientation >= 5 ? CGSize{40, 60} : CGSize{60, 40}));
    }
}

TEST(PhotoPipelineMedia, FitMarginsAreTransparentInPngAndWhiteInJpegAndBothMethodsMeanClip) {
    TestHome home;
    const std::string source = quadrants(home, "wide.png", 100, 50);
    Processed png =
        process(source, makeTemplate(200, 200, VRSizeTypePixels, kFit, VRFormatTypePNG));
    ASSERT_TRUE(png.result);
    EXPECT_EQ(run("vipsheader -f bands '" + png.path() + "'"), "4");
    auto p = decode(png.path());
    ASSERT_TRUE(p);
    EXPECT_EQ(colourAt(*p, 100, 20), '.');
    EXPECT_EQ(colourAt(*p, 100, 180), '.');
    EXPECT_EQ(colourAt(*p, 40, 70), 'R');

    Processed jpeg =
        process(source, makeTemplate(200, 200, VRSizeTypePixels, kFit, VRFormatTypeJPEG));
    ASSERT_TRUE(jpeg.result);
    auto j = decode(jpeg.path());
    ASSERT_TRUE(j);
    EXPECT_EQ(colourAt(*j, 100, 20), 'W');
    EXPECT_EQ(colourAt(*j, 40, 70), 'R');
    EXPECT_EQ(colourAt(*j, 160, 130), 'W');
    EXPECT_EQ(colourAt(*j, 40, 130), 'B');

    // Options holding 3 and 4 give exactly the clip result.
    Processed clip =
        process(source, makeTemplate(100, 100, VRSizeTypePixels, kClip, VRFormatTypeJPEG));
    ASSERT_TRUE(clip.result);
    const std::string clipBytes = readAll(clip.path());
    Processed both = process(
        source, makeTemplate(100, 100, VRSizeTypePixels,
                             {VRSizeOptionNormal, VRSizeOptionRatioFit, VRSizeOptionRatioClip},
                             VRFormatTypeJPEG));
    ASSERT_TRUE(both.result);
    EXPECT_EQ(readAll(both.path()), clipBytes);
    auto c = decode(both.path());
    ASSERT_TRUE(c);
    EXPECT_EQ(corners(*c), "RGBW");
    EXPECT_EQ(colourAt(*c, 0, 0), 'R');
}

TEST(PhotoPipelineMedia, HeicSourceWithAutoKeepsHeicAtItsOwnCompression) {
    const auto writers = platform::ImageDestination::typeIdentifiers();
    if (std::find(writers.begin(), writers.end(), "public.heic") == writers.end())
        GTEST_SKIP() << "no HEIC encoder in this build";
    TestHome home;
    const std::string png = quadrants(home, "q.png", 64, 48);
    const std::string heic = home.path("IMG_9.HEIC");
    {
        auto bitmap = decode(png);
        ASSERT_TRUE(bitmap);
        auto d = platform::ImageDestination::createWithURL(heic, "public.heic", 1);
        ASSERT_TRUE(d);
        d->addImage(*bitmap, {});
        ASSERT_TRUE(d->finalize());
    }
    auto automatic = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeAuto);
    auto named = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeHEIC);
    std::map<std::pair<int, bool>, std::string> bytes;
    for (int setting : {20, 100}) {
        VRSettings::setPhotoJPEGCompression(setting);
        for (bool isNamed : {false, true}) {
            Processed out = process(heic, isNamed ? named : automatic);
            ASSERT_TRUE(out.result);
            EXPECT_EQ(out.path(),
                      VRFileStorage::ownTemporaryFolder(home.path("documents")) + "/IMG_9.heic");
            EXPECT_EQ(run("exiftool -s3 -FileType '" + out.path() + "'"), "HEIC");
            bytes[{setting, isNamed}] = readAll(out.path());
        }
    }
    // Auto reaches HEIC through the source's type and keeps 0.85 whatever the setting says,
    // which is the named format's result at 85.
    EXPECT_EQ(bytes[std::make_pair(20, false)], bytes[std::make_pair(100, false)]);
    EXPECT_NE(bytes[std::make_pair(20, true)], bytes[std::make_pair(100, true)]);
    VRSettings::setPhotoJPEGCompression(85);
    Processed at85 = process(heic, named);
    ASSERT_TRUE(at85.result);
    EXPECT_EQ(readAll(at85.path()), bytes[std::make_pair(20, false)]);
}

TEST(PhotoPipelineMedia, TheDeviceLimitRefusesAndTheRetrysExplicitSizeSkipsIt) {
    TestHome home;
    const std::string dot = home.path("dot.png");
    run("convert -size 1x1 xc:red '" + dot + "'");
    struct Case {
        CGSize templateSize;
        CGSize explicitSize;
        const char* written;  // or "" for code 5
    };
    const std::vector<Case> cases = {
        {{8192, 8192}, CGSizeZero, "8192x8192"},
        {{8193, 100}, CGSizeZero, ""},
        {{100, 8193}, CGSizeZero, ""},
        {{8193, 100}, {9000, 10}, "9000x10"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(NSStringFromCGSize(c.templateSize) + " " + NSStringFromCGSize(c.explicitSize));
        auto tpl = makeTemplate(c.templateSize.width, c.templateSize.height, VRSizeTypePixels,
                                kStretch, VRFormatTypeJPEG);
        Processed out = process(dot, tpl, nullptr, c.explicitSize);
        if (*c.written) {
            ASSERT_TRUE(out.result) << (out.error ? out.error->description() : "cancelled");
            EXPECT_EQ(vipsSize(out.path()), c.written);
            continue;
        }
        ASSERT_TRUE(out.error);
        EXPECT_EQ(out.error->code(), 5);
        const auto& info = out.error->userInfo();
        EXPECT_EQ(VXHelper::sizeWithSizeArray(*info.at(VRErrorUserInfoOriginalSizeKey).array()),
                  (CGSize{1, 1}));
        EXPECT_EQ(VXHelper::sizeWithSizeArray(*info.at(VRErrorUserInfoExceedingSizeKey).array()),
                  c.templateSize);
        const auto& corrections = *info.at(VRErrorUserInfoCorrectingSizesKey).array();
        ASSERT_EQ(corrections.size(), 1u);
        const CGSize correction = VXHelper::sizeWithSizeArray(*corrections[0].array());
        // The retry with the offered size is written at that size.
        Processed retry = process(dot, tpl, nullptr, correction);
        ASSERT_TRUE(retry.result);
        EXPECT_EQ(vipsSize(retry.path()), std::to_string(int(correction.width)) + "x" +
                                              std::to_string(int(correction.height)));
    }
}

// The sink runs under the log's lock and the cancel logs too, so the cancel runs on its own
// thread; the sink returns once the run's identity is gone.
void cancelOnDrawing(const std::string& line, void* canceller) {
    if (line.rfind("VRKIT: using", 0) != 0) return;
    auto& processor = VRProcessor::mainProcessor();
    *static_cast<std::thread*>(canceller) =
        std::thread([&] { processor.cancelProcessingAssets(); });
    while (processor._isProcessingStartTimeInvalid(0.0)) std::this_thread::yield();
}

TEST(PhotoPipelineMedia, ACancelBetweenTheCheckpointsLeavesNoFile) {
    TestHome home;
    const std::string source = quadrants(home, "c.jpg", 80, 60);
    auto tpl = makeTemplate(200, 100, VRSizeTypePercent, kStretch, VRFormatTypePNG);
    // The drawing context is made after the first checkpoint and before the second.
    std::thread canceller;
    platform::setLogSink(cancelOnDrawing, &canceller);
    Processed cancelled = process(source, tpl);
    platform::setLogSink(nullptr, nullptr);
    ASSERT_TRUE(canceller.joinable());
    canceller.join();
    EXPECT_TRUE(cancelled.finished);
    EXPECT_FALSE(cancelled.result);
    EXPECT_FALSE(cancelled.error);
    EXPECT_TRUE(documents(home).empty());

    Processed next = process(source, tpl);
    ASSERT_TRUE(next.result);
    EXPECT_EQ(vipsSize(next.path()), "160x60");
}

TEST(PhotoPipelineMedia, MetadataRulesReadBackWithExiftool) {
    TestHome home;
    const std::string source = quadrants(home, "IMG_1234.jpg", 60, 40, "-quality 95");
    run("exiftool -q -overwrite_original -n -IFD0:Orientation=6 -Make=Maker "
        "'-ModifyDate=2019:03:04 10:11:12' '-DateTimeOriginal=2019:03:04 10:11:12' "
        "-LensModel=Lens50 -ExposureTime=0.01 -GPSLatitude=52.5 -GPSLatitudeRef=N "
        "-GPSLongitude=13.4 -GPSLongitudeRef=E -IPTC:Keywords=kw -XMP-exif:ExposureProgram=2 '" +
        source + "'");
    auto tpl = makeTemplate(50, 50, VRSizeTypePercent, kStretch, VRFormatTypeJPEG);
    struct Case {
        const char* name;
        bool exif, gps, iptc;
        double dpi;
    };
    const std::vector<Case> cases = {
        {"all copied, auto DPI", true, true, true, 0},
        {"EXIF off, GPS on, DPI 299.6", false, true, true, 299.6},
        {"GPS and IPTC off", true, false, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        VRSettings::setCopyExifMetadata(c.exif);
        VRSettings::setCopyGpsMetadata(c.gps);
        VRSettings::setCopyIptcMetadata(c.iptc);
        VRSettings::setPhotoDPIAuto(c.dpi == 0);
        VRSettings::setPhotoDPI(c.dpi);
        Processed out = process(source, tpl);
        ASSERT_TRUE(out.result);
        EXPECT_EQ(out.path(),
                  VRFileStorage::ownTemporaryFolder(home.path("documents")) + "/IMG_1234.jpg");
        auto tags = exif(out.path());
        EXPECT_EQ(vipsSize(out.path()), "20x30");
        EXPECT_EQ(tags["IFD0:Orientation"], 1);
        // The file's own 2019 date wins over the file system's date, everywhere.
        EXPECT_EQ(tags["IFD0:ModifyDate"], "2019:03:04 10:11:12");
        EXPECT_EQ(tags["ExifIFD:DateTimeOriginal"], "2019:03:04 10:11:12");
        EXPECT_EQ(tags["IFD0:Software"], "Unwarp v" + platform::Environment::appVersion());
        EXPECT_EQ(tags["IFD0:Make"], "Maker");
        EXPECT_EQ(tags.contains("ExifIFD:LensModel"), c.exif);
        EXPECT_EQ(tags.contains("ExifIFD:ExposureTime"), c.exif);
        EXPECT_EQ(tags.contains("XMP-exif:ExposureProgram"), c.exif);
        EXPECT_EQ(tags.contains("GPS:GPSLatitude"), c.gps);
        EXPECT_EQ(tags.contains("IPTC:Keywords"), c.iptc);
        if (c.iptc) {
            EXPECT_EQ(tags["IPTC:DateCreated"], "2019:03:04");
        }
        if (c.dpi > 0) {
            EXPECT_NEAR(tags["IFD0:XResolution"].get<double>(), 299.6, 1e-6);
            EXPECT_EQ(tags["JFIF:XResolution"], 300);
            EXPECT_EQ(tags["JFIF:ResolutionUnit"], 1);
        } else {
            EXPECT_FALSE(tags.contains("IFD0:XResolution") &&
                         tags["IFD0:XResolution"].get<double>() > 299);
        }
    }
}

TEST(PhotoPipelineMedia, BadInputsEndInTheirErrorOrACleanResult) {
    TestHome home;
    const std::string good = quadrants(home, "good.jpg", 120, 80, "-quality 90");
    const std::string goodBytes = readAll(good);
    auto write = [&](const std::string& name, const std::string& bytes) {
        const std::string path = home.path(name);
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    };
    std::mt19937 random(7);
    std::string noise(4000, '\0');
    for (char& ch : noise) ch = static_cast<char>(random());
    // Beyond ImageMagick's own limits, so written by the platform's writer.
    auto grey = [&](const std::string& name, std::size_t w, std::size_t h) {
        const std::string path = home.path(name);
        platform::PixelLayout layout{8, 1, platform::kCGImageAlphaNone};
        std::vector<std::uint8_t> px(w * h, 128);
        platform::Bitmap b(w, h, layout, platform::ColorSpace::deviceGray(), px);
        auto d = platform::ImageDestination::createWithURL(path, "public.png", 1);
        d->addImage(b, {});
        EXPECT_TRUE(d->finalize());
        return path;
    };
    const std::string wide = grey("wide.png", 20000, 20);
    const std::string tooWide = grey("toowide.png", 70000, 2);

    struct Case {
        std::string name;
        std::string path;
        std::int64_t code;  // 0: a clean result
    };
    const std::vector<Case> cases = {
        {"empty", write("empty.jpg", ""), 1},
        {"missing", home.path("missing.jpg"), 1},
        {"truncated header", write("cut.jpg", goodBytes.substr(0, 100)), 2},
        {"random bytes", write("noise.jpg", noise), 2},
        {"text named .heic", write("notes.heic", "just some text, not a picture\n"), 2},
        {"unknown extension", write("picture.xyz", goodBytes), 1},
        {"above the device limit", wide, 5},
        {"above the decoder's limit", tooWide, 2},
        {"fine", good, 0},
    };
    auto tpl = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeAuto);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Processed out = process(c.path, tpl);
        if (c.code == 0) {
            ASSERT_TRUE(out.result);
            EXPECT_EQ(vipsSize(out.path()), "120x80");
            platform::FileManager::removeItemAtPath(out.path());
        } else {
            ASSERT_TRUE(out.error);
            EXPECT_EQ(out.error->code(), c.code);
        }
        EXPECT_TRUE(documents(home).empty());
    }
    // A truncated picture decodes what it has or fails cleanly, never half a file.
    Processed half = process(write("half.jpg", goodBytes.substr(0, goodBytes.size() / 2)), tpl);
    if (half.result) {
        EXPECT_EQ(vipsSize(half.path()), "120x80");
    } else {
        ASSERT_TRUE(half.error);
        EXPECT_EQ(half.error->code(), 2);
        EXPECT_TRUE(documents(home).empty());
    }
}

}  // namespace
