// Camera captures made into assets, with lavfi's test source as the camera: the one file
// assets/camera.<extension> checked by exiftool and ffprobe, replaced by the next capture
// whatever its extension, and kept when a capture fails before anything is delivered.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/ImagePropertyKeys.h"
#include "results/VRCameraCapture.h"
#include "storage/VRFileStorage.h"
#include "support/TestHome.h"

using platform::Camera;
using platform::ErrorRef;
using testing_support::namesIn;
using testing_support::runCommand;
using testing_support::TestHome;

namespace {

const Camera kCamera("lavfi:testsrc=size=320x240:rate=10");

std::string assetsFolder() {
    return VRFileStorage::projectURLs().assetsURL;
}

// exiftool's values of the tags, one a line, e.g. "JPEG\n320\n240\n".
std::string exif(const std::string& path, const std::string& tags) {
    std::string out;
    runCommand("exiftool -s3 -n " + tags + " '" + path + "' 2>&1", &out);
    return out;
}

double movieDuration(const std::string& path) {
    std::string out;
    runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + path + "'", &out);
    return out.empty() ? -1 : std::atof(out.c_str());
}

TEST(VRCameraCapture, EachCaptureReplacesTheLastWhateverItsExtension) {
    TestHome home;
    // Another of the folder's files is not the camera's and stays.
    testing_support::touch(assetsFolder() + "/import/item/a.jpg");
    struct Step {
        bool movie;
        const char* file;
    };
    const Step steps[] = {
        {false, "camera.jpg"}, {true, "camera.mov"}, {false, "camera.jpg"}, {true, "camera.mov"}};
    for (const auto& step : steps) {
        SCOPED_TRACE(step.file);
        ErrorRef error;
        auto asset = step.movie ? VRCameraCapture::captureMovie(kCamera, 1, &error)
                                : VRCameraCapture::capturePhoto(kCamera, &error);
        ASSERT_TRUE(asset) << (error ? error->description() : "");
        EXPECT_EQ(namesIn(assetsFolder()), (std::vector<std::string>{step.file, "import"}));
        const std::string path = assetsFolder() + "/" + step.file;
        EXPECT_EQ(asset->pixelSize(), (CGSize{320, 240}));
        if (step.movie) {
            EXPECT_EQ(asset->mediaType(), VRFormatMediaTypeVideo);
            EXPECT_NEAR(movieDuration(path), 1.0, 0.1);
            EXPECT_NEAR(asset->duration(), 1.0, 0.1);
        } else {
            EXPECT_EQ(asset->mediaType(), VRFormatMediaTypePhoto);
            EXPECT_EQ(exif(path, "-FileType -ImageWidth -ImageHeight"), "JPEG\n320\n240\n");
        }
    }
    // The recorded movie was copied out of this process's temporaries and removed there.
    std::string left;
    runCommand("find '" + home.root() + "' -name '*.mov' -not -path '*/assets/*'", &left);
    EXPECT_EQ(left, "");
}

TEST(VRCameraCapture, ThePictureIsWrittenWithItsOrientationAndMetadata) {
    TestHome home;
    auto still = kCamera.captureStill(nullptr);
    ASSERT_TRUE(still);
    VRCameraMediaInfo info;
    info.mediaType = VRFormatMediaTypePhoto;
    info.originalImage = still->image;
    info.imageOrientation = 3;  // right: stored turned, shown upright by EXIF 6
    info.mediaMetadata = platform::PlistDictionary{
        {platform::kCGImagePropertyTIFFDictionary, platform::PlistDictionary{{"Make", "Acme"}}},
    };
    auto asset = VRCameraCapture::assetWithMediaInfo(info);
    ASSERT_TRUE(asset);
    EXPECT_EQ(exif(VRCameraCapture::captureURLWithExtension("jpg"), "-Orientation -Make"),
              "6\nAcme\n");
    // Displayed sides: the quarter turn exchanges them.
    EXPECT_EQ(asset->pixelSize(), (CGSize{240, 320}));
}

TEST(VRCameraCapture, NothingDeliveredOrNothingWrittenGivesNoAsset) {
    TestHome home;
    ASSERT_TRUE(VRCameraCapture::capturePhoto(kCamera));
    const std::vector<std::string> earlier{"camera.jpg"};

    // Before anything is delivered the earlier capture stays.
    struct Case {
        const char* what;
        VRCameraMediaInfo info;
    };
    VRCameraMediaInfo noType;
    noType.originalImage = platform::Bitmap(4, 4, {8, 3, platform::kCGImageAlphaNone},
                                            platform::ColorSpace::deviceRGB());
    VRCameraMediaInfo noBitmap;
    noBitmap.mediaType = VRFormatMediaTypePhoto;
    const Case cases[] = {{"no media type", noType}, {"no bitmap", noBitmap}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ErrorRef error;
        EXPECT_FALSE(VRCameraCapture::assetWithMediaInfo(c.info, &error));
        EXPECT_TRUE(error);
        EXPECT_EQ(namesIn(assetsFolder()), earlier);
    }
    ErrorRef error;
    EXPECT_FALSE(VRCameraCapture::capturePhoto(Camera(home.path("video7")), &error));
    EXPECT_FALSE(VRCameraCapture::captureMovie(Camera(home.path("video7")), 1, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localizedDescription(), "No camera at " + home.path("video7"));
    EXPECT_EQ(namesIn(assetsFolder()), earlier);
}

TEST(VRCameraCapture, AWriteThatFailsGivesNoAssetAndNoFile) {
    TestHome home;
    // The assets folder can't be made where a file of that name is.
    const std::string assets = assetsFolder();
    testing_support::touch(assets);
    ErrorRef error;
    EXPECT_FALSE(VRCameraCapture::capturePhoto(kCamera, &error));
    EXPECT_TRUE(error);
    EXPECT_FALSE(VRCameraCapture::captureMovie(kCamera, 1, &error));
    std::string left;
    runCommand("find '" + home.root() + "' -name 'camera*'", &left);
    EXPECT_EQ(left, "");
}

}  // namespace
