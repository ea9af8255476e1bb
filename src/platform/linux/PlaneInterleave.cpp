// Eight or sixteen samples at a time with SSE2 (every x86-64 has it), the rest one by one.
#include "platform/linux/PlaneInterleave.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace platform {
namespace {

std::uint16_t narrow(std::uint16_t s) {
    return static_cast<std::uint16_t>(std::min(1023, (s + 32) >> 6));
}

#if defined(__SSE2__)
template <class T>
__m128i load(const T* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
template <class T>
void store(T* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
// The saturating add keeps the top values at 1023, as the clamp does.
__m128i narrow(__m128i s) {
    return _mm_srli_epi16(_mm_adds_epu16(s, _mm_set1_epi16(32)), 6);
}
// Even and odd words of a and b: (a0 a2 a4 a6 b0 b2 b4 b6), (a1 a3 a5 a7 b1 b3 b5 b7).
// Sign-extended words survive the signed saturation of the pack unchanged.
__m128i evenWords(__m128i a, __m128i b) {
    return _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(a, 16), 16),
                           _mm_srai_epi32(_mm_slli_epi32(b, 16), 16));
}
__m128i oddWords(__m128i a, __m128i b) {
    return _mm_packs_epi32(_mm_srai_epi32(a, 16), _mm_srai_epi32(b, 16));
}
#endif

}  // namespace

void interleaveChroma8(const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
                       std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 16 <= count; i += 16) {
        const __m128i b = load(cb + i), r = load(cr + i);
        store(out + 2 * i, _mm_unpacklo_epi8(b, r));
        store(out + 2 * i + 16, _mm_unpackhi_epi8(b, r));
    }
#endif
    for (; i < count; ++i) {
        out[2 * i] = cb[i];
        out[2 * i + 1] = cr[i];
    }
}

void interleaveChroma10(const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
                        std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= count; i += 8) {
        const __m128i b = _mm_slli_epi16(load(cb + i), 6), r = _mm_slli_epi16(load(cr + i), 6);
        store(out + 2 * i, _mm_unpacklo_epi16(b, r));
        store(out + 2 * i + 8, _mm_unpackhi_epi16(b, r));
    }
#endif
    for (; i < count; ++i) {
        out[2 * i] = static_cast<std::uint16_t>(cb[i] << 6);
        out[2 * i + 1] = static_cast<std::uint16_t>(cr[i] << 6);
    }
}

void widenLuma10(const std::uint16_t* in, std::uint16_t* out, std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= count; i += 8) store(out + i, _mm_slli_epi16(load(in + i), 6));
#endif
    for (; i < count; ++i) out[i] = static_cast<std::uint16_t>(in[i] << 6);
}

void deinterleaveChroma8(const std::uint8_t* in, std::uint8_t* cb, std::uint8_t* cr,
                         std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i low = _mm_set1_epi16(0x00FF);
    for (; i + 16 <= count; i += 16) {
        const __m128i a = load(in + 2 * i), b = load(in + 2 * i + 16);
        store(cb + i, _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low)));
        store(cr + i, _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8)));
    }
#endif
    for (; i < count; ++i) {
        cb[i] = in[2 * i];
        cr[i] = in[2 * i + 1];
    }
}

void deinterleaveChroma10(const std::uint16_t* in, std::uint16_t* cb, std::uint16_t* cr,
                          std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= count; i += 8) {
        const __m128i a = load(in + 2 * i), b = load(in + 2 * i + 8);
        store(cb + i, narrow(evenWords(a, b)));
        store(cr + i, narrow(oddWords(a, b)));
    }
#endif
    for (; i < count; ++i) {
        cb[i] = narrow(in[2 * i]);
        cr[i] = narrow(in[2 * i + 1]);
    }
}

void narrowLuma10(const std::uint16_t* in, std::uint16_t* out, std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= count; i += 8) store(out + i, narrow(load(in + i)));
#endif
    for (; i < count; ++i) out[i] = narrow(in[i]);
}

}  // namespace platform
