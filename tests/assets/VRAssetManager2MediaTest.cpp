#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "assets/VRAssetManager2.h"
#include "assets/VRDataAsset.h"
#include "assets/VRFileAsset.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/AVAssetImageGenerator.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "platform/PhotoLibraryTestSupport.h"

using namespace photolibrary_test;
using testing_support::TestHome;

namespace {

// A library under the home with the asset manager pointed at it for the test's length.
class ManagerLibrary {
  public:
    explicit ManagerLibrary(const TestHome& home) : library(openLibrary(home)) {
        VRAssetManager2::defaultManager().setPhotoLibrary(library);
    }
    ~ManagerLibrary() { VRAssetManager2::defaultManager().setPhotoLibrary(nullptr); }

    // The asset whose first file has this name.
    VRAssetRef asset(const std::string& name) const {
        for (auto& found : library->fetchAssetsWithOptions({}).objects())
            if (nameOf(found.resources.at(0).path) == name)
                return VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(found), 0);
        return nullptr;
    }
    std::shared_ptr<platform::PhotoLibrary> library;
};

std::optional<platform::Bitmap> thumbnailOf(const VRAssetRef& asset, CGSize target,
                                            PHImageContentMode mode) {
    bool done = false;
    std::optional<platform::Bitmap> image;
    VRAssetManager2::defaultManager().requestThumbnailForAsset(asset, target, true, mode, false,
                                                               [&](auto result) {
                                                                   image = std::move(result);
                                                                   done = true;
                                                               });
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(30)));
    return image;
}

std::pair<std::optional<std::vector<std::uint8_t>>, std::string> imageDataOf(
    const VRAssetRef& asset) {
    bool done = false;
    std::pair<std::optional<std::vector<std::uint8_t>>, std::string> answer;
    VRAssetManager2::defaultManager().requestImageDataAsyncForAsset(
        asset, nullptr, [&](auto data, std::string uti) {
            answer = {std::move(data), std::move(uti)};
            done = true;
        });
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(30)));
    return answer;
}

std::string sizeText(const std::optional<platform::Bitmap>& image) {
    return image ? std::to_string(image->width()) + "x" + std::to_string(image->height()) : "none";
}

}  // namespace

// Every kind draws at its own proportions, fitted inside or covering the target, never larger
// than the picture.
TEST(VRAssetManager2Media, ThumbnailsOfEveryKindFitAndFill) {
    TestHome home;
    makeJpeg(home.path("Pictures/Trip/photo.jpg"), 400, 300);
    makeMovie(home.path("Pictures/Trip/clip.mp4"));
    makeJpeg(home.path("loose.jpg"), 400, 300);
    makeMovie(home.path("loose.mp4"));
    makeJpeg(home.path("local-thumb.jpg"), 30, 20);
    ManagerLibrary manager(home);
    auto bytes = bytesOf(home.path("loose.jpg"));
    auto data = VRAsset::assetWithObject(
        VRDataAsset::dataAssetWithData(std::vector<std::uint8_t>(bytes.begin(), bytes.end())));
    auto local = VRAsset::assetWithObject(VRLocalAsset::localAssetWithIdentifier(
        "L1", VRFormatMediaTypePhoto, home.path("loose.jpg"), home.path("local-thumb.jpg"),
        std::nullopt, platform::PlistDate::fromTimeIntervalSince1970(0)));
    struct Row {
        const char* label;
        VRAssetRef asset;
        CGSize target;
        const char* fit;
        const char* fill;
    } rows[] = {
        {"library photo", manager.asset("photo.jpg"), {100, 100}, "100x75", "133x100"},
        {"library movie", manager.asset("clip.mp4"), {32, 32}, "32x24", "43x32"},
        {"URL photo",
         VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("loose.jpg"))),
         {100, 100},
         "100x75",
         "133x100"},
        {"URL movie",
         VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("loose.mp4"))),
         {32, 32},
         "32x24",
         "43x32"},
        {"data photo", data, {100, 100}, "100x75", "133x100"},
        {"library photo, target above its size",
         manager.asset("photo.jpg"),
         {800, 800},
         "400x300",
         "400x300"},
        // A local asset shows its stored thumbnail as it is.
        {"local photo", local, {100, 100}, "30x20", "30x20"},
        // A file asset keeps thumbnails by width, drawn whole.
        {"file photo",
         VRAsset::assetWithObject(VRFileAsset::fileAssetWithURL(home.path("loose.jpg"))),
         {100, 100},
         "100x75",
         "100x75"},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(row.asset) << row.label;
        EXPECT_EQ(sizeText(thumbnailOf(row.asset, row.target, PHImageContentModeAspectFit)),
                  row.fit)
            << row.label;
        EXPECT_EQ(sizeText(thumbnailOf(row.asset, row.target, PHImageContentModeAspectFill)),
                  row.fill)
            << row.label;
    }
    // URL photos leave their drawn thumbnails as files in the thumbnails folder.
    EXPECT_EQ(testing_support::namesIn(VRAssetManager2::thumbnailURL()).size(), 2u);
}

