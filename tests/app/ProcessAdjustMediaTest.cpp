#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"

using command_test::Outcome;
using command_test::unwarp;
using testing_support::TestHome;

namespace {

// The first column (or row) of the middle row (or column) where the white picture starts on
// the black margin, or -1.
int pictureStart(const std::string& file, bool vertical) {
    auto b = photo_test::decode(file);
    EXPECT_TRUE(b) << file;
    if (!b) return -1;
    const std::size_t n = vertical ? b->height() : b->width();
    for (std::size_t i = 0; i < n; ++i) {
        auto p = vertical ? b->pixelAt(b->width() / 2, i) : b->pixelAt(i, b->height() / 2);
        if (p.r > 32768) return static_cast<int>(i);
    }
    return -1;
}

void write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

// Drags in screen points through the adjust session, one run of several copies of a white
// picture in a square fit frame with black margins (palette entry 6). Whatever the turns and
// mirrors made before, the same drag moves the picture the same way in the written file; a
// drag stops at the margin, a drag across the free axis moves nothing, and a view of half
// the frame's size doubles the pixels of a point.
TEST(ProcessAdjustMedia, TheSameDragMovesThePictureTheSameWayOnScreen) {
    TestHome home;
    photo_test::run("convert -size 50x100 xc:white '" + home.path("tall.png") + "'");
    photo_test::run("convert -size 100x50 xc:white '" + home.path("wide.png") + "'");
    struct Case {
        std::string steps;  // before the drag
        bool turned;        // a quarter turn: a wide picture is tall on the screen
        bool vertical;      // the drag goes down instead of right
        std::string drag;
        int expected;  // where the picture starts along the drag
    } cases[] = {
        {"", false, false, "", 270},
        {"", false, false, R"({"drag": [100, 0]})", 370},
        {"", false, true, R"({"drag": [0, 100]})", 370},
        {R"("flipHorizontally",)", false, false, R"({"drag": [100, 0]})", 370},
        {R"("flipVertically",)", false, true, R"({"drag": [0, 100]})", 370},
        {R"("rotateRight",)", true, false, R"({"drag": [100, 0]})", 370},
        {R"("rotateRight",)", true, true, R"({"drag": [0, 100]})", 370},
        {R"("rotateRight", "rotateRight",)", false, false, R"({"drag": [100, 0]})", 370},
        {R"("rotateRight", "flipVertically",)", true, false, R"({"drag": [100, 0]})", 370},
        {R"("flipHorizontally", "rotateRight",)", true, true, R"({"drag": [0, -100]})", 170},
        {"", false, false, R"({"drag": [1000, 0]})", 540},
        {"", false, false,
         R"({"drag": [-50, 0], "view": {"width": 540, "height": 540, "scale": 2}})", 170},
        {"", false, false, R"({"drag": [0, 100]})", 270},  // across: refused
    };
    std::string items, files;
    int n = 0;
    for (const auto& c : cases) {
        const std::string name = "item" + std::to_string(n++) + ".png";
        std::filesystem::copy_file(home.path(c.turned != c.vertical ? "wide.png" : "tall.png"),
                                   home.path(name));
        files += " '" + home.path(name) + "'";
        items += std::string(items.empty() ? "" : ",") + R"({"file": ")" + home.path(name) +
                 R"(", "fill": 6, "steps": [)" + c.steps +
                 (c.drag.empty() ? R"("center")" : c.drag) + "]}";
    }
    write(home.path("adjust.json"), R"({"items": [)" + items + "]}");
    const std::string out = home.path("out");
    Outcome o = unwarp(home, "process --template ig-square-fit --adjust '" +
                                 home.path("adjust.json") + "' --out '" + out + "'" + files);
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NE(o.err.find("item12.png: the drag [0, 100] was refused: this picture moves only "
                         "sideways"),
              std::string::npos)
        << o.err;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].steps + cases[i].drag);
        EXPECT_NEAR(pictureStart(out + "/item" + std::to_string(i) + ".jpg", cases[i].vertical),
                    cases[i].expected, 2);
    }
}

