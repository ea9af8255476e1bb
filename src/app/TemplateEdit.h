// `unwarp template edit`: the size editor of one media type opened on a template, fed with
// field values as a screen would type them, and shown as the screen would show it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "templates/VXTemplate.h"

namespace app {

struct TemplateEditRequest {
    std::string key;
    std::string media = "photo";
    // Edits in this order: the options' unit, width, height, mode and method, then the
    // FIELD=VALUE assignments as given.
    std::optional<std::string> type, width, height, mode, method;
    std::vector<std::string> assignments;
    std::optional<std::string> target;  // the preview target, "WxH"
    bool swap = false, toggleRatio = false, save = false, json = false;
};

// Runs the editor on `tpl` (resolved from the key) and prints it; with `save`, stores the
// result into the user template of the key (`userTemplate`), or as a new recent. An exit code.
int runTemplateEdit(const TemplateEditRequest& request, const VXTemplateRef& tpl,
                    bool userTemplate);

}  // namespace app