TEST(VRAssetManager2Media, ImageDataOfLibraryPhotoMovieAndGoneAsset) {
    TestHome home;
    makeJpeg(home.path("Pictures/photo.jpg"), 40, 30);
    makeMovie(home.path("Pictures/clip.mp4"));
    ManagerLibrary manager(home);

    auto [photo, photoType] = imageDataOf(manager.asset("photo.jpg"));
    ASSERT_TRUE(photo);
    auto file = bytesOf(home.path("Pictures/photo.jpg"));
    EXPECT_EQ(*photo, std::vector<std::uint8_t>(file.begin(), file.end()));
    EXPECT_EQ(photoType, "public.jpeg");

    // A movie gives one of its frames as a picture of its size.
    auto [frame, frameType] = imageDataOf(manager.asset("clip.mp4"));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frameType, "public.png");
    auto source = platform::ImageSource::createWithData(*frame);
    ASSERT_TRUE(source);
    auto decoded = source->createImageAtIndex(0);
    EXPECT_EQ(sizeText(decoded), "64x48");

    // Deleted behind the wrapper's back: empty answers, no crash.
    auto gone = manager.asset("photo.jpg");
    std::filesystem::remove(home.path("Pictures/photo.jpg"));
    EXPECT_FALSE(imageDataOf(gone).first);
    EXPECT_FALSE(thumbnailOf(gone, {50, 50}, PHImageContentModeAspectFit));
    EXPECT_FALSE(imageDataOf(nullptr).first);
    bool answered = false;
    VRAssetManager2::defaultManager().requestInfoForAsset(gone, [&](auto info) {
        answered = true;
        EXPECT_TRUE(info.empty());
    });
    EXPECT_TRUE(answered);
}

// The Live Photo's movie is its paired file, reached through a link of the still's name.
TEST(VRAssetManager2Media, LivePhotoAVAssetIsItsPairedMovie) {
    TestHome home;
    makeJpeg(home.path("Pictures/live.jpg"), 60, 40);
    tagStillContentIdentifier(home.path("Pictures/live.jpg"), "P1");
    makeMovie(home.path("Pictures/live.mov"),
              "-metadata com.apple.quicktime.content.identifier=P1 -movflags use_metadata_tags");
    ManagerLibrary manager(home);
    auto live = manager.asset("live.jpg");
    ASSERT_TRUE(live && live->livePhoto());
    auto& assets = VRAssetManager2::defaultManager();
    AVAssetRef movie;
    assets.requestAVAssetForAsset(live, [&](AVAssetRef m) { movie = std::move(m); });
    ASSERT_TRUE(movie);
    EXPECT_EQ(nameOf(movie->URL()), "live-livePhotoVideo.mov");
    EXPECT_EQ(bytesOf(movie->URL()), bytesOf(home.path("Pictures/live.mov")));
    EXPECT_EQ(assets.urlForVideoAsset(live), std::optional(movie->URL()));
    bool answered = false;
    assets.requestInfoForAsset(live, [&](platform::PlistDictionary info) {
        answered = true;
        EXPECT_EQ(*info["pairedPath"].string(), home.path("Pictures/live.mov"));
        EXPECT_EQ(*info["fileName"].string(), "live.jpg");
    });
    EXPECT_TRUE(answered);
}

