// PNG pixel data inflated by ISA-L and unfiltered here.
#include "platform/linux/PngPixelRows.h"

#include <isa-l/igzip_lib.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace platform::codecs {
namespace {

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           p[3];
}

int paethPredictor(int a, int b, int c) {
    const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
    return (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
}

void paethScalar(const std::uint8_t* in, const std::uint8_t* prior, std::size_t rowBytes,
                 std::size_t pixelBytes, std::uint8_t* out) {
    // Left of the first pixel, a and c are zero and the predictor is the byte above.
    const std::size_t head = std::min(pixelBytes, rowBytes);
    for (std::size_t i = 0; i < head; ++i) out[i] = static_cast<std::uint8_t>(in[i] + prior[i]);
    for (std::size_t i = head; i < rowBytes; ++i)
        out[i] = static_cast<std::uint8_t>(
            in[i] + paethPredictor(out[i - pixelBytes], prior[i], prior[i - pixelBytes]));
}

#if defined(__SSE2__)
// A pixel's bytes widened to 16-bit lanes, and back.
template <std::size_t N>
__m128i load(const std::uint8_t* p) {
    std::uint64_t v = 0;
    std::memcpy(&v, p, N);
    return _mm_unpacklo_epi8(_mm_cvtsi64_si128(static_cast<long long>(v)), _mm_setzero_si128());
}

template <std::size_t N>
void store(std::uint8_t* p, __m128i lanes) {
    const auto v = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(lanes, lanes)));
    std::memcpy(p, &v, N);
}

__m128i absolute(__m128i x) {
    return _mm_max_epi16(x, _mm_sub_epi16(_mm_setzero_si128(), x));
}

__m128i select(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

// Every byte of a pixel at once, with the scalar predictor's ties (a before b before c).
template <std::size_t N>
void paethLanes(const std::uint8_t* in, const std::uint8_t* prior, std::size_t rowBytes,
                std::uint8_t* out) {
    const __m128i mask = _mm_set1_epi16(0xff);
    __m128i a = _mm_setzero_si128(), c = _mm_setzero_si128();
    for (std::size_t i = 0; i < rowBytes; i += N) {
        const __m128i b = load<N>(prior + i);
        const __m128i p = _mm_sub_epi16(b, c), q = _mm_sub_epi16(a, c);
        const __m128i pa = absolute(p), pb = absolute(q), pc = absolute(_mm_add_epi16(p, q));
        const __m128i smallest = _mm_min_epi16(pc, _mm_min_epi16(pa, pb));
        const __m128i predicted =
            select(_mm_cmpeq_epi16(smallest, pa), a, select(_mm_cmpeq_epi16(smallest, pb), b, c));
        a = _mm_and_si128(_mm_add_epi16(predicted, load<N>(in + i)), mask);
        store<N>(out + i, a);
        c = b;
    }
}
#endif

void paeth(const std::uint8_t* in, const std::uint8_t* prior, std::size_t rowBytes,
           std::size_t pixelBytes, std::uint8_t* out) {
#if defined(__SSE2__)
    if (rowBytes % pixelBytes == 0) {
        switch (pixelBytes) {
            case 3:
                return paethLanes<3>(in, prior, rowBytes, out);
            case 4:
                return paethLanes<4>(in, prior, rowBytes, out);
            case 6:
                return paethLanes<6>(in, prior, rowBytes, out);
            case 8:
                return paethLanes<8>(in, prior, rowBytes, out);
            default:
                break;  // one or two lanes gain nothing
        }
    }
#endif
    paethScalar(in, prior, rowBytes, pixelBytes, out);
}

}  // namespace

