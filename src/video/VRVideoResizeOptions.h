// The value record of one video job: output format, encoded frame and placement, encoder
// choices, extra orientation, fill colour and metadata rules. Built by LegacyManager and copied
// into VRVideoResizer2 and its track providers.
#pragma once

#include <cstdint>
#include <optional>

#include "model/VRColor.h"
#include "model/VRFormat.h"
#include "model/VRImageArrangement.h"
#include "model/VROrientation.h"
#include "platform/Geometry.h"

// Stored in the settings; the numbers are kept.
enum VRCodecType : std::int64_t {
    VRCodecTypeSource = 0,
    VRCodecTypeH264 = 1,
    VRCodecTypeHEVC = 2,
};

// The codec of a stored number; a number no codec has means the source's.
inline VRCodecType VRCodecTypeFromNumber(std::int64_t number) {
    return number == VRCodecTypeH264   ? VRCodecTypeH264
           : number == VRCodecTypeHEVC ? VRCodecTypeHEVC
                                       : VRCodecTypeSource;
}

struct VRVideoMetadataOptions {
    bool copyGPSMetadata = true;
};

struct VRVideoResizeOptions {
    // Its UTI is the writer's file type, its extension the output file's.
    VRFormat fileFormat = VRFormat::formatWithType(VRFormatTypeMOV);
    // 0 to 1; used by the JPEG codec only.
    float jpegCompression = 0;
    // Size: the encoded output size in pixels. Origin: the picture's displacement in output
    // pixels.
    CGRect imageFrame;
    VRImageArrangement imageArrangement = VRImageArrangement::stretch;
    // Bits per second; 1 or less lets the track provider compute it.
    std::int64_t bitrate = 0;
    VRCodecType codecType = VRCodecTypeSource;
    // Appended to the track's own transform.
    std::optional<VROrientation> orientation;
    // Bars of arrangement fit; absent means black.
    std::optional<VRColor> fillColor;
    // Absent means that location items are copied.
    std::optional<VRVideoMetadataOptions> metadataOptions;
};
