// The pictures the web application draws: a template's picture shows the shape of its output
// frame, fills it as its method does and wears its platform's colour; every drawn picture is an
// SVG that an independent reader (libvips' svgload through vipsheader) opens at its size.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "app/web/WebPictures.h"
#include "support/TestHome.h"

namespace {

using app::web::samplePictureSVG;
using app::web::templatePictureSVG;
using app::web::unreadablePictureSVG;

VXTemplateRef templateOf(double width, double height, VRSizeEntryType type, VRSizeOptions options) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(width, height, type),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypePhoto),
                      options, VRFormatMediaTypePhoto);
    return tpl;
}

// The frame the scene is drawn into: its width over height, and how the scene meets it.
struct Frame {
    double ratio = 0;
    std::string aspect;
};

std::optional<Frame> frameOf(const std::string& svg) {
    static const std::regex nested(
        "<svg x='[0-9.]+' y='[0-9.]+' width='([0-9.]+)' height='([0-9.]+)' viewBox='[^']*' "
        "preserveAspectRatio='([^']*)'>");
    std::smatch match;
    if (!std::regex_search(svg, match, nested)) return std::nullopt;
    return Frame{std::stod(match[1]) / std::stod(match[2]), match[3]};
}

// Width and height as vipsheader reads the picture; empty when it can't.
std::string readSize(const testing_support::TestHome& home, const std::string& svg,
                     const std::string& name) {
    const std::string path = home.path(name + ".svg");
    std::ofstream(path) << svg;
    std::string output;
    if (testing_support::runCommand(
            "vipsheader -f width '" + path + "' && vipsheader -f height '" + path + "'", &output) !=
        0)
        return {};
    return output;
}

TEST(WebPictures, TemplatePictureShowsFrameMethodAndPlatform) {
    testing_support::TestHome home;
    const VRSizeOptions clip{VRSizeOptionRatioClip, VRSizeOptionNormal};
    const VRSizeOptions fit{VRSizeOptionRatioFit, VRSizeOptionNormal};
    const VRSizeOptions stretchSmart{VRSizeOptionStretch, VRSizeOptionSmart};
    struct Case {
        const char* name;
        VXTemplateRef tpl;
        double ratio;
        const char* aspect;
        const char* colour;
        bool smart;
    } cases[] = {
        {"tpl-fb-cover", templateOf(820, 360, VRSizeTypePixels, clip), 820.0 / 360,
         "xMidYMid slice", "#1877F2", false},
        {"tpl-ig-story-fit", templateOf(1080, 1920, VRSizeTypePixels, fit), 1080.0 / 1920,
         "xMidYMid meet", "#C13584", false},
        // An "Auto" height follows the sample scene's 3:2.
        {"tpl-ms-universal", templateOf(600, 0, VRSizeTypePixels, clip), 1.5, "xMidYMid slice",
         "#2FA84F", false},
        {"tpl-op-ar-16x9",
         templateOf(16, 9, VRSizeTypeRatioDown, {VRSizeOptionRatioClip, VRSizeOptionSmart}),
         16.0 / 9, "xMidYMid slice", "#6741D9", true},
        // Un-warp widens the 3:2 source by 1.33, and stretches it.
        {"tpl-uw-133", templateOf(133, 100, VRSizeTypePercent, stretchSmart), 1.5 * 1.33, "none",
         "#E8590C", true},
        {"tpl-wp-iphone-47", templateOf(750, 1334, VRSizeTypePixels, clip), 750.0 / 1334,
         "xMidYMid slice", "#1C7ED6", false},
        {"no-platform", templateOf(100, 100, VRSizeTypePixels, clip), 1, "xMidYMid slice",
         "#6C757D", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string svg = templatePictureSVG(*c.tpl, c.name);
        auto frame = frameOf(svg);
        ASSERT_TRUE(frame) << svg;
        EXPECT_NEAR(frame->ratio, c.ratio, 0.01);
        EXPECT_EQ(frame->aspect, c.aspect);
        EXPECT_NE(svg.find("fill='" + std::string(c.colour) + "'"), std::string::npos) << svg;
        EXPECT_EQ(svg.find(">S</text>") != std::string::npos, c.smart);
        EXPECT_EQ(readSize(home, svg, c.name), "96\n96\n");
    }
    // The source beside a relative size is outlined, dashed; a pixel frame has no such line.
    EXPECT_NE(templatePictureSVG(*cases[4].tpl, "tpl-uw-133").find("stroke-dasharray"),
              std::string::npos);
    EXPECT_EQ(templatePictureSVG(*cases[0].tpl, "tpl-fb-cover").find("stroke-dasharray"),
              std::string::npos);
}

TEST(WebPictures, StandInsOpenAtTheirSizes) {
    testing_support::TestHome home;
    EXPECT_EQ(readSize(home, samplePictureSVG(false), "landscape"), "150\n100\n");
    EXPECT_EQ(readSize(home, samplePictureSVG(true), "square"), "100\n100\n");
    EXPECT_EQ(readSize(home, unreadablePictureSVG(256), "unreadable"), "256\n256\n");
    // A side out of bounds is kept within them.
    EXPECT_EQ(readSize(home, unreadablePictureSVG(1 << 20), "huge"), "2048\n2048\n");
}

}  // namespace
