// Helpers of the photo tests: pictures made with ImageMagick and exiftool, templates built in
// place, one pass of the processor run to its end on the main queue, and independent readers
// (exiftool, vipsheader) of what was written.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRURLAsset.h"
#include "core/VRProcessor.h"
#include "model/VRFormat.h"
#include "model/VRSizeEntry.h"
#include "platform/Dispatch.h"
#include "platform/ImageSource.h"
#include "support/TestHome.h"
#include "templates/VXTemplate.h"

namespace photo_test {

inline std::string run(const std::string& command) {
    std::string out;
    const int status = testing_support::runCommand(command + " 2>&1", &out);
    EXPECT_EQ(status, 0) << command << "\n" << out;
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

// Four flat quadrants, red, green / blue, white, written by ImageMagick.
inline std::string quadrants(const testing_support::TestHome& home, const std::string& name, int w,
                             int h, const std::string& extra = "") {
    const std::string path = home.path(name);
    const int hw = w / 2, hh = h / 2;
    run("convert -size " + std::to_string(w) + "x" + std::to_string(h) +
        " xc:white -fill red -draw 'rectangle 0,0 " + std::to_string(hw - 1) + "," +
        std::to_string(hh - 1) + "' -fill lime -draw 'rectangle " + std::to_string(hw) + ",0 " +
        std::to_string(w - 1) + "," + std::to_string(hh - 1) + "' -fill blue -draw 'rectangle 0," +
        std::to_string(hh) + " " + std::to_string(hw - 1) + "," + std::to_string(h - 1) + "' " +
        extra + " '" + path + "'");
    return path;
}

inline VXTemplateRef makeTemplate(double w, double h, VRSizeEntryType type, VRSizeOptions options,
                                  std::uint64_t formatType) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(w, h, type), VRFormatMediaTypePhoto);
    tpl->setOptions(options, VRFormatMediaTypePhoto);
    tpl->setFormat(VRFormat::formatWithType(formatType), VRFormatMediaTypePhoto);
    return tpl;
}

struct Processed {
    bool finished = false;
    VRAssetRef result;
    VRErrorRef error;
    std::string path() const { return result ? result->objectIdentifier() : ""; }
};

// The photo stage alone (the pass before the saving tail): its written file as a URL asset.
inline Processed process(const std::string& path, const VXTemplateRef& tpl,
                         VRAdjustAssetStateRef state = nullptr, CGSize size = CGSizeZero) {
    auto outcome = std::make_shared<Processed>();
    VRProcessor::mainProcessor()._processAsset(
        VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path)), false, tpl, state, size,
        CGSizeZero, nullptr,
        [outcome](std::optional<std::string> url, VRFormatMediaType, std::optional<CGSize>,
                  VRErrorRef error) {
            VRAssetRef result =
                url ? VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(*url)) : nullptr;
            platform::DispatchQueue::main().async([outcome, result, error] {
                outcome->finished = true;
                outcome->result = result;
                outcome->error = error;
            });
        });
    platform::MainRunLoop::runUntil([&] { return outcome->finished; }, std::chrono::minutes(2));
    EXPECT_TRUE(outcome->finished);
    return *outcome;
}

// "WxH" as vipsheader reads the file.
inline std::string vipsSize(const std::string& path) {
    return run("vipsheader -f width '" + path + "'") + "x" +
           run("vipsheader -f height '" + path + "'");
}

// exiftool's tags, grouped by location ("IFD0:Software") with numeric values.
inline nlohmann::json exif(const std::string& path) {
    auto all = nlohmann::json::parse(run("exiftool -j -G1 -n '" + path + "'"), nullptr, false);
    return all.is_array() && !all.empty() ? all[0] : nlohmann::json::object();
}

// Files in the documents folder and the folders below it (where each process keeps its
// results), hidden temporaries included.
inline std::vector<std::string> documents(const testing_support::TestHome& home) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(home.path("documents"), ec))
        if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
    return names;
}

inline std::optional<platform::Bitmap> decode(const std::string& path) {
    auto source = platform::ImageSource::createWithURL(path);
    return source ? source->createImageAtIndex(0) : std::nullopt;
}

// 'R', 'G', 'B', 'W', 'K' (black), '.' (transparent) or '?' for one pixel.
inline char colourAt(const platform::Bitmap& b, std::size_t x, std::size_t y) {
    auto p = b.pixelAt(x, y);
    auto on = [](std::uint16_t v) { return v > 55000; };
    auto off = [](std::uint16_t v) { return v < 10000; };
    if (p.a < 5000) return '.';
    if (on(p.r) && off(p.g) && off(p.b)) return 'R';
    if (off(p.r) && on(p.g) && off(p.b)) return 'G';
    if (off(p.r) && off(p.g) && on(p.b)) return 'B';
    if (on(p.r) && on(p.g) && on(p.b)) return 'W';
    if (off(p.r) && off(p.g) && off(p.b)) return 'K';
    return '?';
}

// Colours at the centres of the quadrants: top-left, top-right, bottom-left, bottom-right.
inline std::string corners(const platform::Bitmap& b) {
    const std::size_t w = b.width(), h = b.height();
    return {colourAt(b, w / 4, h / 4), colourAt(b, 3 * w / 4, h / 4), colourAt(b, w / 4, 3 * h / 4),
            colourAt(b, 3 * w / 4, 3 * h / 4)};
}

}  // namespace photo_test
