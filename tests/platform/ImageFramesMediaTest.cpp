#include "platform/ImageFrames.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "support/TestHome.h"

namespace {

std::vector<std::uint8_t> made(const testing_support::TestHome& home, const std::string& name,
                               const std::string& arguments) {
    const std::string path = home.path(name);
    EXPECT_EQ(testing_support::runCommand("convert " + arguments + " '" + path + "'"), 0);
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// Frames are counted without decoding, up to the limit asked for; GIF or WebP bytes that can't
// be read have none, and other formats are one picture.
TEST(ImageFramesMedia, CountsTheFramesOfAGifOrWebp) {
    testing_support::TestHome home;
    const auto three = made(home, "three.gif", "-size 8x6 xc:red xc:lime xc:blue -loop 0");
    const auto still = made(home, "still.gif", "-size 8x6 xc:red");
    const auto jpeg = made(home, "still.jpg", "-size 8x6 xc:red");
    const std::vector<std::uint8_t> header = {'G', 'I', 'F', '8', '9', 'a', 1, 2};
    const auto moving = made(home, "three.webp", "-size 8x6 xc:red xc:lime xc:blue -loop 0");
    const auto webp = made(home, "still.webp", "-size 8x6 xc:red");
    const std::vector<std::uint8_t> cut(moving.begin(), moving.begin() + moving.size() / 2);
    const struct {
        const char* name;
        std::vector<std::uint8_t> bytes;
        std::size_t stopAt;
        std::size_t frames;
    } cases[] = {
        {"three, all", three, 10, 3},
        {"three, stopping at 2", three, 2, 2},
        {"still", still, 10, 1},
        {"jpeg", jpeg, 10, 1},
        {"header only", header, 10, 0},
        {"webp animation", moving, 10, 3},
        {"webp animation, stopping at 2", moving, 2, 2},
        {"webp still", webp, 10, 1},
        {"webp cut short", cut, 10, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(platform::imageFrameCount(c.bytes, c.stopAt), c.frames) << c.name;
}

}  // namespace
