// The camera's device opened for reading, shared by the still and the movie of the camera:
// the input, the decoder of its video stream, and the errors that name the device.
#pragma once

#include <memory>
#include <string>

#include "platform/Error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace platform::camera_input {

struct Input {
    AVFormatContext* format = nullptr;
    AVCodecContext* decoder = nullptr;
    AVPacket* packet = av_packet_alloc();
    int stream = -1;
    bool draining = false;
    ~Input();
    const AVStream* videoStream() const { return format->streams[stream]; }
};

// The device as the user named it, the default device for an empty name.
std::string shownDevice(const std::string& device);
// Opens the device (a path, or FFmpeg's FORMAT:INPUT) and the decoder of its pictures. Null
// with "No camera at <device>" when it doesn't exist, else with FFmpeg's words.
std::unique_ptr<Input> openDevice(const std::string& device, ErrorRef* error);
// The next picture into `frame`: 0, or an AVERROR code (AVERROR_EOF at the end). Pictures
// larger than 16384 on a side are refused as invalid data.
int nextFrame(Input& input, AVFrame* frame);
// An error of the device for an AVERROR code: "No camera at" for a device that is gone.
ErrorRef cameraFailure(const std::string& device, const std::string& what, int averror);

struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

}  // namespace platform::camera_input
