#include "storage/VRSettings2.h"

#include "storage/VRSettings.h"
#include "storage/VRUserDefaultsCoder.h"

namespace {

bool boolFor(const char* key) {
    return VRSettings::userDefaults().boolForKey(key);
}
void setBoolFor(bool value, const char* key) {
    VRSettings::userDefaults().setObject(value, key);
}

std::optional<VRColor> colorFor(const char* key) {
    return VRUserDefaultsCoder::decodeColor(VRSettings::userDefaults().objectForKey(key));
}
void setColorFor(const std::optional<VRColor>& color, const char* key) {
    VRSettings::userDefaults().setObject(
        color ? VRUserDefaultsCoder::encodeColor(*color) : platform::PlistValue(), key);
}

}  // namespace

bool VRSettings2::isSummaryNoteHidden() {
    return boolFor(VRSettings2SummaryNoteHiddenKey);
}
void VRSettings2::setSummaryNoteHidden(bool hidden) {
    setBoolFor(hidden, VRSettings2SummaryNoteHiddenKey);
}
bool VRSettings2::isAdvancedNoteHidden() {
    return boolFor(VRSettings2AdvancedNoteHiddenKey);
}
void VRSettings2::setAdvancedNoteHidden(bool hidden) {
    setBoolFor(hidden, VRSettings2AdvancedNoteHiddenKey);
}
bool VRSettings2::isPrivateAccessWarned() {
    return boolFor(VRSettings2PrivateAccessWarnedKey);
}
void VRSettings2::setPrivateAccessWarned(bool warned) {
    setBoolFor(warned, VRSettings2PrivateAccessWarnedKey);
}
bool VRSettings2::isRecentsSelected() {
    return boolFor(VRSettings2RecentsSelectedKey);
}
void VRSettings2::setRecentsSelected(bool selected) {
    setBoolFor(selected, VRSettings2RecentsSelectedKey);
}
bool VRSettings2::isTemplateCustomPersonal() {
    return boolFor(VRSettings2TemplateCustomPersonalKey);
}
void VRSettings2::setTemplateCustomPersonal(bool personal) {
    setBoolFor(personal, VRSettings2TemplateCustomPersonalKey);
}
bool VRSettings2::isTemplateCustomOn() {
    return boolFor(VRSettings2TemplateCustomOnKey);
}
void VRSettings2::setTemplateCustomOn(bool on) {
    setBoolFor(on, VRSettings2TemplateCustomOnKey);
}

std::optional<VRColor> VRSettings2::defaultVideoColor() {
    return colorFor(VRSettings2VideoColorKey);
}
void VRSettings2::setDefaultVideoColor(const std::optional<VRColor>& color) {
    setColorFor(color, VRSettings2VideoColorKey);
}
std::optional<VRColor> VRSettings2::defaultPhotoColor() {
    return colorFor(VRSettings2PhotoColorKey);
}
void VRSettings2::setDefaultPhotoColor(const std::optional<VRColor>& color) {
    setColorFor(color, VRSettings2PhotoColorKey);
}

std::string VRSettings2::templateSorting() {
    platform::PlistValue stored =
        VRSettings::userDefaults().objectForKey(VRSettings2TemplateSortingKey);
    if (const std::string* word = stored.string();
        word && *word == VRTemplateSortingSelectionName) {
        return VRTemplateSortingSelectionName;
    }
    return VRTemplateSortingStandardName;
}

void VRSettings2::setTemplateSorting(const std::string& sorting) {
    if (sorting != VRTemplateSortingStandardName && sorting != VRTemplateSortingSelectionName) {
        return;
    }
    VRSettings::userDefaults().setObject(sorting, VRSettings2TemplateSortingKey);
}
