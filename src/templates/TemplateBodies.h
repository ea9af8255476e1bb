// The template bodies: a template archived into its own folder under documents/_cs-templates,
// and read back. Used by the template store and the template command; the settings store
// keeps the bytes.
#pragma once

#include <optional>
#include <string>

#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

namespace TemplateBodies {

// Archives the template into the folder of a new identifier ("recent-" and a UUID for a
// recent, a UUID otherwise) and returns it; absent when archiving or writing failed, which is
// logged ("Failed to archive object: ...", "Failed to write archived data to file: ...").
std::optional<std::string> saveTemplate(const VXTemplate& tpl, bool recent);
// Archives the template under its own identifier, replacing what was there; false without an
// identifier or on failure.
bool saveRawTemplate(const VXTemplate& tpl);
// Writes the template's picture, a JPEG, as template-image-data in the folder of the
// identifier; false (and logged) when it could not be written.
bool saveTemplateImageData(const platform::PlistData& data, const std::string& identifier);
// The template archived under the identifier: no identifier and not stored (the store sets
// those); null when the folder, the file or a readable archive is missing.
VXTemplateRef templateWithIdentifier(const std::string& identifier);

}  // namespace TemplateBodies
