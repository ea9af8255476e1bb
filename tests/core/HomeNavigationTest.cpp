#include "core/HomeNavigation.h"

#include <gtest/gtest.h>

#include "core/NavigationSupport.h"
#include "platform/Dispatch.h"

namespace {

using namespace navigation_support;
using Kinds = std::vector<VRScreenKind>;

struct Home {
    Recorder recorder;
    NavigationManager manager{recorder.services()};
    std::int64_t tutorialState = 0;
    std::shared_ptr<HomeNavigation> home =
        HomeNavigation::create(manager, {[this] { return tutorialState; }});
    std::vector<bool> finished;

    Home() {
        home->onFinish = [this](bool needsReload) { finished.push_back(needsReload); };
    }
    const VRNavigationController& stack() const { return *manager.navController(); }
    VRScreenRef top() const { return stack().topViewController(); }
};

TEST(HomeNavigation, AFileOpenedDuringTheTutorialAppearsOnlyWhenItEnds) {
    Home h;
    h.home->viewDidAppear();
    h.tutorialState = 1;
    h.home->launchManagerDidRequestExtenralURL("/in/holiday.jpg");
    EXPECT_FALSE(h.stack().presentedViewController());
    ASSERT_TRUE(h.home->externalPendingAsset());
    h.home->viewDidAppear();  // the tutorial's own screens come and go
    EXPECT_FALSE(h.stack().presentedViewController());

    // Completing the tutorial hands the waiting file over again.
    h.tutorialState = 2;
    h.home->launchManagerDidRequestExtenralURL("/in/holiday.jpg");
    const VRScreenRef modal = h.stack().presentedViewController();
    ASSERT_TRUE(modal && modal->external());
    EXPECT_EQ(modal->external()->title, "External Photo");
    EXPECT_EQ(modal->external()->cancelButtonTitle, "Cancel");
    EXPECT_EQ(modal->external()->asset->objectIdentifier(), "/in/holiday.jpg");
    EXPECT_FALSE(h.home->externalPendingAsset());
    // Shown once: the home screen appearing again doesn't bring it back after a cancel.
    h.manager.externalControllerDidCancel(modal);
    h.home->viewDidAppear();
    EXPECT_FALSE(h.stack().presentedViewController());
}

TEST(HomeNavigation, AnExternalFileUnwindsTheWalkAndBeginsItsOwn) {
    struct Case {
        const char* name;
        const char* file;
        bool pickTemplate;
        std::string title;
        Kinds stack;
    } cases[] = {
        {"template picked",
         "/in/clip.mov",
         true,
         "External Video",
         {VRScreenKind::home, VRScreenKind::summary}},
        {"no template",
         "/in/shot.png",
         false,
         "External Photo",
         {VRScreenKind::home, VRScreenKind::sizeEditor}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Home h;
        // A walk is half way: home, photo editor, video editor.
        h.home->setSelectedAssets({photo("p"), video("v")});
        ASSERT_TRUE(h.home->startSession());
        h.manager.sizeControllerDidFinishWithTemplate(h.top(), templateWith(1, 1));
        ASSERT_EQ(h.stack().viewControllers().size(), 3u);

        // Before the home screen first appeared the file waits.
        h.home->launchManagerDidRequestExtenralURL(c.file);
        EXPECT_FALSE(h.stack().presentedViewController());
        h.home->viewDidAppear();
        const VRScreenRef modal = h.stack().presentedViewController();
        ASSERT_TRUE(modal && modal->external());
        EXPECT_EQ(modal->external()->title, c.title);
        EXPECT_EQ(h.stack().viewControllers().size(), 1u);

        auto tpl = c.pickTemplate ? templateWith(2, 720) : nullptr;
        h.manager.externalControllerDidFinish(modal, tpl);
        EXPECT_FALSE(h.stack().presentedViewController());
        EXPECT_EQ(kinds(h.stack()), c.stack);
        ASSERT_EQ(h.manager.sessionAssets().size(), 1u);
        EXPECT_EQ(h.manager.sessionAssets()[0]->objectIdentifier(), c.file);
        EXPECT_EQ(h.home->editingSource(), c.pickTemplate ? 1 : 0);
    }
}

TEST(HomeNavigation, TheEndOfAWalkReloadsTheHomeListsOnlyAfterABatch) {
    Home h;
    h.home->viewDidAppear();
    h.home->setSelectedAssets({photo("p")});
    h.home->setSourceAlbum(VRCollection::collectionWithObject(VRUnsaved::collection(), 1));
    h.home->setSelectedTemplate(templateWith(1, 300));
    std::vector<std::size_t> loaded;
    h.home->loadPostponedItems = [&](std::vector<VRImportItem> items) {
        loaded.push_back(items.size());
    };

    // A cancel back home: nothing to reload.
    ASSERT_TRUE(h.home->startSession());
    EXPECT_EQ(h.recorder.albumNames, std::vector<std::string>{"Unsaved items"});
    h.manager.summaryControllerDidCancelWithNeedsReload(h.top(), false);
    EXPECT_EQ(h.finished, std::vector<bool>{false});
    EXPECT_EQ(h.home->rootReloadID(), 0u);

    // A batch run; import items that arrive meanwhile wait for its end.
    ASSERT_TRUE(h.home->startSession());
    h.manager.summaryControllerDidFinishWithTemplate(h.top(), h.top()->summary()->tpl, nullptr);
    h.home->postponeImportItems({VRImportItem{}, VRImportItem{}});
    EXPECT_TRUE(loaded.empty());
    h.top()->results()->_backToMainScreenResettingSelection(true);
    EXPECT_EQ(h.finished, (std::vector<bool>{false, true}));
    EXPECT_EQ(h.home->rootReloadID(), 1u);
    EXPECT_EQ(h.home->recentReloadID(), 1u);
    EXPECT_EQ(loaded, std::vector<std::size_t>{2});
    EXPECT_FALSE(h.home->postponedImportItems());
    platform::MainRunLoop::drain();

    // The walk's end doesn't keep a home flow alive that is gone.
    h.home->startSession();
    h.home.reset();
    h.manager.summaryControllerDidCancelWithNeedsReload(h.top(), true);
    EXPECT_EQ(h.finished.size(), 2u);
}

}  // namespace
