// The `process` command's batch run in this process, over real photos: what the run still
// holds of the items that have ended, and how its outcome names them.
#include "app/BatchRun.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>

#include "assets/VRURLAsset.h"
#include "editing/VRPresetViewAbstract.h"
#include "photo/PhotoSupport.h"
#include "results/ResultManager.h"
#include "support/TestHome.h"
#include "templates/TemplateManager.h"

namespace {

using testing_support::TestHome;

// A long run must hold its results and not its inputs as well: once an item has ended, nothing
// of the run keeps its asset (the outcome, the inputs, the run's list) nor, an item later, the
// source object behind it. A failed item is let go too, and the outcome names every item by its
// place among the inputs.
TEST(BatchRunMedia, AnEndedItemIsLetGoAndNamedByItsPlace) {
    TestHome home;
    // Named as a photo, but no picture: it fails, and the run keeps going.
    testing_support::touch(home.path("in/b.png"));
    for (const char* name : {"in/a.png", "in/c.png", "in/d.png", "in/e.png"})
        photo_test::quadrants(home, name, 40, 30);
    std::vector<app::ProcessInput> inputs;
    for (const char* name : {"in/a.png", "in/b.png", "in/c.png", "in/d.png", "in/e.png"}) {
        const std::string path = home.path(name);
        inputs.push_back(
            {VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path)), path, path, name});
    }
    std::vector<std::weak_ptr<const VRAsset>> assets;
    std::vector<std::weak_ptr<VRAssetObject>> objects;
    for (const auto& input : inputs) {
        assets.push_back(input.asset);
        objects.push_back(input.asset->object());
    }

    // At each item's start: the earlier items whose asset, and whose source object, someone
    // still holds.
    std::vector<std::vector<std::size_t>> assetsHeld, objectsHeld;
    std::vector<std::string> failedNames;
    app::BatchRunHandlers handlers;
    handlers.started = [&](const app::ProcessInput& input) {
        std::size_t item = 0;
        while (item < inputs.size() && inputs[item].name != input.name) ++item;
        std::vector<std::size_t> heldAssets, heldObjects;
        for (std::size_t earlier = 0; earlier < item; ++earlier) {
            if (!assets[earlier].expired()) heldAssets.push_back(earlier);
            // The item just before may still be on its way out of the processor's callback.
            if (earlier + 1 < item && !objects[earlier].expired()) heldObjects.push_back(earlier);
        }
        assetsHeld.push_back(heldAssets);
        objectsHeld.push_back(heldObjects);
    };
    handlers.failed = [&](const app::ProcessInput& input, const VRError&) {
        // The failure is told while its asset is still there to explain it.
        EXPECT_TRUE(input.asset);
        failedNames.push_back(input.name);
    };

    auto tpl = VRPresetViewAbstract::templateWithSourceOptions(
        TemplateManager::shared().templateWithKey("uw-133"));
    ASSERT_TRUE(tpl);
    app::BatchRunOptions options;
    options.keepGoing = true;
    std::ostringstream screen;
    app::BatchRunView view(screen, false, inputs.size());
    std::atomic<bool> interrupted{false};
    auto outcome = app::runBatch(
        inputs, tpl, [](const VRAsset&) { return VRAdjustAssetStateRef(); }, options, view,
        handlers, interrupted);
    ResultManager::shared().waitUntilStored();

    ASSERT_EQ(assetsHeld.size(), 5u) << screen.str();
    for (std::size_t item = 0; item < assetsHeld.size(); ++item) {
        SCOPED_TRACE(item);
        EXPECT_EQ(assetsHeld[item], std::vector<std::size_t>{});
        EXPECT_EQ(objectsHeld[item], std::vector<std::size_t>{});
    }
    EXPECT_EQ(failedNames, std::vector<std::string>{home.path("in/b.png")});
    std::vector<std::size_t> resultPlaces, failurePlaces;
    for (const auto& result : outcome.results) {
        resultPlaces.push_back(result.input);
        // The results are the store's own.
        ASSERT_TRUE(result.result);
        EXPECT_EQ(result.result->type(), VRAssetIdentifierTypeLocal);
    }
    for (const auto& failure : outcome.failures) {
        failurePlaces.push_back(failure.input);
        ASSERT_TRUE(failure.error);
    }
    EXPECT_EQ(resultPlaces, (std::vector<std::size_t>{0, 2, 3, 4}));
    EXPECT_EQ(failurePlaces, std::vector<std::size_t>{1});
    EXPECT_EQ(ResultManager::shared().numberOfAssets(), 4u);
    // Their names stay for what the command prints after the run.
    EXPECT_EQ(inputs[3].name, home.path("in/d.png"));
}

}  // namespace