TEST(VRAssetManager2Media, CollectionsRecentsAndUnsavedItems) {
    TestHome home;
    makeJpeg(home.path("Pictures/Trip/old.jpg"), 20, 10, "'-DateTimeOriginal=2020:01:01 10:00:00'");
    makeJpeg(home.path("Pictures/Trip/new.jpg"), 20, 10, "'-DateTimeOriginal=2022:01:01 10:00:00'");
    makeJpeg(home.path("Pictures/Home/mid.jpg"), 30, 10, "'-DateTimeOriginal=2021:01:01 10:00:00'");
    makeMovie(home.path("Pictures/Home/clip.mp4"), "-metadata creation_time=2019-01-01T10:00:00Z");
    ManagerLibrary manager(home);
    auto& assets = VRAssetManager2::defaultManager();

    std::vector<std::pair<std::string, std::size_t>> listed;
    for (const auto& collection : assets.collectionsExcludingRecents(false))
        listed.emplace_back(collection.localizedTitle(), collection.estimatedAssetCount());
    EXPECT_EQ(listed, (std::vector<std::pair<std::string, std::size_t>>{
                          {"Recents", 4}, {"Home", 2}, {"Trip", 2}}));
    EXPECT_EQ(assets.collectionsExcludingRecents(true).size(), 2u);

    auto recents =
        assets.collectionWithType(VRCollectionTypeAssetCollection, VRRecentsCollectionIdentifier);
    ASSERT_TRUE(recents && VRAssetManager2::isCameraRoll(*recents));
    std::map<VRFormatMediaType, std::set<std::pair<double, double>>> shapes;
    std::vector<std::string> names;
    for (const auto& asset : assets.assetsForCollection(*recents, &shapes))
        names.push_back(asset->originalFilename());
    EXPECT_EQ(names, (std::vector<std::string>{"new.jpg", "mid.jpg", "old.jpg", "clip.mp4"}));
    EXPECT_EQ(shapes[VRFormatMediaTypePhoto],
              (std::set<std::pair<double, double>>{{20, 10}, {30, 10}}));
    EXPECT_EQ(shapes[VRFormatMediaTypeVideo].size(), 1u);
    std::size_t count = 0;
    auto key = assets.keyAssetForCollection(*recents, &count);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(key->originalFilename(), "new.jpg");

    // Samples are the newest photos, never a movie.
    names.clear();
    for (const auto& asset : assets.sampleAssets(5)) names.push_back(asset->originalFilename());
    EXPECT_EQ(names, (std::vector<std::string>{"new.jpg", "mid.jpg", "old.jpg"}));
    EXPECT_EQ(assets.sampleAssets(1).size(), 1u);

    // Images only leaves the movie out of the lists.
    assets.setLoadImagesOnly(true);
    EXPECT_EQ(assets.collectionsExcludingRecents(false).at(1).estimatedAssetCount(), 1u);
    assets.setLoadImagesOnly(false);

    // The unsaved items are the files of their folder, as URL assets marked 2.
    const std::string unsaved = VRAssetManager2::unsavedItemsDirectory();
    makeJpeg(unsaved + "/a.jpg", 10, 10);
    makeJpeg(unsaved + "/b.jpg", 10, 10);
    std::filesystem::create_directories(unsaved + "/folder");
    auto pseudo = assets.collectionsWithTypes({VRCollectionTypeUnsaved, VRCollectionTypeClipboard});
    ASSERT_EQ(pseudo.size(), 2u);
    EXPECT_EQ(pseudo[0].objectIdentifier(), "vr-unsaved");
    EXPECT_EQ(pseudo[0].estimatedAssetCount(), 2u);
    auto items = assets.assetsForCollection(pseudo[0], nullptr);
    ASSERT_EQ(items.size(), 2u);
    for (const auto& item : items) {
        EXPECT_EQ(item->type(), VRAssetIdentifierTypeURL);
        EXPECT_EQ(item->flag(), VRAssetFlagUnsaved);
    }
}

