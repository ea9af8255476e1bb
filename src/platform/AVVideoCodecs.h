// The movie codecs and containers this platform writes, as two tables: one row per codec (its
// type value in the settings dictionaries, bit depth, alpha, odd sides, bit rate) and one row
// per file type with the codecs it takes. The writer, the output settings and the presets read
// these rows; the FFmpeg writer keeps its own rows (encoder, pixel formats) keyed by the same
// enum. A new codec is a row here, a row in FFmpegWriterSettings.cpp and the file types that
// take it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class AVVideoCodec : std::uint8_t { h264, hevc, hevcWithAlpha, proRes4444, jpeg };

struct AVVideoCodecInfo {
    AVVideoCodec codec;
    // The AVVideoCodecType... value that stands for the codec in settings dictionaries.
    const char* type;
    const char* name;
    // The deepest samples the encoder here keeps; deeper input is rounded to this.
    int bitDepth;
    bool alpha;
    // Whether the encoder takes odd widths and heights.
    bool oddSides;
    // Whether an average bit rate governs it (ProRes and JPEG go by quality instead).
    bool takesBitRate;
    // Whether this platform has an encoder for it.
    bool writable;
};

enum class AVMovieContainer : std::uint8_t { quickTimeMovie, mpeg4, appleM4V, threeGPP, threeGPP2 };

struct AVMovieContainerInfo {
    AVMovieContainer container;
    // The AVFileType... value.
    const char* fileType;
    // The codecs a video track of the file may be written in, one bit per AVVideoCodec.
    std::uint32_t codecs;
    // Whether the file takes timecode tracks.
    bool timecodeTracks;
    // The file name extension, lower case, without the dot.
    const char* extension;
};

const std::vector<AVVideoCodecInfo>& videoCodecs();
const AVVideoCodecInfo& videoCodecInfo(AVVideoCodec codec);
// Null for a type that names no codec of the table.
const AVVideoCodecInfo* videoCodecWithType(const std::string& type);

const std::vector<AVMovieContainerInfo>& movieContainers();
const AVMovieContainerInfo& movieContainerInfo(AVMovieContainer container);
// Null for a file type this platform does not write.
const AVMovieContainerInfo* movieContainerWithFileType(const std::string& fileType);
// The container of a file name extension ("m4v", "3GP"; any case, no dot); null for one that
// names no container of the table. The photo library takes these files as movies.
const AVMovieContainerInfo* movieContainerWithExtension(const std::string& extension);
// Whether a file of the container may hold video of the codec; never for a codec without an
// encoder here.
bool movieContainerAccepts(const AVMovieContainerInfo& container, AVVideoCodec codec);
