#include "platform/linux/LoadableModule.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/AVError.h"
#include "platform/linux/ReportModule.h"

namespace {

using platform::modules::ModuleHeader;
using platform::modules::openModule;
namespace report = platform::report_module;

// The modules are built beside every test program, as beside the command. A module is taken
// only when its table is of this build; otherwise the answer is an error that says why.
TEST(LoadableModule, OpensOnlyAModuleOfThisBuild) {
    const std::size_t size = sizeof(report::ModuleApi);
    struct Case {
        std::string fileName;
        const char* entry;
        ModuleHeader expected;
        const char* words;  // null: found
    };
    const Case cases[] = {
        {report::kModuleFileName,
         report::kModuleEntryName,
         {report::kModuleVersion, size},
         nullptr},
        {report::kModuleFileName,
         report::kModuleEntryName,
         {report::kModuleVersion + 1, size},
         "belongs to another build"},
        {report::kModuleFileName,
         report::kModuleEntryName,
         {report::kModuleVersion, size + 8},
         "belongs to another build"},
        {report::kModuleFileName,
         "no_such_entry",
         {report::kModuleVersion, size},
         "belongs to another build"},
        {"unwarp-nothing.so",
         report::kModuleEntryName,
         {report::kModuleVersion, size},
         "unwarp-nothing.so"},
    };
    for (const auto& c : cases) {
        platform::ErrorRef error;
        const void* table = openModule(c.fileName, c.entry, c.expected, "Reports", &error);
        if (!c.words) {
            ASSERT_NE(table, nullptr) << (error ? error->localizedDescription() : "");
            EXPECT_NE(static_cast<const report::ModuleApi*>(table)->post, nullptr);
            EXPECT_FALSE(error);
            continue;
        }
        EXPECT_EQ(table, nullptr) << c.fileName << " " << c.entry;
        ASSERT_TRUE(error) << c.fileName;
        EXPECT_EQ(error->domain(), platform::AVFoundationErrorDomain);
        EXPECT_EQ(error->code(), AVErrorUnknown);
        const std::string words = error->localizedDescription();
        EXPECT_EQ(words.rfind("Reports cannot be handled here: ", 0), 0u) << words;
        EXPECT_NE(words.find(c.words), std::string::npos) << words;
    }
}

}  // namespace
