// `unwarp launch`: the step that is due at each start of a shared home, and its button taken.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "app/CommandSupport.h"

namespace {

using command_test::unwarp;

const std::string kWelcome =
    "Step 0: Welcome\nUnwarp empowers you with\nbatch resizing and optimization\ntools to "
    "process Photos, Videos,\nand Live Photos.\n[Continue]\n";

}  // namespace

// A fresh home shows the welcome step; each answer stores where the next start resumes; a
// refusal at the library step shows the settings step; a wrong button changes nothing.
TEST(LaunchStepsCommand, WalksTheFirstStartAcrossRuns) {
    testing_support::TestHome home;
    auto o = unwarp(home, "launch");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_EQ(o.out, kWelcome);

    o = unwarp(home, "launch --answer 'Get Started'");
    EXPECT_EQ(o.exitCode, 2);
    EXPECT_NE(o.err.find("the button of this step is \"Continue\""), std::string::npos) << o.err;
    EXPECT_EQ(unwarp(home, "launch").out, kWelcome);

    o = unwarp(home, "launch --answer continue");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_EQ(o.out.substr(0, kWelcome.size()), kWelcome);
    EXPECT_NE(o.out.find("> Continue\nStep 1: Photo Library\n"), std::string::npos) << o.out;

    o = unwarp(home, "launch --refuse");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NE(o.out.find("Step 10: Photo Library\n"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("[Settings]"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures")));

    // The walk stored the home-screen step; access is still undecided, so it is asked first.
    o = unwarp(home, "launch --grant");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_EQ(o.out.substr(0, 22), "Step 9: Photo Library\n");
    EXPECT_NE(o.out.find("Launch complete from step 9: home screen, the tutorial starts there"),
              std::string::npos)
        << o.out;
    EXPECT_TRUE(std::filesystem::is_directory(home.path("Pictures")));

    o = unwarp(home, "launch");
    EXPECT_EQ(o.out, "Launch: home screen\n");
    EXPECT_EQ(unwarp(home, "launch --answer Continue").exitCode, 2);
}

// The home-screen step takes its mode after the button; without one the mode screen closes.
TEST(LaunchStepsCommand, HomeScreenStepTakesAMode) {
    testing_support::TestHome home;
    ASSERT_EQ(unwarp(home, "launch --answer Continue").exitCode, 0);
    ASSERT_EQ(unwarp(home, "launch --grant").exitCode, 0);
    auto o = unwarp(home, "launch --answer 'select mode'");
    EXPECT_NE(o.out.find("choose one with --mode"), std::string::npos) << o.out;
    o = unwarp(home, "launch --answer 'Select Mode' --mode 1");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NE(o.out.find("Home Screen mode: 1\nStep 2: Tutorial\n"), std::string::npos) << o.out;
    EXPECT_NE(unwarp(home, "settings get homeScreenMode").out.find('1'), std::string::npos);
    o = unwarp(home, "launch --answer 'Get Started'");
    EXPECT_NE(o.out.find("Launch complete from step 2"), std::string::npos) << o.out;

    o = unwarp(home, "launch --tutorial");
    EXPECT_NE(o.out.find("Step 12, results, note: When Auto-Save is enabled"), std::string::npos)
        << o.out;
    EXPECT_NE(o.out.find("Step 12, results, closeButton: Tap [red]Back[/red]"), std::string::npos);
}
