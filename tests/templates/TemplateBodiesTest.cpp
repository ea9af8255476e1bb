#include "templates/TemplateBodies.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/Environment.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

VXTemplateRef named(const std::string& name) {
    auto tpl = VXTemplate::create();
    tpl->setName(name);
    return tpl;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string>* capturedLines = nullptr;
void capture(const std::string& line, void*) {
    if (capturedLines) capturedLines->push_back(line);
}

// A template written by the templates layer reads back through the settings store's bytes.
TEST(TemplateBodies, SavedTemplatesReadBackUnderTheirIdentifier) {
    testing_support::TestHome home;
    auto recent = TemplateBodies::saveTemplate(*named("Recent one"), true);
    auto mine = TemplateBodies::saveTemplate(*named("Mine"), false);
    ASSERT_TRUE(recent && mine);
    EXPECT_EQ(recent->rfind("recent-", 0), 0u);
    EXPECT_NE(mine->rfind("recent-", 0), 0u);

    auto raw = named("Raw");
    EXPECT_FALSE(TemplateBodies::saveRawTemplate(*raw));  // no identifier: nowhere to go
    raw->setIdentifier("fixed-id");
    EXPECT_TRUE(TemplateBodies::saveRawTemplate(*raw));
    raw->setName("Raw again");
    EXPECT_TRUE(TemplateBodies::saveRawTemplate(*raw));  // replaces the body

    const std::vector<std::pair<std::string, std::string>> stored = {
        {*recent, "Recent one"}, {*mine, "Mine"}, {"fixed-id", "Raw again"}};
    for (const auto& [identifier, name] : stored) {
        auto tpl = TemplateBodies::templateWithIdentifier(identifier);
        ASSERT_TRUE(tpl) << identifier;
        EXPECT_EQ(tpl->name(), name);
        EXPECT_FALSE(tpl->identifier()) << "the store sets the identifier, not the body";
    }
}

// Bodies that are missing, damaged, too large or outside their folder give no template.
TEST(TemplateBodies, UnreadableBodiesGiveNoTemplate) {
    testing_support::TestHome home;
    std::vector<std::string> lines;
    capturedLines = &lines;
    platform::setLogSink(capture, nullptr);
    writeFile(VRSettings::templateDataPathWithIdentifier("garbage"), "not an archive");
    writeFile(VRSettings::templateDataPathWithIdentifier("huge"), std::string((1u << 20) + 1, 'x'));
    for (const char* identifier : {"missing", "garbage", "huge", "", "..", "../garbage"}) {
        EXPECT_FALSE(TemplateBodies::templateWithIdentifier(identifier)) << identifier;
    }
    auto outside = named("Outside");
    outside->setIdentifier("../escape");
    EXPECT_FALSE(TemplateBodies::saveRawTemplate(*outside));
    platform::setLogSink(nullptr, nullptr);
    capturedLines = nullptr;

    EXPECT_FALSE(std::filesystem::exists(platform::Environment::documentsDirectory() + "/escape"));
    int unreadable = 0, unwritten = 0;
    for (const auto& line : lines) {
        unreadable += line.rfind("~~ unreadable template garbage", 0) == 0;
        unwritten += line.rfind("~~ Failed to write archived data to file: ", 0) == 0;
    }
    EXPECT_EQ(unreadable, 1);
    EXPECT_EQ(unwritten, 1);
}

}  // namespace
