// The camera through FFmpeg's device input: a Video4Linux device by path, or any input FFmpeg
// names as FORMAT:INPUT (lavfi's test sources stand in for a camera in the tests).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <mutex>
#include <random>

#include "platform/AVError.h"
#include "platform/Camera.h"
#include "platform/FileManager.h"
#include "platform/linux/CameraInput.h"
#include "platform/linux/FFmpegSupport.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libswscale/swscale.h>
}

namespace platform {
namespace {

// A picture larger than this on either side is refused: no camera delivers one, and a test
// source asked for one would only exhaust memory.
constexpr int kMaxSide = 16384;
// Packets read without a picture coming out before the device counts as silent.
constexpr int kMaxPacketsWithoutFrame = 500;

struct DeviceName {
    std::string format;  // FFmpeg's input format
    std::string input;   // what that format opens
};

// A path (or an empty name) is a Video4Linux device; "FORMAT:INPUT" names FFmpeg's input.
DeviceName parseDevice(const std::string& device) {
    if (device.empty()) return {"v4l2", Camera::kDefaultDevice};
    const auto colon = device.find(':');
    if (device[0] == '/' || device[0] == '.' || colon == std::string::npos || colon == 0)
        return {"v4l2", device};
    return {device.substr(0, colon), device.substr(colon + 1)};
}

ErrorRef noCamera(const std::string& device) {
    return avError(AVErrorDeviceNotConnected, "No camera at " + device);
}

}  // namespace

namespace camera_input {

Input::~Input() {
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&format);
}

std::string shownDevice(const std::string& device) {
    return device.empty() ? Camera::kDefaultDevice : device;
}

ErrorRef cameraFailure(const std::string& device, const std::string& what, int averror) {
    if (averror == AVERROR(ENOENT) || averror == AVERROR(ENODEV) || averror == AVERROR(ENXIO))
        return noCamera(device);
    return avError(AVErrorUnknown,
                   "The camera " + device + " " + what + ": " + ffmpeg_support::errorText(averror));
}

std::unique_ptr<Input> openDevice(const std::string& device, ErrorRef* error) {
    static std::once_flag once;
    std::call_once(once, [] { avdevice_register_all(); });
    ffmpeg_support::installLogging();
    const std::string shown = shownDevice(device);
    const DeviceName name = parseDevice(device);
    const AVInputFormat* format = av_find_input_format(name.format.c_str());
    if (!format) {
        if (error)
            *error = avError(AVErrorFileFormatNotRecognized,
                             "No camera input \"" + name.format + "\" in this FFmpeg: " + shown);
        return nullptr;
    }
    struct stat st {};
    if (name.format == "v4l2" && stat(name.input.c_str(), &st) != 0) {
        if (error) *error = noCamera(shown);
        return nullptr;
    }
    auto input = std::make_unique<Input>();
    int ret = avformat_open_input(&input->format, name.input.c_str(), format, nullptr);
    if (ret >= 0) ret = avformat_find_stream_info(input->format, nullptr);
    if (ret < 0) {
        if (error) *error = cameraFailure(shown, "can't be opened", ret);
        return nullptr;
    }
    const AVCodec* codec = nullptr;
    input->stream = av_find_best_stream(input->format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (input->stream < 0 || !codec) {
        if (error)
            *error = avError(AVErrorNoSourceTrack, "The camera " + shown + " gives no pictures");
        return nullptr;
    }
    input->decoder = avcodec_alloc_context3(codec);
    ret = input->decoder
              ? avcodec_parameters_to_context(input->decoder, input->videoStream()->codecpar)
              : AVERROR(ENOMEM);
    if (ret >= 0) ret = avcodec_open2(input->decoder, codec, nullptr);
    if (ret < 0) {
        if (error) *error = cameraFailure(shown, "can't be decoded", ret);
        return nullptr;
    }
    return input;
}

// The next picture of the device into `frame`: 0, or an AVERROR code (AVERROR_EOF at the end).
int nextFrame(Input& input, AVFrame* frame) {
    for (int packets = 0; packets < kMaxPacketsWithoutFrame;) {
        int ret = avcodec_receive_frame(input.decoder, frame);
        if (ret != AVERROR(EAGAIN)) {
            if (ret < 0) return ret;
            if (frame->width <= 0 || frame->height <= 0 || frame->width > kMaxSide ||
                frame->height > kMaxSide)
                return AVERROR_INVALIDDATA;
            return 0;
        }
        if (input.draining) return AVERROR_EOF;
        ret = av_read_frame(input.format, input.packet);
        if (ret == AVERROR_EOF) {
            input.draining = true;
            avcodec_send_packet(input.decoder, nullptr);
            continue;
        }
        if (ret < 0) return ret;
        if (input.packet->stream_index == input.stream) {
            ++packets;
            ret = avcodec_send_packet(input.decoder, input.packet);
        }
        av_packet_unref(input.packet);
        if (ret < 0 && ret != AVERROR(EAGAIN)) return ret;
    }
    return AVERROR(EAGAIN);
}

}  // namespace camera_input

using namespace camera_input;

namespace {

struct ScalerDeleter {
    void operator()(SwsContext* sws) const { sws_freeContext(sws); }
};
using ScalerPtr = std::unique_ptr<SwsContext, ScalerDeleter>;

std::optional<Bitmap> bitmapOfFrame(const AVFrame* frame, ErrorRef* error) {
    const auto source = static_cast<AVPixelFormat>(frame->format);
    ScalerPtr sws(sws_getContext(frame->width, frame->height, source, frame->width, frame->height,
                                 AV_PIX_FMT_RGB0, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!sws) {
        if (error)
            *error = avError(AVErrorDecodeFailed, "The camera's pictures can't be converted");
        return std::nullopt;
    }
    const auto width = static_cast<std::size_t>(frame->width);
    const auto height = static_cast<std::size_t>(frame->height);
    std::vector<std::uint8_t> pixels(width * height * 4);
    std::uint8_t* planes[4] = {pixels.data(), nullptr, nullptr, nullptr};
    int strides[4] = {frame->width * 4, 0, 0, 0};
    sws_scale(sws.get(), frame->data, frame->linesize, 0, frame->height, planes, strides);
    return Bitmap(width, height, PixelLayout{8, 3, kCGImageAlphaNoneSkipLast},
                  ColorSpace::deviceRGB(), std::move(pixels), width * 4);
}

}  // namespace

std::optional<CameraStill> Camera::captureStill(ErrorRef* error) const {
    auto input = openDevice(_device, error);
    if (!input) return std::nullopt;
    FramePtr frame(av_frame_alloc());
    const int ret = frame ? nextFrame(*input, frame.get()) : AVERROR(ENOMEM);
    if (ret < 0) {
        if (error) *error = cameraFailure(shownDevice(_device), "gave no picture", ret);
        return std::nullopt;
    }
    auto image = bitmapOfFrame(frame.get(), error);
    if (!image) return std::nullopt;
    return CameraStill{std::move(*image), 0, std::nullopt};
}

}  // namespace platform
