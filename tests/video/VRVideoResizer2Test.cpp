#include "video/VRVideoResizer2.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <vector>

#include "platform/AVError.h"
#include "platform/FileManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "support/TestHome.h"
#include "video/LegacyManager.h"
#include "video/VideoJobSupport.h"

namespace {

using Case = VRVideoResizer2::ResizeError::Case;

// The fractions a client sees: per frame (seconds + finished) / duration, per track the
// finished part counted twice, never above 1, and 0 while the duration is 0.
TEST(VRInternalStateManager, ProgressFractions) {
    auto state = VRInternalStateManager::create();
    std::mutex mutex;
    std::vector<double> seen;
    state->makeProgressManager([&](double f) {
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(f);
    });
    auto progress = state->progressManager();
    ASSERT_TRUE(progress);
    // A read on the state queue waits for the barriers before it.
    auto flush = [&] { state->isCancelled(); };

    progress->frameProgress(1);  // no duration yet
    progress->setDuration(4);
    flush();
    progress->frameProgress(1);
    progress->frameProgress(6);
    progress->trackProgress(1);  // (1 + 1) / 4
    flush();
    progress->frameProgress(0.5);  // (0.5 + 1) / 4
    progress->trackProgress(2);    // (3 + 2) / 4, held at 1
    flush();
    progress->setDuration(0);
    flush();
    progress->frameProgress(3);
    const std::vector<double> expected = {0, 0.25, 1, 0.5, 0.375, 1, 0};
    EXPECT_EQ(seen, expected);
}

TEST(VRInternalStateManager, CancelStaysSetAndManagersAreReplaced) {
    auto state = VRInternalStateManager::create();
    EXPECT_FALSE(state->isCancelled());
    EXPECT_FALSE(state->progressManager());
    state->cancel();
    EXPECT_TRUE(state->isCancelled());
    EXPECT_TRUE(state->isCancelled());
    int first = 0, second = 0;
    state->makeProgressManager([&](double) { ++first; });
    state->makeProgressManager([&](double) { ++second; });
    state->progressManager()->frameProgress(0);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
}

TEST(VRVideoResizer2, ErrorsMapToStatuses) {
    const auto reason = platform::avError(AVErrorDiskFull, "full");
    struct Row {
        Case kind;
        VRVideoResizeStatus status;
        bool passesError;
    };
    const Row rows[] = {
        {Case::nilReader, VRVideoResizeStatus::failed, true},
        {Case::nilWriter, VRVideoResizeStatus::failed, true},
        {Case::readingError, VRVideoResizeStatus::failed, true},
        {Case::writingError, VRVideoResizeStatus::failed, true},
        {Case::writerFailed, VRVideoResizeStatus::failed, true},
        {Case::unknownError, VRVideoResizeStatus::failed, false},
        {Case::cancelled, VRVideoResizeStatus::cancelled, false},
        {Case::trackNotFound, VRVideoResizeStatus::trackNotFound, false},
        {Case::invalidReaderOutput, VRVideoResizeStatus::failed, false},
        {Case::invalidWriterInput, VRVideoResizeStatus::failed, true},
        {Case::outputBusy, VRVideoResizeStatus::failed, false},
    };
    for (const Row& row : rows) {
        auto [status, error] = VRVideoResizer2::ResizeError{row.kind, reason}.outcome();
        EXPECT_EQ(status, row.status) << static_cast<int>(row.kind);
        EXPECT_EQ(error == reason, row.passesError) << static_cast<int>(row.kind);
    }
}

// The output is named by the identifier and the format's extension alone, in a folder of the
// job's own inside this process's temporary folder: two jobs of one name never share a file,
// and the emptied folder goes once the file is taken, but never a folder holding anything.
TEST(VRVideoResizer2, OutputPath) {
    testing_support::TestHome home;
    VRVideoResizeOptions options;
    options.fileFormat = VRFormat::formatWithType(VRFormatTypeMP4);
    auto a =
        VRVideoResizer2::resizerWithAsset(AVAsset::assetWithURL("/x/a.mov"), "IMG_1-uwrp", options);
    auto b =
        VRVideoResizer2::resizerWithAsset(AVAsset::assetWithURL("/y/b.mov"), "IMG_1-uwrp", options);
    const std::filesystem::path own =
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
    for (const auto& job : {a, b}) {
        const std::filesystem::path output = job->outputURL();
        EXPECT_EQ(output.filename(), "IMG_1-uwrp.mp4");
        EXPECT_EQ(output.parent_path().parent_path(), own);
    }
    EXPECT_NE(a->outputURL(), b->outputURL());

    const std::filesystem::path folder = std::filesystem::path(a->outputURL()).parent_path();
    std::filesystem::create_directories(folder);
    std::ofstream(a->outputURL()) << "x";
    VRVideoResizer2::removeEmptyJobFolderOfOutput(a->outputURL());
    EXPECT_TRUE(std::filesystem::exists(a->outputURL())) << "a folder holding the file stays";
    std::filesystem::remove(a->outputURL());
    VRVideoResizer2::removeEmptyJobFolderOfOutput(a->outputURL());
    EXPECT_FALSE(std::filesystem::exists(folder));
    // The process's own folder is no job's folder, empty or not.
    std::filesystem::create_directories(own / "empty");
    VRVideoResizer2::removeEmptyJobFolderOfOutput((own / "empty" / "x.mp4").string());
    EXPECT_TRUE(std::filesystem::exists(own / "empty"));
}

// A cancel before the job starts ends it cancelled before any reading (the missing source
// would fail the reader), and the failure path clears the output place all the same.
TEST(VRVideoResizer2, CancelBeforeStartEndsCancelledWithoutReading) {
    testing_support::TestHome home;
    auto resizer = VRVideoResizer2::resizerWithAsset(AVAsset::assetWithURL(home.path("none.mov")),
                                                     "early", VRVideoResizeOptions{});
    ASSERT_TRUE(platform::FileManager::createDirectoryAtPath(
        platform::FileManager::stringByDeletingLastPathComponent(resizer->outputURL()), true));
    ASSERT_TRUE(platform::FileManager::writeDataAtomically(platform::PlistData(4, 'x'),
                                                           resizer->outputURL(), nullptr));
    resizer->cancel();
    video_test::JobWaiter waiter;
    resizer->resize(nullptr, waiter.completion());
    const auto r = waiter.wait();
    EXPECT_EQ(r.status, VRVideoResizeStatus::cancelled);
    EXPECT_FALSE(r.error);
    EXPECT_FALSE(r.url);
    EXPECT_FALSE(platform::FileManager::fileExistsAtPath(resizer->outputURL()));
}

// The bridge: a job whose source cannot be read fails with the reader's error and no URL, and
// the cancel call acts on the job it is handed and ignores an empty handle.
TEST(LegacyManager, VideoBridge) {
    testing_support::TestHome home;
    VRSettings::setPhotoJPEGCompression(40);
    std::mutex mutex;
    std::condition_variable done;
    std::optional<VRVideoResizeStatus> status;
    std::optional<std::string> url = "unset";
    platform::ErrorRef error;
    VRVideoJob job = LegacyManager::videoResizeWithVideoAsset(
        AVAsset::assetWithURL(home.path("missing.mov")), "missing",
        VRFormat::formatWithType(VRFormatTypeM4V), {{4, -2}, {320, 180}}, VRImageArrangement::fit,
        0, VRCodecTypeH264, VROrientation::orientationWithFlipedX(true, false, 1),
        VRColor::whiteColor(), false, nullptr,
        [&](const std::optional<std::string>& u, VRVideoResizeStatus s,
            const platform::ErrorRef& e) {
            std::lock_guard<std::mutex> lock(mutex);
            url = u;
            status = s;
            error = e;
            done.notify_all();
        });
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(
            done.wait_for(lock, std::chrono::seconds(20), [&] { return status.has_value(); }));
    }
    EXPECT_EQ(*status, VRVideoResizeStatus::failed);
    EXPECT_FALSE(url);
    EXPECT_TRUE(error) << "the reader's error is passed on";

    const auto* resizer = &job.resizer();
    ASSERT_TRUE(*resizer);
    const VRVideoResizeOptions& o = (*resizer)->options();
    EXPECT_FLOAT_EQ(o.jpegCompression, 0.4f);
    EXPECT_EQ(o.imageFrame, (CGRect{{4, -2}, {320, 180}}));
    EXPECT_EQ(o.imageArrangement, VRImageArrangement::fit);
    EXPECT_EQ(o.codecType, VRCodecTypeH264);
    ASSERT_TRUE(o.metadataOptions);
    EXPECT_FALSE(o.metadataOptions->copyGPSMetadata);
    const std::filesystem::path output = (*resizer)->outputURL();
    EXPECT_EQ(output.filename(), "missing.m4v");
    EXPECT_EQ(output.parent_path().parent_path(),
              VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory()));

    EXPECT_FALSE((*resizer)->stateManager()->isCancelled());
    LegacyManager::videoResizerCancel(VRVideoJob());
    EXPECT_FALSE((*resizer)->stateManager()->isCancelled());
    LegacyManager::videoResizerCancel(job);
    EXPECT_TRUE((*resizer)->stateManager()->isCancelled());
}

}  // namespace
