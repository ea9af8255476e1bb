// Names of media types, file types and media characteristics as the media framework spells
// them. The asset, reader and writer report and accept these; the video logic compares them.
#pragma once

#include <cstdint>

// Media types of tracks and format descriptions.
inline constexpr const char* AVMediaTypeVideo = "vide";
inline constexpr const char* AVMediaTypeAudio = "soun";
inline constexpr const char* AVMediaTypeText = "text";
inline constexpr const char* AVMediaTypeClosedCaption = "clcp";
inline constexpr const char* AVMediaTypeSubtitle = "sbtl";
inline constexpr const char* AVMediaTypeTimecode = "tmcd";
inline constexpr const char* AVMediaTypeMetadata = "meta";
inline constexpr const char* AVMediaTypeMuxed = "muxx";

// File types (uniform type identifiers) the writer makes.
inline constexpr const char* AVFileTypeQuickTimeMovie = "com.apple.quicktime-movie";
inline constexpr const char* AVFileTypeMPEG4 = "public.mpeg-4";
inline constexpr const char* AVFileTypeAppleM4V = "com.apple.m4v-video";
inline constexpr const char* AVFileType3GPP = "public.3gpp";
inline constexpr const char* AVFileType3GPP2 = "public.3gpp2";

// Media characteristics of tracks.
inline constexpr const char* AVMediaCharacteristicVisual = "public.visual";
inline constexpr const char* AVMediaCharacteristicAudible = "public.audible";
inline constexpr const char* AVMediaCharacteristicLegible = "public.legible";
inline constexpr const char* AVMediaCharacteristicFrameBased = "public.frame-based";
inline constexpr const char* AVMediaCharacteristicContainsHDRVideo = "public.contains-hdr-video";
inline constexpr const char* AVMediaCharacteristicContainsAlphaChannel =
    "public.contains-alpha-channel";

using FourCharCode = std::uint32_t;
using OSType = std::uint32_t;

// 'avc1' and the like: the four characters in reading order, the first in the high byte.
constexpr FourCharCode FourCC(const char (&code)[5]) {
    return (FourCharCode(std::uint8_t(code[0])) << 24) |
           (FourCharCode(std::uint8_t(code[1])) << 16) |
           (FourCharCode(std::uint8_t(code[2])) << 8) | FourCharCode(std::uint8_t(code[3]));
}

// Codec subtypes of compressed format descriptions. Every HEVC stream is reported as 'hvc1'
// and every H.264 stream as 'avc1', whatever sample entry the file uses.
inline constexpr FourCharCode kCMVideoCodecType_H264 = FourCC("avc1");
inline constexpr FourCharCode kCMVideoCodecType_HEVC = FourCC("hvc1");
inline constexpr FourCharCode kCMVideoCodecType_AppleProRes4444 = FourCC("ap4h");
inline constexpr FourCharCode kCMVideoCodecType_AppleProRes422 = FourCC("apcn");
inline constexpr FourCharCode kCMVideoCodecType_JPEG = FourCC("jpeg");
inline constexpr FourCharCode kAudioFormatMPEG4AAC = FourCC("aac ");
inline constexpr FourCharCode kAudioFormatLinearPCM = FourCC("lpcm");
