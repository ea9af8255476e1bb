// The movie's and the tracks' metadata items as FFmpeg's metadata names, for the movie writer.
#pragma once

#include <vector>

extern "C" {
#include <libavutil/dict.h>
}

#include "platform/AVMetadataItem.h"

namespace ffmpeg_writer {

// Movie-level and track-level items as FFmpeg's metadata names. ID3 has no place here.
struct MappedMetadata {
    AVDictionary* dict = nullptr;
    bool quickTimeKeys = false;
};

MappedMetadata mapMetadata(const std::vector<AVMetadataItem>& items);

}  // namespace ffmpeg_writer
