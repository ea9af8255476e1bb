#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "core/VRProcessor.h"
#include "platform/Dispatch.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/MediaTestSupport.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "templates/TemplateManager.h"

namespace {

using media_test::has;
using media_test::makeMovie;
using media_test::probe;
using platform::FileManager;

struct StageResult {
    bool finished = false;
    VRAssetRef result;
    VRErrorRef error;
};

StageResult process(const VRAssetRef& asset, const std::string& templateKey) {
    auto tpl = TemplateManager::shared().templateWithKey(templateKey);
    EXPECT_TRUE(tpl) << templateKey;
    auto state = std::make_shared<StageResult>();
    VRProcessor::mainProcessor().processAsset(asset, tpl, nullptr, CGSizeZero, nullptr,
                                              [state](VRAssetRef r, VRErrorRef e) {
                                                  state->finished = true;
                                                  state->result = r;
                                                  state->error = e;
                                              });
    platform::MainRunLoop::runUntil([&] { return state->finished; }, std::chrono::seconds(60));
    EXPECT_TRUE(state->finished);
    return *state;
}

VRAssetRef urlAsset(const std::string& path) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path));
}

std::vector<std::string> contents(const std::string& folder) {
    return FileManager::contentsOfDirectoryAtPath(folder).value_or(std::vector<std::string>{});
}

std::string temporaryVideos() {
    return VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
}

// A movie goes through the processor at the resolved size; a movie without video ends with
// code 1 and nothing left behind.
TEST(VideoStageMedia, MoviesEndAsResultsOrWithCode1) {
    testing_support::TestHome home;
    const std::string clip = makeMovie(home, "clip.mov",
                                       "-f lavfi -i testsrc2=size=150x84:rate=25 -f lavfi -i "
                                       "sine=sample_rate=48000 -t 0.3 -c:v libx264 -pix_fmt "
                                       "yuv420p -c:a aac");
    const std::string sound =
        makeMovie(home, "sound.mov", "-f lavfi -i sine=sample_rate=48000 -t 0.3 -c:a aac");
    ASSERT_FALSE(clip.empty() || sound.empty());

    StageResult done = process(urlAsset(clip), "uw-133");
    ASSERT_FALSE(done.error) << done.error->description();
    ASSERT_TRUE(done.result);
    auto* stored = dynamic_cast<const VRLocalAsset*>(done.result->object().get());
    ASSERT_TRUE(stored);
    const std::string out = stored->url();
    EXPECT_TRUE(has(probe(out, "-select_streams v -show_entries stream=width,height"),
                    "width=200\nheight=84"));
    EXPECT_EQ(VRProcessor::mainProcessor().videoResizerCount(), 0u);

    StageResult failed = process(urlAsset(sound), "uw-133");
    EXPECT_FALSE(failed.result);
    ASSERT_TRUE(failed.error);
    EXPECT_EQ(failed.error->code(), 1);
    EXPECT_TRUE(failed.error->userInfo().empty());
    // The result went into the store; nothing is left beside it.
    EXPECT_TRUE(contents(temporaryVideos()).empty());
    EXPECT_EQ(VRProcessor::mainProcessor().videoResizerCount(), 0u);
}

// A Live Photo with auto-save and Live Photos on: the still, then its movie at the still's
// size, saved as one library pair. A movie that fails is dropped silently: the still comes
// alone, the stage's temporary link to the movie is removed and the user's movie is untouched.
TEST(VideoStageMedia, LivePhotoPairsAndDropsAFailedMovie) {
    testing_support::TestHome home;
    auto library = photolibrary_test::openLibrary(home);
    ASSERT_TRUE(library);
    VRAssetManager2::defaultManager().setPhotoLibrary(library);
    VRSettings::setAutoSaveEnabled(true);
    VRSettings::setLivePhotoEnabled(true);
    const std::string still = home.path("still.jpg");
    ASSERT_EQ(
        testing_support::runCommand("convert -size 400x300 gradient:red-blue '" + still + "'"), 0);
    const std::string movie = makeMovie(home, "movie.mov",
                                        "-f lavfi -i testsrc2=size=320x240:rate=25 -t 0.3 "
                                        "-c:v libx264 -pix_fmt yuv420p");
    const std::string sound =
        makeMovie(home, "sound.mov", "-f lavfi -i sine=sample_rate=48000 -t 0.3 -c:a aac");
    ASSERT_FALSE(movie.empty() || sound.empty());

    auto live = VRAsset::assetWithObject(VRURLAsset::livePhotoAssetWithURL(still, movie));
    StageResult pair = process(live, "uw-133");
    ASSERT_FALSE(pair.error) << pair.error->description();
    ASSERT_TRUE(pair.result);
    auto* object = dynamic_cast<const VRLibraryAsset*>(pair.result->object().get());
    ASSERT_TRUE(object && object->livePhoto() && object->moviePath());
    EXPECT_TRUE(has(probe(*object->moviePath(), "-show_entries stream=width,height"),
                    "width=532\nheight=300"));
    EXPECT_TRUE(FileManager::fileExistsAtPath(object->primaryPath().value_or("")));

    auto broken = VRAsset::assetWithObject(VRURLAsset::livePhotoAssetWithURL(still, sound));
    StageResult alone = process(broken, "uw-133");
    ASSERT_FALSE(alone.error);
    ASSERT_TRUE(alone.result);
    auto* single = dynamic_cast<const VRLibraryAsset*>(alone.result->object().get());
    ASSERT_TRUE(single);
    EXPECT_FALSE(single->livePhoto());
    // No link to the movie is left in this process's temporary folder.
    EXPECT_TRUE(
        contents(VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory())).empty());
    EXPECT_TRUE(FileManager::fileExistsAtPath(sound));
    VRAssetManager2::defaultManager().setAutoSaveAlbumName("");
    VRAssetManager2::defaultManager().setPhotoLibrary(nullptr);
}

