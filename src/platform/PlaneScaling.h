// Scaling and filling of image planes in place, standing in for the platform's vImage calls of
// the frame scaler. Views describe memory owned by someone else (a pixel buffer's plane or a
// part of it). Scaling resamples every channel independently; interleaved CbCr pairs and ARGB
// pixels are scaled channel by channel.
#pragma once

#include <cstddef>
#include <cstdint>

using vImagePixelCount = std::size_t;
using vImage_Error = std::ptrdiff_t;
using vImage_Flags = std::uint32_t;

struct vImage_Buffer {
    void* data = nullptr;
    vImagePixelCount height = 0;
    vImagePixelCount width = 0;
    std::size_t rowBytes = 0;
};

inline constexpr vImage_Error kvImageNoError = 0;
inline constexpr vImage_Error kvImageRoiLargerThanInputBuffer = -21766;
inline constexpr vImage_Error kvImageInvalidKernelSize = -21767;
inline constexpr vImage_Error kvImageNullPointerArgument = -21772;
inline constexpr vImage_Error kvImageInvalidParameter = -21773;
inline constexpr vImage_Error kvImageBufferSizeMismatch = -21774;
inline constexpr vImage_Error kvImageMemoryAllocationError = -21771;
inline constexpr vImage_Error kvImageInternalError = -21776;

inline constexpr vImage_Flags kvImageNoFlags = 0;
inline constexpr vImage_Flags kvImageEdgeExtend = 8;
inline constexpr vImage_Flags kvImageDoNotTile = 16;
// Lanczos-3; without it, bilinear.
inline constexpr vImage_Flags kvImageHighQualityResampling = 32;
// With this flag, a scale call does no work and returns the size in bytes (0 or more) of the
// temporary buffer that the same call needs without it.
inline constexpr vImage_Flags kvImageGetTempBufferSize = 128;

// Scale all of src into all of dest. `tempBuffer` may be null (the call then allocates its
// own). Rows are read and written within width * bytes per pixel; rowBytes must be at least
// that. A zero-sized view, a null pointer or a too small rowBytes is an error.
// Sample formats: Planar8 one byte; Planar16U one 16-bit word; CbCr8 two bytes (Cb, Cr) and
// CbCr16U two words per pixel; ARGB8888 four bytes and ARGB16U four words per pixel.
vImage_Error vImageScale_Planar8(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags);
vImage_Error vImageScale_Planar16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                   void* tempBuffer, vImage_Flags flags);
vImage_Error vImageScale_CbCr8(const vImage_Buffer* src, const vImage_Buffer* dest,
                               void* tempBuffer, vImage_Flags flags);
vImage_Error vImageScale_CbCr16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags);
vImage_Error vImageScale_ARGB8888(const vImage_Buffer* src, const vImage_Buffer* dest,
                                  void* tempBuffer, vImage_Flags flags);
vImage_Error vImageScale_ARGB16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags);

// Fills: every pixel of dest gets the value; colours are in the buffer's channel order.
vImage_Error vImageOverwriteChannelsWithScalar_Planar8(std::uint8_t scalar,
                                                       const vImage_Buffer* dest,
                                                       vImage_Flags flags);
vImage_Error vImageOverwriteChannelsWithScalar_Planar16U(std::uint16_t scalar,
                                                         const vImage_Buffer* dest,
                                                         vImage_Flags flags);
vImage_Error vImageBufferFill_CbCr8(const vImage_Buffer* dest, const std::uint8_t color[2],
                                    vImage_Flags flags);
vImage_Error vImageBufferFill_CbCr16U(const vImage_Buffer* dest, const std::uint16_t color[2],
                                      vImage_Flags flags);
vImage_Error vImageBufferFill_ARGB8888(const vImage_Buffer* dest, const std::uint8_t color[4],
                                       vImage_Flags flags);
vImage_Error vImageBufferFill_ARGB16U(const vImage_Buffer* dest, const std::uint16_t color[4],
                                      vImage_Flags flags);
