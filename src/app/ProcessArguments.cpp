#include "app/ProcessArguments.h"

#include <cctype>
#include <charconv>
#include <cmath>

#include "app/TemplateArguments.h"

namespace app {
namespace {

bool fail(std::string* problem, const std::string& why) {
    if (problem) *problem = why;
    return false;
}

std::optional<double> number(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || at != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

}  // namespace

std::optional<std::int64_t> parseQuarterTurns(const std::string& text, std::string* problem) {
    auto degrees = number(text);
    if (!degrees || std::fmod(*degrees, 90) != 0 || std::fabs(*degrees) > 36000) {
        fail(problem, "--rotate " + text + ": give degrees in steps of 90 (90, 180, 270, -90)");
        return std::nullopt;
    }
    const auto quarters = static_cast<std::int64_t>(*degrees / 90);
    return ((quarters % 4) + 4) % 4;
}

std::optional<CGPoint> parseShift(const std::string& text, std::string* problem) {
    const std::size_t comma = text.find(',');
    auto x = comma == std::string::npos ? std::nullopt : number(text.substr(0, comma));
    auto y = comma == std::string::npos ? std::nullopt : number(text.substr(comma + 1));
    if (!x || !y || std::fabs(*x) > 100000 || std::fabs(*y) > 100000) {
        fail(problem, "--shift " + text + ": give X,Y in pixels, such as 40,-10");
        return std::nullopt;
    }
    return CGPoint{*x, *y};
}

std::optional<VRColor> parseFillColor(const std::string& text, std::string* problem) {
    std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
    bool valid = hex.size() == 6 || hex.size() == 8;
    for (char c : hex) valid = valid && std::isxdigit(static_cast<unsigned char>(c));
    if (!valid) {
        fail(problem, "--fill " + text + ": give a colour as #RRGGBB or #RRGGBBAA");
        return std::nullopt;
    }
    auto component = [&](std::size_t i) {
        return std::stoi(hex.substr(i * 2, 2), nullptr, 16) / 255.0;
    };
    return VRColor{component(0), component(1), component(2), hex.size() == 8 ? component(3) : 1.0};
}

std::optional<VRFormat> parsePhotoFormat(const std::string& text, float compression,
                                         std::string* problem) {
    std::string lower = text;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (lower == "webp") return VRFormat(VRFormatTypeWebP, VRFormatMediaTypePhoto, compression);
    std::string why;
    auto format = parseFormat(text, VRFormatMediaTypePhoto, &why);
    if (!format) {
        fail(problem, "--format " + text + ": " + why +
                          " (a photo format: jpeg, png, tiff, gif, "
                          "heic or webp)");
        return std::nullopt;
    }
    format->setCompression(compression);
    return format;
}

}  // namespace app
