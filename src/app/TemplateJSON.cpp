#include "app/TemplateJSON.h"

#include <cmath>
#include <limits>

#include "app/TemplateArguments.h"
#include "model/VXHelperText.h"

namespace app {

using nlohmann::json;

json numberJSON(double value) {
    constexpr double kLimit = 9007199254740992.0;  // 2^53: every whole double below is exact
    if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < kLimit) {
        return static_cast<std::int64_t>(value);
    }
    return value;
}

json sizeJSON(CGSize size) {
    return {{"width", numberJSON(size.width)}, {"height", numberJSON(size.height)}};
}

json rectJSON(const CGRect& rect) {
    return {{"x", numberJSON(rect.origin.x)},
            {"y", numberJSON(rect.origin.y)},
            {"width", numberJSON(rect.size.width)},
            {"height", numberJSON(rect.size.height)}};
}

json mediaJSON(const VXTemplate& tpl, std::uint64_t mediaType) {
    auto entry = tpl.sizeEntryForMediaType(mediaType);
    if (!entry) return nullptr;
    auto options = tpl.optionsForMediaType(mediaType).value_or(VRSizeOptions{});
    auto format = tpl.formatForMediaType(mediaType);
    return {{"width", numberJSON(entry->width())},
            {"height", numberJSON(entry->height())},
            {"type", entry->type()},
            {"text", VXHelper::stringFromSizeEntry(*entry, true)},
            {"options", options},
            {"method", methodWord(options)},
            {"smart", containsOption(options, VRSizeOptionSmart)},
            {"format", format.name()},
            {"formatType", format.rawType()}};
}

}  // namespace app
