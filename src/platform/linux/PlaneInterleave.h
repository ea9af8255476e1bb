// Rows of 4:2:0 chroma between the decoders' and encoders' separate Cb and Cr planes and the
// pipeline's interleaved CbCr plane, with 10-bit samples moved between the low bits (FFmpeg)
// and the high bits (the pipeline's 16-bit buffers). Used by the FFmpeg reader and writer for
// every frame. Internal to the Linux platform layer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// out[2i] = cb[i], out[2i + 1] = cr[i] for i < count.
void interleaveChroma8(const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
                       std::size_t count);
// As above, each sample shifted left by 6 (10 bits to the top of 16).
void interleaveChroma10(const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
                        std::size_t count);
// out[i] = in[i] << 6.
void widenLuma10(const std::uint16_t* in, std::uint16_t* out, std::size_t count);

// cb[i] = in[2i], cr[i] = in[2i + 1].
void deinterleaveChroma8(const std::uint8_t* in, std::uint8_t* cb, std::uint8_t* cr,
                         std::size_t count);
// As above, each sample brought back to 10 bits rounding to the nearest: min(1023, (s + 32) >> 6).
void deinterleaveChroma10(const std::uint16_t* in, std::uint16_t* cb, std::uint16_t* cr,
                          std::size_t count);
// out[i] = min(1023, (in[i] + 32) >> 6).
void narrowLuma10(const std::uint16_t* in, std::uint16_t* out, std::size_t count);

}  // namespace platform
