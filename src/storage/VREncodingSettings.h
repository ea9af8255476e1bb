// What a processing job takes from the encoding settings: the bit rate for the encoder, the
// codec and the JPEG quality. Read by the processor when a job starts.
#pragma once

#include <cstdint>

struct VREncodingJobSettings {
    std::uint64_t bitrate = 0;   // bits per second; 0 lets the track provider choose
    std::int64_t codecType = 0;  // VRCodecType
    float jpegCompression = 0;   // 0 to 1
    friend bool operator==(const VREncodingJobSettings&, const VREncodingJobSettings&) = default;
};

class VREncodingSettings {
  public:
    // From the current VRSettings.
    static VREncodingJobSettings jobSettings();
    // Automatic bit rate gives 0 whatever `megabits` holds; otherwise megabits times 1000000,
    // cut toward zero to an unsigned integer (negative or not a number gives 0, too large the
    // largest). The JPEG quality is the percent over 100.
    static VREncodingJobSettings jobSettingsWith(bool bitrateAuto, double megabits,
                                                 std::int64_t codecType, double jpegPercent);
};
