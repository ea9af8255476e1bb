// The user's own templates as the command line and the web page change them, through the one
// template store (its list file is locked for every change, so several processes may share a
// home): create, rename, duplicate and remove, each answering what it did or why it didn't.
#pragma once

#include <optional>
#include <string>

#include "templates/TemplateManager.h"
#include "templates/VXTemplate.h"

namespace app {

struct OwnTemplateOutcome {
    // The identifier made or changed; absent when nothing was done.
    std::optional<std::string> identifier;
    // Why nothing was done.
    std::string problem;
    // The identifier named no template of the user's list.
    bool notFound = false;
};

bool isOwnTemplate(TemplateManager& manager, const std::string& identifier);
// Stores `tpl` (named `name`; a blank or absent name gives "Template N") under a new
// identifier and lists it. A template whose list could not be written is taken away again.
OwnTemplateOutcome createOwnTemplate(TemplateManager& manager, const VXTemplateRef& tpl,
                                     const std::optional<std::string>& name);
OwnTemplateOutcome renameOwnTemplate(TemplateManager& manager, const std::string& identifier,
                                     const std::string& name);
// A copy right after the original, with its picture; named `name` when given, else as the
// original.
OwnTemplateOutcome duplicateOwnTemplate(TemplateManager& manager, const std::string& identifier,
                                        const std::optional<std::string>& name);
// Takes the template off the list and removes its folder.
OwnTemplateOutcome removeOwnTemplate(TemplateManager& manager, const std::string& identifier);

}  // namespace app
