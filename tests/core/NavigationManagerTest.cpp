#include "core/NavigationManager.h"

#include <gtest/gtest.h>

#include "assets/VRAssetManager2.h"
#include "core/NavigationSupport.h"
#include "platform/Dispatch.h"
#include "platform/UUID.h"
#include "support/TestHome.h"

namespace {

using namespace navigation_support;
using Kinds = std::vector<VRScreenKind>;
constexpr auto kHome = VRScreenKind::home;
constexpr auto kEditor = VRScreenKind::sizeEditor;
constexpr auto kSummary = VRScreenKind::summary;
constexpr auto kResults = VRScreenKind::results;

double widthOf(const VXTemplateRef& tpl, std::uint64_t mediaType) {
    auto entry = tpl ? tpl->sizeEntryForMediaType(mediaType) : std::nullopt;
    return entry ? entry->width() : -1;
}

struct Walk {
    Recorder recorder;
    NavigationManager manager{recorder.services()};
    std::vector<bool> ended;  // the completion's arguments

    NavigationManager::Completion completion() {
        return [this](bool needsReload) { ended.push_back(needsReload); };
    }
    VRScreenRef top() const { return manager.navController()->topViewController(); }

    // Finishes every size editor on its way: each picks its last asset as target and gives a
    // template of its own media type, 100 wide for photos and 200 for videos. Returns the media
    // types visited.
    std::vector<std::uint64_t> finishEditors() {
        std::vector<std::uint64_t> visited;
        while (VRSizeEditorScreen* editor = top()->sizeEditor()) {
            visited.push_back(editor->mediaType);
            editor->targetAsset = editor->assets.back();
            manager.sizeControllerDidFinishWithTemplate(
                top(), templateWith(editor->mediaType, 100.0 * editor->mediaType));
        }
        return visited;
    }

    // From the summary into the batch run.
    std::shared_ptr<VRResultController> startBatch() {
        EXPECT_EQ(top()->kind(), kSummary);
        manager.summaryControllerDidFinishWithTemplate(top(), top()->summary()->tpl, nullptr);
        return top()->results();
    }
};

TEST(NavigationManager, SizeEditorsComePhotosFirstAndThePhotoEditorChoosesTheTarget) {
    const auto p1 = photo("p1", {300, 400}), p2 = photo("p2");
    const auto v1 = video("v1"), v2 = video("v2");
    const auto other = asset("doc", VRFormatMediaTypeNone);
    struct Case {
        const char* name;
        std::vector<VRAssetRef> selection;
        std::vector<std::uint64_t> editors;
        VRAssetRef target;
    } cases[] = {
        // The video editor's choice doesn't overwrite the photo editor's.
        {"mixed, videos listed first", {v1, p1, other, v2, p2}, {1, 2}, p2},
        {"photos only", {p1, p2}, {1}, p2},
        {"videos only", {v2, v1}, {2}, v1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Walk walk;
        ASSERT_TRUE(walk.manager.beginLegacyWith(c.selection, nullptr, 0, walk.completion()));
        EXPECT_EQ(walk.finishEditors(), c.editors);
        ASSERT_EQ(walk.top()->kind(), kSummary);
        const VRSummaryScreen& summary = *walk.top()->summary();
        EXPECT_EQ(summary.assets, c.selection);  // the whole selection, in order
        EXPECT_EQ(summary.targetAsset, c.target);
        EXPECT_EQ(walk.manager.session()->targetAsset(), c.target);
        Kinds expected{kHome};
        expected.insert(expected.end(), c.editors.size(), kEditor);
        expected.push_back(kSummary);
        EXPECT_EQ(kinds(*walk.manager.navController()), expected);
    }
}

TEST(NavigationManager, EditorsSeeTheirOwnAssetsAndShapeTheTemplatePerMediaType) {
    Walk walk;
    const auto portrait = photo("p", {300, 400}), landscape = photo("l", {400, 300});
    walk.manager.beginLegacyWith({portrait, video("v"), landscape}, nullptr, 0, walk.completion());
    const VRSizeEditorScreen& photos = *walk.top()->sizeEditor();
    EXPECT_EQ(photos.assets, (std::vector<VRAssetRef>{portrait, landscape}));
    EXPECT_EQ(photos.assetsShapes, (std::set<std::uint64_t>{0, 2}));
    EXPECT_EQ(walk.manager.numberOfAssetsForMediaType(),
              (std::map<std::uint64_t, std::size_t>{{1, 2}, {2, 1}}));

    // The first editor's template is taken whole; the second only sets its own media type.
    auto fromPhotos = templateWith(VRFormatMediaTypePhoto, 640);
    fromPhotos->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(10, 0, VRSizeTypePixels),
                             VRFormatMediaTypeVideo);
    walk.manager.sizeControllerDidFinishWithTemplate(walk.top(), fromPhotos);
    ASSERT_EQ(walk.top()->sizeEditor()->mediaType, 2u);
    auto fromVideos = templateWith(VRFormatMediaTypeVideo, 1280);
    fromVideos->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(99, 0, VRSizeTypePixels),
                             VRFormatMediaTypePhoto);
    walk.manager.sizeControllerDidFinishWithTemplate(walk.top(), fromVideos);
    const VXTemplateRef& formed = walk.top()->summary()->tpl;
    EXPECT_EQ(widthOf(formed, VRFormatMediaTypePhoto), 640);
    EXPECT_EQ(widthOf(formed, VRFormatMediaTypeVideo), 1280);
}

