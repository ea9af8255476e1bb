#include "platform/AVVideoCodecs.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <string_view>

#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"

namespace {

constexpr std::uint32_t bit(AVVideoCodec codec) {
    return 1u << static_cast<unsigned>(codec);
}

constexpr std::uint32_t set(std::initializer_list<AVVideoCodec> codecs) {
    std::uint32_t bits = 0;
    for (AVVideoCodec codec : codecs) bits |= bit(codec);
    return bits;
}

using C = AVVideoCodec;

}  // namespace

// H.264 stays 8-bit, since most players cannot decode High 10. HEVC with alpha has no encoder
// here: the alpha presets write ProRes 4444 instead.
const std::vector<AVVideoCodecInfo>& videoCodecs() {
    static const std::vector<AVVideoCodecInfo> codecs = {
        {C::h264, AVVideoCodecTypeH264, "H.264", 8, false, true, true, true},
        {C::hevc, AVVideoCodecTypeHEVC, "HEVC", 10, false, true, true, true},
        {C::hevcWithAlpha, AVVideoCodecTypeHEVCWithAlpha, "HEVC with alpha", 10, true, true, true,
         false},
        {C::proRes4444, AVVideoCodecTypeAppleProRes4444, "Apple ProRes 4444", 10, true, true, false,
         true},
        {C::jpeg, AVVideoCodecTypeJPEG, "Photo JPEG", 8, false, false, false, true},
    };
    return codecs;
}

// ProRes only in QuickTime movies; HEVC and JPEG not in M4V, 3GP and 3GPP2.
const std::vector<AVMovieContainerInfo>& movieContainers() {
    static const std::vector<AVMovieContainerInfo> containers = {
        {AVMovieContainer::quickTimeMovie, AVFileTypeQuickTimeMovie,
         set({C::h264, C::hevc, C::proRes4444, C::jpeg}), true, "mov"},
        {AVMovieContainer::mpeg4, AVFileTypeMPEG4, set({C::h264, C::hevc, C::jpeg}), false, "mp4"},
        {AVMovieContainer::appleM4V, AVFileTypeAppleM4V, set({C::h264}), false, "m4v"},
        {AVMovieContainer::threeGPP, AVFileType3GPP, set({C::h264}), false, "3gp"},
        {AVMovieContainer::threeGPP2, AVFileType3GPP2, set({C::h264}), false, "3g2"},
    };
    return containers;
}

const AVVideoCodecInfo& videoCodecInfo(AVVideoCodec codec) {
    return videoCodecs()[static_cast<std::size_t>(codec)];
}

const AVVideoCodecInfo* videoCodecWithType(const std::string& type) {
    for (const AVVideoCodecInfo& info : videoCodecs()) {
        if (type == info.type) return &info;
    }
    return nullptr;
}

const AVMovieContainerInfo& movieContainerInfo(AVMovieContainer container) {
    return movieContainers()[static_cast<std::size_t>(container)];
}

const AVMovieContainerInfo* movieContainerWithFileType(const std::string& fileType) {
    for (const AVMovieContainerInfo& info : movieContainers()) {
        if (fileType == info.fileType) return &info;
    }
    return nullptr;
}

const AVMovieContainerInfo* movieContainerWithExtension(const std::string& extension) {
    for (const AVMovieContainerInfo& info : movieContainers()) {
        const std::string_view known = info.extension;
        if (known.size() == extension.size() &&
            std::equal(known.begin(), known.end(), extension.begin(), [](char a, char b) {
                return a == std::tolower(static_cast<unsigned char>(b));
            }))
            return &info;
    }
    return nullptr;
}

bool movieContainerAccepts(const AVMovieContainerInfo& container, AVVideoCodec codec) {
    return videoCodecInfo(codec).writable && (container.codecs & bit(codec)) != 0;
}