// "Apply to All" gives every photo of the run the current item's state, and an item named
// later changes on its own from there; without it, an input the file doesn't name keeps the
// flags' state while a named one takes the file's alone.
TEST(ProcessAdjustMedia, ApplyToAllAndTheFlagsForItemsNotNamed) {
    TestHome home;
    std::string files;
    for (const char* name : {"a.png", "b.png", "c.png"}) {
        photo_test::run("convert -size 50x100 xc:white '" + home.path(name) + "'");
        files += std::string(" '") + home.path(name) + "'";
    }
    photo_test::run("convert -size 50x100 xc:white '" + home.path("d.png") + "'");
    write(home.path("adjust.json"), R"({"items": [
        {"index": 1, "steps": [{"drag": [100, 0]}], "fill": "#000000", "applyToAll": true},
        {"file": "c.png", "steps": [{"drag": [-100, 0]}]}]})");
    const std::string out = home.path("out");
    // Names relative to the current folder: run from the home.
    const std::string command = "cd '" + home.root() + "' && '" + UNWARP_BINARY + "' --home '" +
                                home.root() +
                                "' process --template ig-square-fit --fill '#000000' --shift 50,0 "
                                "--adjust adjust.json --out out a.png b.png c.png d.png 2>&1";
    std::string printed;
    ASSERT_EQ(testing_support::runCommand(command, &printed), 0) << printed;
    const std::pair<const char*, int> expected[] = {
        {"a.jpg", 370}, {"b.jpg", 370}, {"c.jpg", 270}, {"d.jpg", 370}};
    for (auto [file, start] : expected)
        EXPECT_NEAR(pictureStart(out + "/" + file, false), start, 2) << file;

    write(home.path("one.json"),
          R"({"items": [{"index": 1, "steps": [{"drag": [100, 0]}], "fill": "#000000"}]})");
    const std::string out2 = home.path("out2");
    Outcome o = unwarp(home,
                       "process --template ig-square-fit --fill '#000000' --shift 50,0 "
                       "--adjust '" +
                           home.path("one.json") + "' --out '" + out2 + "' '" + home.path("a.png") +
                           "' '" + home.path("b.png") + "'");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NEAR(pictureStart(out2 + "/a.jpg", false), 370, 2);
    EXPECT_NEAR(pictureStart(out2 + "/b.jpg", false), 320, 2);
}

// A file that can't be used stops the run before anything is written, with the reason.
TEST(ProcessAdjustMedia, BadAdjustFilesAreRefused) {
    TestHome home;
    photo_test::run("convert -size 50x100 xc:white '" + home.path("a.png") + "'");
    const std::pair<std::string, std::string> cases[] = {
        {"{", "not JSON"},
        {"[]", "give an object"},
        {R"({"items": {}})", "give the items as a list"},
        {R"({"items": [], "extra": 1})", "unknown key \"extra\""},
        {R"({"items": [{"file": "b.png"}]})", "b.png is not among the inputs"},
        {R"({"items": [{"index": 2}]})", "\"index\" is 1 to 1"},
        {R"({"items": [{"index": 1, "file": "a.png"}]})", "by \"file\" or by \"index\""},
        {R"({"items": [{"index": 1, "steps": ["spin"]}]})", "unknown step \"spin\""},
        {R"({"items": [{"index": 1, "steps": [{"drag": [1]}]}]})", "give the drag as [X, Y]"},
        {R"({"items": [{"index": 1, "steps": [{"drag": [1e9, 0]}]}]})", "give the drag"},
        {R"({"items": [{"index": 1, "fill": 44}]})", "a palette number is 1 to 43"},
        {R"({"items": [{"index": 1, "fill": "#12"}]})", "give a colour"},
        {R"({"view": {"width": 0, "height": 5}, "items": []})", "view: give {"},
    };
    int n = 0;
    for (const auto& [text, words] : cases) {
        SCOPED_TRACE(text);
        const std::string json = home.path("bad" + std::to_string(n++) + ".json");
        write(json, text);
        Outcome o =
            unwarp(home, "process --template ig-square-fit --adjust '" + json + "' --out '" +
                             home.path("out") + "' '" + home.path("a.png") + "'");
        EXPECT_EQ(o.exitCode, 2);
        EXPECT_NE(o.err.find(words), std::string::npos) << o.err;
    }
    Outcome missing = unwarp(home, "process --template ig-square-fit --adjust '" +
                                       home.path("none.json") + "' '" + home.path("a.png") + "'");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_NE(missing.err.find("none.json"), std::string::npos) << missing.err;
    EXPECT_FALSE(std::filesystem::exists(home.path("out/a.jpg")));
}

}  // namespace
