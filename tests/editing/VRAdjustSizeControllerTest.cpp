#include "editing/VRAdjustSizeController.h"

#include <gtest/gtest.h>

#include "editing/VRAdjustColors.h"
#include "support/TestHome.h"
#include "video/LegacyManager.h"

using testing_support::TestHome;

namespace {

// An item of a given shape, without a file behind it.
class Item : public VRAssetObject {
  public:
    Item(std::string id, CGSize size, VRFormatMediaType type = VRFormatMediaTypePhoto)
        : _id(std::move(id)), _size(size), _type(type) {}
    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeURL; }
    std::string uniqueID() const override { return _id; }
    std::string originalFilename() const override { return _id; }
    std::optional<platform::PlistDate> creationDate() const override { return std::nullopt; }
    std::optional<platform::PlistDate> modificationDate() const override { return std::nullopt; }
    VRFormatMediaType mediaType() const override { return _type; }
    CGSize pixelSize() const override { return _size; }
    double duration() const override { return 0; }
    bool isEqual(const VRAssetObject& o) const override { return o.uniqueID() == _id; }
    std::size_t hash() const override { return std::hash<std::string>()(_id); }

  private:
    std::string _id;
    CGSize _size;
    VRFormatMediaType _type;
};

VRAssetRef item(const std::string& id, CGSize size,
                VRFormatMediaType type = VRFormatMediaTypePhoto) {
    return VRAsset::assetWithObject(std::make_shared<Item>(id, size, type));
}

// A square output of 1080 pixels, fit (4), clip (3) or stretch (5).
VXTemplateRef square(std::int64_t method, std::uint64_t mediaType = VRFormatMediaTypePhoto) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(1080, 1080, VRSizeTypePixels), mediaType);
    tpl->setOptions(VRSizeOptions{VRSizeOptionNormal, method}, mediaType);
    return tpl;
}

CGPoint stored(const VRAdjustSizeController& session) {
    auto state = session.currentState();
    return state ? state->displacement() : CGPoint{-9999, -9999};
}

CGPoint shown(const VRAdjustSizeController& session) {
    return session.editingViewAtIndex(session.mainIndex())->innerDisplacement();
}

// One gesture of `t` points over a view of `view` points; whether it began.
bool drag(VRAdjustSizeController& s, CGPoint t, CGSize view = {1080, 1080}, double scale = 1) {
    if (!s.beginPan(t, scale)) return false;
    s.changePan(t, view);
    s.endPan();
    return true;
}

// A tall picture in a square fit frame has a margin of 540 sideways: it moves only along x,
// by at most half of it, and the next gesture starts from where the last one stopped.
TEST(VRAdjustSizeController, DragsFollowTheFreeAxisAndStopAtTheMargin) {
    TestHome home;
    VRAdjustSizeController session({item("tall", {500, 1000})}, *square(VRSizeOptionRatioFit),
                                   VRFormatMediaTypePhoto);
    EXPECT_EQ(session.displacementPermittedDirection(), VRDisplacementDirectionHorizontal);
    EXPECT_FALSE(drag(session, {0, 50}));  // across the free axis
    EXPECT_FALSE(drag(session, {0.0005, 0.0005}));
    EXPECT_EQ(session.currentState(), nullptr);
    struct Step {
        CGPoint translation;
        CGSize view;
        double expectedX;
    } steps[] = {
        {{100, 3}, {1080, 1080}, 100},   // y has no room: it stays 0
        {{1000, 0}, {1080, 1080}, 270},  // stops at half the margin
        {{-50, 0}, {1080, 1080}, 220},   // back from the limit, not from 1100
        {{-10, 0}, {540, 540}, 200},     // half-size view: a point is two pixels
        {{-10, 0}, {0, 0}, -270},        // a bound of 0 counts as 1: far out
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(s.expectedX);
        ASSERT_TRUE(drag(session, s.translation, s.view));
        EXPECT_EQ(shown(session).x, s.expectedX);
        EXPECT_EQ(shown(session).y, 0);
        EXPECT_EQ(stored(session).x, s.expectedX);
    }

    // A picture that fills its frame has no margin: the gesture begins but moves nothing.
    VRAdjustSizeController filled({item("sq", {800, 800})}, *square(VRSizeOptionRatioFit),
                                  VRFormatMediaTypePhoto);
    EXPECT_TRUE(drag(filled, {100, 0}));
    EXPECT_EQ(shown(filled).x, 0);
    EXPECT_EQ(filled.displacementActionView().maxDisplacement().width, 0);

    // The margin is snapped to the screen's pixel grid before it is halved: 1080 - 1080 x
    // 333/1000 = 720.36 is 720.5 at scale 2, 720 at scale 1.
    VRAdjustSizeController odd({item("odd", {333, 1000})}, *square(VRSizeOptionRatioFit),
                               VRFormatMediaTypePhoto);
    for (auto [scale, max] : {std::pair{1.0, 360.0}, {2.0, 360.25}, {3.0, 360.166666}}) {
        ASSERT_TRUE(odd.beginPan({1, 0}, scale));
        EXPECT_NEAR(odd.displacementActionView().maxDisplacement().width, max, 1e-5) << scale;
    }
}

