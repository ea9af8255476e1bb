// The size editor of one media type without its screen: it opens on a template (or, from the
// home screen, on the global choice), lets its preset view change the size, the options and
// the format, and stores them into the template and, from the home screen, as the global
// choice. Used by the editing session and `unwarp template edit`.
#pragma once

#include <cstdint>
#include <set>

#include "editing/VRPresetViewAbstract.h"
#include "model/VRFormat.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

class VRSizeController {
  public:
    // Where the editor was opened from: 0 the global choice, 1 and 2 a template.
    using Source = std::int64_t;

    // The editor of `mediaType` (1 photo, 2 video). A null template is replaced by a new one.
    // The preset view opens on presetViewSizes; the options and the format are the template's
    // for the media type, or the global choice's when the template has none for it; the
    // options pass through the view's completion.
    VRSizeController(Source source, VXTemplateRef tpl, std::uint64_t mediaType);

    Source source() const { return _source; }
    std::uint64_t mediaType() const { return _mediaType; }
    const VXTemplateRef& templateRef() const { return _template; }
    VRPresetViewAbstract& presetView() { return _presetView; }
    const VRPresetViewAbstract& presetView() const { return _presetView; }
    const VRFormat& format() const { return _format; }
    void setFormat(const VRFormat& format) { _format = format; }
    // The field limit of the input view: maxPhotoSize for photos, maxVideoSize for videos.
    CGSize sizeMax() const;

    // Writes the current size entry, the format and the options into the template; from
    // source 0 also stores the recent sizes, the format type and the options as the global
    // choice of the media type. False when the view holds no size.
    bool _storeSettings();
    // presetView:didFinishWithCompletion: stores the settings and answers a copy of the
    // template whose options are settled by finishedOptions.
    VXTemplateRef presetViewDidFinish(const std::set<std::uint64_t>& assetsShapes);

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

  private:
    Source _source;
    std::uint64_t _mediaType;
    VXTemplateRef _template;
    VRPresetViewAbstract _presetView;
    VRFormat _format;
};
