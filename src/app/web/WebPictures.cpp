#include "app/web/WebPictures.h"

#include <algorithm>
#include <cstdio>

namespace app::web {
namespace {

struct Platform {
    const char* prefix;
    const char* colour;
    const char* initials;
};

// The mark of each section's platform, found by the picture name's prefix.
constexpr Platform kPlatforms[] = {
    {"uw", "#E8590C", "UW"}, {"fb", "#1877F2", "f"},  {"ig", "#C13584", "IG"},
    {"ms", "#2FA84F", "M"},  {"op", "#6741D9", "SO"}, {"tw", "#14171A", "X"},
    {"yt", "#E62117", "YT"}, {"wp", "#1C7ED6", "WP"},
};
constexpr Platform kOtherPlatform{"", "#6C757D", ""};

// The sample scene every picture shows: a sky, a sun and a hill, 3:2.
constexpr double kSceneWidth = 150, kSceneHeight = 100;
constexpr const char* kScene =
    "<rect width='150' height='100' fill='#A5D8FF'/>"
    "<circle cx='108' cy='30' r='14' fill='#FFD43B'/>"
    "<path d='M0 100 L0 70 Q40 38 80 68 T150 58 L150 100 Z' fill='#2F9E44'/>"
    "<path d='M0 100 L0 86 Q60 70 150 90 L150 100 Z' fill='#237A35'/>";

const Platform& platformOf(const std::string& pictureName) {
    const std::string rest = pictureName.rfind("tpl-", 0) == 0 ? pictureName.substr(4) : "";
    for (const auto& platform : kPlatforms)
        if (rest.rfind(std::string(platform.prefix) + "-", 0) == 0) return platform;
    return kOtherPlatform;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

struct Box {
    double x, y, width, height;
};

// `width` x `height` scaled to fit inside `area`, centred in it.
Box fitted(double width, double height, const Box& area) {
    const double scale = std::min(area.width / width, area.height / height);
    return {area.x + (area.width - width * scale) / 2, area.y + (area.height - height * scale) / 2,
            width * scale, height * scale};
}

// The scene drawn into `box`: `aspect` is SVG's preserveAspectRatio, which is exactly how the
// methods differ (slice covers the frame, meet leaves bars, none distorts).
std::string sceneIn(const Box& box, const char* aspect) {
    return "<rect x='" + number(box.x) + "' y='" + number(box.y) + "' width='" + number(box.width) +
           "' height='" + number(box.height) + "' fill='#FFFFFF'/><svg x='" + number(box.x) +
           "' y='" + number(box.y) + "' width='" + number(box.width) + "' height='" +
           number(box.height) + "' viewBox='0 0 " + number(kSceneWidth) + " " +
           number(kSceneHeight) + "' preserveAspectRatio='" + aspect + "'>" + kScene + "</svg>";
}

std::string outline(const Box& box, const char* extra) {
    return "<rect x='" + number(box.x) + "' y='" + number(box.y) + "' width='" + number(box.width) +
           "' height='" + number(box.height) + "' fill='none' stroke='#FFFFFF' stroke-width='2' " +
           extra + "/>";
}

const char* methodAspect(const VRSizeOptions& options) {
    auto has = [&](std::int64_t option) {
        return std::find(options.begin(), options.end(), option) != options.end();
    };
    if (has(VRSizeOptionStretch)) return "none";
    if (has(VRSizeOptionRatioFit)) return "xMidYMid meet";
    return "xMidYMid slice";
}

}  // namespace

std::string templatePictureSVG(const VXTemplate& tpl, const std::string& pictureName) {
    const Platform& platform = platformOf(pictureName);
    auto entry = tpl.sizeEntryForMediaType(VRFormatMediaTypePhoto);
    std::uint64_t media = VRFormatMediaTypePhoto;
    if (!entry) {
        entry = tpl.sizeEntryForMediaType(VRFormatMediaTypeVideo);
        media = VRFormatMediaTypeVideo;
    }
    const VRSizeOptions options = tpl.optionsForMediaType(media).value_or(VRSizeOptions{});
    const Box area{12, 28, 76, 60};
    std::string frame;
    if (entry && entry->type() == VRSizeTypePercent && entry->width() > 0 && entry->height() > 0) {
        // A relative size beside the source it scales (dashed): un-warp widens the source.
        const double frameWidth = kSceneWidth * entry->width() / 100;
        const double frameHeight = kSceneHeight * entry->height() / 100;
        const Box all =
            fitted(std::max(kSceneWidth, frameWidth), std::max(kSceneHeight, frameHeight), area);
        const double scale = all.width / std::max(kSceneWidth, frameWidth);
        const Box sized{all.x + (all.width - frameWidth * scale) / 2,
                        all.y + (all.height - frameHeight * scale) / 2, frameWidth * scale,
                        frameHeight * scale};
        const Box shownSource{all.x + (all.width - kSceneWidth * scale) / 2,
                              all.y + (all.height - kSceneHeight * scale) / 2, kSceneWidth * scale,
                              kSceneHeight * scale};
        frame = sceneIn(sized, methodAspect(options)) +
                outline(shownSource, "stroke-dasharray='4 3' opacity='0.9'");
    } else {
        // The frame's own shape; an "Auto" side follows the scene.
        double width = entry ? entry->width() : 0, height = entry ? entry->height() : 0;
        if (width <= 0 && height <= 0) {
            width = kSceneWidth;
            height = kSceneHeight;
        } else if (width <= 0) {
            width = height * kSceneWidth / kSceneHeight;
        } else if (height <= 0) {
            height = width * kSceneHeight / kSceneWidth;
        }
        const Box box = fitted(width, height, area);
        frame = sceneIn(box, methodAspect(options)) + outline(box, "");
    }
    const bool smart =
        std::find(options.begin(), options.end(), VRSizeOptionSmart) != options.end();
    std::string svg =
        "<svg xmlns='http://www.w3.org/2000/svg' width='96' height='96' viewBox='0 0 100 100'>"
        "<rect width='100' height='100' rx='14' fill='" +
        std::string(platform.colour) + "'/>";
    if (*platform.initials)
        svg +=
            "<text x='10' y='21' font-family='sans-serif' font-weight='700' font-size='17' "
            "fill='#FFFFFF'>" +
            std::string(platform.initials) + "</text>";
    svg += frame;
    if (smart)
        svg +=
            "<circle cx='84' cy='15' r='9' fill='#FFFFFF'/><text x='84' y='20' "
            "text-anchor='middle' font-family='sans-serif' font-weight='700' font-size='13' "
            "fill='" +
            std::string(platform.colour) + "'>S</text>";
    return svg + "</svg>";
}

std::string samplePictureSVG(bool square) {
    const std::string side = square ? "100" : "150";
    return "<svg xmlns='http://www.w3.org/2000/svg' width='" + side + "' height='100' viewBox='" +
           (square ? "25" : "0") + " 0 " + side + " 100'>" + kScene + "</svg>";
}

std::string unreadablePictureSVG(int side) {
    const std::string size = std::to_string(std::clamp(side, 16, 2048));
    return "<svg xmlns='http://www.w3.org/2000/svg' width='" + size + "' height='" + size +
           "' viewBox='0 0 100 100'><rect width='100' height='100' fill='#CED4DA'/>"
           "<rect x='22' y='28' width='56' height='44' rx='4' fill='none' stroke='#6C757D' "
           "stroke-width='5'/><path d='M20 80 L80 20' stroke='#6C757D' stroke-width='5'/></svg>";
}

}  // namespace app::web
