// The size editor of one media type as the command line and the web page drive it: field texts
// typed through the input view's rules, the option buttons, the swap control, the ratio
// direction, a recent size touched, the output format, and the editor shown as JSON.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "editing/VRPresetEditView.h"
#include "editing/VRSizeController.h"
#include "templates/VXTemplate.h"

namespace app {

class SizeEditing {
  public:
    // The editor of `mediaType` opened on `tpl` from `source` (1: a template, 0: the global
    // choice, which finishing then stores).
    SizeEditing(VXTemplateRef tpl, std::uint64_t mediaType, VRSizeController::Source source = 1);

    // One field change: width and height take the text the field would hold (refused texts
    // are remembered), type (px, %, up, down), mode (normal, smart), method (stretch, fit,
    // clip), format (a format name of the media type). False with `problem` for a field or
    // value that is not one.
    bool apply(const std::string& field, const std::string& value, std::string* problem);
    // Closing the input view: the typed size becomes the current one.
    void finishTyping();
    // Whether the input view holds a size typed since it last closed.
    bool isTyping() const { return _sizeTyped; }
    // Touching the recent size at `index` of the list; false when there is none.
    bool touchRecentSize(std::size_t index);

    VRSizeController& controller() { return _controller; }
    const VRPresetEditView& input() const { return _input; }
    const std::vector<std::string>& refused() const { return _refused; }
    // A page shows the refusals of its last changes only.
    void clearRefused() { _refused.clear(); }

    // The input view shows the current size again (after a swap or a ratio toggle).
    void loadInput();

  private:
    VRSizeController _controller;
    VRPresetEditView _input;
    std::vector<std::string> _refused;
    bool _sizeTyped = false;
};

// The editor as a screen shows it: {"fields" {width, height ("auto" for 0), unit, max},
// "typing" {width, height, unit, open} (the input view's values, and whether a typed size waits
// for the view to close), "refused", "buttons" [{title, option, selected}] in the order shown,
// "swapControl", "ratioToggle", "recentSizes" (texts), "formats" [{name, type, selected}],
// "result" {size, options, method, format}, "saved"}.
nlohmann::json sizeEditingJSON(SizeEditing& editing, const std::optional<std::string>& saved);

}  // namespace app
