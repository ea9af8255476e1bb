#include "templates/TemplateManager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"
#include "templates/TemplateBodies.h"
#include "templates/TemplateCatalogue.h"
#include "templates/VRTemplateListCoding.h"

namespace {

namespace fs = std::filesystem;

// A user's template as a run stores it: archived in its own folder first.
VXTemplateRef stored(const std::string& name, double width, bool recent, std::string* identifier) {
    auto tpl = VXTemplate::create();
    tpl->setName(name);
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(width, 600, VRSizeTypePixels),
                      VRFormat::formatWithType(VRFormatTypeJPEG),
                      VRSizeOptions{VRSizeOptionNormal, VRSizeOptionRatioClip},
                      VRFormatMediaTypePhoto);
    auto saved = TemplateBodies::saveTemplate(*tpl, recent);
    EXPECT_TRUE(saved);
    *identifier = saved.value_or("");
    return tpl;
}

std::vector<std::string> keys(const std::vector<VRTemplateListItem>& items) {
    std::vector<std::string> result;
    for (const auto& item : items) result.push_back(item.identifier());
    return result;
}

std::vector<std::string> keysOnDisk(const std::string& path) {
    auto data = platform::FileManager::contentsAtPath(path);
    if (!data) return {"<missing>"};
    auto items = VRTemplateListCoding::decodeItems(*data);
    return items ? keys(*items) : std::vector<std::string>{"<unreadable>"};
}

bool folderExists(const std::string& identifier) {
    return fs::exists(VRSettings::templateDirectoryWithIdentifier(identifier));
}

TEST(TemplateManagerTest, AFreshInstallShowsTheExampleAsItsOnlyRecent) {
    testing_support::TestHome home;
    TemplateManager manager;
    EXPECT_EQ(manager.executableTemplates().size(), 110u);
    EXPECT_EQ(manager.standardTemplates().size(), 8u);
    EXPECT_EQ(keys(manager.recentTemplates()), std::vector<std::string>{"example"});
    EXPECT_EQ(manager.recentTemplates()[0].title(), "RC JPEG / MOV");
    EXPECT_TRUE(manager.userTemplates().empty());
    EXPECT_TRUE(manager.userCollection().empty());
    auto copy = manager.templateWithKey("uw-133");
    ASSERT_TRUE(copy);
    copy->setName("changed");
    EXPECT_FALSE(manager.templateWithKey("uw-133")->name());
    EXPECT_FALSE(manager.templateWithKey("no-such-key"));
}

TEST(TemplateManagerTest, RecentsKeepAtMostTenAndDropTheOldestWithItsFolder) {
    testing_support::TestHome home;
    std::vector<std::string> added;
    {
        TemplateManager manager;
        for (int i = 0; i < 12; ++i) {
            std::string identifier;
            auto tpl = stored("Run " + std::to_string(i), 100 + i, true, &identifier);
            manager.updateRecentTemplate(tpl, identifier);
            added.push_back(identifier);
            EXPECT_LE(manager.recentTemplates().size(), 10u);
        }
        // The example went first, then the first two runs.
        std::vector<std::string> expected(added.begin() + 2, added.end());
        EXPECT_EQ(keys(manager.recentTemplates()), expected);
        EXPECT_FALSE(folderExists(added[0]));
        EXPECT_FALSE(folderExists(added[1]));
        EXPECT_TRUE(folderExists(added[2]));
        // The example left the recents but stays a catalogue template.
        EXPECT_TRUE(manager.templateWithKey("example"));
        manager.waitForPendingWrites();
        EXPECT_EQ(keysOnDisk(TemplateManager::recentsPath()), expected);
    }
    TemplateManager reopened;
    EXPECT_EQ(keys(reopened.recentTemplates()),
              std::vector<std::string>(added.begin() + 2, added.end()));
}

