#include "model/VRSizeResolver.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

#include <string>
#include <vector>

#include "model/TypeIdentifiers.h"
#include "model/VXHelperSize.h"
#include "platform/Log.h"

namespace {

// The drawing bits of the three methods: 24, 25 and 26 as the photo pipeline passes them.
constexpr auto kStretchBits = VRImageArrangementOriented | VRImageArrangementSourceColorSpace;
constexpr auto kFitBits = kStretchBits | VRImageArrangementFit;
constexpr auto kClipBits = kStretchBits | VRImageArrangementFill;
static_assert(kStretchBits == 24 && kFitBits == 25 && kClipBits == 26);

// Device classes 1 and 4 of the limit table.
const VRDeviceLimits kClass1{{8192, 8192}, {1920, 1080}, {960, 540}};
const VRDeviceLimits kClass2{{8192, 8192}, {3840, 2160}, {1280, 720}};
const VRDeviceLimits kClass4{{8192, 8192}, {4096, 2160}, {1280, 720}};

const VRSizeOptions kNormalStretch{VRSizeOptionNormal, VRSizeOptionStretch};

VRResolveRequest photo(CGSize source, VRSizeEntry entry, VRSizeOptions options = kNormalStretch) {
    VRResolveRequest r;
    r.mediaType = VRFormatMediaTypePhoto;
    r.sourceSize = source;
    r.sizeEntry = entry;
    r.options = std::move(options);
    r.format = VRFormat::formatWithType(VRFormatTypeJPEG);
    r.sourceTypeIdentifier = kUTTypeJPEG;
    r.limits = kClass4;
    return r;
}

VRResolveRequest video(CGSize natural, VRSizeEntry entry, VRSizeOptions options = kNormalStretch) {
    VRResolveRequest r = photo(natural, entry, std::move(options));
    r.mediaType = VRFormatMediaTypeVideo;
    r.format = VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, 2);
    r.sourceTypeIdentifier.clear();
    r.sourcePath = "/tmp/IMG_0002.MOV";
    return r;
}

VRSizeEntry pixels(double w, double h) {
    return VRSizeEntry::sizeEntryWithWidth(w, h, VRSizeTypePixels);
}
VRSizeEntry percent(double w, double h) {
    return VRSizeEntry::sizeEntryWithWidth(w, h, VRSizeTypePercent);
}

VRAdjustAssetStateRef adjust(std::optional<VROrientation> orientation, CGPoint displacement,
                             std::optional<VRColor> color = std::nullopt) {
    auto s = std::make_shared<VRAdjustAssetState>();
    s->setOrientation(orientation);
    s->setDisplacement(displacement);
    s->setFillColor(color);
    return s;
}

const VROrientation kQuarterTurn = VROrientation::orientationWithFlipedX(false, false, 1);

}  // namespace

TEST(VRSizeResolver, OutputSizesOfPhotosAndVideos) {
    const VRSizeOptions smart{VRSizeOptionSmart, VRSizeOptionStretch};
    const VRSizeOptions smartPortrait{VRSizeOptionSmart, VRSizeOptionStretch,
                                      VRSizeOptionTargetPortrait};
    const VRSizeOptions fit{VRSizeOptionNormal, VRSizeOptionRatioFit};
    struct Case {
        const char* what;
        VRResolveRequest request;
        CGSize output;
        CGSize frame;
    } cases[] = {
        {"uw-133 on a 4032 x 3024 photo",
         photo({4032, 3024}, percent(133, 100)),
         {5363, 3024},
         {5363, 3024}},
        {"uw-133 on a portrait photo",
         photo({3024, 4032}, percent(133, 100)),
         {4022, 4032},
         {4022, 4032}},
        {"odd photo sides stay odd", photo({1001, 401}, percent(50, 25)), {501, 100}, {501, 100}},
        {"Smart keeps the size for a square asset",
         photo({1000, 1000}, pixels(1200, 600), smart),
         {1200, 600},
         {1200, 600}},
        {"Smart turns it for a portrait asset",
         photo({999, 1000}, pixels(1200, 600), smart),
         {600, 1200},
         {600, 1200}},
        {"Smart for portrait targets turns it for a square asset",
         photo({1000, 1000}, pixels(600, 1200), smartPortrait),
         {1200, 600},
         {1200, 600}},
        {"Auto width in fit follows the source",
         photo({4000, 3000}, pixels(0, 600), fit),
         {800, 600},
         {800, 600}},
        {"Auto width in stretch keeps the source side",
         photo({4000, 3000}, pixels(0, 600)),
         {4000, 600},
         {4000, 600}},
        {"video sides are even", video({1920, 1080}, percent(33, 33)), {634, 356}, {634, 356}},
        {"tiny video grows to 16 on its short side",
         video({1920, 1080}, pixels(10, 4)),
         {40, 16},
         {40, 16}},
        {"a needle-thin video grows to 16 wide after the limit step",
         video({1920, 1080}, pixels(2, 0)),
         {16, 8640},
         {16, 8640}},
    };
    for (const auto& c : cases) {
        const VRResolvedOutput out = VXHelper::resolveOutput(c.request);
        EXPECT_FALSE(out.limitExceeded) << c.what;
        EXPECT_EQ(out.outputSize, c.output) << c.what;
        EXPECT_EQ(out.imageFrame.size, c.frame) << c.what;
    }
}

