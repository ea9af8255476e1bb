#include <algorithm>
#include <cmath>

extern "C" {
#include <libavformat/avformat.h>
}

#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/SyncFrames.h"

namespace platform::media {

namespace {

// The presentation time of a packet of stream `index` at the index position `timestamp`.
std::optional<std::int64_t> shownAt(AVFormatContext* input, int index, std::int64_t timestamp,
                                    AVPacket* packet) {
    if (av_seek_frame(input, index, timestamp, AVSEEK_FLAG_BACKWARD) < 0) return std::nullopt;
    while (av_read_frame(input, packet) >= 0) {
        const bool ours = packet->stream_index == index;
        const std::int64_t pts = packet->pts;
        av_packet_unref(packet);
        if (!ours) continue;
        if (pts == AV_NOPTS_VALUE) return std::nullopt;
        return pts;
    }
    return std::nullopt;
}

// Index entries are placed by decode time, which runs ahead of the presentation time where
// frames are reordered, so the search starts at the sync frame before `from` and looks at a
// few after it.
}  // namespace

std::optional<CMTime> firstSyncFrameBetween(const std::string& path, std::int32_t trackID,
                                            double from, double to) {
    constexpr int kCandidates = 8;
    AVFormatContext* input = ffmpeg_support::openInput(path, false, nullptr);
    if (!input) return std::nullopt;
    const std::vector<std::int32_t> ids = ffmpeg_support::trackIDsOf(input);
    const auto at = std::find(ids.begin(), ids.end(), trackID);
    std::optional<CMTime> found;
    AVPacket* packet = av_packet_alloc();
    if (at != ids.end() && packet) {
        const int index = static_cast<int>(at - ids.begin());
        AVStream* stream = input->streams[index];
        const double unit = av_q2d(stream->time_base);
        const auto first = static_cast<std::int64_t>(std::floor(std::max(0.0, from) / unit));
        int entry = av_index_search_timestamp(stream, first, AVSEEK_FLAG_BACKWARD);
        if (entry < 0) entry = av_index_search_timestamp(stream, first, 0);
        for (int tries = 0; entry >= 0 && tries < kCandidates && !found; ++tries) {
            const AVIndexEntry* sync = avformat_index_get_entry(stream, entry);
            if (!sync || static_cast<double>(sync->timestamp) * unit > to) break;
            const std::optional<std::int64_t> pts = shownAt(input, index, sync->timestamp, packet);
            if (!pts) break;
            const double shown = static_cast<double>(*pts) * unit;
            if (shown >= from && shown <= to) {
                found = ffmpeg_support::timeFromStream(*pts, stream->time_base.num,
                                                       stream->time_base.den);
            }
            entry = av_index_search_timestamp(stream, sync->timestamp + 1, 0);
        }
    }
    av_packet_free(&packet);
    ffmpeg_support::closeInput(&input);
    return found;
}

}  // namespace platform::media
