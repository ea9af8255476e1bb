#include "storage/VREncodingSettings.h"

#include <cmath>
#include <limits>

#include "storage/VRSettings.h"

VREncodingJobSettings VREncodingSettings::jobSettings() {
    return jobSettingsWith(VRSettings::isVideoBitrateAuto(), VRSettings::videoBitrate(),
                           VRSettings::codecType(), VRSettings::photoJPEGCompression());
}

VREncodingJobSettings VREncodingSettings::jobSettingsWith(bool bitrateAuto, double megabits,
                                                          std::int64_t codecType,
                                                          double jpegPercent) {
    VREncodingJobSettings settings;
    if (!bitrateAuto) {
        double bits = megabits * 1000000.0;
        constexpr double kLimit = 18446744073709551615.0;
        if (std::isnan(bits) || bits <= 0) {
            settings.bitrate = 0;
        } else if (bits >= kLimit) {
            settings.bitrate = std::numeric_limits<std::uint64_t>::max();
        } else {
            settings.bitrate = static_cast<std::uint64_t>(bits);
        }
    }
    settings.codecType = codecType;
    settings.jpegCompression = static_cast<float>(jpegPercent / 100.0);
    return settings;
}
