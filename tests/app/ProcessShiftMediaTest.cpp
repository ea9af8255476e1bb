#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"

using command_test::Outcome;
using command_test::unwarp;
using testing_support::TestHome;

namespace {

// The first column (or row) of the middle row (or column) where the white picture starts on
// the black margin, or -1.
int pictureStart(const platform::Bitmap& b, bool vertical) {
    const std::size_t n = vertical ? b.height() : b.width();
    for (std::size_t i = 0; i < n; ++i) {
        auto p = vertical ? b.pixelAt(b.width() / 2, i) : b.pixelAt(i, b.height() / 2);
        if (p.r > 32768) return static_cast<int>(i);
    }
    return -1;
}

// --shift is given in the directions of the written picture, whatever the turns and mirrors:
// right moves it right and down moves it down. The fit template leaves a margin on one axis,
// so the source is chosen to be tall (or wide) once turned.
TEST(ProcessShiftMedia, TheShiftFollowsTheOutputDirections) {
    TestHome home;
    const std::string tall = home.path("tall.png"), wide = home.path("wide.png");
    photo_test::run("convert -size 50x100 xc:white '" + tall + "'");
    photo_test::run("convert -size 100x50 xc:white '" + wide + "'");
    const char* flags[] = {"",
                           "--flip-h",
                           "--flip-v",
                           "--rotate 90",
                           "--rotate 180",
                           "--rotate 270",
                           "--rotate 90 --flip-h",
                           "--rotate 270 --flip-v"};
    int run = 0;
    for (const std::string f : flags) {
        const bool turned = f.find("90") != std::string::npos || f.find("270") != std::string::npos;
        for (bool vertical : {false, true}) {
            SCOPED_TRACE(f + (vertical ? " down" : " right"));
            // A picture that is tall once turned has room to move sideways, a wide one upwards.
            const std::string& source = (turned != vertical) ? wide : tall;
            auto startWith = [&](const std::string& shift) {
                const std::string out = home.path("out" + std::to_string(run++));
                std::filesystem::create_directory(out);
                Outcome o = unwarp(home, "process --template ig-square-fit --fill '#000000' " + f +
                                             " " + shift + " --out '" + out + "' '" + source + "'");
                EXPECT_EQ(o.exitCode, 0) << o.err;
                const std::string stem = std::filesystem::path(source).stem().string();
                auto pixels = photo_test::decode(out + "/" + stem + ".jpg");
                EXPECT_TRUE(pixels);
                return pixels ? pictureStart(*pixels, vertical) : -1;
            };
            const int centred = startWith("");
            const int moved = startWith(vertical ? "--shift 0,100" : "--shift 100,0");
            EXPECT_NEAR(centred, 270, 2);
            EXPECT_NEAR(moved - centred, 100, 2);
        }
    }
}

}  // namespace
