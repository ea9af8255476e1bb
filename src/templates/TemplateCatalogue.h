// The built-in catalogue: 109 templates in eight sections and the example template, each under
// a key that must never change. TemplateManager builds its sections and its locked templates
// from it at initialisation.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "model/VRFormat.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"
#include "templates/VRTemplateListItem.h"
#include "templates/VRTemplateListSection.h"
#include "templates/VXTemplate.h"

namespace TemplateCatalogue {

struct Entry {
    std::string key;
    std::string title;
    CGSize photoSize;
    CGSize videoSize;
    VRSizeEntryType unit;
    VRFormatType photoFormat;
    VRFormatType videoFormat;
    VRSizeOptions options;
    std::string picture;
    std::string icon;  // empty: no icon
};

struct Section {
    std::string title;
    std::string subtitle;
    VRTemplateListSection::Config config;
    std::vector<Entry> entries;
};

inline constexpr const char* kExampleKey = "example";
inline constexpr const char* kDeviceWallpaperKey = "wp-device";
inline constexpr std::size_t kTemplateCount = 110;

// Without a known display the wallpaper of "this device" is sized for a full-HD screen.
inline constexpr CGSize kDefaultScreenSize{1920, 1080};

// The eight sections in display order, with the device wallpaper sized by deviceScreenSize().
const std::vector<Section>& sections();
// The example: 1200 x 600 px, JPEG and MOV, Stretch with Smart; in no section.
const Entry& exampleEntry();

// The screen of the machine, computed once: the main screen's pixel size, or
// kDefaultScreenSize when none is known. (A phone would give it in portrait order and a
// tablet a square of its larger side; this machine is neither, so the size stays as it is.)
CGSize deviceScreenSize();

// A locked template with both media types set from the entry.
VXTemplateRef templateForEntry(const Entry& entry);
// The list item: both media types, the picture and icon, the detail lines, no description, no
// keywords. Wallpaper rows give the screen diagonal as their second line.
VRTemplateListItem itemForEntry(const Entry& entry);
VRTemplateListItem exampleItem();
// The help text that the example serves, shown with a section that needs the Smart size note;
// "[red]" marks the words the list's styling draws in red.
const std::string& smartSizeNote();

// New section objects (fresh identifiers) of the whole catalogue.
std::vector<VRTemplateListSectionRef> standardSections();
// The 110 locked templates by key.
std::map<std::string, VXTemplateRef> executableTemplates();

}  // namespace TemplateCatalogue