TEST(VRSizeResolver, LimitsOfThisMachine) {
    // A machine without a device model is class 4.
    const VRDeviceLimits limits = VRDeviceLimits::currentDevice();
    EXPECT_EQ(limits.maxPhotoSize, kClass4.maxPhotoSize);
    EXPECT_EQ(limits.maxVideoSize, kClass4.maxVideoSize);
    EXPECT_EQ(limits.minLivePhotoVideoSize, kClass4.minLivePhotoVideoSize);
}

TEST(VRSizeResolver, NormalModeTurnsTheSizeWithTheUsersQuarterTurn) {
    VRResolveRequest r = photo({4000, 3000}, pixels(1200, 600));
    r.adjustState = adjust(kQuarterTurn, {10, 0});
    VRResolvedOutput out = VXHelper::resolveOutput(r);
    EXPECT_EQ(out.outputSize, (CGSize{600, 1200}));
    // Drawn in the turned frame, with the displacement turned along.
    EXPECT_EQ(out.imageFrame, (CGRect{{0, 10}, {1200, 600}}));
    EXPECT_EQ(out.drawingOrientation, kQuarterTurn);

    // Smart decides by shape alone.
    r.options = {VRSizeOptionSmart, VRSizeOptionStretch};
    EXPECT_EQ(VXHelper::resolveOutput(r).outputSize, (CGSize{1200, 600}));

    // The image's own orientation comes first in the drawing orientation.
    r.sourceOrientation = VROrientation::orientationWithImageOrientation(VROrientation::upMirrored);
    EXPECT_EQ(VXHelper::resolveOutput(r).drawingOrientation,
              VROrientation::orientationWithFlipedX(true, false, 1));
}

