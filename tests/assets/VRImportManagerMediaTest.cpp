#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetThumbnails.h"
#include "assets/VRImportManager.h"
#include "model/VXHelperDevice.h"
#include "platform/Dispatch.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"
#include "support/Signal.h"
#include "support/TestHome.h"

namespace {

using photolibrary_test::makeJpeg;
using testing_support::namesIn;

// Imports and runs the main queue until the completion came; none when it didn't.
std::optional<VRImportManager::Result> importAndWait(VRImportManager& manager,
                                                     std::vector<VRImportItem> items) {
    std::optional<VRImportManager::Result> result;
    manager.importItems(std::move(items),
                        [&](VRImportManager::Result answer) { result = std::move(answer); });
    platform::MainRunLoop::runUntil([&] { return result.has_value(); }, testing_support::kPatience);
    return result;
}

VRImportItem item(const std::string& path, const std::string& identifier) {
    VRImportItem item;
    item.itemProvider = path;
    item.identifier = identifier;
    return item;
}

// Lines logged from any thread while alive.
class LogCapture {
  public:
    LogCapture() {
        platform::setLogSink(
            [](const std::string& line, void* context) {
                auto* self = static_cast<LogCapture*>(context);
                std::lock_guard lock(self->_mutex);
                self->_lines.push_back(line);
            },
            this);
    }
    ~LogCapture() { platform::setLogSink(nullptr, nullptr); }
    std::vector<std::string> lines() {
        std::lock_guard lock(_mutex);
        return _lines;
    }

  private:
    std::mutex _mutex;
    std::vector<std::string> _lines;
};

TEST(VRImportManager, ItemsBecomeLocalAssetsWithThumbnailsBesideTheirCopies) {
    testing_support::TestHome home;
    makeJpeg(home.path("picked/a.jpg"), 400, 300);
    photolibrary_test::run("convert -size 90x120 xc:blue '" + home.path("picked/b.png") + "'");
    photolibrary_test::makeMovie(home.path("picked/clip.mov"));
    testing_support::touch(home.path("picked/notes.txt"));
    VRImportManager manager;
    const std::string base = manager.baseURL();

    LogCapture log;
    const auto before = platform::PlistDate::now();
    auto result = importAndWait(
        manager,
        {item(home.path("picked/a.jpg"), "A"), item(home.path("picked/b.png"), "B"),
         item(home.path("picked/clip.mov"), "C/L0/001"), item(home.path("picked/notes.txt"), "D"),
         item(home.path("picked/gone.jpg"), "E"), item(home.path("picked/a.jpg"), "../F")});
    ASSERT_TRUE(result);

    struct Row {
        std::string identifier, url, thumbnailURL;
        VRFormatMediaType mediaType;
        CGSize sourceSize;  // (0, 0): no thumbnail file
    };
    const Row rows[] = {
        {"A", base + "/A/a.jpg", base + "/A/a_tbn.jpg", VRFormatMediaTypePhoto, {400, 300}},
        {"B", base + "/B/b.png", base + "/B/b_tbn.jpg", VRFormatMediaTypePhoto, {90, 120}},
        {"C/L0/001",
         base + "/C/L0/001/clip.mov",
         base + "/C/L0/001/clip_tbn.jpg",
         VRFormatMediaTypeVideo,
         {64, 48}},
    };
    ASSERT_EQ(result->size(), std::size(rows));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.identifier);
        ASSERT_TRUE(result->count(row.identifier));
        const auto& asset = result->at(row.identifier);
        EXPECT_EQ(asset->identifier(), row.identifier);
        EXPECT_EQ(asset->url(), row.url);
        EXPECT_EQ(asset->thumbnailURL(), row.thumbnailURL);
        EXPECT_EQ(asset->mediaType(), row.mediaType);
        EXPECT_FALSE(asset->pairedVideoURL());
        ASSERT_TRUE(asset->creationDate());
        EXPECT_GE(asset->creationDate()->timeIntervalSince1970(), before.timeIntervalSince1970());
        EXPECT_TRUE(std::filesystem::exists(row.url));
        if (row.sourceSize.width == 0) {
            EXPECT_FALSE(std::filesystem::exists(row.thumbnailURL));
            continue;
        }
        auto thumbnail = asset->thumbnailImage();
        ASSERT_TRUE(thumbnail);
        const CGSize expected = VRThumbnailSizeForSize(row.sourceSize, VXHelper::thumbnailSize(),
                                                       PHImageContentModeAspectFill);
        EXPECT_EQ(thumbnail->width(), static_cast<std::size_t>(expected.width));
        EXPECT_EQ(thumbnail->height(), static_cast<std::size_t>(expected.height));
        auto source = platform::ImageSource::createWithURL(row.thumbnailURL);
        ASSERT_TRUE(source);
        EXPECT_EQ(source->type(), "public.jpeg");
    }
    // Nothing is left of the items that yielded nothing, and the picked files stay.
    EXPECT_EQ(namesIn(base), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_TRUE(std::filesystem::exists(home.path("picked/a.jpg")));
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.rfind("Error: ", 0) == 0; }),
              1);
}

