// Keys and values of the settings dictionaries that reader outputs, writer inputs, pixel buffer
// adaptors and the output settings assistant exchange, spelled as the media framework spells
// them. The dictionaries are platform::PlistDictionary values.
#pragma once

// Pixel buffer attributes (reader output settings, adaptor attributes).
inline constexpr const char* kCVPixelBufferPixelFormatTypeKey = "PixelFormatType";
inline constexpr const char* kCVPixelBufferWidthKey = "Width";
inline constexpr const char* kCVPixelBufferHeightKey = "Height";
inline constexpr const char* kCVPixelBufferIOSurfacePropertiesKey = "IOSurfaceProperties";
inline constexpr const char* AVVideoAllowWideColorKey = "AllowWideColor";

// Video output settings of a writer input.
inline constexpr const char* AVVideoCodecKey = "AVVideoCodecKey";
inline constexpr const char* AVVideoWidthKey = "AVVideoWidthKey";
inline constexpr const char* AVVideoHeightKey = "AVVideoHeightKey";
inline constexpr const char* AVVideoCompressionPropertiesKey = "AVVideoCompressionPropertiesKey";
inline constexpr const char* AVVideoColorPropertiesKey = "AVVideoColorPropertiesKey";

// Inside the compression properties.
inline constexpr const char* AVVideoAverageBitRateKey = "AverageBitRate";
inline constexpr const char* AVVideoQualityKey = "Quality";
inline constexpr const char* AVVideoProfileLevelKey = "ProfileLevel";
inline constexpr const char* AVVideoExpectedSourceFrameRateKey = "ExpectedFrameRate";
inline constexpr const char* AVVideoMaxKeyFrameIntervalKey = "MaxKeyFrameInterval";
inline constexpr const char* AVVideoAllowFrameReorderingKey = "AllowFrameReordering";
inline constexpr const char* AVVideoPixelAspectRatioKey = "PixelAspectRatio";
inline constexpr const char* AVVideoPixelAspectRatioHorizontalSpacingKey = "HorizontalSpacing";
inline constexpr const char* AVVideoPixelAspectRatioVerticalSpacingKey = "VerticalSpacing";
// Our own: the software encoder's speed preset ("medium", "fast", ...) and its extra
// parameters as "key=value:key=value" (x264-params / x265-params syntax).
inline constexpr const char* UWVideoEncoderSpeedPresetKey = "EncoderSpeedPreset";
inline constexpr const char* UWVideoEncoderParametersKey = "EncoderParameters";

// Codec values.
inline constexpr const char* AVVideoCodecTypeH264 = "avc1";
inline constexpr const char* AVVideoCodecTypeHEVC = "hvc1";
inline constexpr const char* AVVideoCodecTypeHEVCWithAlpha = "muxa";
inline constexpr const char* AVVideoCodecTypeAppleProRes4444 = "ap4h";
inline constexpr const char* AVVideoCodecTypeJPEG = "jpeg";

// Profile values.
inline constexpr const char* AVVideoProfileLevelH264HighAutoLevel = "H264_High_AutoLevel";
inline constexpr const char* AVVideoProfileLevelH264MainAutoLevel = "H264_Main_AutoLevel";
inline constexpr const char* kVTProfileLevel_HEVC_Main_AutoLevel = "HEVC_Main_AutoLevel";
inline constexpr const char* kVTProfileLevel_HEVC_Main10_AutoLevel = "HEVC_Main10_AutoLevel";

// Colour properties.
inline constexpr const char* AVVideoColorPrimariesKey = "ColorPrimaries";
inline constexpr const char* AVVideoTransferFunctionKey = "TransferFunction";
inline constexpr const char* AVVideoYCbCrMatrixKey = "YCbCrMatrix";

inline constexpr const char* AVVideoColorPrimaries_ITU_R_709_2 = "ITU_R_709_2";
inline constexpr const char* AVVideoColorPrimaries_EBU_3213 = "EBU_3213";
inline constexpr const char* AVVideoColorPrimaries_SMPTE_C = "SMPTE_C";
inline constexpr const char* AVVideoColorPrimaries_P3_D65 = "P3_D65";
inline constexpr const char* AVVideoColorPrimaries_DCI_P3 = "DCI_P3";
inline constexpr const char* AVVideoColorPrimaries_ITU_R_2020 = "ITU_R_2020";

inline constexpr const char* AVVideoTransferFunction_ITU_R_709_2 = "ITU_R_709_2";
inline constexpr const char* AVVideoTransferFunction_SMPTE_240M_1995 = "SMPTE_240M_1995";
inline constexpr const char* AVVideoTransferFunction_SMPTE_ST_2084_PQ = "SMPTE_ST_2084_PQ";
inline constexpr const char* AVVideoTransferFunction_ITU_R_2100_HLG = "ITU_R_2100_HLG";
inline constexpr const char* AVVideoTransferFunction_Linear = "Linear";
inline constexpr const char* AVVideoTransferFunction_IEC_sRGB = "IEC_sRGB";

inline constexpr const char* AVVideoYCbCrMatrix_ITU_R_709_2 = "ITU_R_709_2";
inline constexpr const char* AVVideoYCbCrMatrix_ITU_R_601_4 = "ITU_R_601_4";
inline constexpr const char* AVVideoYCbCrMatrix_SMPTE_240M_1995 = "SMPTE_240M_1995";
inline constexpr const char* AVVideoYCbCrMatrix_ITU_R_2020 = "ITU_R_2020";
inline constexpr const char* kCVImageBufferYCbCrMatrix_SMPTE_240M_1995 = "SMPTE_240M_1995";
