#include "platform/ImageTypes.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(ImageTypes, WritersOfThisBuild) {
    const auto types = platform::imageDestinationTypeIdentifiers();
    const std::vector<std::string> always{"public.jpeg", "public.png", "public.tiff",
                                          "com.compuserve.gif"};
    ASSERT_GE(types.size(), always.size());
    EXPECT_TRUE(std::equal(always.begin(), always.end(), types.begin()));
    // Debian's libheif carries the x265 encoder, so this build writes HEIC.
    EXPECT_EQ(types.size(), 5u);
    EXPECT_EQ(types.back(), "public.heic");
}