// Identifiers come back as assets in their order with their flags; the missing are left out.
// A rescan tells which assets changed and which are gone.
TEST(VRAssetManager2Media, IdentifiersBackToAssetsAndReload) {
    TestHome home;
    makeJpeg(home.path("Pictures/a.jpg"), 20, 10);
    makeJpeg(home.path("Pictures/b.jpg"), 20, 10);
    makeJpeg(home.path("Pictures/c.jpg"), 20, 10);
    makeJpeg(home.path("loose.jpg"), 20, 10);
    ManagerLibrary manager(home);
    auto& assets = VRAssetManager2::defaultManager();
    auto a = manager.asset("a.jpg"), b = manager.asset("b.jpg"), c = manager.asset("c.jpg");

    auto found = assets.assetsWithAssetIdentifiers({
        VRAssetIdentifier(b->objectIdentifier(), VRAssetIdentifierTypeLibrary, 7),
        VRAssetIdentifier("NOT-THERE/L0/001", VRAssetIdentifierTypeLibrary),
        VRAssetIdentifier(home.path("loose.jpg"), VRAssetIdentifierTypeURL, 2),
        VRAssetIdentifier(home.path("missing.jpg"), VRAssetIdentifierTypeURL),
        VRAssetIdentifier(a->objectIdentifier(), VRAssetIdentifierTypeLibrary),
    });
    ASSERT_EQ(found.size(), 3u);
    EXPECT_TRUE(found[0]->isEqual(*b));
    EXPECT_EQ(found[0]->flag(), 7u);
    EXPECT_EQ(found[1]->objectIdentifier(), home.path("loose.jpg"));
    EXPECT_EQ(found[1]->flag(), 2u);
    EXPECT_TRUE(found[2]->isEqual(*a));

    makeJpeg(home.path("Pictures/b.jpg"), 50, 40);
    std::filesystem::remove(home.path("Pictures/c.jpg"));
    auto reloaded = assets.reloadAssets({a, b, c});
    ASSERT_EQ(reloaded.assets.size(), 2u);
    EXPECT_TRUE(reloaded.assets[0]->isEqual(*a));
    ASSERT_EQ(reloaded.modified.size(), 1u);
    EXPECT_EQ(reloaded.modified[0]->pixelSize(), (CGSize{50, 40}));
    ASSERT_EQ(reloaded.vanished.size(), 1u);
    EXPECT_TRUE(reloaded.vanished[0]->isEqual(*c));
}

