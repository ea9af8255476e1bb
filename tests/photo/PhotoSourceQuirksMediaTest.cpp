// Sources that other readers take although something about them is off: a damaged colour
// profile, bytes whose name says another type.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "photo/PhotoSupport.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"

using namespace photo_test;
using testing_support::TestHome;

namespace {

const VRSizeOptions kStretch = {VRSizeOptionNormal, VRSizeOptionStretch};

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Collects the log lines while it lives, also when an assertion leaves the test early.
struct LogLines {
    std::vector<std::string> lines;
    LogLines() {
        platform::setLogSink(
            [](const std::string& line, void* self) {
                static_cast<LogLines*>(self)->lines.push_back(line);
            },
            this);
    }
    ~LogLines() { platform::setLogSink(nullptr, nullptr); }
};

// An APP2 ICC_PROFILE segment (one chunk of one) whose payload is no profile, spliced in
// before the quantisation tables, after the EXIF segment.
std::string withGarbageProfile(const std::string& jpeg) {
    std::string payload = std::string("ICC_PROFILE\0\x01\x01", 14);
    for (int i = 0; i < 8; ++i) payload += "this is not an ICC profile at all. ";
    const std::size_t length = payload.size() + 2;
    std::string segment = "\xFF\xE2";
    segment += static_cast<char>(length >> 8);
    segment += static_cast<char>(length & 0xFF);
    const std::size_t tables = jpeg.find("\xFF\xDB");
    EXPECT_NE(tables, std::string::npos);
    return jpeg.substr(0, tables) + segment + payload + jpeg.substr(tables);
}

TEST(PhotoSourceQuirksMedia, AnUnreadableColourProfileIsDroppedAndThePictureReadAsSrgb) {
    TestHome home;
    const std::string clean = quadrants(home, "clean.jpg", 64, 48, "-quality 95");
    run("exiftool -q -overwrite_original -Artist='Ada' '" + clean + "'");
    const std::string source = home.path("IMG_7.jpg");
    writeAll(source, withGarbageProfile(readAll(clean)));
    // Other readers take the file; exiftool names the damage.
    EXPECT_EQ(vipsSize(source), "64x48");
    EXPECT_NE(run("exiftool -ICC_Profile:all '" + source + "'").find("ICC"), std::string::npos);

    LogLines log;
    for (std::uint64_t type : {VRFormatTypeAuto, VRFormatTypePNG, VRFormatTypeTIFF}) {
        SCOPED_TRACE(type);
        Processed out = process(source, makeTemplate(100, 100, VRSizeTypePercent, kStretch, type));
        ASSERT_TRUE(out.result) << (out.error ? out.error->description() : "cancelled");
        EXPECT_EQ(vipsSize(out.path()), "64x48");
        auto pixels = decode(out.path());
        ASSERT_TRUE(pixels);
        EXPECT_EQ(corners(*pixels), "RGBW");
        EXPECT_TRUE(pixels->colorSpace().iccProfile().empty());
        EXPECT_EQ(exif(out.path()).value("IFD0:Artist", ""), "Ada");
    }
    EXPECT_TRUE(std::any_of(log.lines.begin(), log.lines.end(), [](const std::string& l) {
        return l.rfind("~~ ", 0) == 0 && l.find("ICC profile") != std::string::npos;
    }));
}

// JPEG bytes named .webp: the name's type is no format of ours, so Auto takes JPEG at the
// setting's compression, exactly as a template that names JPEG does, and not the 0.85 that a
// JPEG reached through its own type keeps.
TEST(PhotoSourceQuirksMedia, BytesOfAnotherTypeThanTheirNameTakeJpegAtTheSettingsCompression) {
    TestHome home;
    const std::string jpeg = quadrants(home, "q.jpg", 64, 48, "-quality 95");
    const std::string named = home.path("IMG_3.webp");
    std::filesystem::copy_file(jpeg, named);
    auto automatic = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeAuto);
    auto asJpeg = makeTemplate(100, 100, VRSizeTypePercent, kStretch, VRFormatTypeJPEG);
    std::map<std::pair<int, bool>, std::string> bytes;
    for (int setting : {20, 100}) {
        VRSettings::setPhotoJPEGCompression(setting);
        for (bool isAuto : {true, false}) {
            SCOPED_TRACE(std::to_string(setting) + (isAuto ? " auto" : " jpeg"));
            Processed out = process(named, isAuto ? automatic : asJpeg);
            ASSERT_TRUE(out.result) << (out.error ? out.error->description() : "cancelled");
            EXPECT_EQ(std::filesystem::path(out.path()).filename(), "IMG_3.jpg");
            EXPECT_EQ(run("exiftool -s3 -FileType '" + out.path() + "'"), "JPEG");
            bytes[{setting, isAuto}] = readAll(out.path());
        }
    }
    VRSettings::setPhotoJPEGCompression(85);
    // Compared whole; the bytes themselves would say nothing in a failure.
    EXPECT_TRUE(bytes[std::make_pair(20, true)] == bytes[std::make_pair(20, false)]);
    EXPECT_TRUE(bytes[std::make_pair(100, true)] == bytes[std::make_pair(100, false)]);
    EXPECT_TRUE(bytes[std::make_pair(20, true)] != bytes[std::make_pair(100, true)]);
}

}  // namespace