TEST(VRSizeResolver, MethodFrameDisplacementAndFill) {
    struct Case {
        const char* what;
        VRSizeOptions options;
        std::uint64_t formatType;
        std::optional<VRColor> fill, defaultPhoto;
        VRImageArrangement arrangement;
        VRImageArrangementBits bits;
        CGSize picture;
        CGPoint displacement;
        std::optional<VRColor> expectedFill;
    } cases[] = {
        {"fit bounds the shift by the bars",
         {VRSizeOptionRatioFit, VRSizeOptionNormal},
         1,
         std::nullopt,
         std::nullopt,
         VRImageArrangement::fit,
         kFitBits,
         {1000, 750},
         {0, 250},
         VRColor::whiteColor()},
        {"clip bounds the shift by the overhang",
         {VRSizeOptionRatioClip},
         1,
         VRColor{0, 1, 0, 1},
         std::nullopt,
         VRImageArrangement::fill,
         kClipBits,
         {4000.0 / 3, 1000},
         {1000.0 / 3, 0},
         VRColor{0, 1, 0, 1}},
        {"clip wins over fit",
         {VRSizeOptionRatioFit, VRSizeOptionRatioClip},
         1,
         std::nullopt,
         std::nullopt,
         VRImageArrangement::fill,
         kClipBits,
         {4000.0 / 3, 1000},
         {1000.0 / 3, 0},
         VRColor::whiteColor()},
        {"stretch does not bound the shift",
         {VRSizeOptionStretch},
         1,
         std::nullopt,
         VRColor{0, 0, 1, 1},
         VRImageArrangement::stretch,
         kStretchBits,
         {1000, 1000},
         {500, 500},
         VRColor{0, 0, 1, 1}},
        {"PNG with no colour is clear",
         {VRSizeOptionRatioFit},
         3,
         std::nullopt,
         std::nullopt,
         VRImageArrangement::fit,
         kFitBits,
         {1000, 750},
         {0, 250},
         VRColor::clearColor()},
        {"PNG takes the default photo colour",
         {VRSizeOptionRatioFit},
         3,
         std::nullopt,
         VRColor{0.5, 0.5, 0.5, 1},
         VRImageArrangement::fit,
         kFitBits,
         {1000, 750},
         {0, 250},
         VRColor{0.5, 0.5, 0.5, 1}},
    };
    for (const auto& c : cases) {
        VRResolveRequest r = photo({4000, 3000}, pixels(1000, 1000), c.options);
        r.format = VRFormat::formatWithType(c.formatType);
        r.adjustState = adjust(std::nullopt, {500, 500}, c.fill);
        r.defaultPhotoColor = c.defaultPhoto;
        const VRResolvedOutput out = VXHelper::resolveOutput(r);
        EXPECT_EQ(out.arrangement, c.arrangement) << c.what;
        EXPECT_EQ(out.drawingArrangement, c.bits) << c.what;
        EXPECT_DOUBLE_EQ(out.pictureSize.width, c.picture.width) << c.what;
        EXPECT_DOUBLE_EQ(out.pictureSize.height, c.picture.height) << c.what;
        EXPECT_DOUBLE_EQ(out.imageFrame.origin.x, c.displacement.x) << c.what;
        EXPECT_DOUBLE_EQ(out.imageFrame.origin.y, c.displacement.y) << c.what;
        EXPECT_EQ(out.fillColor, c.expectedFill) << c.what;
    }
}

TEST(VRSizeResolver, PhotoOverTheLimitOffersTheCorrection) {
    struct Case {
        const char* what;
        CGSize source;
        VRDeviceLimits limits;
        CGSize correction;
    } cases[] = {
        {"9000 x 5000 at 100% on class 1", {9000, 5000}, kClass1, {8192, 4551}},
        {"portrait", {5000, 9000}, kClass1, {4551, 8192}},
        // Within the side but over the area: the correction is the same size.
        {"area only", {8000, 8100}, {{8192, 4096}, {}, {}}, {8000, 8100}},
    };
    for (const auto& c : cases) {
        VRResolveRequest r = photo(c.source, percent(100, 100));
        r.limits = c.limits;
        const VRResolvedOutput out = VXHelper::resolveOutput(r);
        ASSERT_TRUE(out.limitExceeded) << c.what;
        EXPECT_EQ(out.limitExceeded->originalSize, c.source) << c.what;
        EXPECT_EQ(out.limitExceeded->exceedingSize, c.source) << c.what;
        EXPECT_EQ(out.limitExceeded->correctingSize, c.correction) << c.what;
    }

    VRResolveRequest r = photo({9000, 5000}, percent(100, 100));
    r.limits = kClass1;
    const VRErrorRef error = VXHelper::resolveOutput(r).limitExceeded->error();
    EXPECT_EQ(error->domain(), "_vrErrorDomain");
    EXPECT_EQ(error->code(), 5);
    using platform::PlistArray;
    using platform::PlistValue;
    EXPECT_EQ(error->userInfo().at(VRErrorUserInfoOriginalSizeKey),
              PlistValue(PlistArray{PlistValue(9000.0), PlistValue(5000.0)}));
    EXPECT_EQ(error->userInfo().at(VRErrorUserInfoExceedingSizeKey),
              PlistValue(PlistArray{PlistValue(9000.0), PlistValue(5000.0)}));
    EXPECT_EQ(error->userInfo().at(VRErrorUserInfoCorrectingSizesKey),
              PlistValue(PlistArray{PlistArray{PlistValue(8192.0), PlistValue(4551.0)}}));

    // Accepting the correction runs again with it as an exact size: no limit check, and the
    // displacement follows the new size.
    r.explicitSize = CGSize{8192, 4551};
    r.adjustState = adjust(std::nullopt, {90, 50});
    const VRResolvedOutput accepted = VXHelper::resolveOutput(r);
    EXPECT_FALSE(accepted.limitExceeded);
    EXPECT_EQ(accepted.outputSize, (CGSize{8192, 4551}));
    EXPECT_DOUBLE_EQ(accepted.imageFrame.origin.x, 90 * 8192.0 / 9000);
    EXPECT_DOUBLE_EQ(accepted.imageFrame.origin.y, 50 * 4551.0 / 5000);
    r.explicitSize = CGSize{20000, 20000};
    EXPECT_FALSE(VXHelper::resolveOutput(r).limitExceeded);
}