TEST(TemplateManagerTest, TheSameSettingsTwiceLeaveOneRecentMovedToTheEnd) {
    testing_support::TestHome home;
    TemplateManager manager;
    std::string first, other, second;
    manager.updateRecentTemplate(stored("Wide", 1200, true, &first), first);
    manager.updateRecentTemplate(stored("Tall", 600, true, &other), other);
    manager.updateRecentTemplate(stored("Wide", 1200, true, &second), second);
    EXPECT_EQ(keys(manager.recentTemplates()),
              (std::vector<std::string>{"example", other, second}));
    EXPECT_FALSE(folderExists(first));
    EXPECT_TRUE(folderExists(second));
    EXPECT_FALSE(manager.templateWithKey(first));

    // Same title but other detail lines is no repeat.
    std::string wider;
    manager.updateRecentTemplate(stored("Wide", 1300, true, &wider), wider);
    EXPECT_EQ(manager.recentTemplates().size(), 4u);

    // An update under its own identifier keeps the place.
    auto renamed = manager.templateWithKey(other);
    ASSERT_TRUE(renamed);
    renamed->setName("Tall, renamed");
    manager.updateRecentTemplate(renamed, other);
    EXPECT_EQ(keys(manager.recentTemplates()),
              (std::vector<std::string>{"example", other, second, wider}));
    EXPECT_EQ(manager.recentTemplates()[1].title(), "Tall, renamed");

    EXPECT_TRUE(manager.removeRecentTemplateWith(other));
    EXPECT_FALSE(manager.removeRecentTemplateWith(other));
    EXPECT_EQ(keys(manager.recentTemplates()),
              (std::vector<std::string>{"example", second, wider}));
}

TEST(TemplateManagerTest, UserListOperationsKeepOrderAndPersist) {
    testing_support::TestHome home;
    std::string a, b;
    {
        TemplateManager manager;
        auto first = stored("First", 1000, false, &a);
        manager.updateUserTemplate(first, a);
        manager.updateUserTemplate(stored("Second", 2000, false, &b), b);
        EXPECT_EQ(keys(manager.userTemplates()), (std::vector<std::string>{a, b}));

        // Resolving reads the folder and takes the item's facts.
        auto resolved = manager.templateForItem(manager.userTemplates()[0]);
        ASSERT_TRUE(resolved);
        EXPECT_EQ(resolved->identifier(), a);
        EXPECT_EQ(resolved->name(), "First");
        EXPECT_TRUE(resolved->stored());
        EXPECT_EQ(resolved->sizeEntryForMediaType(VRFormatMediaTypePhoto)->width(), 1000);

        first->setName("First, edited");
        manager.updateUserTemplate(first, a);
        EXPECT_EQ(keys(manager.userTemplates()), (std::vector<std::string>{a, b}));
        EXPECT_EQ(manager.userTemplates()[0].title(), "First, edited");

        manager.renameUserTemplateWith("Renamed", b);
        EXPECT_EQ(manager.userTemplates()[1].title(), "Renamed");
        manager.renameUserTemplateWith("ignored", "unknown");

        // A thumbnail travels with the copy, which stands right after the original.
        std::ofstream(VRSettings::templateImagePathWithIdentifier(a)) << "jpeg";
        auto copy = manager.templateWithKey(a)->newTemplate();
        copy->setName("Copy");
        auto duplicate = manager.duplicateUserTemplateWith(a, copy);
        ASSERT_TRUE(duplicate);
        EXPECT_EQ(keys(manager.userTemplates()), (std::vector<std::string>{a, *duplicate, b}));
        EXPECT_TRUE(fs::exists(VRSettings::templateImagePathWithIdentifier(*duplicate)));
        EXPECT_FALSE(manager.duplicateUserTemplateWith("unknown", copy));

        EXPECT_TRUE(manager.removeUserTemplateWith(a));
        EXPECT_FALSE(manager.removeUserTemplateWith(a));
        manager.waitForPendingWrites();
        EXPECT_EQ(keysOnDisk(TemplateManager::userListPath()),
                  (std::vector<std::string>{*duplicate, b}));
    }
    TemplateManager reopened;
    ASSERT_EQ(reopened.userTemplates().size(), 2u);
    EXPECT_EQ(reopened.userTemplates()[0].title(), "Copy");
    EXPECT_EQ(reopened.userTemplates()[1].title(), "Renamed");
    auto renamed = reopened.templateForItem(reopened.userTemplates()[1]);
    ASSERT_TRUE(renamed);
    EXPECT_EQ(renamed->name(), "Renamed");
}

TEST(TemplateManagerTest, ResetImageSourceShowsTheFolderThumbnailAndClearsKeywords) {
    testing_support::TestHome home;
    TemplateManager manager;
    std::string identifier;
    auto tpl = stored("Pictured", 800, false, &identifier);
    tpl->setBundleImageName("tpl-uw-133");
    manager.updateUserTemplate(tpl, identifier);
    EXPECT_EQ(manager.userTemplates()[0].imageSource(),
              TemplatePictureSource::bundle("tpl-uw-133"));
    manager.resetUserTemplateImageSourceWith(identifier);
    EXPECT_EQ(manager.userTemplates()[0].imageSource(),
              TemplatePictureSource::templateIdentifier());
    EXPECT_EQ(manager.userTemplates()[0].title(), "Pictured");
}