bool unfilterPngRow(std::uint8_t filter, const std::uint8_t* in, const std::uint8_t* prior,
                    std::size_t rowBytes, std::size_t pixelBytes, std::uint8_t* out) {
    const std::size_t head = std::min(pixelBytes, rowBytes);
    switch (filter) {
        case 0:
            std::memcpy(out, in, rowBytes);
            return true;
        case 1:
            std::memcpy(out, in, head);
            for (std::size_t i = head; i < rowBytes; ++i)
                out[i] = static_cast<std::uint8_t>(in[i] + out[i - pixelBytes]);
            return true;
        case 2:
            for (std::size_t i = 0; i < rowBytes; ++i)
                out[i] = static_cast<std::uint8_t>(in[i] + prior[i]);
            return true;
        case 3:
            for (std::size_t i = 0; i < head; ++i)
                out[i] = static_cast<std::uint8_t>(in[i] + (prior[i] >> 1));
            for (std::size_t i = head; i < rowBytes; ++i)
                out[i] = static_cast<std::uint8_t>(in[i] + ((out[i - pixelBytes] + prior[i]) >> 1));
            return true;
        case 4:
            paeth(in, prior, rowBytes, pixelBytes, out);
            return true;
        default:
            return false;
    }
}

struct PngPixelRows::Inflater {
    inflate_state state;
};

PngPixelRows::PngPixelRows(const std::uint8_t* data, std::size_t size, std::size_t rowBytes,
                           std::size_t pixelBytes, std::size_t height)
    : _data(data),
      _size(size),
      _rowBytes(rowBytes),
      _pixelBytes(pixelBytes),
      _height(height),
      _inflater(std::make_unique<Inflater>()),
      _filtered(rowBytes + 1),
      _row(rowBytes),
      _prior(rowBytes) {
    isal_inflate_init(&_inflater->state);
    _inflater->state.crc_flag = ISAL_ZLIB;
}

PngPixelRows::~PngPixelRows() = default;

// Gives the inflater the next IDAT chunk's data; false with the reason where there is none.
bool PngPixelRows::feed(std::string& why) {
    while (!_pixelsEnded && _at + 12 <= _size) {
        const std::uint32_t length = bigEndian32(_data + _at);
        const std::uint8_t* type = _data + _at + 4;
        if (length > _size - _at - 12) break;
        const bool idat = std::memcmp(type, "IDAT", 4) == 0;
        _at += 12 + std::size_t(length);
        if (!idat) {
            // The pixel data are the one run of IDAT chunks.
            if (_inPixels) _pixelsEnded = true;
            continue;
        }
        _inPixels = true;
        if (crc32_z(crc32(0, type, 4), type + 4, length) != bigEndian32(type + 4 + length)) {
            why = "IDAT: CRC error";
            return false;
        }
        if (length == 0) continue;
        _inflater->state.next_in = const_cast<std::uint8_t*>(type + 4);
        _inflater->state.avail_in = length;
        return true;
    }
    why = "Not enough image data";
    return false;
}

const std::uint8_t* PngPixelRows::next(std::string& why) {
    if (_given >= _height) return why = "no more rows", nullptr;
    inflate_state& s = _inflater->state;
    std::size_t filled = 0;
    while (filled < _filtered.size()) {
        s.next_out = _filtered.data() + filled;
        s.avail_out = static_cast<std::uint32_t>(_filtered.size() - filled);
        const std::size_t before = filled;
        const std::uint32_t given = s.avail_in;
        const int result = isal_inflate(&s);
        filled = _filtered.size() - s.avail_out;
        // A failure, a preset dictionary (which PNG has none of), or a stall.
        const bool stalled = filled == before && given != 0 && s.avail_in == given;
        if ((result != ISAL_DECOMP_OK && result != ISAL_END_INPUT && result != ISAL_OUT_OVERFLOW) ||
            stalled)
            return why = "IDAT: invalid compressed data", nullptr;
        if (filled == _filtered.size()) break;
        if (s.block_state == ISAL_BLOCK_FINISH) return why = "Not enough image data", nullptr;
        // The inflater may hold output of its own beyond its input: more data only once it
        // gives none.
        if (s.avail_in == 0 && filled == before && !feed(why)) return nullptr;
    }
    std::swap(_row, _prior);
    if (_given == 0) std::fill(_prior.begin(), _prior.end(), std::uint8_t(0));
    if (!unfilterPngRow(_filtered[0], _filtered.data() + 1, _prior.data(), _rowBytes, _pixelBytes,
                        _row.data()))
        return why = "bad adaptive filter value", nullptr;
    ++_given;
    return _row.data();
}

}  // namespace platform::codecs