TEST(VRSizeResolver, VideoOverTheLimit) {
    struct Case {
        const char* what;
        CGSize natural;
        VRDeviceLimits limits;
        std::optional<VROrientation> user;
        CGSize original, exceeding, correction;
    } cases[] = {
        {"4K on class 1",
         {3840, 2160},
         kClass1,
         std::nullopt,
         {3840, 2160},
         {3840, 2160},
         {1920, 1080}},
        {"4:3 on class 2 loses 2 from its width",
         {4000, 3000},
         kClass2,
         std::nullopt,
         {4000, 3000},
         {4000, 3000},
         {3324, 2494}},
        {"portrait against a landscape limit",
         {2160, 3840},
         kClass1,
         std::nullopt,
         {2160, 3840},
         {2160, 3840},
         {1080, 1920}},
        {"turned by the user",
         {3840, 2160},
         kClass1,
         kQuarterTurn,
         {3840, 2160},
         {2160, 3840},
         {1080, 1920}},
    };
    for (const auto& c : cases) {
        VRResolveRequest r = video(c.natural, percent(100, 100));
        r.limits = c.limits;
        if (c.user) r.adjustState = adjust(c.user, {});
        const VRResolvedOutput out = VXHelper::resolveOutput(r);
        ASSERT_TRUE(out.limitExceeded) << c.what;
        EXPECT_EQ(out.limitExceeded->originalSize, c.original) << c.what;
        EXPECT_EQ(out.limitExceeded->exceedingSize, c.exceeding) << c.what;
        EXPECT_EQ(out.limitExceeded->correctingSize, c.correction) << c.what;
        EXPECT_EQ(out.limitExceeded->error()->code(), 5) << c.what;
    }
    // The side test ignores orientation: 2160 x 3840 passes a 3840 x 2160 limit.
    VRResolveRequest r = video({2160, 3840}, percent(100, 100));
    r.limits = kClass2;
    EXPECT_FALSE(VXHelper::resolveOutput(r).limitExceeded);
}

TEST(VRSizeResolver, VideoTrackRotationAndFormat) {
    // A portrait phone video: 1920 x 1080 pixels turned a quarter by its track transform.
    VRResolveRequest r = video({1920, 1080}, percent(50, 50));
    r.sourceOrientation = VROrientation::orientationWithTransform({0, 1, -1, 0, 1080, 0});
    r.adjustState = adjust(std::nullopt, {10, 4});
    VRResolvedOutput out = VXHelper::resolveOutput(r);
    EXPECT_EQ(out.outputSize, (CGSize{540, 960}));
    EXPECT_EQ(out.imageFrame, (CGRect{{4, -10}, {960, 540}}));
    EXPECT_EQ(out.arrangement, VRImageArrangement::stretch);
    EXPECT_EQ(out.format.type(), VRFormatTypeMOV);

    struct FormatCase {
        std::string path;
        VRFormat format;
        VRFormatType expected;
    } formats[] = {
        {"/x/clip.mp4", VRFormat::formatWithTypeMediaType(0, 2), VRFormatTypeMP4},
        {"/x/clip.avi", VRFormat::formatWithTypeMediaType(0, 2), VRFormatTypeMOV},
        {"/x/clip.m4v", VRFormat::formatWithType(VRFormatType3GP), VRFormatType3GP},
    };
    for (const auto& c : formats) {
        r.sourcePath = c.path;
        r.format = c.format;
        EXPECT_EQ(VXHelper::resolveOutput(r).format.type(), c.expected) << c.path;
    }

    // An ordinary video prefers the setting's colour; without one the user's or none.
    r.options = {VRSizeOptionRatioFit};
    r.adjustState = adjust(std::nullopt, {}, VRColor{1, 0, 0, 1});
    r.defaultVideoColor = VRColor{0, 0, 1, 1};
    EXPECT_EQ(VXHelper::resolveOutput(r).fillColor, (VRColor{0, 0, 1, 1}));
    r.defaultVideoColor.reset();
    EXPECT_EQ(VXHelper::resolveOutput(r).fillColor, (VRColor{1, 0, 0, 1}));
    r.adjustState = nullptr;
    EXPECT_EQ(VXHelper::resolveOutput(r).fillColor, std::nullopt);
}

