#include <gtest/gtest.h>

#include "editing/VRPresetEditView.h"
#include "editing/VRPresetViewAbstract.h"
#include "editing/VRSizeController.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

using platform::PlistArray;
using platform::PlistValue;

namespace {

TEST(SizeEditor, FieldRules) {
    struct Case {
        VRSizeEntryType type;
        VRPresetEditField field;
        double otherValue;
        std::string text;
        bool accepted;
        double fieldValue;  // after the change; the field starts at 0
        double otherAfter;
    };
    const auto W = VRPresetEditField::width;
    const auto H = VRPresetEditField::height;
    const Case cases[] = {
        {VRSizeTypePixels, W, 500, "1200", true, 1200, 500},
        {VRSizeTypePixels, W, 500, "012", false, 0, 500},
        // A zero in pixels clears the other side and is itself refused.
        {VRSizeTypePixels, W, 500, "0", false, 0, 0},
        {VRSizeTypePixels, H, 300, "0", false, 0, 0},
        {VRSizeTypePercent, W, 500, "0", false, 0, 500},
        {VRSizeTypePixels, W, 500, "", true, 0, 500},
        {VRSizeTypePixels, W, 500, "12a", false, 0, 500},
        {VRSizeTypePixels, W, 500, "-5", false, 0, 500},
        {VRSizeTypePixels, W, 500, "8192", true, 8192, 500},
        {VRSizeTypePixels, W, 500, "8193", false, 0, 500},
        {VRSizeTypePixels, H, 500, "4097", false, 0, 500},
        {VRSizeTypeRatioUp, H, 16, "9", true, 9, 16},
    };
    for (const Case& c : cases) {
        VRPresetEditView view;
        view.setInputType(c.type);
        view.setSizeMax({8192, 4096});
        if (c.field == W) {
            view.setHeightValue(c.otherValue);
        } else {
            view.setWidthValue(c.otherValue);
        }
        EXPECT_EQ(view.shouldChangeText(c.field, c.text), c.accepted) << c.text;
        double value = c.field == W ? view.widthValue() : view.heightValue();
        double other = c.field == W ? view.heightValue() : view.widthValue();
        EXPECT_EQ(value, c.fieldValue) << c.text;
        EXPECT_EQ(other, c.otherAfter) << c.text;
    }
}

TEST(SizeEditor, TextsOfListCellsAndChanges) {
    const std::pair<std::string, bool> cells[] = {{"0", true},   {"", true},    {"10", true},
                                                  {"05", false}, {"00", false}, {"1.5", false}};
    for (const auto& [text, valid] : cells) {
        EXPECT_EQ(VRPresetEditView::isValidListCellText(text), valid) << text;
    }
    EXPECT_EQ(VRPresetEditView::textAfterChange("120", 3, 0, "0"), "1200");
    EXPECT_EQ(VRPresetEditView::textAfterChange("1200", 0, 1, ""), "200");
    EXPECT_EQ(VRPresetEditView::textAfterChange("12", 9, 4, "3"), "123");
    EXPECT_EQ(VRPresetEditView::floatValue(" 12.5x"), 12.5f);
    EXPECT_EQ(VRPresetEditView::floatValue("abc"), 0.0f);
    EXPECT_EQ(VRPresetEditView::floatValue(""), 0.0f);
}

PlistArray size(double w, double h, std::uint64_t type = 0) {
    return PlistArray{w, h, type};
}

// A list of size arrays; spelled out because a braced list of one array would copy it.
PlistArray listOf(std::initializer_list<PlistArray> sizes) {
    PlistArray list;
    for (const PlistArray& s : sizes) list.emplace_back(s);
    return list;
}

TEST(SizeEditor, RecentSizesKeepTenWithoutRepeatsNewestFirst) {
    VRPresetViewAbstract editor;
    for (int i = 1; i <= 11; ++i) editor._addSize(size(100.0 * i, 100));
    ASSERT_EQ(editor.sizesMutable().size(), 10u);
    EXPECT_TRUE(editor.sizesMutable().front().isEqual(size(1100, 100)));
    EXPECT_TRUE(editor.sizesMutable().back().isEqual(size(200, 100))) << "the oldest went";

    // A listed size moves to the front; integers and reals of the same value are the same size.
    editor._addSize(PlistArray{500, 100, 0});
    ASSERT_EQ(editor.sizesMutable().size(), 10u);
    EXPECT_TRUE(editor.sizesMutable().front().isEqual(size(500, 100)));
    int copies = 0;
    for (const PlistValue& s : editor.sizesMutable()) copies += s.isEqual(size(500, 100));
    EXPECT_EQ(copies, 1);
}

TEST(SizeEditor, SwapRatioToggleAndHandingOn) {
    VRPresetViewAbstract editor;
    std::vector<PlistArray> handedOn;
    editor.setUpdateSizeEntry([&](const VRSizeEntry& entry, const VRSizeOptions&) {
        handedOn.push_back(entry.sizeArray());
    });
    editor.setSizesMutable(listOf({size(1200, 600), size(640, 480)}));
    editor.didTouchSizeSwapControl();
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(600, 1200)));
    EXPECT_TRUE(editor.sizesMutable()[1].isEqual(size(640, 480)));
    EXPECT_FALSE(editor.sizeSwapControl().selected);
    ASSERT_EQ(handedOn.size(), 1u);

    // Percent is no ratio: nothing changes and nothing is handed on.
    editor.setSizesMutable(listOf({size(133, 100, VRSizeTypePercent)}));
    EXPECT_FALSE(editor._toggleRatioMode());
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(133, 100, VRSizeTypePercent)));
    EXPECT_EQ(handedOn.size(), 1u);

    editor.setSizesMutable(listOf({size(16, 9, VRSizeTypeRatioUp)}));
    EXPECT_TRUE(editor._toggleRatioMode());
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(16, 9, VRSizeTypeRatioDown)));
    EXPECT_TRUE(editor._toggleRatioMode());
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(16, 9, VRSizeTypeRatioUp)));
    EXPECT_EQ(handedOn.size(), 3u);

    // While the input view is open the size changes but is not handed on.
    editor.setSizeInputMode(true);
    EXPECT_TRUE(editor._toggleRatioMode());
    editor._rotateSize();
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(9, 16, VRSizeTypeRatioDown)));
    EXPECT_EQ(handedOn.size(), 3u);
}

