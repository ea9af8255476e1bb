// AVAsset on libavformat: the file is opened once, on the first load, and everything the loads
// give is read then; the file is closed again.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include "platform/AVAsset.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/ProcessMemory.h"
#include "platform/linux/FFmpegSupport.h"

using platform::ErrorRef;
using platform::PlistDate;
using platform::PlistValue;

namespace {

struct TrackInfo {
    CMPersistentTrackID trackID = 0;
    std::string mediaType;
    CGSize naturalSize;
    CGAffineTransform transform;
    CMTimeRange timeRange;
    float nominalFrameRate = 0;
    CMTime minFrameDuration = kCMTimeInvalid;
    float estimatedDataRate = 0;
    CMTimeScale naturalTimeScale = 0;
    std::vector<CMFormatDescriptionRef> formats;
    std::vector<std::string> characteristics;
    std::vector<AVMetadataItem> metadata;
};

class FFmpegTrack final : public AVAssetTrack {
  public:
    explicit FFmpegTrack(TrackInfo info) : _info(std::move(info)) {}
    CMPersistentTrackID trackID() const override { return _info.trackID; }
    const std::string& mediaType() const override { return _info.mediaType; }
    AVLoadResult<CGSize> loadNaturalSize() const override { return _info.naturalSize; }
    AVLoadResult<CGAffineTransform> loadPreferredTransform() const override {
        return _info.transform;
    }
    AVLoadResult<CMTimeRange> loadTimeRange() const override { return _info.timeRange; }
    AVLoadResult<float> loadNominalFrameRate() const override { return _info.nominalFrameRate; }
    AVLoadResult<CMTime> loadMinFrameDuration() const override { return _info.minFrameDuration; }
    AVLoadResult<float> loadEstimatedDataRate() const override { return _info.estimatedDataRate; }
    AVLoadResult<CMTimeScale> loadNaturalTimeScale() const override {
        return _info.naturalTimeScale;
    }
    AVLoadResult<std::vector<CMFormatDescriptionRef>> loadFormatDescriptions() const override {
        return _info.formats;
    }
    AVLoadResult<std::vector<std::string>> loadMediaCharacteristics() const override {
        return _info.characteristics;
    }
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override {
        return _info.metadata;
    }

