#include <gtest/gtest.h>

#include <filesystem>

#include "app/CommandSupport.h"

using command_test::unwarp;
using testing_support::namesIn;

// With no front end running, `open --template` processes the opened files as `process` does,
// and leaves no copy behind.
TEST(OpenCommand, WithoutFrontEndProcessesWithTemplate) {
    testing_support::TestHome home;
    const std::string photo = home.path("in/IMG_1.jpg");
    std::filesystem::create_directories(home.path("in"));
    ASSERT_EQ(testing_support::runCommand("convert -size 64x48 xc:red '" + photo + "'"), 0);

    const auto opened =
        unwarp(home, "open --template uw-133 --out '" + home.path("out") + "' '" + photo + "'");
    ASSERT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_NE(opened.out.find("External Photo: "), std::string::npos) << opened.out;
    ASSERT_EQ(namesIn(home.path("out")), std::vector<std::string>{"IMG_1.jpg"});
    std::string size;
    testing_support::runCommand("vipsheader -f width '" + home.path("out/IMG_1.jpg") +
                                    "'; vipsheader -f height '" + home.path("out/IMG_1.jpg") + "'",
                                &size);
    EXPECT_EQ(size, "85\n48\n");
    EXPECT_TRUE(namesIn(home.path("documents/_vrtempimagedir")).empty());
}
