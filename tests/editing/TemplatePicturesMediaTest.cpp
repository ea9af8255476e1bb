#include <gtest/gtest.h>

#include <chrono>

#include "assets/VRURLAsset.h"
#include "editing/TemplatePictures.h"
#include "photo/PhotoSupport.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

using testing_support::TestHome;

namespace {

std::optional<std::string> savedRecent(TemplateManager& manager, const VXTemplateRef& tpl,
                                       const VRAssetRef& asset) {
    bool done = false;
    std::optional<std::string> identifier;
    VRTemplatePictures::saveRecentTemplate(manager, tpl, asset, [&](auto saved) {
        identifier = std::move(saved);
        done = true;
    });
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(30)));
    return identifier;
}

// A recent saved with its target asset lists the asset's thumbnail, not the fallback; one
// saved without an asset keeps the fallback.
TEST(TemplatePicturesMedia, RecentTemplateShowsItsTargetAssetsPicture) {
    TestHome home;
    const std::string photo = photo_test::quadrants(home, "a.jpg", 400, 300);
    auto asset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(photo));
    TemplateManager manager;
    auto tpl = VXTemplate::create();
    tpl->setName("Shaped");
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(1200, 600, VRSizeTypePixels),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeJPEG, 1), VRSizeOptions{0, 5},
                      1);

    auto identifier = savedRecent(manager, tpl, asset);
    ASSERT_TRUE(identifier);
    EXPECT_EQ(identifier->rfind("recent-", 0), 0u);
    const auto& recents = manager.recentTemplates();
    ASSERT_FALSE(recents.empty());
    EXPECT_EQ(recents.back().identifier(), *identifier);
    const std::string imagePath = VRSettings::templateImagePathWithIdentifier(*identifier);
    const std::string shown = recents.back().imageSource().resolvedPath("/resources", imagePath);
    EXPECT_EQ(shown, imagePath) << "the fallback picture is shown";
    auto source = platform::ImageSource::createWithURL(imagePath);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->type(), "public.jpeg");
    EXPECT_EQ(std::min(source->pixelWidth(), source->pixelHeight()), 200u)
        << source->pixelWidth() << " x " << source->pixelHeight();
    EXPECT_TRUE(manager.templateWithKey(*identifier)) << "the body is stored too";

    auto other = tpl->copy();
    other->setName("No asset");
    auto bare = savedRecent(manager, other, nullptr);
    ASSERT_TRUE(bare);
    EXPECT_FALSE(platform::FileManager::fileExistsAtPath(
        VRSettings::templateImagePathWithIdentifier(*bare)));
}

}  // namespace