TEST(VRImportManager, EachImportRemovesTheCopiesOfTheLastOne) {
    testing_support::TestHome home;
    makeJpeg(home.path("picked/a.jpg"), 40, 30);
    makeJpeg(home.path("picked/b.jpg"), 40, 30);
    VRImportManager manager;
    const std::string base = manager.baseURL();

    ASSERT_TRUE(importAndWait(manager, {item(home.path("picked/a.jpg"), "A")}));
    EXPECT_EQ(namesIn(base), std::vector<std::string>{"A"});
    auto result = importAndWait(manager, {item(home.path("picked/b.jpg"), "B")});
    ASSERT_TRUE(result);
    EXPECT_EQ(namesIn(base), std::vector<std::string>{"B"});

    // No items: an empty answer, and the old copies are gone all the same.
    result = importAndWait(manager, {});
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->empty());
    EXPECT_FALSE(std::filesystem::exists(base));
}

TEST(VRImportManager, ACancelledImportLeavesNoHalfFolderAndNeverAnswers) {
    testing_support::TestHome home;
    makeJpeg(home.path("picked/big.jpg"), 1600, 1200);
    std::vector<VRImportItem> items;
    for (int i = 0; i < 12; ++i)
        items.push_back(item(home.path("picked/big.jpg"), "I" + std::to_string(i)));
    VRImportManager manager;
    const std::string base = manager.baseURL();

    // Cancelled at once, and cancelled once the second item has its thumbnail.
    for (const std::string& awaited : {std::string(), base + "/I1/big_tbn.jpg"}) {
        SCOPED_TRACE(awaited);
        bool answered = false;
        manager.importItems(items, [&](VRImportManager::Result) { answered = true; });
        if (!awaited.empty()) {
            ASSERT_TRUE(platform::MainRunLoop::runUntil(
                [&] { return std::filesystem::exists(awaited); }, testing_support::kPatience));
        }
        manager.cancel();
        platform::MainRunLoop::drain();
        EXPECT_FALSE(answered);
        // Whatever the cancel met: each folder left holds the whole copy with its thumbnail.
        const auto left = namesIn(base);
        for (const std::string& name : left)
            EXPECT_EQ(namesIn(base + "/" + name),
                      (std::vector<std::string>{"big.jpg", "big_tbn.jpg"}))
                << name;
        if (!awaited.empty()) {
            EXPECT_TRUE(std::count(left.begin(), left.end(), "I0"));
        }
    }

    // A new import cancels a running one, and keeps none of its copies.
    bool firstAnswered = false;
    manager.importItems(items, [&](VRImportManager::Result) { firstAnswered = true; });
    makeJpeg(home.path("picked/z.jpg"), 40, 30);
    auto result = importAndWait(manager, {item(home.path("picked/z.jpg"), "Z")});
    ASSERT_TRUE(result);
    EXPECT_FALSE(firstAnswered);
    EXPECT_EQ(namesIn(base), std::vector<std::string>{"Z"});
}

}  // namespace
