#include <gtest/gtest.h>

#include "results/VRSharingNamePrompt.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

TEST(VRSharingNamePrompt, AsksOnlyForCustomNamesAndStoresOnlyValidOnes) {
    testing_support::TestHome home;
    VRSettings::setExportFilenameType(0);
    EXPECT_FALSE(sharingNamePromptForCount(3, {"jpg"}));

    VRSettings::setExportFilenameType(1);
    auto prompt = sharingNamePromptForCount(11, {"jpg", "mov"});
    ASSERT_TRUE(prompt);
    EXPECT_EQ(prompt->name, "uwrp_img");
    EXPECT_EQ(prompt->digits, 2u);
    const struct {
        std::string text;
        std::string preview;
        bool accepted;
    } cases[] = {
        {"trip", "trip01.jpg, trip02.mov, etc", true},
        {"a%b", "a01b.jpg, a02b.mov, etc", true},
        {"a%b%", "", false},
        {"a/b", "", false},
        {"", "", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(prompt->previewForName(c.text), c.preview) << c.text;
        VRSettings::setExportFilenameBasename("before");
        EXPECT_EQ(acceptSharingName(c.text), c.accepted) << c.text;
        EXPECT_EQ(VRSettings::exportFilenameBasename(), c.accepted ? c.text : "before") << c.text;
    }
}

}  // namespace