// The failure details of an encode describe the source movie and the target, for a movie with
// tracks and for one with none.
TEST(VideoStageMedia, FailureDetails) {
    testing_support::TestHome home;
    const std::string clip = makeMovie(home, "clip.mp4",
                                       "-f lavfi -i testsrc2=size=64x36:rate=25 -f lavfi -i "
                                       "sine=sample_rate=48000 -t 0.4 -c:v libx264 -pix_fmt "
                                       "yuv420p -c:a aac");
    ASSERT_FALSE(clip.empty());
    platform::PlistDictionary extra = {{"Operation", "Encode"}, {"Error", "None"}};
    auto details = VRProcessor::_videoAssetErrorDetails(
        AVAsset::assetWithURL(clip), VRFormat::formatWithType(VRFormatTypeMOV),
        {VRSizeOptionRatioFit, VRSizeOptionNormal, 6}, 2'000'000, {200, 84}, {4, -2}, extra);
    auto text = [&](const std::string& key) {
        const std::string* s = details[key].string();
        return s ? *s : "(missing " + key + ")";
    };
    EXPECT_EQ(text("Operation"), "Encode");
    EXPECT_EQ(text("Source"), "MP4");
    EXPECT_EQ(text("Source Extension"), "mp4");
    EXPECT_EQ(text("Source Number of tracks"), "2");
    EXPECT_EQ(text("Source Duration").substr(0, 3), "0.4");
    EXPECT_EQ(text("Source Track 0"), "vide");
    EXPECT_EQ(text("Source Track 0 frame rate"), "25.00");
    EXPECT_EQ(text("Source Track 0 size"), "{64, 36}");
    EXPECT_EQ(text("Source Track 1"), "soun");
    ASSERT_TRUE(details["Source Track 0 description #0"].array());
    EXPECT_FALSE(details["Source Track 0 description #0"].array()->empty());
    EXPECT_EQ(text("Target format"), "MOV");
    EXPECT_EQ(text("Target options"), "Ratio Fit, Size normal");
    EXPECT_EQ(text("Target bitrate"), "2000000");
    EXPECT_EQ(text("Target size"), "{200, 84}");
    EXPECT_EQ(text("Target displacement"), "{4, -2}");

    auto none = VRProcessor::_videoAssetErrorDetails(AVAsset::assetWithURL(home.path("no.mov")),
                                                     VRFormat::formatWithType(VRFormatTypeMOV), {},
                                                     0, {}, {}, extra);
    EXPECT_EQ(none["Source Number of tracks"], platform::PlistValue("0"));
    EXPECT_TRUE(none["Source Track 0"].isNull());
}

// Run in a child process under a file size limit (see the test below).
TEST(VideoStageMedia, DiskFullChild) {
    const char* home = std::getenv("UNWARP_STAGE_DISK_FULL_HOME");
    const char* source = std::getenv("UNWARP_STAGE_DISK_FULL_SOURCE");
    if (!home || !source) GTEST_SKIP() << "runs only as the child of DiskFullEndsWithCode17";
    platform::Environment::setHomeRoot(std::string(home));
    VRSettings::setVideoBitrateAuto(false);
    VRSettings::setVideoBitrate(20);
    StageResult r = process(urlAsset(source), "uw-133");
    std::printf("RESULT code=%lld encode=%d left=%zu\n",
                r.error ? static_cast<long long>(r.error->code()) : 0LL,
                r.error && r.error->userInfo().count("Operation") ? 1 : 0,
                contents(temporaryVideos()).size());
}

// A full disk during the encode (a file size limit) ends the asset with code 17, the details
// attached, and the partial file removed.
TEST(VideoStageMedia, DiskFullEndsWithCode17) {
    testing_support::TestHome home;
    const std::string source = media_test::makeNoiseMovie(home);
    ASSERT_FALSE(source.empty());
    const std::string output =
        media_test::runUnderFileSizeLimit("UNWARP_STAGE_DISK_FULL_HOME='" + home.root() +
                                              "' UNWARP_STAGE_DISK_FULL_SOURCE='" + source + "'",
                                          "VideoStageMedia.DiskFullChild");
    EXPECT_TRUE(has(output, "RESULT code=17 encode=1 left=0")) << output;
}

}  // namespace
