#include "model/VXHelperDevice.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/VXHelperText.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "support/TestHome.h"

namespace {

void collectLine(const std::string& line, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
}

}  // namespace

TEST(VXHelperDevice, ClassOfMachineNameByFirstMatchingPattern) {
    const struct {
        const char* machine;
        unsigned expected;
    } cases[] = {
        // Patterns are anchored, case-sensitive and need the comma; "^iPod," wants the comma
        // straight after the name, so a later iPod falls through to class 4.
        {"iPhone1,1", 0},  {"iPhone4,1", 0}, {"iPad1,1", 0}, {"iPad2,7", 0},   {"iPod1,1", 0},
        {"iPod5,1", 0},    {"iPhone5,2", 1}, {"iPad3,4", 1}, {"iPod6,1", 1},   {"iPhone6,1", 2},
        {"iPhone7,2", 2},  {"iPad4,1", 2},   {"iPod7,1", 2}, {"iPhone8,1", 3}, {"iPhone9,4", 3},
        {"iPad5,3", 3},    {"iPad6,11", 3},  {"iPod,", 3},   {"iPod9,1", 4},   {"iPhone10,1", 4},
        {"iPhone1", 4},    {"iPad7,1", 4},   {"x86_64", 4},  {"aarch64", 4},   {"", 4},
        {"xiPhone4,1", 4}, {"iphone4,1", 4},
    };
    for (const auto& c : cases) {
        std::vector<std::string> lines;
        platform::setLogSink(collectLine, &lines);
        unsigned found = VXHelper::deviceClassForMachineName(c.machine);
        platform::setLogSink(nullptr, nullptr);
        EXPECT_EQ(found, c.expected) << c.machine;
        // Only class 0 announces itself, with one line.
        ASSERT_EQ(lines.size(), c.expected == 0 ? 1u : 0u) << c.machine;
        if (c.expected == 0) {
            EXPECT_NE(lines[0].find("SYS: using limited device functionality!!!"),
                      std::string::npos);
        }
    }
}

// A newer class never allows less, and the Live Photo video always fits the video limit; the
// oldest and the newest class in full.
TEST(VXHelperDevice, LimitsGrowWithTheClass) {
    auto within = [](CGSize inner, CGSize outer) {
        return inner.width <= outer.width && inner.height <= outer.height;
    };
    for (unsigned deviceClass = 0; deviceClass <= 4; ++deviceClass) {
        SCOPED_TRACE(deviceClass);
        EXPECT_TRUE(within(VXHelper::minLivePhotoVideoSize(deviceClass),
                           VXHelper::maxVideoSize(deviceClass)));
        if (deviceClass == 0) continue;
        EXPECT_TRUE(
            within(VXHelper::maxPhotoSize(deviceClass - 1), VXHelper::maxPhotoSize(deviceClass)));
        EXPECT_TRUE(
            within(VXHelper::maxVideoSize(deviceClass - 1), VXHelper::maxVideoSize(deviceClass)));
        EXPECT_TRUE(within(VXHelper::minLivePhotoVideoSize(deviceClass - 1),
                           VXHelper::minLivePhotoVideoSize(deviceClass)));
    }
    EXPECT_EQ(VXHelper::maxPhotoSize(0), (CGSize{4096, 4096}));
    EXPECT_EQ(VXHelper::maxVideoSize(0), (CGSize{1920, 1080}));
    EXPECT_EQ(VXHelper::minLivePhotoVideoSize(0), (CGSize{960, 540}));
    EXPECT_EQ(VXHelper::maxPhotoSize(4), (CGSize{8192, 8192}));
    EXPECT_EQ(VXHelper::maxVideoSize(4), (CGSize{4096, 2160}));
    EXPECT_EQ(VXHelper::minLivePhotoVideoSize(4), (CGSize{1280, 720}));
}

TEST(VXHelperDevice, ThisMachineAndProgram) {
    EXPECT_EQ(VXHelper::deviceMachineName(), platform::Environment::machineName());
    EXPECT_EQ(VXHelper::deviceClass(),
              VXHelper::deviceClassForMachineName(platform::Environment::machineName()));
    EXPECT_EQ(VXHelper::maxVideoSize(), VXHelper::maxVideoSize(VXHelper::deviceClass()));
    EXPECT_EQ(VXHelper::appFullName(), "Unwarp v" + platform::Environment::appVersion());
}

// The report's machine lines end with the free space of the documents' file system, in the
// words of stringFromDataLength.
TEST(VXHelperDevice, SystemMessageEndsWithTheFreeDiskSpace) {
    testing_support::TestHome home;
    const std::string head = "Machine name: " + platform::Environment::machineName() +
                             "\niOS: " + platform::Environment::systemVersion() +
                             "\nApp version: " + VXHelper::appVersion();
    const auto before = platform::FileManager::freeDiskSpaceAtPath(home.root());
    const std::string message = VXHelper::systemMessage();
    const auto after = platform::FileManager::freeDiskSpaceAtPath(home.root());
    ASSERT_TRUE(before && after);
    ASSERT_EQ(message.rfind(head, 0), 0u) << message;
    const std::string line = message.substr(head.size());
    // Other writers may change the figure between the reads.
    EXPECT_TRUE(line == "\nFree disk space: " + VXHelper::stringFromDataLength(*before) ||
                line == "\nFree disk space: " + VXHelper::stringFromDataLength(*after))
        << line;
}

TEST(VXHelperDevice, ThumbnailSideComesFromTheGridThatFillsTheScreen) {
    struct Case {
        CGSize screen;
        double scale, inset, width, side;
    };
    const Case cases[] = {
        // 1078 / 162 = 6.65 -> 7 cells of 154: 152 pixels.
        {{1920, 1080}, 1, 2, 160, 152},
        // The smaller side counts: portrait and landscape agree.
        {{1080, 1920}, 1, 2, 160, 152},
        // 375 / 94 = 3.99 -> 4 cells; the pitch 93.75 drops to 93.5 on the 2x grid: 92.5 x 2.
        {{376, 667}, 2, 1, 93, 185},
        // 3x grid keeps a third of a point: 388 / 4 = 97; (97 - 2) x 3.
        {{390, 844}, 3, 2, 94, 285},
        // A screen narrower than one cell still has one cell.
        {{100, 100}, 1, 2, 160, 96},
    };
    for (const Case& c : cases)
        EXPECT_DOUBLE_EQ(VXHelper::thumbnailSideForScreen(c.screen, c.scale, c.inset, c.width),
                         c.side)
            << c.screen.width << "x" << c.screen.height << " @" << c.scale;
}