TEST(TemplateManagerTest, ACorruptedListFallsBackToTheLegacyList) {
    testing_support::TestHome home;
    std::string identifier;
    stored("Old", 1500, false, &identifier);
    VRSettings::addTemplateToList({identifier, "Old one", "kept", {1}, false, false});
    VRSettings::addTemplateToList({"builtin", "Built in", "", {1, 2}, true, false});
    fs::create_directories(fs::path(TemplateManager::userListPath()).parent_path());
    std::ofstream(TemplateManager::userListPath()) << "[{\"identifier\": tru";
    {
        TemplateManager manager;
        ASSERT_EQ(keys(manager.userTemplates()), std::vector<std::string>{identifier});
        const auto& item = manager.userTemplates()[0];
        EXPECT_EQ(item.title(), "Old one");
        EXPECT_EQ(item.description(), "kept");
        EXPECT_EQ(item.imageSource(), TemplatePictureSource::templateIdentifier());
        EXPECT_EQ(item.subtitles(), (std::vector<std::string>{"1500 x 600 PX", " "}));
        manager.waitForPendingWrites();
    }
    EXPECT_EQ(keysOnDisk(TemplateManager::userListPath()), std::vector<std::string>{identifier});
    EXPECT_TRUE(VRSettings::objectForKey("templateListKey").isNull());

    // A corrupted recents or collection file is answered by its own fallback.
    std::ofstream(TemplateManager::recentsPath()) << "\x01\x02";
    std::ofstream(TemplateManager::collectionPath()) << "{}";
    TemplateManager again;
    EXPECT_EQ(keys(again.recentTemplates()), std::vector<std::string>{"example"});
    EXPECT_TRUE(again.userCollection().empty());
    EXPECT_EQ(keys(again.userTemplates()), std::vector<std::string>{identifier});
}

TEST(TemplateManagerTest, CollectionSectionFollowsSortingAndPersonalTemplates) {
    testing_support::TestHome home;
    std::string mine;
    {
        TemplateManager manager;
        manager.updateUserTemplate(stored("Mine", 900, false, &mine), mine);
        manager.updateUserCollection({"yt-short", "uw-150", "no-such-key", "fb-cover"});
        auto standard = manager.userCollectionSection(false, VRTemplateSorting::standard);
        EXPECT_EQ(standard->title(), "My Collection");
        EXPECT_EQ(standard->imageName(), "sample-square.jpg");
        EXPECT_EQ(standard->subtitle(), "Create content for various purposes");
        EXPECT_EQ(keys(standard->items()),
                  (std::vector<std::string>{"uw-150", "fb-cover", "yt-short"}));
        EXPECT_EQ(manager.userCollectionSection(false, VRTemplateSorting::standard), standard);
        auto selection = manager.userCollectionSection(true, VRTemplateSorting::selection);
        EXPECT_EQ(keys(selection->items()),
                  (std::vector<std::string>{"yt-short", "uw-150", "fb-cover", mine}));
        // A change of the user list rebuilds a section that shows it.
        manager.renameUserTemplateWith("Mine, renamed", mine);
        auto rebuilt = manager.userCollectionSection(true, VRTemplateSorting::selection);
        EXPECT_NE(rebuilt, selection);
        EXPECT_EQ(rebuilt->items().back().title(), "Mine, renamed");
        manager.waitForPendingWrites();
    }
    TemplateManager reopened;
    EXPECT_EQ(reopened.userCollection(),
              (std::vector<std::string>{"yt-short", "uw-150", "no-such-key", "fb-cover"}));
}

