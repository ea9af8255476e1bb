#include <gtest/gtest.h>

#include <filesystem>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"

using command_test::Outcome;
using command_test::unwarp;
using photo_test::quadrants;
using photo_test::vipsSize;
using testing_support::TestHome;

namespace {

// The X templates store clip as [3] with no size mode; completed to Normal size, they turn
// their size with a quarter-turned item as the Facebook ones ([3, 0]) do.
TEST(TemplateCompletionMedia, QuarterTurnedPhotosKeepTheTemplatesSize) {
    TestHome home;
    const std::string photo = quadrants(home, "a.jpg", 400, 300);
    struct Case {
        std::string key;
        std::string turned;
        std::string upright;
    };
    const Case cases[] = {
        {"tw-cover", "1500x500", "1500x500"},
        {"tw-portrait", "1080x1350", "1080x1350"},
        {"fb-cover", "820x360", "820x360"},
    };
    for (const Case& c : cases) {
        for (const auto& [rotate, expected] :
             {std::pair<std::string, std::string>{" --rotate 90", c.turned}, {"", c.upright}}) {
            const std::string out = home.path("out-" + c.key + (rotate.empty() ? "" : "-turned"));
            Outcome o = unwarp(home, "process --template " + c.key + rotate + " --out '" + out +
                                         "' '" + photo + "'");
            ASSERT_EQ(o.exitCode, 0) << c.key << rotate << ": " << o.err;
            EXPECT_EQ(vipsSize(out + "/a.jpg"), expected) << c.key << rotate;
        }
    }
    // The size command agrees: the size before the turn, the frame of the turned item.
    Outcome size =
        unwarp(home, "size --template tw-cover --media photo --source 400x300 --rotated --json");
    ASSERT_EQ(size.exitCode, 0) << size.err;
    auto shown = nlohmann::json::parse(size.out);
    EXPECT_EQ(shown["outputSize"]["width"], 500) << size.out;
    EXPECT_EQ(shown["outputSize"]["height"], 1500) << size.out;
    EXPECT_EQ(shown["frame"]["width"], 1500) << size.out;
}

}  // namespace