TEST(NavigationManager, ASessionBegunWithATemplateShowsNoSizeEditor) {
    const auto v = video("v"), p = photo("p");
    struct Case {
        const char* name;
        bool withTemplate;
        bool legacy;
        Kinds stack;
    } cases[] = {
        {"home flow with a template", true, false, {kHome, kSummary}},
        {"legacy begin with source 1", true, true, {kHome, kSummary}},
        {"home flow without a template", false, false, {kHome, kEditor}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Walk walk;
        auto chosen = templateWith(VRFormatMediaTypePhoto, 800);
        auto tpl = c.withTemplate ? chosen : nullptr;
        ASSERT_TRUE(
            c.legacy ? walk.manager.beginLegacyWith({v, p}, tpl, 1, walk.completion())
                     : walk.manager.beginWith({v, p}, tpl, 2, "Holidays", true, walk.completion()));
        EXPECT_EQ(kinds(*walk.manager.navController()), c.stack);
        EXPECT_EQ(walk.recorder.thumbnailClears, 1);
        EXPECT_EQ(walk.recorder.albumNames, std::vector<std::string>{c.legacy ? "" : "Holidays"});
        if (!c.withTemplate) continue;
        const VRSummaryScreen& summary = *walk.top()->summary();
        EXPECT_EQ(walk.top()->transition(), NavigationManager::kScreenTransition);
        EXPECT_EQ(summary.targetAsset, p);  // the first photo, though a video comes first
        EXPECT_EQ(widthOf(summary.tpl, VRFormatMediaTypePhoto), 800);
        // Forming the session's template leaves the one the user picked as it was.
        summary.tpl->setSizeEntry(std::nullopt, VRFormatMediaTypePhoto);
        EXPECT_EQ(widthOf(chosen, VRFormatMediaTypePhoto), 800);
    }
}

TEST(NavigationManager, ReturningFromTheResultsAlwaysAsksHomeToReload) {
    for (bool resultMade : {false, true}) {
        SCOPED_TRACE(resultMade ? "a result made" : "no result made");
        Walk walk;
        const auto p = photo("p");
        walk.manager.beginWith({p}, templateWith(VRFormatMediaTypePhoto, 50), 0, std::nullopt, true,
                               walk.completion());
        auto results = walk.startBatch();
        ASSERT_TRUE(results);
        EXPECT_EQ(kinds(*walk.manager.navController()), (Kinds{kHome, kSummary, kResults}));
        EXPECT_EQ(walk.recorder.batchesStarted, 1);
        ASSERT_EQ(walk.recorder.recents.size(), 1u);
        EXPECT_FALSE(walk.recorder.recents[0].first->identifier());
        EXPECT_EQ(walk.recorder.recents[0].second, p);
        if (resultMade) {
            results->viewDidAppear();
            walk.recorder.batch.processor->succeed(0);
        }
        EXPECT_TRUE(walk.ended.empty());
        results->_backToMainScreenResettingSelection(false);
        EXPECT_EQ(walk.ended, std::vector<bool>{true});
        EXPECT_FALSE(walk.manager.session());
        EXPECT_EQ(kinds(*walk.manager.navController()), Kinds{kHome});
        platform::MainRunLoop::drain();  // the results screen is let go here
    }
}

TEST(NavigationManager, CancelsStepBackAndEndTheWalkWhenTheyReachHome) {
    struct Case {
        const char* name;
        int editorsFinished;  // before the cancel, in a photo and video walk
        Kinds stack;
        std::vector<bool> ended;
    } cases[] = {
        {"photo editor", 0, {kHome}, {false}},
        {"video editor", 1, {kHome, kEditor}, {}},
        {"summary", 2, {kHome, kEditor, kEditor}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Walk walk;
        walk.manager.beginLegacyWith({photo("p"), video("v")}, nullptr, 0, walk.completion());
        for (int i = 0; i < c.editorsFinished; ++i) {
            walk.manager.sizeControllerDidFinishWithTemplate(walk.top(), templateWith(1, 1));
        }
        if (walk.top()->kind() == kSummary) {
            walk.manager.summaryControllerDidCancelWithNeedsReload(walk.top(), false);
        } else {
            walk.manager.sizeControllerDidCancel(walk.top());
        }
        EXPECT_EQ(kinds(*walk.manager.navController()), c.stack);
        EXPECT_EQ(walk.ended, c.ended);
        EXPECT_EQ(walk.manager.session() != nullptr, c.ended.empty());
    }
    // Straight to the summary: its cancel and its template removal both end the walk, the
    // cancel with the reload it asks for.
    for (bool remove : {false, true}) {
        Walk walk;
        walk.manager.beginLegacyWith({photo("p")}, templateWith(1, 1), 1, walk.completion());
        const VRScreenRef summary = walk.top();
        walk.manager.sizeControllerDidCancel(summary);  // not the screen on top's report
        EXPECT_EQ(walk.top(), summary);
        if (remove) {
            walk.manager.summaryControllerDidRemoveTemplateAtIndex(summary, 0);
        } else {
            walk.manager.summaryControllerDidCancelWithNeedsReload(summary, true);
        }
        EXPECT_EQ(walk.ended, std::vector<bool>{!remove});
        EXPECT_EQ(kinds(*walk.manager.navController()), Kinds{kHome});
        // A second touch of the same button finds the screen gone.
        walk.manager.summaryControllerDidCancelWithNeedsReload(summary, true);
        EXPECT_EQ(walk.ended.size(), 1u);
    }
}

TEST(NavigationManager, AFailedBuildEndsTheSessionAtOnce) {
    Walk walk;
    const auto none = asset("notes.txt", VRFormatMediaTypeNone);
    EXPECT_FALSE(walk.manager.beginLegacyWith({}, nullptr, 0, walk.completion()));
    EXPECT_FALSE(walk.manager.beginLegacyWith({none}, nullptr, 0, walk.completion()));
    EXPECT_TRUE(walk.ended.empty());  // nothing was running
    EXPECT_EQ(kinds(*walk.manager.navController()), Kinds{kHome});
    EXPECT_EQ(walk.recorder.thumbnailClears, 0);

    // A walk in progress ends, its completion told; the failed begin's own completion is not
    // kept, so no later end reaches it.
    ASSERT_TRUE(walk.manager.beginLegacyWith({photo("p")}, nullptr, 0, walk.completion()));
    int laterCalls = 0;
    EXPECT_FALSE(walk.manager.beginWith({none}, nullptr, 0, std::nullopt, true,
                                        [&](bool) { ++laterCalls; }));
    EXPECT_EQ(walk.ended, std::vector<bool>{false});
    EXPECT_FALSE(walk.manager.session());
    EXPECT_TRUE(walk.manager.sessionAssets().empty());
    walk.manager.resultsControllerDidFinishWithAssets({}, false, false);
    EXPECT_EQ(laterCalls, 0);
    EXPECT_EQ(walk.ended.size(), 1u);
}

TEST(NavigationManager, BeginEmptiesTheFolderOfDrawnThumbnails) {
    testing_support::TestHome home;
    const std::string folder = VRAssetManager2::thumbnailURL();
    const std::string drawn = platform::UUIDString();
    testing_support::touch(folder + "/" + drawn);
    // A thumbnail another process is still writing under a temporary name stays.
    testing_support::touch(folder + "/." + drawn + ".tmp");
    Recorder recorder;
    NavigationServices services = recorder.services();
    services.clearThumbnailDirectories = NavigationServices::standard().clearThumbnailDirectories;
    NavigationManager manager(services);
    ASSERT_TRUE(manager.beginLegacyWith({photo("p")}, nullptr, 0, {}));
    EXPECT_EQ(testing_support::namesIn(folder), std::vector<std::string>{"." + drawn + ".tmp"});
}

}  // namespace
