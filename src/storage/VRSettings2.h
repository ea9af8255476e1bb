// The newer settings of typed keys, each stored directly in the user defaults under a
// "vr-defaults-" key. Used by the template screens, notes and the adjust session's fill colours.
#pragma once

#include <optional>
#include <string>

#include "model/VRColor.h"

inline constexpr const char* VRSettings2SummaryNoteHiddenKey = "vr-defaults-summary-note-hidden";
inline constexpr const char* VRSettings2AdvancedNoteHiddenKey = "vr-defaults-advanced-note-hidden";
inline constexpr const char* VRSettings2VideoColorKey = "vr-defaults-video-color";
inline constexpr const char* VRSettings2PhotoColorKey = "vr-defaults-photo-color";
inline constexpr const char* VRSettings2PrivateAccessWarnedKey =
    "vr-defaults-private-access-warned";
inline constexpr const char* VRSettings2RecentsSelectedKey = "vr-defaults-recents-selected";
inline constexpr const char* VRSettings2TemplateSortingKey = "vr-defaults-tpl-sorting";
inline constexpr const char* VRSettings2TemplateCustomPersonalKey =
    "vr-defaults-tpl-custom-personal";
inline constexpr const char* VRSettings2TemplateCustomOnKey = "vr-defaults-tpl-custom-on";

// The stored words of the template sorting.
inline constexpr const char* VRTemplateSortingStandardName = "standard";
inline constexpr const char* VRTemplateSortingSelectionName = "selection";

// All operations use the store of VRSettings::userDefaults().
class VRSettings2 {
  public:
    static bool isSummaryNoteHidden();
    static void setSummaryNoteHidden(bool hidden);
    static bool isAdvancedNoteHidden();
    static void setAdvancedNoteHidden(bool hidden);
    static bool isPrivateAccessWarned();
    static void setPrivateAccessWarned(bool warned);
    static bool isRecentsSelected();
    static void setRecentsSelected(bool selected);
    static bool isTemplateCustomPersonal();
    static void setTemplateCustomPersonal(bool personal);
    static bool isTemplateCustomOn();
    static void setTemplateCustomOn(bool on);

    // Absent while none is chosen; a null argument removes the choice.
    static std::optional<VRColor> defaultVideoColor();
    static void setDefaultVideoColor(const std::optional<VRColor>& color);
    static std::optional<VRColor> defaultPhotoColor();
    static void setDefaultPhotoColor(const std::optional<VRColor>& color);

    // "standard" or "selection"; any other stored text reads as "standard", and other words
    // are not stored.
    static std::string templateSorting();
    static void setTemplateSorting(const std::string& sorting);
};
