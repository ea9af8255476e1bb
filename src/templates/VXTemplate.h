// The processing recipe: per media type a size entry, a format and size options. Built-in,
// user and working templates are all this one class; the store and the pipelines hold them by
// std::shared_ptr and hand out copies.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/VRFormat.h"
#include "model/VRFormatMediaType.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"

class VXTemplate;
using VXTemplateRef = std::shared_ptr<VXTemplate>;

class VXTemplate {
  public:
    // Keyed by the media type code (VRFormatMediaType).
    using SizeEntryDictionary = std::map<std::uint64_t, VRSizeEntry>;
    using FormatDictionary = std::map<std::uint64_t, VRFormat>;
    using OptionsDictionary = std::map<std::uint64_t, VRSizeOptions>;

    // Not locked, not stored, no identifier and the three dictionaries empty.
    VXTemplate() = default;
    static VXTemplateRef create() { return std::make_shared<VXTemplate>(); }

    // Only the photo entry: 800 x 480 pixels, Auto photo format, Stretch with Normal size.
    static VXTemplateRef tutorialTemplate();

    // copyWithZone: every field, with new dictionaries of copied values.
    VXTemplateRef copy() const { return std::make_shared<VXTemplate>(*this); }
    // A copy without identifier; a locked template stays locked.
    VXTemplateRef newTemplate() const;
    // A copy whose video entry is derived from the photo entry: the same size entry and
    // options, and an Auto video format. Absent photo values leave the video key absent.
    VXTemplateRef pairedTemplate() const;

    bool stored() const { return _stored; }
    void setStored(bool stored) { _stored = stored; }
    bool locked() const { return _locked; }
    void setLocked(bool locked) { _locked = locked; }
    const std::optional<std::string>& identifier() const { return _identifier; }
    void setIdentifier(std::optional<std::string> identifier) {
        _identifier = std::move(identifier);
    }
    const std::optional<std::string>& templateDescription() const { return _templateDescription; }
    void setTemplateDescription(std::optional<std::string> text) {
        _templateDescription = std::move(text);
    }
    const std::optional<std::string>& name() const { return _name; }
    void setName(std::optional<std::string> name) { _name = std::move(name); }
    const std::optional<std::string>& bundleImageName() const { return _bundleImageName; }
    void setBundleImageName(std::optional<std::string> name) { _bundleImageName = std::move(name); }

    const SizeEntryDictionary& sizeEntryDictionary() const { return _sizeEntryDictionary; }
    const FormatDictionary& formatDictionary() const { return _formatDictionary; }
    const OptionsDictionary& optionsDictionary() const { return _optionsDictionary; }
    // Replacing a whole dictionary is what the archive reader does.
    void setSizeEntryDictionary(SizeEntryDictionary d) { _sizeEntryDictionary = std::move(d); }
    void setFormatDictionary(FormatDictionary d) { _formatDictionary = std::move(d); }
    void setOptionsDictionary(OptionsDictionary d) { _optionsDictionary = std::move(d); }

    // A media type is present exactly when it has a size entry. Ascending order here, though
    // callers must not rely on any order.
    std::vector<std::uint64_t> mediaTypes() const;
    std::vector<VRFormat> formats() const;

    // Each setter stores a copy; an absent value removes the key.
    void setSizeEntry(const std::optional<VRSizeEntry>& entry,
                      const std::optional<VRFormat>& format,
                      const std::optional<VRSizeOptions>& options, std::uint64_t mediaType);
    void setSizeEntry(const std::optional<VRSizeEntry>& entry, std::uint64_t mediaType);
    void setFormat(const std::optional<VRFormat>& format, std::uint64_t mediaType);
    void setOptions(const std::optional<VRSizeOptions>& options, std::uint64_t mediaType);

    std::optional<VRSizeEntry> sizeEntryForMediaType(std::uint64_t mediaType) const;
    std::optional<VRSizeOptions> optionsForMediaType(std::uint64_t mediaType) const;
    // The stored format when its media type is the one asked for; otherwise, also when none is
    // stored, a new Auto format of that media type.
    VRFormat formatForMediaType(std::uint64_t mediaType) const;

    void resetDataForMediaType(std::uint64_t mediaType);
    // Copies the other template's three values for the media type (absent ones remove keys).
    void updateFromTemplate(const VXTemplate& other, std::uint64_t mediaType);

    // Fills in the missing media type of a one-type template; see _completeTemplate.
    bool complete() { return _completeTemplate(*this); }
    // Unless exactly one size entry is held, false and nothing done. A photo entry gains a
    // video entry, a video entry a photo entry: the same size entry, formatWithType(0) and the
    // existing options or an empty array; true. An entry under another key: false.
    static bool _completeTemplate(VXTemplate& tpl);

  private:
    bool _stored = false;
    bool _locked = false;
    std::optional<std::string> _identifier;
    std::optional<std::string> _templateDescription;
    SizeEntryDictionary _sizeEntryDictionary;
    FormatDictionary _formatDictionary;
    OptionsDictionary _optionsDictionary;
    std::optional<std::string> _name;
    std::optional<std::string> _bundleImageName;
};
