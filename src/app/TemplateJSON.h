// The JSON forms that `templates`, `template show` and `size` share, so that a script reads
// sizes the same way from all three: a size is {"width": W, "height": H}, whole numbers as
// integers; a template's media is the same object in `templates` and `template show`.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>

#include "platform/Geometry.h"
#include "templates/VXTemplate.h"

namespace app {

// A whole number as an integer, anything else (a ratio side like 2.39) as it is.
nlohmann::json numberJSON(double value);
// {"width": W, "height": H}.
nlohmann::json sizeJSON(CGSize size);
// {"x", "y", "width", "height"}.
nlohmann::json rectJSON(const CGRect& rect);
// The size entry, method, options and format of one media type: {"width", "height", "type",
// "text", "method", "smart", "options", "format", "formatType"}; null when the template has
// no size for that media type.
nlohmann::json mediaJSON(const VXTemplate& tpl, std::uint64_t mediaType);

}  // namespace app
