// `unwarp settings list|get KEY|set KEY VALUE|reset`: the persistent settings by their stored
// keys, each shown with its stored value and, beside it, what that value means ("...Disabled"
// keys store the negation of their accessor). A setting is set by its stored key with a stored
// value, or by its accessor's name with the accessor's value.
#include <iostream>

#include "app/Command.h"
#include "core/VRSettingsViewModel.h"
#include "storage/VRSettings.h"

namespace {

// "copyGpsMetadataDisabled = true (GPS is not copied)": the stored key and value as they are
// in the file, and what they mean.
void printSetting(const VRSettingsItem& setting) {
    std::cout << setting.key << " = " << setting.get();
    if (setting.meaning) std::cout << " (" << setting.meaning() << ")";
    std::cout << (setting.set ? "" : "  [read-only]") << "\n";
}

// The settings file could not be written: the change is lost when the command ends.
int reportNotSaved(const platform::ErrorRef& error) {
    std::string reason = error ? error->localizedDescription() : std::string("unknown error");
    return app::reportFailure("the settings were not saved to " +
                              VRSettings::userDefaults().path() + ": " + reason);
}

class SettingsCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command =
            program.add_subcommand("settings", "Show or change the persistent settings");
        command->require_subcommand(1);
        _list = command->add_subcommand("list", "Every setting with its accessor and value");
        _get = command->add_subcommand("get", "One setting, by stored key or accessor name");
        _get->add_option("KEY", _key, "Stored key or accessor name")->required();
        _set =
            command->add_subcommand("set",
                                    "Change a setting: by its stored key with the value to store "
                                    "(`set autoSaveDisabled false` turns auto-save on), or by its "
                                    "accessor's name with the accessor's value "
                                    "(`set isAutoSaveEnabled true`)");
        _set->add_option("KEY", _key, "Stored key or accessor name")->required();
        _set->add_option("VALUE", _value, "New value")->required();
        _reset = command->add_subcommand("reset", "Back to the first-run values");
        return command;
    }

    int run() override {
        VRSettingsViewModel::prepare();
        if (_list->parsed()) {
            for (const auto& setting : VRSettingsViewModel::items()) printSetting(setting);
            return app::kExitSuccess;
        }
        if (_reset->parsed()) {
            VRSettings::userDefaults().setObject(platform::PlistDictionary{},
                                                 VRSettingsDefaultsKey);
            VRSettings::_prepareSettings();
            platform::ErrorRef error;
            if (!VRSettings::save(&error)) return reportNotSaved(error);
            return app::kExitSuccess;
        }
        const VRSettingsItem* setting = VRSettingsViewModel::itemNamed(_key);
        if (!setting) return app::reportUsageError("unknown setting: " + _key);
        if (_get->parsed()) {
            printSetting(*setting);
            return app::kExitSuccess;
        }
        std::string problem;
        if (!VRSettingsViewModel::setValue(_key, _value, &problem))
            return app::reportUsageError(problem);
        platform::ErrorRef error;
        if (!VRSettings::save(&error)) return reportNotSaved(error);
        printSetting(*setting);
        return app::kExitSuccess;
    }

  private:
    CLI::App *_list = nullptr, *_get = nullptr, *_set = nullptr, *_reset = nullptr;
    std::string _key, _value;
};

}  // namespace

UNWARP_REGISTER_COMMAND(SettingsCommand)