TEST(SizeEditor, SizeFollowsTheTargetsOrientationWithTheSwapOption) {
    VRPresetViewAbstract editor;
    editor.setSizesMutable(listOf({size(1200, 600)}));
    editor.setOptions({1, 5});
    editor._updateTargetPortrait({1000, 2000});
    EXPECT_TRUE(editor.targetPortrait());

    // Without the swap option nothing is required.
    EXPECT_FALSE(editor._checkSettingsRequireRotation({2000, 1000}));
    EXPECT_FALSE(editor._checkAndUpdateSettingsForTarget({2000, 1000}));

    editor.setSwapOptionSelected(true);
    EXPECT_FALSE(editor._checkSettingsRequireRotation({1000, 2000}));
    EXPECT_TRUE(editor._checkSettingsRequireRotation({2000, 1000}));
    EXPECT_TRUE(editor._checkSettingsRequireRotation({1000, 1000})) << "square is landscape";
    EXPECT_TRUE(editor._checkAndUpdateSettingsForTarget({2000, 1000}));
    EXPECT_FALSE(editor.targetPortrait());
    EXPECT_TRUE(editor.sizesMutable()[0].isEqual(size(600, 1200)));
    EXPECT_EQ(editor.options(), (VRSizeOptions{1, 5}));
    EXPECT_FALSE(editor._checkAndUpdateSettingsForTarget({2000, 1000}));

    EXPECT_TRUE(editor._checkAndUpdateSettingsForTarget({100, 200}));
    EXPECT_TRUE(editor.targetPortrait());
    EXPECT_EQ(editor.options(), (VRSizeOptions{1, 5, 2}));

    editor._updateSizeSwapEnabled(false, true);
    EXPECT_FALSE(editor.sizeSwapControl().enabled);
    EXPECT_EQ(editor.sizeSwapControl().alpha, 0.5);
    EXPECT_TRUE(editor.sizeSwapControl().highlighted);
    editor._updateSizeSwapEnabled(true, false);
    EXPECT_EQ(editor.sizeSwapControl().alpha, 1.0);
    EXPECT_FALSE(editor.sizeSwapControl().highlighted);
}

