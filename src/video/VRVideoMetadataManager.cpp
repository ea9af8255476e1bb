#include "video/VRVideoMetadataManager.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "model/VXHelperDevice.h"

using platform::PlistDate;

namespace {

// The QuickTime user-data date atom "\xA9day" as a number key.
constexpr std::int64_t kUserDataDateAtom = 0xA9646179;

bool isLocationKey(const std::string& key) {
    static const std::array<const char*, 9> keys = {
        AVMetadataCommonKeyLocation,
        AVMetadata3GPUserDataKeyLocation,
        AVMetadataQuickTimeMetadataKeyLocationBody,
        AVMetadataQuickTimeMetadataKeyLocationDate,
        AVMetadataQuickTimeMetadataKeyLocationName,
        AVMetadataQuickTimeMetadataKeyLocationNote,
        AVMetadataQuickTimeMetadataKeyLocationRole,
        AVMetadataQuickTimeMetadataKeyLocationISO6709,
        AVMetadataQuickTimeUserDataKeyLocationISO6709,
    };
    return std::any_of(keys.begin(), keys.end(), [&](const char* k) { return key == k; });
}

struct Run {
    std::string software;
    PlistDate now;
    std::optional<PlistDate> date;
    bool hasCommonCreationDate = false;
    bool hasSoftware = false;
    bool hasRecordingTime = false;

    void takeDate(const AVMetadataItem& item) {
        if (!date) date = item.dateValue();
    }

    void rewrite(AVMetadataItem& item, const std::string& space, const std::string& key) {
        if (space == AVMetadataKeySpaceCommon) {
            if (key == AVMetadataCommonKeyCreationDate) {
                takeDate(item);
                hasCommonCreationDate = true;
            } else if (key == AVMetadataCommonKeyLastModifiedDate) {
                item.setValue(now);
            } else if (key == AVMetadataCommonKeySoftware) {
                item.setValue(software);
                hasSoftware = true;
            }
        } else if (space == AVMetadataKeySpaceQuickTimeMetadata) {
            if (key == AVMetadataQuickTimeMetadataKeyCreationDate) takeDate(item);
            if (key == AVMetadataQuickTimeMetadataKeySoftware) item.setValue(software);
        } else if (space == AVMetadataKeySpaceQuickTimeUserData) {
            if (key == AVMetadataQuickTimeUserDataKeyCreationDate) takeDate(item);
            if (key == AVMetadataQuickTimeUserDataKeySoftware) item.setValue(software);
        } else if (space == AVMetadataKeySpaceID3) {
            // The ID3 date, time, recording dates and year items stay as they are.
            if (key == AVMetadataID3MetadataKeyRecordingTime) hasRecordingTime = true;
            if (key == AVMetadataID3MetadataKeyEncodedWith) item.setValue(software);
        }
    }
};

AVMetadataItem newItem(const char* keySpace, const char* key, platform::PlistValue value) {
    AVMutableMetadataItem item;
    item.setKeySpace(keySpace);
    item.setKey(key);
    item.setValue(std::move(value));
    return item;
}

}  // namespace

std::vector<AVMetadataItem> VRVideoMetadataManager::metadata() const {
    std::vector<AVMetadataItem> source;
    if (_asset) source = _asset->loadMetadata().valueOr({});
    return metadataWithItems(source, VXHelper::appFullName(), PlistDate::now());
}

std::vector<AVMetadataItem> VRVideoMetadataManager::metadataWithItems(
    const std::vector<AVMetadataItem>& items, const std::string& software, PlistDate now) const {
    Run run;
    run.software = software;
    run.now = now;
    std::vector<AVMetadataItem> result;
    for (const AVMetadataItem& original : items) {
        AVMetadataItem item = original.mutableCopy();
        const std::optional<std::string> key = item.stringKey();
        if (!item.keySpace().empty()) {
            if (key) run.rewrite(item, item.keySpace(), *key);
            if (!_config.copyGPSMetadata && key && isLocationKey(*key)) continue;
        }
        if (item.numberKey() == kUserDataDateAtom) run.takeDate(item);
        result.push_back(std::move(item));
    }
    const PlistDate finalDate = run.date.value_or(now);
    if (!run.hasCommonCreationDate) {
        result.push_back(
            newItem(AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate, finalDate));
    }
    if (!run.hasSoftware) {
        result.push_back(newItem(AVMetadataKeySpaceCommon, AVMetadataCommonKeySoftware, software));
    }
    if (!run.hasRecordingTime) {
        result.push_back(
            newItem(AVMetadataKeySpaceID3, AVMetadataID3MetadataKeyRecordingTime, finalDate));
    }
    return result;
}
