#include "platform/linux/FFmpegMetadataMapping.h"

namespace ffmpeg_writer {

namespace {

const char* commonName(const std::string& key) {
    if (key == AVMetadataCommonKeyCreationDate) return "creation_time";
    if (key == AVMetadataCommonKeySoftware) return "encoder";
    if (key == AVMetadataCommonKeyTitle) return "title";
    if (key == AVMetadataCommonKeyDescription) return "comment";
    if (key == AVMetadataCommonKeyCopyrights) return "copyright";
    if (key == AVMetadataCommonKeyLocation) return "location";
    if (key == AVMetadataCommonKeyCreator) return "artist";
    return nullptr;
}

const char* userDataName(const std::string& key) {
    static const std::pair<const char*, const char*> table[] = {
        {"@day", "date"},   {"@swr", "encoder"}, {"@xyz", "location"},  {"@nam", "title"},
        {"@ART", "artist"}, {"@des", "comment"}, {"@cpy", "copyright"}, {"@alb", "album"},
        {"@gen", "genre"},  {"titl", "title"},   {"yrrc", "date"},      {"loci", "location"},
        {"perf", "artist"}, {"dscp", "comment"}, {"cprt", "copyright"}, {"@too", "encoder"},
    };
    for (const auto& [k, name] : table) {
        if (key == k) return name;
    }
    return nullptr;
}

}  // namespace

MappedMetadata mapMetadata(const std::vector<AVMetadataItem>& items) {
    MappedMetadata m;
    for (const AVMetadataItem& item : items) {
        auto key = item.stringKey();
        if (!key) continue;
        std::optional<std::string> value;
        if (auto d = item.value().date()) {
            value = AVMetadataISO8601String(*d);
        } else {
            value = item.stringValue();
        }
        if (!value) continue;
        const std::string& space = item.keySpace();
        const char* name = nullptr;
        std::string mdtaName;
        if (space == AVMetadataKeySpaceCommon) {
            name = commonName(*key);
        } else if (space == AVMetadataKeySpaceQuickTimeMetadata) {
            mdtaName = *key;
            name = mdtaName.c_str();
            m.quickTimeKeys = true;
        } else if (space == AVMetadataKeySpaceQuickTimeUserData ||
                   space == AVMetadataKeySpaceISOUserData || space == AVMetadataKeySpaceiTunes) {
            name = userDataName(*key);
        }
        if (name) av_dict_set(&m.dict, name, value->c_str(), 0);
    }
    return m;
}

}  // namespace ffmpeg_writer
