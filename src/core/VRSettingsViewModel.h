// The settings screens' model: every persistent setting with its stored key, its accessor, the
// screen, section and words it is shown with, and how a text becomes its value. Shared by
// `unwarp settings` and the web application's settings screen, so both read and change the
// settings by the same rules. Main thread only, as the settings it reads and writes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// One choice of a setting that takes one of a few values: the value as it is written, its
// word, and the longer words under it where there are some.
struct VRSettingsChoice {
    std::string value;
    std::string title;
    std::string detail;
};

// The settings screens, in the order they are listed.
enum class VRSettingsScreen {
    processing,  // the encoding choices and the size limit's behaviour
    saving,      // where results go, and Live Photos
    metadata,    // what is copied from the source
    filenames,   // the names of shared files
    appearance,  // theme, units and the home screen
    system,      // the library folder, the camera, error and crash reports
    editing,     // the size lists, formats, options and colours of the editors
    state,       // what the program keeps for itself; not changed by hand
};

struct VRSettingsItem {
    enum class Kind { toggle, number, slider, choice, text };

    std::string key;       // the stored key
    std::string accessor;  // the accessor's name; the key where there is none
    VRSettingsScreen screen = VRSettingsScreen::state;
    std::string section;  // the section title on its screen
    std::string footer;   // the words under the section, may be empty
    std::string label;    // the row's words
    std::string unit;     // words after the value ("Mbps"), may be empty
    std::string placeholder;
    Kind kind = Kind::text;
    std::vector<VRSettingsChoice> choices;  // with Kind::choice
    double minimum = 0;                     // with Kind::number and Kind::slider
    double maximum = 0;
    // A key whose name ends in "Disabled" stores the opposite of its accessor.
    bool negated = false;
    // The place in its section: lower first, the table's order among equals.
    int rank = 0;

    // The stored value as text ("true" for a stored true, whatever the accessor says).
    std::function<std::string()> get;
    // Takes a value from text; false with the reason when it can't. `byAccessor`: the text is
    // the accessor's value, which a negated key stores the other way round. Empty: read-only.
    std::function<bool(const std::string& text, bool byAccessor, std::string* problem)> set;
    // What the stored value means, in words; may be empty.
    std::function<std::string()> meaning;
    // The value as a screen shows and sets it by the accessor, where that differs from the
    // stored text other than by a negated toggle (a format's name); may be empty.
    std::function<std::string()> edit;

    bool isReadOnly() const { return !set; }
    // The value as the accessor gives it: a negated toggle's stored value turned round.
    std::string accessorValue() const;
};

class VRSettingsViewModel {
  public:
    // Every setting, in the order of the settings file's tables.
    static const std::vector<VRSettingsItem>& items();
    // By stored key or accessor name; null when there is none.
    static const VRSettingsItem* itemNamed(const std::string& name);
    // The screens in order, with their titles.
    static std::vector<VRSettingsScreen> screens();
    static std::string titleOfScreen(VRSettingsScreen screen);
    static std::string identifierOfScreen(VRSettingsScreen screen);
    // The settings of one screen by section, the sections in the screen's order (else in the
    // order their first setting comes), each section's settings by rank.
    static std::vector<std::vector<const VRSettingsItem*>> sectionsOfScreen(
        VRSettingsScreen screen);

    // Changes the setting named by key or accessor (a name other than the stored key means the
    // accessor's value); false with the reason for an unknown name, a read-only setting or a
    // value it does not take. The caller saves.
    static bool setValue(const std::string& name, const std::string& text, std::string* problem);
    // Makes the first run's values and the migrations that follow it, so that a fresh home
    // shows the values every later use reads.
    static void prepare();
};
