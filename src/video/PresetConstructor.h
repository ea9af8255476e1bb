// Chooses the encoder preset of a re-encoded video track and turns it into the writer input's
// settings: codec, colour tags that pass for that codec, bit rate, square pixels and the exact
// output size. Used by VRVideoResizerVideoTrackProvider::Constructor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/AVAssetTrack.h"
#include "platform/CMFormatDescription.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "video/VRVideoResizeOptions.h"

class PresetConstructor {
  public:
    // `fileType` is the writer's; empty takes every preset of the platform.
    PresetConstructor(CGSize size, bool codecHevc, bool containsAlpha, std::string fileType = {})
        : _size(size),
          _codecHevc(codecHevc),
          _containsAlpha(containsAlpha),
          _fileType(std::move(fileType)) {}

    // Codec type 1 gives H.264, 2 HEVC, anything else HEVC when the source format's subtype is
    // 'hvc1'.
    static bool isCodecHevc(VRCodecType codecType, const CMFormatDescriptionRef& sourceFormat);

    // Tiers by the larger side M, each entered only when its bound is exceeded (strictly):
    // above 2400 the 3840x2160 presets, above 1600 the 1920x1080 ones, above 1000 the plain
    // 1280x720, above 800 the plain 960x540, else the plain 640x480; the HEVC and alpha presets
    // of every tier below 2400 are the 1920x1080 ones. In a tier an available alpha preset wins
    // when the source has alpha, whatever the codec, then the HEVC preset when HEVC is chosen,
    // then the plain one. Nothing available at all gives the plain 640x480 preset.
    static std::string presetName(double maxSide, bool containsAlpha, bool codecHevc,
                                  const std::vector<std::string>& available);
    // The same with the platform's presets (read once) whose codec the file type can hold: the
    // alpha presets (ProRes 4444) only in QuickTime movies, HEVC not in M4V, 3GP and 3GPP2. So a
    // source with alpha written to MP4 gets HEVC or H.264 without alpha.
    std::string presetName() const;
    static std::vector<std::string> presetsForFileType(const std::string& fileType);

    // The assistant's settings for the chosen preset, told the source format and its frame
    // durations; absent when there is no assistant. A nominal rate F below 1 becomes a frame
    // duration of round(1/F) seconds, otherwise 1/round(F).
    std::optional<platform::PlistDictionary> presetSettings(
        const AVAssetTrack& track, const CMFormatDescriptionRef& sourceFormat) const;

    // The writer input's video settings: the preset's, with colour tags replaced as a whole by
    // ITU-R 709-2 unless they pass ColorManager's test for the codec, H.264 when the preset
    // names no codec, the JPEG quality for the JPEG codec, the bit rate, 1:1 pixels and the
    // size.
    platform::PlistDictionary encoderSettings(const VRVideoResizeOptions& options,
                                              const AVAssetTrack& track,
                                              const CMFormatDescriptionRef& sourceFormat) const;

    // Bits per second, in 32-bit floats: a requested rate above 1 as it is; otherwise the
    // source's estimated rate scaled by the change in pixel count, else the preset's rate,
    // five bits per output pixel when nothing above 1 is left, never below 0.05 bits per
    // output pixel and frame (at the nominal frame rate, else 30), and capped at 40000000
    // (55000000 above 35 frames per second).
    static float bitrate(std::int64_t requested, const platform::PlistDictionary& compression,
                         const AVAssetTrack& track, CGSize outputSize);

    CGSize size() const { return _size; }
    bool isCodecHevc() const { return _codecHevc; }
    bool containsAlpha() const { return _containsAlpha; }

  private:
    CGSize _size;
    bool _codecHevc;
    bool _containsAlpha;
    std::string _fileType;
};
