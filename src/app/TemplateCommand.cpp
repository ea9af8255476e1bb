// `unwarp template show|edit|create|rename|duplicate|remove`: one template by key, its size
// editor, and the user's own templates, stored through the template store.
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/OwnTemplates.h"
#include "app/TemplateArguments.h"
#include "app/TemplateEdit.h"
#include "app/TemplateJSON.h"
#include "model/VXHelperText.h"
#include "templates/TemplateManager.h"
#include "templates/VXHelperTemplate.h"

namespace {

using nlohmann::json;

std::optional<VRTemplateListItem> findItem(TemplateManager& manager, const std::string& key) {
    for (const auto& section : manager.standardTemplates()) {
        for (const auto& item : section->items()) {
            if (item.identifier() == key) return item;
        }
    }
    for (const auto* list : {&manager.userTemplates(), &manager.recentTemplates()}) {
        for (const auto& item : *list) {
            if (item.identifier() == key) return item;
        }
    }
    if (key == manager.exampleTemplate().identifier()) return manager.exampleTemplate();
    return std::nullopt;
}

VXTemplateRef resolve(TemplateManager& manager, const std::string& key) {
    if (auto item = findItem(manager, key)) return manager.templateForItem(*item);
    return manager.templateWithKey(key);
}

std::string sizeModeWord(const VRSizeOptions& options) {
    std::string word = containsOption(options, VRSizeOptionSmart) ? "smart" : "normal";
    if (containsOption(options, VRSizeOptionTargetPortrait)) word += ", for portrait";
    return word;
}

void printMedia(const VXTemplate& tpl, std::uint64_t mediaType, const char* word) {
    auto entry = tpl.sizeEntryForMediaType(mediaType);
    if (!entry) {
        std::cout << word << ": none\n";
        return;
    }
    auto options = tpl.optionsForMediaType(mediaType).value_or(VRSizeOptions{});
    std::cout << word << ": " << VXHelper::stringFromSizeEntry(*entry, true) << ", "
              << app::methodWord(options) << ", " << sizeModeWord(options) << ", "
              << tpl.formatForMediaType(mediaType).name() << "\n";
}

int waitAndReturn(int code) {
    TemplateManager::shared().waitForPendingWrites();
    return code;
}

class TemplateCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand("template", "Show a template; manage your own");
        command->require_subcommand(1);

        _show = command->add_subcommand("show", "Show the template of KEY");
        _show->add_option("KEY", _key, "Template key (see unwarp templates)")->required();
        _show->add_flag("--json", _json, "Print JSON instead of text");

        _edit = command->add_subcommand(
            "edit", "Run the size editor on KEY with the given field values and show it");
        _edit->add_option("KEY", _editing.key, "Template key")->required();
        _edit->add_option("EDIT", _editing.assignments,
                          "FIELD=VALUE, in order: width, height (typed as in the field), "
                          "type (px, %, up, down), mode (normal, smart), method");
        _edit->add_option("--media", _editing.media, "photo or video")->default_val("photo");
        _edit->add_option("--width", _editing.width, "Width field text");
        _edit->add_option("--height", _editing.height, "Height field text");
        _edit->add_option("--type", _editing.type, "px, %, up or down");
        _edit->add_option("--mode", _editing.mode, "normal or smart");
        _edit->add_option("--method", _editing.method, "stretch, fit or clip");
        _edit->add_option("--target", _editing.target, "Preview target WxH (its orientation)");
        _edit->add_flag("--swap", _editing.swap, "Touch the swap control");
        _edit->add_flag("--toggle-ratio", _editing.toggleRatio, "Touch the ratio direction");
        _edit->add_flag("--save", _editing.save,
                        "Store the result: your template in place, any other as a new recent");
        _edit->add_flag("--json", _editing.json, "Print JSON instead of text");

        _create = command->add_subcommand("create", "Create one of your own templates");
        _create->add_option("--name", _name, "Title; blank gives \"Template N\"");
        _create
            ->add_option("--size", _size,
                         "1200x600 (px, a side may be auto), 133%x100%, 16:9 or 16:9up")
            ->required();
        _create->add_option("--video-size", _videoSize, "Video size when it differs");
        _create->add_option("--method", _method, "stretch, fit or clip")->default_val("stretch");
        _create->add_flag("--smart", _smart,
                          "Smart size: assets of the other orientation get the size turned");
        _create->add_flag("--target-portrait", _targetPortrait,
                          "With --smart: the size is meant for portrait assets");
        _create->add_option("--photo-format", _photoFormat, "Auto, JPEG, PNG, TIFF, GIF, HEIC")
            ->default_val("auto");
        _create->add_option("--video-format", _videoFormat, "Auto, MOV, MP4, M4V, 3GP, 3G2")
            ->default_val("auto");
        _create->add_option("--media", _media, "photo, video or both")->default_val("both");

        _rename = command->add_subcommand("rename", "Rename one of your templates");
        _rename->add_option("KEY", _key, "Template key")->required();
        _rename->add_option("NAME", _newName, "New title")->required();

