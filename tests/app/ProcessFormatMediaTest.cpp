// `unwarp process --format`: the run writes the named photo format instead of the template's,
// WebP included, as independent readers see the result; WebP comes in as well, and the stored
// template keeps its own format.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "app/CommandSupport.h"
#include "photo/PhotoSupport.h"

using command_test::filesIn;
using command_test::inQuotes;
using command_test::Outcome;
using command_test::unwarp;
using photo_test::quadrants;
using photo_test::run;
using photo_test::vipsSize;
using testing_support::TestHome;

namespace {

TEST(ProcessFormatMedia, FormatWebpWritesWebpThatOtherReadersOpen) {
    TestHome home;
    const std::string jpeg = quadrants(home, "a.jpg", 40, 30);
    // A picture with clear parts keeps them, as a PNG result would.
    const std::string png = home.path("b.png");
    run("convert -size 40x30 xc:none -fill red -draw 'rectangle 0,0 19,14' " + inQuotes(png));
    Outcome o =
        unwarp(home, "process --template uw-133 --format WebP --json --out " +
                         inQuotes(home.path("out")) + " " + inQuotes(jpeg) + " " + inQuotes(png));
    ASSERT_EQ(o.exitCode, 0) << o.err;
    auto lines = command_test::jsonLines(o.out);
    ASSERT_EQ(lines.size(), 2u) << o.out;
    for (const auto& line : lines) EXPECT_EQ(line["format"], "WebP") << line.dump();
    EXPECT_EQ(filesIn(home.path("out")), (std::vector<std::string>{"a.webp", "b.webp"}));
    const std::string a = home.path("out/a.webp"), b = home.path("out/b.webp");
    EXPECT_EQ(run("vipsheader -f vips-loader " + inQuotes(a)), "webpload");
    EXPECT_EQ(vipsSize(a), "53x30");
    EXPECT_EQ(run("exiftool -s -s -s -MIMEType " + inQuotes(a)), "image/webp");
    EXPECT_EQ(run("vips getpoint " + inQuotes(a) + " 5 25").substr(0, 2), "0 ") << "blue quadrant";
    EXPECT_EQ(run("vipsheader -f bands " + inQuotes(b)), "4");
    EXPECT_EQ(run("vips getpoint " + inQuotes(b) + " 50 25"), "0 0 0 0 ");
    EXPECT_EQ(run("vips getpoint " + inQuotes(b) + " 2 2"), "255 0 0 255 ");

    // The template itself still writes its own format.
    Outcome plain = unwarp(home, "process --template uw-133 --json --out " +
                                     inQuotes(home.path("plain")) + " " + inQuotes(jpeg));
    ASSERT_EQ(plain.exitCode, 0) << plain.err;
    EXPECT_EQ(filesIn(home.path("plain")), (std::vector<std::string>{"a.jpg"}));
}

TEST(ProcessFormatMedia, WebpComesInAndBadFormatsOrFilesAreNamed) {
    TestHome home;
    const std::string webp = home.path("c.webp");
    run("convert -size 40x30 xc:red -quality 90 " + inQuotes(webp));
    Outcome in = unwarp(home, "process --template uw-133 --format png --json --out " +
                                  inQuotes(home.path("out")) + " " + inQuotes(webp));
    ASSERT_EQ(in.exitCode, 0) << in.err;
    EXPECT_EQ(vipsSize(home.path("out/c.png")), "53x30");
    EXPECT_EQ(in.err.find("animated"), std::string::npos) << in.err;

    // An animation gives its first frame, and says so.
    const std::string moving = home.path("moving.webp");
    run("convert -delay 10 -size 40x30 xc:red xc:blue -loop 0 " + inQuotes(moving));
    Outcome animated = unwarp(home, "process --template uw-133 --format png --out " +
                                        inQuotes(home.path("out")) + " " + inQuotes(moving));
    ASSERT_EQ(animated.exitCode, 0) << animated.err;
    EXPECT_NE(animated.err.find("moving.webp is animated: only its first frame is used"),
              std::string::npos)
        << animated.err;
    EXPECT_EQ(run("vips getpoint " + inQuotes(home.path("out/moving.png")) + " 20 15").substr(0, 4),
              "255 ")
        << "red, the first frame";

    struct Case {
        const char* format;
        const char* words;
    } refused[] = {{"mov", "MOV is not a photo format"}, {"bmp", "unknown format: bmp"}};
    for (const auto& c : refused) {
        Outcome o = unwarp(home, std::string("process --template uw-133 --format ") + c.format +
                                     " " + inQuotes(webp));
        EXPECT_EQ(o.exitCode, 2) << c.format;
        EXPECT_NE(o.err.find(c.words), std::string::npos) << o.err;
    }

    // A cut file: the usual failure with the reader's words, and nothing left in --out.
    std::ifstream whole(webp, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(whole)), {});
    std::ofstream(home.path("cut.webp"), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    Outcome cut =
        unwarp(home, "process --template uw-133 --format webp --json --out " +
                         inQuotes(home.path("cutout")) + " " + inQuotes(home.path("cut.webp")));
    EXPECT_EQ(cut.exitCode, 1);
    auto lines = command_test::jsonLines(cut.out);
    ASSERT_EQ(lines.size(), 1u) << cut.out;
    EXPECT_NE(
        lines[0]["error"]["userInfo"]["reason"].get<std::string>().find("not a whole WebP file"),
        std::string::npos)
        << cut.out;
    EXPECT_TRUE(filesIn(home.path("cutout")).empty());
}

}  // namespace
