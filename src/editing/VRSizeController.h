// The size editor's controller rules that need no screen: which recent sizes the editor opens
// with, the global choice it stores, and the orientation option it settles on finishing.
// Used by the size editor and the command's template tools.
#pragma once

#include <cstdint>
#include <set>

#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/PlistValue.h"

class VRSizeController {
  public:
    // Where the editor was opened from: 0 the global choice, 1 and 2 a template.
    using Source = std::int64_t;

    // The list the editor shows: the stored imageSizes for media type 1, videoSizes otherwise.
    // Opened from a template (source 1 or 2) with a non-empty list, a copy whose first element
    // is the template's size array, so the editor opens on it and the stored list stays.
    static platform::PlistArray presetViewSizes(std::int64_t mediaType, Source source,
                                                const VRSizeEntry& templateEntry);

    // The global part of storing: only from source 0 are the sizes, the format type and the
    // options stored as the choice of the media type, and saved.
    static void _storeGlobalSettings(Source source, const platform::PlistArray& sizes,
                                     std::int64_t formatType, const VRSizeOptions& options,
                                     std::int64_t mediaType);

    // Options settled on finishing: from source 0, with Smart size and exactly one asset shape
    // of value 1, option 2 follows the entry (present exactly when it is portrait). Otherwise
    // the options are returned as given.
    static VRSizeOptions finishedOptions(Source source, const VRSizeOptions& options,
                                         const VRSizeEntry& entry,
                                         const std::set<std::uint64_t>& assetsShapes);
};
