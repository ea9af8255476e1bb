// A video cancelled and started again at once, with real codecs: the ending of the cancelled
// job must neither take the new job's file nor its place in the list of running jobs.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "../platform/MediaTestSupport.h"
#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRURLAsset.h"
#include "core/VRProcessor.h"
#include "platform/Dispatch.h"
#include "support/TestHome.h"
#include "templates/TemplateManager.h"

namespace {

constexpr auto kPatience = std::chrono::seconds(60);

// Holds the first frame report of a job until the test lets it go: the job is then in the
// middle of writing its output.
class FrameGate {
  public:
    void pass() {
        std::unique_lock lock(_mutex);
        _reached = true;
        _changed.notify_all();
        _changed.wait(lock, [this] { return _open; });
    }
    // The main queue keeps running meanwhile: the stages answer through it.
    bool waitReached() {
        return platform::MainRunLoop::runUntil(
            [this] {
                std::lock_guard lock(_mutex);
                return _reached;
            },
            kPatience);
    }
    void open() {
        std::lock_guard lock(_mutex);
        _open = true;
        _changed.notify_all();
    }

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _reached = false;
    bool _open = false;
};

// What a pass ended with, delivered on the job's own thread.
class PassEnd {
  public:
    VRProcessor::CompletionOnInternalThread completion() {
        return [this](std::optional<std::string> url, VRFormatMediaType, std::optional<CGSize>,
                      VRErrorRef error) {
            std::lock_guard lock(_mutex);
            _url = std::move(url);
            _error = std::move(error);
            _ended = true;
        };
    }
    bool wait() {
        return platform::MainRunLoop::runUntil(
            [this] {
                std::lock_guard lock(_mutex);
                return _ended;
            },
            kPatience);
    }
    // What the pass ended with, for a failure's message.
    std::string describe() {
        std::lock_guard lock(_mutex);
        if (!_ended) return "still running";
        return "ended with " + (_error ? _error->description() : std::string("no error")) +
               (_url ? " and " + *_url : std::string(" and no file"));
    }
    std::optional<std::string> url() {
        std::lock_guard lock(_mutex);
        return _url;
    }
    VRErrorRef error() {
        std::lock_guard lock(_mutex);
        return _error;
    }

  private:
    std::mutex _mutex;
    bool _ended = false;
    std::optional<std::string> _url;
    VRErrorRef _error;
};

// The pause comes while the first job writes; the restart's job is writing too when the
// cancelled one notices and ends. The restart still ends with its own whole file under the
// asset's result name, and stays listed as running until then.
TEST(VRProcessorRestartMedia, ACancelledVideoEndingLateLeavesTheRestartedJobItsFileAndPlace) {
    testing_support::TestHome home;
    photolibrary_test::makeMovie(home.path("in/clip.mov"));
    const VRAssetRef asset =
        VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("in/clip.mov")));
    const VXTemplateRef tpl = TemplateManager::shared().templateWithKey("uw-133");
    ASSERT_TRUE(tpl);
    VRProcessor& processor = VRProcessor::mainProcessor();

    auto firstGate = std::make_shared<FrameGate>();
    auto secondGate = std::make_shared<FrameGate>();
    PassEnd first, second;
    processor._processAsset(
        asset, false, tpl, nullptr, CGSizeZero, CGSizeZero,
        [firstGate](double) { firstGate->pass(); }, first.completion());
    ASSERT_TRUE(firstGate->waitReached()) << first.describe();
    processor.cancelProcessingAssets();
    processor._processAsset(
        asset, false, tpl, nullptr, CGSizeZero, CGSizeZero,
        [secondGate](double) { secondGate->pass(); }, second.completion());
    ASSERT_TRUE(secondGate->waitReached()) << second.describe();

    firstGate->open();
    ASSERT_TRUE(first.wait());
    EXPECT_FALSE(first.url());
    EXPECT_EQ(processor.videoResizerCount(), 1u) << "the restarted job must stay listed";

    secondGate->open();
    ASSERT_TRUE(second.wait());
    ASSERT_FALSE(second.error()) << second.error()->description();
    ASSERT_TRUE(second.url());
    const std::string url = *second.url();
    EXPECT_EQ(std::filesystem::path(url).stem().string(), processor._filenameOfAsset(*asset));
    ASSERT_TRUE(std::filesystem::exists(url)) << url;
    EXPECT_TRUE(media_test::has(media_test::probe(url, "-show_streams"), "codec_type=video"));
    EXPECT_EQ(processor.videoResizerCount(), 0u);
}

}  // namespace
