#include "results/VRImageSaveActivity.h"

#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"

VRImageSaveActivity::VRImageSaveActivity(std::map<MediaType, std::string> albumNames, Saver saver)
    : _albumNames(std::move(albumNames)), _saver(std::move(saver)) {}

void VRImageSaveActivity::prepareWithActivityItems(std::vector<std::string> items) {
    _typedItems.clear();
    _mediaTypes.clear();
    for (const auto& url : items) {
        const MediaType type = VRURLAsset::mediaTypeForPath(url) == VRFormatMediaTypeVideo
                                   ? MediaType::video
                                   : MediaType::photo;
        _typedItems.push_back({url, type});
        _mediaTypes.insert(type);
    }
    _count = items.size();
    VRShareActivity::prepareWithActivityItems(std::move(items));
}

std::string VRImageSaveActivity::activityTitle() const {
    std::string word = "item";
    if (_mediaTypes.size() == 1)
        word = *_mediaTypes.begin() == MediaType::video ? "video" : "image";
    if (_count > 1) return "Save " + std::to_string(_count) + " " + word + "s";
    return "Save " + word;
}

void VRImageSaveActivity::perform(Completion completionOnMainThread) {
    platform::DispatchQueue::global(platform::DispatchQoS::userInitiated)
        .async([this, completion = std::move(completionOnMainThread)] {
            std::optional<SaveError> error;
            if (_saver)
                error = _saver(_typedItems, _albumNames);
            else
                error = SaveError{SaveError::Kind::photosError, nullptr};
            platform::DispatchQueue::main().async([this, error, completion] {
                _saveError = error;
                if (completion) completion(!error, nullptr);
            });
        });
}