// A turned movie's frame comes out as the movie is shown, the same way ffmpeg turns it.
TEST(VRAssetManager2Media, FrameOfATurnedMovieIsUpright) {
    TestHome home;
    const std::string plain = home.path("plain.mp4"), turned = home.path("turned.mp4");
    // Four quadrants of four colours, so that any turn or mirror shows.
    run("convert -size 32x24 xc:red -size 32x24 xc:lime +append \\( -size 32x24 xc:blue -size "
        "32x24 xc:yellow +append \\) -append '" +
        home.path("quad.png") + "'");
    run("ffmpeg -nostdin -v error -y -loop 1 -i '" + home.path("quad.png") +
        "' -t 0.3 -r 10 -pix_fmt yuv420p '" + plain + "'");
    run("ffmpeg -nostdin -v error -y -i '" + plain + "' -c copy -metadata:s:v:0 rotate=90 '" +
        turned + "'");
    run("ffmpeg -nostdin -v error -y -i '" + turned + "' -frames:v 1 '" + home.path("ref.png") +
        "'");
    auto reference =
        platform::ImageSource::createWithURL(home.path("ref.png"))->createImageAtIndex(0);
    ASSERT_TRUE(reference);

    auto generator =
        AVAssetImageGenerator::assetImageGeneratorWithAsset(AVAsset::assetWithURL(turned));
    auto stored = generator->copyCGImageAtTime(kCMTimeZero, nullptr, nullptr);
    EXPECT_EQ(sizeText(stored), "64x48");
    generator->setAppliesPreferredTrackTransform(true);
    auto shown = generator->copyCGImageAtTime(kCMTimeZero, nullptr, nullptr);
    ASSERT_EQ(sizeText(shown), sizeText(reference));
    // The quadrants agree with ffmpeg's own turning, within coding noise.
    for (auto [x, y] :
         std::vector<std::pair<std::size_t, std::size_t>>{{12, 16}, {36, 16}, {12, 48}, {36, 48}}) {
        auto p = shown->pixelAt(x, y), q = reference->pixelAt(x, y);
        EXPECT_NEAR(p.r, q.r, 0x3000) << x << "," << y;
        EXPECT_NEAR(p.g, q.g, 0x3000) << x << "," << y;
        EXPECT_NEAR(p.b, q.b, 0x3000) << x << "," << y;
    }
    EXPECT_FALSE(AVAssetImageGenerator::assetImageGeneratorWithAsset(
                     AVAsset::assetWithURL(home.path("missing.mp4")))
                     ->copyCGImageAtTime(kCMTimeZero, nullptr, nullptr));
}

// Previews are stretched to the size asked for, photos and movies alike; a missing asset or an
// empty size gives nothing.
TEST(VRAssetManager2Media, PreviewsTakeTheSizeAskedFor) {
    TestHome home;
    makeJpeg(home.path("Pictures/photo.jpg"), 400, 300);
    makeMovie(home.path("Pictures/clip.mp4"));
    ManagerLibrary manager(home);
    auto preview = [](const VRAssetRef& asset, CGSize size) {
        bool done = false;
        std::optional<platform::Bitmap> image;
        VRAssetManager2::defaultManager().requestPreviewImageForAsset(asset, size, [&](auto i) {
            image = std::move(i);
            done = true;
        });
        EXPECT_TRUE(
            platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(30)));
        return sizeText(image);
    };
    EXPECT_EQ(preview(manager.asset("photo.jpg"), {120, 90}), "120x90");
    EXPECT_EQ(preview(manager.asset("photo.jpg"), {50, 50}), "50x50");
    EXPECT_EQ(preview(manager.asset("clip.mp4"), {32, 24}), "32x24");
    EXPECT_EQ(preview(manager.asset("photo.jpg"), {0, 0}), "none");
    EXPECT_EQ(preview(nullptr, {10, 10}), "none");
}

// A request cancelled before its turn on the queue answers nothing; other assets' requests
// and later ones are not affected.
TEST(VRAssetManager2Media, CancelledDataRequestsAnswerNothing) {
    TestHome home;
    makeJpeg(home.path("Pictures/a.jpg"), 20, 10);
    makeJpeg(home.path("Pictures/b.jpg"), 20, 10);
    ManagerLibrary manager(home);
    auto& assets = VRAssetManager2::defaultManager();
    auto a = manager.asset("a.jpg"), b = manager.asset("b.jpg");
    int answered = 0;
    bool aHad = true, bHad = false;
    // The main queue runs only in the loop below, so both wait there while `a` is cancelled.
    assets.requestImageDataAsyncForAsset(a, nullptr, [&](auto data, std::string) {
        aHad = data.has_value();
        ++answered;
    });
    assets.requestImageDataAsyncForAsset(b, nullptr, [&](auto data, std::string) {
        bHad = data.has_value();
        ++answered;
    });
    assets.cancelRequestsForAsset(a);
    EXPECT_TRUE(
        platform::MainRunLoop::runUntil([&] { return answered == 2; }, std::chrono::seconds(30)));
    EXPECT_FALSE(aHad);
    EXPECT_TRUE(bHad);
    EXPECT_TRUE(imageDataOf(a).first);
}