// The state keeps the displacement in the item's own frame: after a mirror or a turn the same
// drag to the right is stored turned back, and a later turn leaves the stored value alone
// while the picture's offset on the screen turns with it.
TEST(VRAdjustSizeController, TheStoredDisplacementIsInTheItemsFrame) {
    TestHome home;
    struct Case {
        const char* name;
        std::vector<void (VRAdjustSizeController::*)()> before;
        CGPoint storedAfterRightDrag;
    } cases[] = {
        {"none", {}, {100, 0}},
        {"mirror left-right", {&VRAdjustSizeController::flipHorizontally}, {-100, 0}},
        {"mirror top-bottom", {&VRAdjustSizeController::flipVertically}, {100, 0}},
        {"quarter turn", {&VRAdjustSizeController::rotateRight}, {0, -100}},
        {"half turn",
         {&VRAdjustSizeController::rotateRight, &VRAdjustSizeController::rotateRight},
         {-100, 0}},
        {"quarter turn, mirrored",
         {&VRAdjustSizeController::rotateRight, &VRAdjustSizeController::flipVertically},
         {0, -100}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // Tall once the turns are made, so that a sideways drag is allowed.
        const bool turned = c.before.size() == 1 && std::string(c.name) == "quarter turn";
        const bool turnedMirrored = std::string(c.name) == "quarter turn, mirrored";
        const CGSize size = (turned || turnedMirrored) ? CGSize{1000, 500} : CGSize{500, 1000};
        VRAdjustSizeController session({item("a", size)}, *square(VRSizeOptionRatioFit),
                                       VRFormatMediaTypePhoto);
        for (auto step : c.before) (session.*step)();
        ASSERT_TRUE(drag(session, {100, 0}));
        EXPECT_EQ(shown(session), (CGPoint{100, 0}));
        EXPECT_EQ(stored(session), c.storedAfterRightDrag);
    }

    VRAdjustSizeController session({item("a", {500, 1000})}, *square(VRSizeOptionRatioFit),
                                   VRFormatMediaTypePhoto);
    ASSERT_TRUE(drag(session, {100, 0}));
    session.rotateRight();
    EXPECT_EQ(stored(session), (CGPoint{100, 0}));
    EXPECT_EQ(shown(session), (CGPoint{0, 100}));  // the picture's right side now faces down
    session.centerContent();
    EXPECT_EQ(stored(session), (CGPoint{0, 0}));
}

// "Apply to All" copies the current item's state to the others and leaves its own stack;
// "Undo All" takes one step back everywhere; the resets drop the states; the views follow.
TEST(VRAdjustSizeController, SessionActionsChangeEveryItem) {
    TestHome home;
    VRAdjustSizeController session(
        {item("a", {500, 1000}), item("b", {500, 1000}), item("c", {1000, 500})},
        *square(VRSizeOptionRatioFit), VRFormatMediaTypePhoto);
    session.setMainIndex(1);
    session.selectColorAtIndex(6);  // "000000"
    session.setMainIndex(0);
    ASSERT_TRUE(drag(session, {100, 0}));
    session.flipVertically();
    const auto current = session.currentState();
    const auto& stacks = session.adjustState().stateArrays();

    session.applyToAll();
    EXPECT_EQ(session.currentState(), current);
    EXPECT_EQ(stacks.at("a").size(), 2u);
    EXPECT_EQ(stacks.at("b").size(), 2u);
    for (const char* key : {"b", "c"}) {
        auto state = session.adjustState().stateWithKey(key);
        ASSERT_TRUE(state);
        EXPECT_EQ(state->displacement(), current->displacement()) << key;
        EXPECT_EQ(state->orientation(), current->orientation()) << key;
        EXPECT_EQ(state->fillColor(), std::nullopt) << key;
    }
    EXPECT_EQ(session.editingViewAtIndex(2)->innerDisplacement(), (CGPoint{100, 0}));

    session.undoAll();
    EXPECT_EQ(session.adjustState().stateWithKey("b")->fillColor(), VRColor::blackColor());
    EXPECT_EQ(session.adjustState().stateWithKey("c"), nullptr);
    EXPECT_EQ(session.editingViewAtIndex(2)->innerDisplacement(), (CGPoint{0, 0}));
    EXPECT_EQ(session.editingViewAtIndex(1)->fillColor(), VRColor::blackColor());
    EXPECT_EQ(session.editingViewAtIndex(0)->innerDisplacement(), (CGPoint{100, 0}));

    session.performAction(VRAdjustSizeController::applyToAllAction);
    session.setMainIndex(1);
    session.resetCurrent();
    EXPECT_EQ(session.currentState(), nullptr);
    EXPECT_NE(session.adjustState().stateWithKey("c"), nullptr);
    session.performAction(VRAdjustSizeController::resetAllAction);
    EXPECT_TRUE(session.adjustState().stateArrays().empty());
    EXPECT_EQ(session.editingViewAtIndex(0)->innerDisplacement(), (CGPoint{0, 0}));
    EXPECT_EQ(session.editingViewAtIndex(0)->orientation(), std::nullopt);
}

// The menu's entries as the session's states allow them.
TEST(VRAdjustSizeController, MenuEntriesFollowTheStates) {
    TestHome home;
    using Menu = VRAdjustMenuState;
    auto text = [](const Menu& m) {
        return std::string() + (m.applyToAll ? "A" : "-") + (m.undoAll ? "U" : "-") +
               (m.resetAll ? "R" : "-") + (m.resetCurrent ? "C" : "-") +
               (m.setFillColorAsDefault ? "S" : "-") + (m.resetDefaultFillColor ? "D" : "-") +
               (m.rotateAndFlip ? "T" : "-") + (m.center ? "M" : "-");
    };
    VRAdjustSizeController session({item("a", {500, 1000}), item("b", {500, 1000})},
                                   *square(VRSizeOptionRatioFit), VRFormatMediaTypePhoto);
    EXPECT_EQ(text(session.menuState()), "------T-");
    session.rotateRight();
    EXPECT_EQ(text(session.menuState()), "AURC--T-");
    session.selectColorAtIndex(3);
    EXPECT_EQ(text(session.menuState()), "AURCS-T-");
    session.setMainIndex(1);
    EXPECT_EQ(text(session.menuState()), "-UR---T-");
    session.setMainIndex(0);
    session.setFillColorAsDefault();
    EXPECT_EQ(LegacyManager::defaultPhotoColor(), VRAdjustColors::colorWithHexString("94A09A"));
    EXPECT_EQ(LegacyManager::defaultVideoColor(), std::nullopt);
    EXPECT_EQ(text(session.menuState()), "AURCSDT-");
    session.undoAll();
    session.undoAll();
    EXPECT_EQ(text(session.menuState()), "-----DT-");
    session.resetDefaultFillColor();
    EXPECT_EQ(LegacyManager::defaultPhotoColor(), std::nullopt);

    VRAdjustSizeController single({item("a", {500, 1000})}, *square(VRSizeOptionRatioFit),
                                  VRFormatMediaTypePhoto);
    single.centerContent();
    EXPECT_EQ(text(single.menuState()), "-URC--T-");
    // A drag moves the item off the centre, and centring brings it back.
    ASSERT_TRUE(drag(single, {100, 0}));
    EXPECT_EQ(text(single.menuState()), "-URC--TM");
    single.centerContent();
    EXPECT_EQ(text(single.menuState()), "-URC--T-");
    VRAdjustSizeController empty({}, *square(VRSizeOptionRatioFit), VRFormatMediaTypeVideo);
    empty.rotateRight();
    EXPECT_EQ(text(empty.menuState()), "--------");
    EXPECT_EQ(empty.mainIndex(), VRAdjustSizeController::NSNotFound);
}

// Titles, the arrows a front end shows, and the fill colours an item shows.
TEST(VRAdjustSizeController, TitlesDirectionsAndColours) {
    TestHome home;
    VRAdjustSizeController videos({item("a", {100, 50}, VRFormatMediaTypeVideo),
                                   item("b", {100, 50}, VRFormatMediaTypeVideo)},
                                  *square(VRSizeOptionRatioFit, VRFormatMediaTypeVideo),
                                  VRFormatMediaTypeVideo);
    videos.setMainIndex(1);
    EXPECT_EQ(videos.title(), "Edit Video 2/2");
    EXPECT_EQ(VRAdjustSizeController({}, *square(4), VRFormatMediaTypePhoto).title(), "No Photos");
    EXPECT_EQ(videos.defaultFillColorButtonTitle(), "Set Video Default Fill Color");

    struct Case {
        std::int64_t method;
        CGSize item;
        bool turned;
        VRDisplacementDirection expected;
    } cases[] = {
        {VRSizeOptionRatioFit, {100, 50}, false, VRDisplacementDirectionVertical},
        {VRSizeOptionRatioFit, {50, 100}, false, VRDisplacementDirectionHorizontal},
        {VRSizeOptionRatioFit, {100, 50}, true, VRDisplacementDirectionHorizontal},
        {VRSizeOptionRatioClip, {100, 50}, false, VRDisplacementDirectionHorizontal},
        {VRSizeOptionRatioClip, {50, 100}, false, VRDisplacementDirectionVertical},
        {VRSizeOptionStretch, {100, 50}, false, VRDisplacementDirectionNone},
    };
    for (const auto& c : cases) {
        VRAdjustSizeController s({item("x", c.item)}, *square(c.method), VRFormatMediaTypePhoto);
        std::vector<VRDisplacementDirection> announced;
        s.onDisplacementDirection = [&](VRDisplacementDirection d) { announced.push_back(d); };
        if (c.turned) s.rotateRight();
        EXPECT_EQ(s.displacementPermittedDirection(), c.expected) << c.method << " " << c.turned;
        if (c.turned) {
            EXPECT_EQ(announced, std::vector{c.expected});
        }
    }
    EXPECT_EQ(VRDisplacementPermittedDirection(3, {1, 1}, {2, 1}), VRDisplacementDirectionAll);

    // Without a stored default a video shows black margins and a photo white ones.
    EXPECT_EQ(videos.displayedFillColorAtIndex(0), VRColor::blackColor());
    VRAdjustSizeController photos({item("p", {100, 50})}, *square(4), VRFormatMediaTypePhoto);
    EXPECT_EQ(photos.displayedFillColorAtIndex(0), VRColor::whiteColor());
    EXPECT_EQ(photos.selectedColorIndex(), std::nullopt);
    photos.selectColorAtIndex(0);  // the picker control changes nothing by itself
    EXPECT_EQ(photos.currentState(), nullptr);
    photos.selectColorAtIndex(43);
    EXPECT_EQ(photos.selectedColorIndex(), 43u);
    EXPECT_EQ(photos.displayedFillColorAtIndex(0), VRAdjustColors::colorWithHexString("FFA0BD"));
    photos.setPickedColor({0.5, 0.25, 0, 1});
    EXPECT_EQ(photos.selectedColorIndex(), 0u);
    EXPECT_TRUE(photos.currentState()->colorPicked());
    photos.rotateRight();  // a later change keeps the picked colour's control
    EXPECT_EQ(photos.selectedColorIndex(), 0u);
    photos.resetFillColor();
    EXPECT_EQ(photos.selectedColorIndex(), std::nullopt);
    EXPECT_EQ(VRAdjustColors::palette().size(), 44u);
    EXPECT_EQ(VRAdjustColors::defaultNullableFillColor(VRFormatMediaTypePhoto, true),
              VRColor::clearColor());
    EXPECT_EQ(VRAdjustColors::defaultNullableFillColor(VRFormatMediaTypePhoto, false),
              std::nullopt);
}

}  // namespace
