// Makers of the settings screens' rows by the kind of value they hold: each reads its stored
// value as text and takes a text with the rules of its kind. Used by the settings table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/VRSettingsViewModel.h"
#include "model/VRColor.h"
#include "model/VRSizeOption.h"
#include "platform/PlistValue.h"

namespace settings_items {

using Item = VRSettingsItem;
using Kind = VRSettingsItem::Kind;
using Screen = VRSettingsScreen;
using Setter = decltype(VRSettingsItem::set);

// Where and with which words a setting is shown.
struct Words {
    Screen screen;
    std::string section;
    std::string label;
    std::string footer = {};
    std::string unit = {};
    std::string placeholder = {};
    int rank = 0;
};

Item shown(Item item, const Words& words);
// Makes the row a choice of these values.
Item withChoices(Item item, std::vector<VRSettingsChoice> choices);

// A key ending in "Disabled" stores the opposite of the accessor; `whenOn` and `whenOff` tell
// what the accessor's true and false mean.
Item boolSetting(std::string key, std::string accessor, std::function<bool()> get,
                 std::function<void(bool)> set, std::string whenOn = {}, std::string whenOff = {});
Item plainSetting(std::string key, std::string accessor, Kind kind,
                  std::function<std::string()> get, Setter set,
                  std::function<std::string()> meaning = nullptr);
// Numbers from `minimum` to `maximum`, both included.
Item doubleSetting(std::string key, std::string accessor, std::function<double()> get,
                   std::function<void(double)> set, double minimum, double maximum);
Item integerSetting(std::string key, std::string accessor, std::function<std::int64_t()> get,
                    std::function<void(std::int64_t)> set, std::int64_t minimum,
                    std::int64_t maximum);
// One to ten "WxH" sizes in whole pixels, separated by commas.
Item sizesSetting(std::string key, std::function<platform::PlistArray()> get,
                  std::function<void(const platform::PlistArray&)> set);
// Size option codes 0 to 5, separated by commas.
Item optionsSetting(std::string key, std::function<VRSizeOptions()> get,
                    std::function<void(const VRSizeOptions&)> set);
// A format of the media type, by name; shown as its code and name.
Item formatSetting(std::string key, std::uint64_t mediaType, std::function<std::int64_t()> get,
                   std::function<void(std::int64_t)> set);
// "none", or red,green,blue,alpha from 0 to 1.
Item colorSetting(std::string key, std::string accessor,
                  std::function<std::optional<VRColor>()> get,
                  std::function<void(const std::optional<VRColor>&)> set);
Item stringSetting(std::string key, std::string accessor, std::function<std::string()> get,
                   std::function<void(const std::string&)> set,
                   std::function<std::string()> meaning = nullptr);
// A text with rules of its own, given by `set`.
Item checkedString(std::string key, std::string accessor, std::function<std::string()> get,
                   Setter set, std::function<std::string()> meaning = nullptr);
// The video bit rate in megabits per second, with the bit rate field's rules.
Item bitrateSetting();
Item readOnly(std::string key, std::string accessor, std::function<std::string()> get);
// A number the program keeps for itself, shown read-only ("absent" when not stored).
Item stateNumber(const char* key, const char* accessor);

}  // namespace settings_items