TEST(SizeEditor, ControllerListsStoresAndSettlesTheOrientationOption) {
    testing_support::TestHome home;
    const VRSizeEntry templateEntry = VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent);
    VRSettings::_prepareSettings();  // the first run, then the migrations
    VRSettings::_prepareSettings();
    PlistArray stored = VRSettings::imageSizes();
    ASSERT_FALSE(stored.empty());
    EXPECT_EQ(VRSizeController::presetViewSizes(1, 0, templateEntry), stored);
    PlistArray fromTemplate = VRSizeController::presetViewSizes(1, 2, templateEntry);
    ASSERT_EQ(fromTemplate.size(), stored.size());
    EXPECT_TRUE(fromTemplate[0].isEqual(size(133, 100, VRSizeTypePercent)));
    EXPECT_EQ(VRSettings::imageSizes(), stored) << "the stored list stays";
    PlistArray videos = VRSizeController::presetViewSizes(2, 1, templateEntry);
    ASSERT_EQ(videos.size(), 10u);
    EXPECT_TRUE(videos[0].isEqual(size(133, 100, VRSizeTypePercent)));
    EXPECT_EQ(videos[1], VRSettings::videoSizes()[1]);
    VRSettings::setVideoSizes({});
    EXPECT_TRUE(VRSizeController::presetViewSizes(2, 1, templateEntry).empty());

    VRSizeController::_storeGlobalSettings(1, listOf({size(1, 1)}), 3, {0, 5}, 1);
    EXPECT_EQ(VRSettings::imageFormat(), 0) << "a template's editor leaves the global choice";
    VRSizeController::_storeGlobalSettings(0, listOf({size(1, 1)}), 3, {0, 5}, 1);
    EXPECT_EQ(VRSettings::imageFormat(), 3);
    EXPECT_EQ(VRSettings::imageSizes(), listOf({size(1, 1)}));

    const VRSizeEntry portrait = VRSizeEntry::sizeEntryWithWidth(600, 1200, VRSizeTypePixels);
    const VRSizeEntry landscape = VRSizeEntry::sizeEntryWithWidth(1200, 600, VRSizeTypePixels);
    struct Case {
        VRSizeController::Source source;
        VRSizeOptions options;
        const VRSizeEntry* entry;
        std::set<std::uint64_t> shapes;
        VRSizeOptions expected;
    };
    const Case cases[] = {
        {0, {1, 5}, &portrait, {1}, {1, 5, 2}},    {0, {1, 5, 2}, &landscape, {1}, {1, 5}},
        {0, {1, 5, 2}, &portrait, {1}, {1, 5, 2}}, {0, {0, 5}, &portrait, {1}, {0, 5}},
        {0, {1, 5}, &portrait, {2}, {1, 5}},       {0, {1, 5}, &portrait, {0, 1}, {1, 5}},
        {1, {1, 5}, &portrait, {1}, {1, 5}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VRSizeController::finishedOptions(c.source, c.options, *c.entry, c.shapes),
                  c.expected);
    }
}

}  // namespace