  private:
    TrackInfo _info;
};

// Where FFmpeg's flat metadata names came from, by container family.
enum class Family { quickTime, mpeg4, threeGP, id3, other };

struct KeyName {
    const char* ffmpeg;
    const char* key;
};

constexpr KeyName kUserDataKeys[] = {
    {"title", "@nam"},       {"artist", "@ART"},  {"album", "@alb"}, {"date", "@day"},
    {"encoder", "@swr"},     {"comment", "@des"}, {"genre", "@gen"}, {"copyright", "@cpy"},
    {"location", "@xyz"},    {"make", "@mak"},    {"model", "@mod"}, {"author", "@aut"},
    {"description", "@des"},
};
constexpr KeyName kThreeGPKeys[] = {
    {"title", "titl"},     {"artist", "perf"},  {"author", "auth"},
    {"genre", "gnre"},     {"comment", "dscp"}, {"album", "albm"},
    {"copyright", "cprt"}, {"date", "yrrc"},    {"location", "loci"},
};
constexpr KeyName kID3Keys[] = {
    {"title", "TIT2"},   {"artist", "TPE1"},  {"album", "TALB"}, {"date", "TDRC"},
    {"encoder", "TSSE"}, {"comment", "COMM"}, {"genre", "TCON"}, {"copyright", "TCOP"},
};
// Container bookkeeping that FFmpeg reports as metadata but that no key space holds.
constexpr const char* kSkipped[] = {"major_brand",  "minor_version", "compatible_brands",
                                    "handler_name", "vendor_id",     "language",
                                    "timecode",     "rotate",        "duration"};

template <std::size_t N>
const char* lookup(const KeyName (&table)[N], const std::string& name) {
    for (const KeyName& k : table) {
        if (name == k.ffmpeg) return k.key;
    }
    return nullptr;
}

Family familyOf(const AVFormatContext* context) {
    std::string name = context->iformat ? context->iformat->name : "";
    if (name == "mp3") return Family::id3;
    if (name.find("mov") == std::string::npos) return Family::other;
    const AVDictionaryEntry* brand = av_dict_get(context->metadata, "major_brand", nullptr, 0);
    std::string b = brand ? brand->value : "";
    if (b.rfind("3g", 0) == 0) return Family::threeGP;
    if (b.empty() || b.rfind("qt", 0) == 0) return Family::quickTime;
    return Family::mpeg4;
}

PlistValue valueFor(const std::string& key, const std::string& text) {
    bool isDate = key == AVMetadataCommonKeyCreationDate ||
                  key == AVMetadataQuickTimeMetadataKeyCreationDate ||
                  key == AVMetadataQuickTimeMetadataKeyLocationDate;
    if (isDate) {
        if (auto date = AVMetadataParseISO8601(text)) return *date;
    }
    return text;
}

std::vector<AVMetadataItem> itemsOf(const AVDictionary* dict, Family family, bool movieLevel) {
    std::vector<AVMetadataItem> items;
    const AVDictionaryEntry* e = nullptr;
    while ((e = av_dict_get(dict, "", e, AV_DICT_IGNORE_SUFFIX))) {
        std::string name = e->key, value = e->value;
        if (std::find_if(std::begin(kSkipped), std::end(kSkipped),
                         [&](const char* s) { return name == s; }) != std::end(kSkipped)) {
            continue;
        }
        if (name == "creation_time") {
            if (movieLevel) {
                items.emplace_back(AVMetadataKeySpaceCommon, AVMetadataCommonKeyCreationDate,
                                   valueFor(AVMetadataCommonKeyCreationDate, value));
            }
            continue;
        }
        if (name.rfind("com.apple.quicktime.", 0) == 0) {
            items.emplace_back(AVMetadataKeySpaceQuickTimeMetadata, name, valueFor(name, value));
            continue;
        }
        switch (family) {
            case Family::threeGP:
                if (const char* key = lookup(kThreeGPKeys, name)) {
                    items.emplace_back(AVMetadataKeySpaceISOUserData, key, value);
                } else {
                    items.emplace_back(AVMetadataKeySpaceISOUserData, name, value);
                }
                break;
            case Family::id3:
                items.emplace_back(AVMetadataKeySpaceID3,
                                   lookup(kID3Keys, name) ? lookup(kID3Keys, name) : name, value);
                break;
            case Family::quickTime:
            case Family::mpeg4:
            case Family::other: {
                const char* space = family == Family::mpeg4 ? AVMetadataKeySpaceiTunes
                                                            : AVMetadataKeySpaceQuickTimeUserData;
                const char* key = lookup(kUserDataKeys, name);
                items.emplace_back(space, key ? key : name, value);
                break;
            }
        }
    }
    return items;
}

CGAffineTransform transformOf(const AVStream* st) {
    size_t size = 0;
    const uint8_t* data = av_stream_get_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (!data || size < 9 * sizeof(int32_t)) return CGAffineTransformIdentity;
    int32_t m[9];
    std::memcpy(m, data, sizeof m);
    constexpr double kFixed = 65536.0;
    return CGAffineTransform{m[0] / kFixed, m[1] / kFixed, m[3] / kFixed,
                             m[4] / kFixed, m[6] / kFixed, m[7] / kFixed};
}

// The shortest distance between consecutive decode times of the index, which for frames
// without reordering is the shortest frame.
CMTime minFrameDurationOf(AVStream* st) {
    int count = avformat_index_get_entries_count(st);
    int64_t best = 0;
    for (int i = 1; i < count && i < 100000; ++i) {
        const AVIndexEntry* a = avformat_index_get_entry(st, i - 1);
        const AVIndexEntry* b = avformat_index_get_entry(st, i);
        int64_t d = b->timestamp - a->timestamp;
        if (d > 0 && (best == 0 || d < best)) best = d;
    }
    if (best > 0) {
        return ffmpeg_support::timeFromStream(best, st->time_base.num, st->time_base.den);
    }
    if (st->r_frame_rate.num > 0 && st->r_frame_rate.den > 0) {
        return CMTimeMake(st->r_frame_rate.den, st->r_frame_rate.num);
    }
    return kCMTimeInvalid;
}

float dataRateOf(AVStream* st, double seconds) {
    if (st->codecpar->bit_rate > 0) return static_cast<float>(st->codecpar->bit_rate);
    int count = avformat_index_get_entries_count(st);
    if (count <= 0 || !(seconds > 0)) return 0;
    double bytes = 0;
    for (int i = 0; i < count; ++i) bytes += avformat_index_get_entry(st, i)->size;
    return static_cast<float>(bytes * 8.0 / seconds);
}

TrackInfo trackInfoOf(AVFormatContext* context, AVStream* st, CMPersistentTrackID id,
                      Family family) {
    TrackInfo t;
    t.trackID = id;
    t.mediaType = ffmpeg_support::mediaTypeOf(context, st);
    const AVRational tb = st->time_base;
    t.naturalTimeScale = tb.num == 1 ? tb.den : 90000;
    int64_t start = st->start_time == AV_NOPTS_VALUE ? 0 : st->start_time;
    int64_t duration = st->duration;
    if (duration == AV_NOPTS_VALUE || duration < 0) {
        duration = context->duration == AV_NOPTS_VALUE
                       ? 0
                       : av_rescale_q(context->duration, AVRational{1, AV_TIME_BASE}, tb);
    }
    t.timeRange = CMTimeRangeMake(ffmpeg_support::timeFromStream(start, tb.num, tb.den),
                                  ffmpeg_support::timeFromStream(duration, tb.num, tb.den));
    CMFormatDescriptionRef format = ffmpeg_support::formatDescriptionOf(context, st);
    t.formats.push_back(format);
    double seconds = CMTimeGetSeconds(t.timeRange.duration);
    t.estimatedDataRate = dataRateOf(st, seconds);
    if (t.mediaType == AVMediaTypeVideo) {
        t.naturalSize = CGSize{static_cast<double>(st->codecpar->width),
                               static_cast<double>(st->codecpar->height)};
        t.transform = transformOf(st);
        AVRational rate = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
        if (rate.num > 0 && rate.den > 0) t.nominalFrameRate = static_cast<float>(av_q2d(rate));
        t.minFrameDuration = minFrameDurationOf(st);
        t.characteristics = {AVMediaCharacteristicVisual, AVMediaCharacteristicFrameBased};
        if (format->transferFunction == AVVideoTransferFunction_SMPTE_ST_2084_PQ ||
            format->transferFunction == AVVideoTransferFunction_ITU_R_2100_HLG) {
            t.characteristics.push_back(AVMediaCharacteristicContainsHDRVideo);
        }
        if (format->containsAlpha) {
            t.characteristics.push_back(AVMediaCharacteristicContainsAlphaChannel);
        }
    } else if (t.mediaType == AVMediaTypeAudio) {
        t.characteristics = {AVMediaCharacteristicAudible};
    } else if (t.mediaType == AVMediaTypeSubtitle || t.mediaType == AVMediaTypeText ||
               t.mediaType == AVMediaTypeClosedCaption) {
        t.characteristics = {AVMediaCharacteristicLegible};
    }
    t.metadata = itemsOf(st->metadata, family, false);
    return t;
}

class FFmpegAsset final : public AVAsset {
  public:
    explicit FFmpegAsset(std::string path) : _path(std::move(path)) {}

