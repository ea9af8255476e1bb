// `unwarp templates [--search TEXT] [--json]`: the catalogue's sections and the user's own
// templates, each item with its title, key, detail lines and description line.
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/TemplateJSON.h"
#include "templates/TemplateManager.h"
#include "templates/VRTemplateListCoding.h"
#include "templates/VXHelperTemplate.h"

namespace {

using nlohmann::json;

constexpr const char* kUserSectionTitle = "Your Templates";
constexpr const char* kUserSectionSubtitle = "Templates you created";

std::string descriptionLine(TemplateManager& manager, const VRTemplateListItem& item) {
    auto tpl = manager.templateForItem(item);
    return tpl ? VXHelper::descriptionForTemplate(*tpl) : std::string("<template missing>");
}

json sectionJSON(TemplateManager& manager, const VRTemplateListSection& section) {
    json items = json::array();
    for (const auto& item : section.visibleItems()) {
        json object = json::parse(VRTemplateListCoding::itemJSON(item));
        object["descriptionLine"] = descriptionLine(manager, item);
        auto tpl = manager.templateForItem(item);
        object["photo"] = tpl ? app::mediaJSON(*tpl, VRFormatMediaTypePhoto) : json(nullptr);
        object["video"] = tpl ? app::mediaJSON(*tpl, VRFormatMediaTypeVideo) : json(nullptr);
        items.push_back(std::move(object));
    }
    return {{"title", section.title()},
            {"subtitle", section.subtitle()},
            {"config",
             {{"showIcons", section.config().showIcons},
              {"needsSmartNote", section.config().needsSmartNote},
              {"subtitleVisible", section.config().subtitleVisible}}},
            {"items", std::move(items)}};
}

void printSection(TemplateManager& manager, const VRTemplateListSection& section) {
    std::cout << section.title() << " - " << section.subtitle() << "\n";
    for (const auto& item : section.visibleItems()) {
        std::cout << "  " << item.title().value_or("(untitled)") << "  [" << item.identifier()
                  << "]\n";
        std::string details;
        for (const auto& line : item.subtitles()) {
            if (line.find_first_not_of(' ') == std::string::npos) continue;
            details += (details.empty() ? "" : " | ") + line;
        }
        if (!details.empty()) std::cout << "    " << details << "\n";
        std::string description = descriptionLine(manager, item);
        for (std::size_t start = 0; start <= description.size();) {
            auto end = description.find('\n', start);
            if (end == std::string::npos) end = description.size();
            std::cout << "    " << description.substr(start, end - start) << "\n";
            start = end + 1;
        }
    }
    std::cout << "\n";
}

class TemplatesCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "templates", "List the built-in templates by section, and your own templates");
        command->add_option("--search", _search,
                            "Show only items whose title, detail lines or keywords hold TEXT");
        command->add_flag("--json", _json, "Print JSON instead of text");
        return command;
    }

    int run() override {
        auto& manager = TemplateManager::shared();
        std::vector<VRTemplateListSectionRef> sections = manager.standardTemplates();
        if (!manager.userTemplates().empty()) {
            sections.push_back(std::make_shared<VRTemplateListSection>(
                kUserSectionTitle, kUserSectionSubtitle, VRTemplateListSection::Config{},
                manager.userTemplates()));
        }
        json output = json::array();
        for (const auto& section : sections) {
            if (_search) section->search(*_search);
            if (section->visibleItems().empty()) continue;
            if (_json) {
                output.push_back(sectionJSON(manager, *section));
            } else {
                printSection(manager, *section);
            }
            if (_search) section->clearSearch();
        }
        if (_json) std::cout << output.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
        manager.waitForPendingWrites();
        return app::kExitSuccess;
    }

  private:
    std::optional<std::string> _search;
    bool _json = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(TemplatesCommand)
