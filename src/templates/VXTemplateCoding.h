// The template's keyed archive ("template-data" in a template's folder): class VXTemplate with
// its name, lock and the three per-media dictionaries. The settings store reads and writes it.
#pragma once

#include <optional>

#include "platform/Error.h"
#include "platform/KeyedArchive.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

inline constexpr const char* VRTemplateNameKey = "VRTemplateNameKey";
inline constexpr const char* VRTemplateLockedKey = "VRTemplateLockedKey";
inline constexpr const char* VRTemplateSizeEntryKey = "VRTemplateSizeEntryKey";
inline constexpr const char* VRTemplateFormatKey = "VRTemplateFormatKey";
inline constexpr const char* VRTemplateOptionsKey = "VRTemplateOptionsKey";

namespace VXTemplateCoding {

// Makes VXTemplate, VRSizeEntry and VRFormat known to the unarchiver. Idempotent.
void registerArchiveClasses();

// Only name, lock and the three dictionaries are written; identifier, stored flag,
// description and picture name are the store's to set after reading.
platform::ArchiveObject encodeTemplate(const VXTemplate& tpl);
// An absent dictionary reads as empty. Anything that is not a VXTemplate instance, a
// dictionary keyed by something other than a number, or a value of the wrong class gives
// NSCocoaErrorDomain / NSCoderReadCorruptError.
VXTemplateRef decodeTemplate(const platform::ArchiveObject& object,
                             platform::ErrorRef* error = nullptr);

// The whole archive as a binary property list, and back.
std::optional<platform::PlistData> archivedDataWithTemplate(const VXTemplate& tpl,
                                                            platform::ErrorRef* error = nullptr);
VXTemplateRef templateWithArchivedData(const platform::PlistData& data,
                                       platform::ErrorRef* error = nullptr);

}  // namespace VXTemplateCoding