namespace {

TEST(SizeEditor, ReceivedOptionsAreCompletedAndReassembledFromTheButtons) {
    struct Case {
        VRSizeOptions received;
        VRSizeOptions completed;  // sourceOptions
        VRSizeOptions shown;      // the selected buttons: size mode, method, then 2
    };
    const Case cases[] = {
        {{3}, {3, 0}, {0, 3}},  // the X templates' clip
        {{4}, {4, 0}, {0, 4}},
        {{}, {0, 5}, {0, 5}},
        {{1}, {1, 5}, {1, 5}},
        {{2}, {2, 0, 5}, {0, 5, 2}},
        {{5, 1}, {5, 1}, {1, 5}},
        {{1, 4, 2}, {1, 4, 2}, {1, 4, 2}},
        {{0, 3}, {0, 3}, {0, 3}},
        // Both methods mean clip to the pipelines; both modes, Smart.
        {{4, 3}, {4, 3, 0}, {0, 3}},
        {{0, 1, 5}, {0, 1, 5}, {1, 5}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VRPresetViewAbstract::sourceOptions(c.received), c.completed);
        VRPresetViewAbstract view;
        view.setOptions(c.received);
        EXPECT_EQ(view.options(), c.shown);
    }
}

TEST(SizeEditor, OptionButtonsInOrderWithOneSelectedPerGroup) {
    VRPresetViewAbstract view;
    std::vector<VRSizeOptions> handedOn;
    view.setUpdateSizeEntry(
        [&](const VRSizeEntry&, const VRSizeOptions& options) { handedOn.push_back(options); });
    view.setSizesMutable(listOf({size(1500, 500)}));
    view.setOptions({3});
    auto shown = [&] {
        std::string text;
        for (const auto& button : view.optionButtons())
            text += std::string(button.selected ? "*" : "") + button.title + "|";
        return text;
    };
    EXPECT_EQ(shown(), "*Normal size|Smart size|*Ratio clip|Ratio fit|Stretch|");
    EXPECT_TRUE(view.didTouchOptionButton(VRSizeOptionSmart));
    EXPECT_TRUE(view.didTouchOptionButton(VRSizeOptionStretch));
    EXPECT_EQ(shown(), "Normal size|*Smart size|Ratio clip|Ratio fit|*Stretch|");
    EXPECT_FALSE(view.didTouchOptionButton(VRSizeOptionTargetPortrait));
    ASSERT_EQ(handedOn.size(), 2u);
    EXPECT_EQ(handedOn.back(), (VRSizeOptions{1, 5}));

    // The swap control and the ratio toggle follow the size.
    EXPECT_TRUE(view.sizeSwapControl().enabled);
    EXPECT_FALSE(view.isRatioToggleEnabled());
    view._didTouchPresetButton(size(800, 800));
    EXPECT_FALSE(view.sizeSwapControl().enabled) << "a square has nothing to swap";
    view._didTouchPresetButton(size(9, 16, VRSizeTypeRatioDown));
    EXPECT_TRUE(view.sizeSwapControl().enabled);
    EXPECT_TRUE(view.sizeSwapControl().portrait);
    EXPECT_TRUE(view.isRatioToggleEnabled());
}

TEST(SizeEditor, StoringWritesTheTemplateAndOnlyTheHomeScreensEditorTheSettings) {
    testing_support::TestHome home;
    VRSettings::_prepareSettings();
    VRSettings::setImageOptions({5, 1});
    const PlistArray storedSizes = VRSettings::imageSizes();
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(1500, 500, VRSizeTypePixels),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeJPEG, 1), VRSizeOptions{3}, 1);

    VRSizeController fromTemplate(1, tpl, 1);
    EXPECT_EQ(fromTemplate.presetView().options(), (VRSizeOptions{0, 3}));
    ASSERT_TRUE(fromTemplate.presetView().currentSizeEntry());
    EXPECT_EQ(fromTemplate.presetView().currentSizeEntry()->width(), 1500);
    fromTemplate.presetView()._didTouchPresetButton(size(640, 480));
    fromTemplate.presetView().didTouchOptionButton(VRSizeOptionRatioFit);
    VXTemplateRef finished = fromTemplate.presetViewDidFinish({2});
    EXPECT_EQ(finished->sizeEntryForMediaType(1)->sizeArray(), size(640, 480));
    EXPECT_EQ(finished->optionsForMediaType(1), (VRSizeOptions{0, 4}));
    EXPECT_EQ(finished->formatForMediaType(1).type(), VRFormatTypeJPEG);
    EXPECT_EQ(tpl->optionsForMediaType(1), (VRSizeOptions{0, 4})) << "stored into the template";
    EXPECT_EQ(VRSettings::imageSizes(), storedSizes);
    EXPECT_EQ(VRSettings::imageFormat(), 0);

    // From the home screen: a new template, opened on the global choice, which it stores.
    VRSizeController fromHome(0, nullptr, 1);
    EXPECT_EQ(fromHome.presetView().sizesMutable(), storedSizes);
    EXPECT_EQ(fromHome.presetView().options(), (VRSizeOptions{1, 5}));
    fromHome.setFormat(VRFormat::formatWithTypeMediaType(VRFormatTypePNG, 1));
    fromHome.presetView()._didTouchPresetButton(size(600, 1200));
    VXTemplateRef made = fromHome.presetViewDidFinish({1});
    EXPECT_EQ(made->optionsForMediaType(1), (VRSizeOptions{1, 5, 2})) << "settled on the copy";
    EXPECT_FALSE(made->sizeEntryForMediaType(2));
    EXPECT_EQ(VRSettings::imageFormat(), VRFormatTypePNG);
    EXPECT_TRUE(VRSettings::imageSizes().front().isEqual(size(600, 1200)));
    EXPECT_EQ(VRSettings::imageOptions(), (VRSizeOptions{1, 5}));
}

}  // namespace
