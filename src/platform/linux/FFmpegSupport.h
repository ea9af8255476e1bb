// What the asset, reader and writer implementations share about FFmpeg: the backings of
// format descriptions and samples, the naming of tracks and colours, error conversion. Only
// the FFmpeg implementation files include this; FFmpeg's own headers stay in the .cpp files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/CMFormatDescription.h"
#include "platform/CMSampleBuffer.h"
#include "platform/CMTime.h"
#include "platform/Error.h"

struct AVCodecParameters;
struct AVFormatContext;
struct AVPacket;
struct AVStream;

struct CMFormatDescription::Backing {
    AVCodecParameters* parameters = nullptr;  // owned copy
    int timeBaseNum = 1;
    int timeBaseDen = 1;
    // The stream's average frame rate; timecode tracks are written against it.
    int frameRateNum = 0;
    int frameRateDen = 0;
    ~Backing();
};

struct CMSampleBuffer::Backing {
    AVPacket* packet = nullptr;  // owned reference
    ~Backing();
};

namespace ffmpeg_support {

// Routes FFmpeg's own messages (errors only) to the platform log, once per process.
void installLogging();

// "error text (code)" for a libav error number.
std::string errorText(int averror);
// An error for a failed open or read: POSIX errors as such, unrecognised data as
// AVErrorFileFormatNotRecognized, anything else as AVErrorFileFailedToParse.
platform::ErrorRef openError(int averror, const std::string& path);
// True for the errors that mean the disk or the file size limit is full.
bool isDiskFull(int averror);

// Opens a movie for reading with the limits every open applies: local files only, a
// whitelist of movie demuxers, a bounded number of streams. Null with the error on failure.
AVFormatContext* openInput(const std::string& path, bool findStreamInfo, platform::ErrorRef* error);
void closeInput(AVFormatContext** context);

// Track identities of the streams as the asset reports them (0 for a stream that is no
// track, such as a cover picture), in stream order.
std::vector<std::int32_t> trackIDsOf(const AVFormatContext* context);
// AVMediaType... of a stream; empty for a stream that is no track.
std::string mediaTypeOf(const AVFormatContext* context, const AVStream* stream);
// The description of a stream's samples, with its backing for stream copy.
CMFormatDescriptionRef formatDescriptionOf(const AVFormatContext* context, const AVStream* stream);

// Pixel formats: the code of the six that an FFmpeg pixel format is delivered in without
// conversion (0 if none), given its range.
OSType nativeCodeOf(int avPixelFormat, bool fullRange);

// Colour names (AVVideoSettings.h values) from FFmpeg's enumerations and back; -1 when unknown.
std::optional<std::string> primariesName(int value);
std::optional<std::string> transferName(int value);
std::optional<std::string> matrixName(int value);
int primariesValue(const std::string& name);
int transferValue(const std::string& name);
int matrixValue(const std::string& name);

// A stream time stamp as a media time: in the stream's own time scale when it is 1/n.
CMTime timeFromStream(std::int64_t timestamp, int timeBaseNum, int timeBaseDen);

}  // namespace ffmpeg_support
