// The share sheet's action that saves the shared files into the program's albums, one album
// per media type. The saving itself is handed in by the front end, so that this layer needs no
// library writes of its own.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>

#include "results/VRShareActivity.h"

class VRImageSaveActivity : public VRShareActivity {
  public:
    enum class MediaType { photo, video };
    struct SaveError {
        enum class Kind { photosError, noAccess };
        Kind kind = Kind::photosError;
        platform::ErrorRef error;  // photosError: what the library said
    };
    struct Item {
        std::string url;
        MediaType mediaType = MediaType::photo;
    };
    // Asks for library access, then saves every item into the album of its media type (made
    // when missing). Nothing on success. Runs on a background queue.
    using Saver = std::function<std::optional<SaveError>(
        const std::vector<Item>& items, const std::map<MediaType, std::string>& albumNames)>;

    static constexpr const char* kActivityType = "com.vorela.unwarp.save-to-albums";

    VRImageSaveActivity(std::map<MediaType, std::string> albumNames, Saver saver);

    std::string activityType() const override { return kActivityType; }
    // Records the count and the media types of the items (a movie by its extension).
    void prepareWithActivityItems(std::vector<std::string> items) override;
    // "Save image", "Save video", "Save item" for mixed media; with more than one item
    // "Save 3 images" and so on.
    std::string activityTitle() const override;
    // Without a saver the activity fails as if the library had refused.
    void perform(Completion completionOnMainThread) override;

    // Decides the share's status once performed: absent when the save worked.
    const std::optional<SaveError>& saveError() const { return _saveError; }

  private:
    std::map<MediaType, std::string> _albumNames;
    Saver _saver;
    std::size_t _count = 0;
    std::set<MediaType> _mediaTypes;
    std::vector<Item> _typedItems;
    std::optional<SaveError> _saveError;
};