TEST(TemplateManagerTest, ListIdentifiersThatWouldLeaveTheTemplateFolderAreHarmless) {
    testing_support::TestHome home;
    fs::create_directories(home.path("documents/templates"));
    fs::create_directories(home.path("documents/keep"));
    std::vector<VRTemplateListItem> hostile;
    for (const char* key : {"../keep", "..", "a/../../keep", ""}) {
        hostile.emplace_back(key, "Same", std::nullopt, std::set<std::uint64_t>{1},
                             TemplatePictureSource::templateIdentifier(),
                             TemplatePictureSource::empty(), std::vector<std::string>{"x"});
    }
    for (int i = 0; i < 6; ++i) {
        hostile.emplace_back("r" + std::to_string(i), "T" + std::to_string(i), std::nullopt,
                             std::set<std::uint64_t>{1},
                             TemplatePictureSource::templateIdentifier(),
                             TemplatePictureSource::empty(), std::vector<std::string>{"x"});
    }
    auto data = VRTemplateListCoding::encodeItems(hostile);
    std::ofstream(TemplateManager::recentsPath(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
    TemplateManager manager;
    ASSERT_EQ(manager.recentTemplates().size(), 10u);
    for (const auto& item : manager.recentTemplates()) {
        EXPECT_FALSE(manager.templateForItem(item)) << item.identifier();
    }
    std::string identifier;
    for (int i = 0; i < 5; ++i) {
        manager.updateRecentTemplate(stored("New " + std::to_string(i), 10 + i, true, &identifier),
                                     identifier);
    }
    EXPECT_TRUE(fs::exists(home.path("documents/keep")));
    EXPECT_TRUE(fs::exists(home.path("documents/templates")));
}

}  // namespace

namespace {

struct Row {
    std::string identifier;
    std::optional<std::string> title;
    bool operator==(const Row&) const = default;
};

std::vector<Row> rowsOf(const std::vector<VRTemplateListItem>& items) {
    std::vector<Row> rows;
    for (const auto& item : items) rows.push_back({item.identifier(), item.title()});
    return rows;
}

}  // namespace

// Two managers on one home stand for two processes. Random creations, renames, removals and
// reopens from either of them, checked against a plain list that takes every change in order.
TEST(TemplateManagerTest, RandomChangesOfTwoProcessesMatchAPlainModelAcrossReopens) {
    testing_support::TestHome home;
    std::vector<Row> model;
    std::unique_ptr<TemplateManager> managers[2] = {std::make_unique<TemplateManager>(),
                                                    std::make_unique<TemplateManager>()};
    std::mt19937 random(31);
    const auto pick = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    for (int step = 0; step < 200; ++step) {
        auto& manager = managers[pick(2)];
        const std::string title = "Step " + std::to_string(step);
        switch (pick(4)) {
            case 0: {
                std::string identifier;
                auto tpl = stored(title, 100 + step, false, &identifier);
                ASSERT_TRUE(manager->updateUserTemplate(tpl, identifier));
                model.push_back({identifier, title});
                break;
            }
            case 1: {
                if (model.empty()) continue;
                Row& row = model[pick(model.size())];
                ASSERT_TRUE(manager->renameUserTemplateWith(title, row.identifier));
                row.title = title;
                break;
            }
            case 2: {
                // A removed or unknown identifier changes nothing and is no error.
                const bool known = !model.empty() && pick(4) != 0;
                const std::string identifier =
                    known ? model[pick(model.size())].identifier : "unknown-" + title;
                platform::ErrorRef error;
                EXPECT_EQ(manager->removeUserTemplateWith(identifier, &error), known);
                EXPECT_FALSE(error);
                std::erase_if(model, [&](const Row& row) { return row.identifier == identifier; });
                break;
            }
            case 3:
                manager = std::make_unique<TemplateManager>();
                break;
        }
        ASSERT_EQ(rowsOf(manager->userTemplates()), model) << "step " << step;
    }
    EXPECT_EQ(rowsOf(TemplateManager().userTemplates()), model);
}

TEST(TemplateManagerTest, AnUnreadableListIsKeptAsideWithALogLine) {
    testing_support::TestHome home;
    fs::create_directories(fs::path(TemplateManager::userListPath()).parent_path());
    std::ofstream(TemplateManager::userListPath()) << "[{\"identifier\": tru";
    std::vector<std::string> lines;
    platform::setLogSink(
        [](const std::string& line, void* context) {
            static_cast<std::vector<std::string>*>(context)->push_back(line);
        },
        &lines);
    {
        TemplateManager manager;
        std::string identifier;
        ASSERT_TRUE(manager.updateUserTemplate(stored("New", 900, false, &identifier), identifier));
    }
    platform::setLogSink(nullptr, nullptr);
    std::vector<std::string> aside;
    for (const auto& entry : fs::directory_iterator(home.path("documents/templates"))) {
        if (entry.path().filename().string().rfind("list.unreadable-", 0) == 0) {
            aside.push_back(entry.path().string());
        }
    }
    ASSERT_EQ(aside.size(), 1u);
    std::ifstream in(aside[0]);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "[{\"identifier\": tru");
    EXPECT_EQ(keysOnDisk(TemplateManager::userListPath()).size(), 1u);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines[0].find(aside[0]), std::string::npos) << lines[0];
}