    const std::string& URL() const override { return _path; }

    AVLoadResult<std::vector<AVAssetTrackRef>> loadTracks() const override {
        load();
        if (_error) return _error;
        return _tracks;
    }
    AVLoadResult<CMTime> loadDuration() const override {
        load();
        if (_error) return _error;
        return _duration;
    }
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override {
        load();
        if (_error) return _error;
        return _metadata;
    }

  private:
    void load() const {
        std::call_once(_once, [this] {
            AVFormatContext* context = ffmpeg_support::openInput(_path, true, &_error);
            if (!context) return;
            Family family = familyOf(context);
            std::vector<std::int32_t> ids = ffmpeg_support::trackIDsOf(context);
            for (unsigned i = 0; i < context->nb_streams; ++i) {
                if (ids[i] == 0) continue;
                _tracks.push_back(std::make_shared<FFmpegTrack>(
                    trackInfoOf(context, context->streams[i], ids[i], family)));
            }
            _duration = context->duration == AV_NOPTS_VALUE
                            ? kCMTimeInvalid
                            : CMTimeMake(av_rescale(context->duration, 600, AV_TIME_BASE), 600);
            _metadata = itemsOf(context->metadata, family, true);
            ffmpeg_support::closeInput(&context);
        });
    }

    std::string _path;
    mutable std::once_flag _once;
    mutable ErrorRef _error;
    mutable std::vector<AVAssetTrackRef> _tracks;
    mutable CMTime _duration = kCMTimeInvalid;
    mutable std::vector<AVMetadataItem> _metadata;
};

}  // namespace

std::shared_ptr<AVAsset> AVAsset::assetWithURL(const std::string& path) {
    // Before the first frame is decoded: reading a movie's tracks already decodes some, and
    // the frames freed then would set the allocator's bound for the whole run.
    platform::returnLargeBlocksToSystem();
    return std::make_shared<FFmpegAsset>(path);
}