TEST(VRSizeResolver, PhotoFormatAndCompression) {
    struct Case {
        const char* what;
        std::uint64_t templateType;
        std::string sourceType;
        VRFormatType expected;
        float compression;
    } cases[] = {
        {"JPEG takes the run's compression", 1, kUTTypePNG, VRFormatTypeJPEG, 0.6f},
        {"HEIC takes the run's compression", 5, kUTTypePNG, VRFormatTypeHEIC, 0.6f},
        {"PNG keeps its own", 3, kUTTypeJPEG, VRFormatTypePNG, 1.0f},
        {"Auto from a PNG source", 0, kUTTypePNG, VRFormatTypePNG, 1.0f},
        {"Auto from a HEIC source keeps the default", 0, "public.heic", VRFormatTypeHEIC, 0.85f},
        {"Auto from an unknown source is JPEG at the run's compression", 0, "public.avif",
         VRFormatTypeJPEG, 0.6f},
    };
    for (const auto& c : cases) {
        VRResolveRequest r = photo({100, 100}, percent(100, 100));
        r.format = VRFormat::formatWithType(c.templateType);
        r.sourceTypeIdentifier = c.sourceType;
        r.photoCompression = 0.6f;
        const VRFormat format = VXHelper::resolveOutput(r).format;
        EXPECT_EQ(format.type(), c.expected) << c.what;
        EXPECT_EQ(format.compression(), c.compression) << c.what;
    }
}

namespace {

void collect(const std::string& line, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
}

}  // namespace

TEST(VRSizeResolver, LivePhotoVideoFollowsThePhoto) {
    struct Case {
        const char* what;
        CGSize natural, photo;
        CGPoint displacement;
        CGSize output;
        CGPoint shifted;
    } cases[] = {
        {"4K video kept to half the limit",
         {3840, 2160},
         {4032, 2268},
         {100, 50},
         {1920, 1080},
         {48, 24}},
        {"never wider than the photo",
         {3840, 2160},
         {1600, 900},
         {100, 50},
         {1600, 900},
         {100, 50}},
        {"small video grows to the Live Photo minimum",
         {640, 480},
         {4032, 3024},
         {0, 0},
         {960, 720},
         {0, 0}},
        {"a zero photo size leaves it, rounded even",
         {1001, 601},
         {0, 0},
         {0, 0},
         {1002, 602},
         {0, 0}},
    };
    for (const auto& c : cases) {
        VRResolveRequest r = video(c.natural, percent(100, 100));
        r.livePhotoVideo = true;
        r.pairedPhotoSize = c.photo;
        r.adjustState = adjust(std::nullopt, c.displacement);
        const VRResolvedOutput out = VXHelper::resolveOutput(r);
        EXPECT_FALSE(out.limitExceeded) << c.what;
        EXPECT_EQ(out.outputSize, c.output) << c.what;
        EXPECT_EQ(out.imageFrame.origin, c.shifted) << c.what;
        EXPECT_EQ(out.fillColor, VRColor::whiteColor()) << c.what;
    }

    std::vector<std::string> lines;
    platform::setLogSink(collect, &lines);
    VRResolveRequest r = video({3840, 2160}, percent(100, 100));
    r.livePhotoVideo = true;
    r.pairedPhotoSize = {4032, 2268};
    VXHelper::resolveOutput(r);
    platform::setLogSink(nullptr, nullptr);
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "~~ RESIZE VIDEO SIZE {1920, 1080} WHEN PHOTO TOTAL SIZE {4032, 2268}"),
              lines.end());

    // Over the limit the video half is never refused: it takes the correction.
    r = video({4000, 3000}, percent(100, 100));
    r.livePhotoVideo = true;
    r.pairedPhotoSize = {8000, 6000};
    r.limits = kClass2;
    // 4000 is over the limit's larger side, so the half-limit step does not apply.
    const VRResolvedOutput out = VXHelper::resolveOutput(r);
    EXPECT_FALSE(out.limitExceeded);
    EXPECT_EQ(out.outputSize, (CGSize{3324, 2494}));
}
