#include "model/VRAdjustState.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

namespace {

VRAdjustAssetStateRef state(std::optional<VROrientation> orientation, std::optional<VRColor> color,
                            CGPoint displacement = {}) {
    auto s = std::make_shared<VRAdjustAssetState>();
    s->setOrientation(orientation);
    s->setFillColor(color);
    s->setDisplacement(displacement);
    return s;
}

const VROrientation kTurned = VROrientation::orientationWithFlipedX(false, false, 1);
const VRColor kRed{1, 0, 0, 1};

}  // namespace

TEST(VRAdjustAssetState, EmptinessEqualityAndCopy) {
    VRAdjustAssetState empty;
    EXPECT_TRUE(empty.isEmpty());
    empty.setColorPicked(true);
    EXPECT_TRUE(empty.isEmpty());  // colorPicked does not count
    EXPECT_FALSE(state(kTurned, std::nullopt)->isEmpty());
    EXPECT_FALSE(state(std::nullopt, kRed)->isEmpty());
    EXPECT_FALSE(state(std::nullopt, std::nullopt, {0, 1})->isEmpty());

    struct Case {
        const char* what;
        VRAdjustAssetStateRef a, b;
        bool equal;
    } cases[] = {
        {"full and equal", state(kTurned, kRed, {1, 2}), state(kTurned, kRed, {1, 2}), true},
        {"other displacement", state(kTurned, kRed, {1, 2}), state(kTurned, kRed, {1, 3}), false},
        {"other colour", state(kTurned, kRed), state(kTurned, VRColor{0, 0, 1, 1}), false},
        {"other orientation", state(kTurned, kRed), state(VROrientation(), kRed), false},
        {"no colour on either", state(kTurned, std::nullopt), state(kTurned, std::nullopt), false},
        {"no orientation on either", state(std::nullopt, kRed), state(std::nullopt, kRed), false},
        {"colour only on one", state(kTurned, kRed), state(kTurned, std::nullopt), false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a->isEqualToState(*c.b), c.equal) << c.what;
        EXPECT_EQ(c.b->isEqualToState(*c.a), c.equal) << c.what;
    }
    const auto partial = state(kTurned, std::nullopt);
    EXPECT_FALSE(partial->isEqualToState(*partial));  // equals no state, itself included

    auto picked = std::make_shared<VRAdjustAssetState>(*state(kTurned, kRed, {4, 5}));
    picked->setColorPicked(true);
    const auto copy = picked->copy();
    EXPECT_FALSE(copy->colorPicked());
    EXPECT_TRUE(copy->isEqualToState(*picked));
    EXPECT_EQ(copy->hash(), picked->hash());
}

TEST(VRAdjustState, AddUndoAndReset) {
    VRAdjustState adjust;
    EXPECT_TRUE(adjust.isEmpty());
    EXPECT_EQ(adjust.stateWithKey("a"), nullptr);

    // Equal complete states are added once; states without a fill colour every time.
    adjust.addState(state(kTurned, kRed), "a");
    adjust.addState(state(kTurned, kRed), "a");
    EXPECT_EQ(adjust.stateArrays().at("a").size(), 1u);
    adjust.addState(state(kTurned, std::nullopt), "b");
    adjust.addState(state(kTurned, std::nullopt), "b");
    EXPECT_EQ(adjust.stateArrays().at("b").size(), 2u);
    adjust.addState(nullptr, "c");
    EXPECT_EQ(adjust.stateArrays().count("c"), 0u);

    const auto moved = state(kTurned, kRed, {7, 0});
    adjust.addState(moved, "a");
    EXPECT_EQ(adjust.stateWithKey("a"), moved);
    adjust.undoStateWithKey("a");
    EXPECT_EQ(adjust.stateArrays().at("a").size(), 1u);
    adjust.undoStateWithKey("a");
    EXPECT_EQ(adjust.stateArrays().count("a"), 0u);
    EXPECT_EQ(adjust.stateWithKey("a"), nullptr);
    adjust.undoStateWithKey("never there");

    adjust.addState(state(kTurned, kRed), "a");
    adjust.undoAll();  // "a" had one state, "b" two
    EXPECT_EQ(adjust.stateArrays().count("a"), 0u);
    EXPECT_EQ(adjust.stateArrays().at("b").size(), 1u);
    adjust.resetStateWithKey("b");
    EXPECT_TRUE(adjust.stateArrays().empty());

    adjust.addState(state(kTurned, kRed), "x");
    adjust.addState(state(kTurned, kRed, {1, 1}), "y");
    adjust.resetAll();
    EXPECT_TRUE(adjust.stateArrays().empty());
}