        _duplicate = command->add_subcommand("duplicate", "Copy one of your templates");
        _duplicate->add_option("KEY", _key, "Template key")->required();
        _duplicate->add_option("--name", _name, "Title of the copy (default: the same title)");

        _remove = command->add_subcommand("remove", "Remove one of your templates");
        _remove->add_option("KEY", _key, "Template key")->required();
        return command;
    }

    int run() override {
        if (_show->parsed()) return waitAndReturn(show());
        if (_edit->parsed()) return waitAndReturn(edit());
        if (_create->parsed()) return waitAndReturn(create());
        if (_rename->parsed()) return waitAndReturn(rename());
        if (_duplicate->parsed()) return waitAndReturn(duplicate());
        if (_remove->parsed()) return waitAndReturn(remove());
        return app::reportUsageError(
            "template needs show, edit, create, rename, duplicate or remove");
    }

  private:
    int show() {
        auto& manager = TemplateManager::shared();
        auto tpl = resolve(manager, _key);
        if (!tpl) return app::reportFailure("no template with key " + _key);
        if (_json) {
            json output = {{"key", _key},
                           {"name", tpl->name() ? json(*tpl->name()) : json(nullptr)},
                           {"locked", tpl->locked()},
                           {"stored", tpl->stored()},
                           {"photo", app::mediaJSON(*tpl, VRFormatMediaTypePhoto)},
                           {"video", app::mediaJSON(*tpl, VRFormatMediaTypeVideo)},
                           {"description", VXHelper::descriptionForTemplate(*tpl)}};
            std::cout << output.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
            return app::kExitSuccess;
        }
        std::cout << tpl->name().value_or("(untitled)") << "  [" << _key << "]"
                  << (tpl->locked() ? "  built-in" : "") << "\n";
        printMedia(*tpl, VRFormatMediaTypePhoto, "photo");
        printMedia(*tpl, VRFormatMediaTypeVideo, "video");
        std::cout << VXHelper::descriptionForTemplate(*tpl) << "\n";
        return app::kExitSuccess;
    }

    int edit() {
        auto& manager = TemplateManager::shared();
        auto tpl = resolve(manager, _editing.key);
        if (!tpl) return app::reportFailure("no template with key " + _editing.key);
        return app::runTemplateEdit(_editing, tpl, app::isOwnTemplate(manager, _editing.key));
    }

    int create() {
        std::string problem;
        auto photoSize = app::parseSizeEntry(_size, &problem);
        auto videoSize = _videoSize ? app::parseSizeEntry(*_videoSize, &problem) : photoSize;
        auto method = app::parseMethod(_method, &problem);
        auto photoFormat = app::parseFormat(_photoFormat, VRFormatMediaTypePhoto, &problem);
        auto videoFormat = app::parseFormat(_videoFormat, VRFormatMediaTypeVideo, &problem);
        if (!photoSize || !videoSize || !method || !photoFormat || !videoFormat) {
            return app::reportUsageError(problem);
        }
        if (_media != "photo" && _media != "video" && _media != "both") {
            return app::reportUsageError("--media is photo, video or both: " + _media);
        }
        VRSizeOptions options{_smart ? VRSizeOptionSmart : VRSizeOptionNormal, *method};
        if (_targetPortrait) options.push_back(VRSizeOptionTargetPortrait);

        auto tpl = VXTemplate::create();
        if (_media != "video") {
            tpl->setSizeEntry(*photoSize, *photoFormat, options, VRFormatMediaTypePhoto);
        }
        if (_media != "photo") {
            tpl->setSizeEntry(*videoSize, *videoFormat, options, VRFormatMediaTypeVideo);
        }
        return report(app::createOwnTemplate(TemplateManager::shared(), tpl, _name), true);
    }

    int rename() {
        return report(app::renameOwnTemplate(TemplateManager::shared(), _key, _newName), false);
    }

    int duplicate() {
        return report(app::duplicateOwnTemplate(TemplateManager::shared(), _key, _name), true);
    }

    int remove() { return report(app::removeOwnTemplate(TemplateManager::shared(), _key), false); }

    static int report(const app::OwnTemplateOutcome& outcome, bool printIdentifier) {
        if (!outcome.identifier) return app::reportFailure(outcome.problem);
        if (printIdentifier) std::cout << *outcome.identifier << "\n";
        return app::kExitSuccess;
    }

    CLI::App *_show = nullptr, *_edit = nullptr, *_create = nullptr, *_rename = nullptr,
             *_duplicate = nullptr, *_remove = nullptr;
    std::string _key, _newName, _size, _method, _photoFormat, _videoFormat, _media;
    std::optional<std::string> _name, _videoSize;
    bool _json = false, _smart = false, _targetPortrait = false;
    app::TemplateEditRequest _editing;
};

}  // namespace

UNWARP_REGISTER_COMMAND(TemplateCommand)
