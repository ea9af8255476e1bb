#include "video/ColorManager.h"

#include <algorithm>
#include <array>

#include "platform/AVVideoCodecs.h"
#include "platform/AVVideoSettings.h"

namespace {

template <std::size_t N>
bool holds(const platform::PlistValue& dictionary, const char* key,
           const std::array<const char*, N>& accepted) {
    const std::string* value = dictionary[key].string();
    if (!value) return false;
    return std::any_of(accepted.begin(), accepted.end(),
                       [&](const char* name) { return *value == name; });
}

}  // namespace

const platform::PlistDictionary& ColorManager::defaultColorProperties() {
    static const platform::PlistDictionary properties = {
        {AVVideoColorPrimariesKey, AVVideoColorPrimaries_ITU_R_709_2},
        {AVVideoTransferFunctionKey, AVVideoTransferFunction_ITU_R_709_2},
        {AVVideoYCbCrMatrixKey, AVVideoYCbCrMatrix_ITU_R_709_2},
    };
    return properties;
}

bool ColorManager::areColorPropertiesAccepted(const platform::PlistValue& properties,
                                              const std::string& codec) {
    static const std::array<const char*, 4> primaries = {
        AVVideoColorPrimaries_ITU_R_709_2, AVVideoColorPrimaries_P3_D65,
        AVVideoColorPrimaries_SMPTE_C, AVVideoColorPrimaries_ITU_R_2020};
    static const std::array<const char*, 3> transfers = {AVVideoTransferFunction_ITU_R_709_2,
                                                         AVVideoTransferFunction_SMPTE_ST_2084_PQ,
                                                         AVVideoTransferFunction_ITU_R_2100_HLG};
    static const std::array<const char*, 2> matricesH264 = {AVVideoYCbCrMatrix_ITU_R_709_2,
                                                            AVVideoYCbCrMatrix_ITU_R_601_4};
    static const std::array<const char*, 3> matrices = {AVVideoYCbCrMatrix_ITU_R_709_2,
                                                        AVVideoYCbCrMatrix_ITU_R_601_4,
                                                        AVVideoYCbCrMatrix_ITU_R_2020};
    if (!properties.isDictionary()) return false;
    const AVVideoCodecInfo* info = videoCodecWithType(codec);
    const bool matrixAccepted = info && info->codec == AVVideoCodec::h264
                                    ? holds(properties, AVVideoYCbCrMatrixKey, matricesH264)
                                    : holds(properties, AVVideoYCbCrMatrixKey, matrices);
    return matrixAccepted && holds(properties, AVVideoColorPrimariesKey, primaries) &&
           holds(properties, AVVideoTransferFunctionKey, transfers);
}