TEST(VRAdjustState, CopiesShareNoChangingArray) {
    VRAdjustState adjust;
    adjust.addState(state(kTurned, kRed), "a");
    const VRAdjustState copy = adjust;
    adjust.addState(state(kTurned, kRed, {3, 3}), "a");
    EXPECT_EQ(copy.stateArrays().at("a").size(), 1u);
    EXPECT_EQ(adjust.stateArrays().at("a").size(), 2u);
}

TEST(VRAdjustState, Emptiness) {
    struct Case {
        const char* what;
        std::vector<VRAdjustAssetStateRef> states;
        bool empty;
    } cases[] = {
        {"one empty state", {state(std::nullopt, std::nullopt)}, true},
        {"two empty states",
         {state(std::nullopt, std::nullopt), state(std::nullopt, std::nullopt)},
         false},
        {"one real state", {state(std::nullopt, std::nullopt, {1, 0})}, false},
    };
    for (const auto& c : cases) {
        VRAdjustState adjust;
        for (const auto& s : c.states) adjust.addState(s, "k");
        EXPECT_EQ(adjust.isEmpty(), c.empty) << c.what;
    }
}

TEST(VRAdjustState, ApplyToAllAndMerge) {
    VRAdjustState adjust;
    const auto source = state(kTurned, kRed, {2, 2});
    adjust.addState(source, "src");
    adjust.addStateToAllKeys({"src", "p", "q"}, std::string("src"));
    EXPECT_EQ(adjust.stateWithKey("p"), source);  // the same object, shared
    EXPECT_EQ(adjust.stateWithKey("q"), source);
    EXPECT_EQ(adjust.stateArrays().at("src").size(), 1u);

    adjust.addStateToAllKeys({"r"}, std::nullopt);
    EXPECT_EQ(adjust.stateArrays().count("r"), 0u);
    adjust.addStateToAllKeys({"r"}, std::string("unknown"));
    ASSERT_NE(adjust.stateWithKey("r"), nullptr);
    EXPECT_TRUE(adjust.stateWithKey("r")->isEmpty());

    VRAdjustState other;
    other.addState(state(std::nullopt, std::nullopt, {9, 9}), "p");
    other.addState(state(std::nullopt, std::nullopt, {8, 8}), "p");
    other.addState(state(kTurned, kRed), "new");
    adjust.mergeWithAdjustState(other);
    EXPECT_EQ(adjust.stateArrays().at("p"), other.stateArrays().at("p"));  // the whole array
    EXPECT_EQ(adjust.stateArrays().at("p").size(), 2u);
    EXPECT_EQ(adjust.stateWithKey("q"), source);
    EXPECT_NE(adjust.stateWithKey("new"), nullptr);

    auto first = std::make_shared<VRAdjustState>();
    first->addState(state(kTurned, kRed), "k");
    auto second = std::make_shared<VRAdjustState>();
    const auto later = state(kTurned, kRed, {5, 5});
    second->addState(later, "k");
    const VRAdjustState merged = VRAdjustState::mergeStates({first, nullptr, second});
    EXPECT_EQ(merged.stateWithKey("k"), later);
    EXPECT_EQ(merged.stateArrays().size(), 1u);
}
