// Scaled axis-aligned draws through zimg, a band of output rows at a time, so that no planar
// copy of the source or of the output is ever whole in memory.
#include <zimg.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/linux/BitmapPixels.h"
#include "platform/linux/ZimgGraphs.h"

namespace platform::bitmap_pixels {
namespace {

// Splits `count` four-byte pixels, colour at bytes c0..c0+2 of each, into three planes.
void splitPixels(const std::uint8_t* px, int c0, std::uint8_t* r, std::uint8_t* g, std::uint8_t* b,
                 std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i shifts[3] = {_mm_cvtsi32_si128(8 * c0), _mm_cvtsi32_si128(8 * c0 + 8),
                               _mm_cvtsi32_si128(8 * c0 + 16)};
    std::uint8_t* planes[3] = {r, g, b};
    for (; i + 16 <= count; i += 16) {
        __m128i v[4];
        for (int k = 0; k < 4; ++k)
            v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + 4 * i + 16 * k));
        for (int c = 0; c < 3; ++c) {
            __m128i w[4];
            for (int k = 0; k < 4; ++k) w[k] = _mm_and_si128(_mm_srl_epi32(v[k], shifts[c]), low);
            __m128i bytes =
                _mm_packus_epi16(_mm_packs_epi32(w[0], w[1]), _mm_packs_epi32(w[2], w[3]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(planes[c] + i), bytes);
        }
    }
#endif
    for (; i < count; ++i) {
        const std::uint8_t* p = px + 4 * i + c0;
        r[i] = p[0], g[i] = p[1], b[i] = p[2];
    }
}

// Joins three planes into four-byte pixels: colour at bytes c0..c0+2 (c0 is 0 or 1), 255 in
// the byte left over.
void joinPixels(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, int c0,
                std::uint8_t* px, std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i full = _mm_set1_epi8(static_cast<char>(0xFF));
    for (; i + 16 <= count; i += 16) {
        __m128i R = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + i));
        __m128i G = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g + i));
        __m128i B = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        __m128i s[4] = {R, G, B, full};
        if (c0 == 1) s[0] = full, s[1] = R, s[2] = G, s[3] = B;
        __m128i lo01 = _mm_unpacklo_epi8(s[0], s[1]), hi01 = _mm_unpackhi_epi8(s[0], s[1]);
        __m128i lo23 = _mm_unpacklo_epi8(s[2], s[3]), hi23 = _mm_unpackhi_epi8(s[2], s[3]);
        auto* out = reinterpret_cast<__m128i*>(px + 4 * i);
        _mm_storeu_si128(out, _mm_unpacklo_epi16(lo01, lo23));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(lo01, lo23));
        _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(hi01, hi23));
        _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(hi01, hi23));
    }
#endif
    for (; i < count; ++i) {
        std::uint8_t* p = px + 4 * i;
        p[c0 == 0 ? 3 : 0] = 255;
        p[c0] = r[i], p[c0 + 1] = g[i], p[c0 + 2] = b[i];
    }
}

inline std::uint16_t load16(const std::uint8_t* px) {
    std::uint16_t v;
    std::memcpy(&v, px, 2);
    return v;
}

// The output rows [Y0, Y1) of a draw through a zimg graph of their own, so that bands can run
// on separate threads. Rows reach zimg and leave it through the callbacks, a few at a time:
// no planar copy of the source or of the output is ever whole in memory.
struct Band {
    Band(const AlignedDraw& draw, std::size_t top, std::size_t bottom)
        : d(&draw), Y0(top), Y1(bottom) {}

    const AlignedDraw* d;
    std::size_t Y0, Y1;
    // The part of O that zimg sees as its whole source (see `sourceWindow`).
    struct {
        std::size_t left = 0, top = 0, width = 0, height = 0;
    } window;
    zimg_image_buffer_const in{};
    zimg_image_buffer out{};
    std::vector<std::uint16_t> scratch;

    void* inRow(int k, unsigned i) const {
        return static_cast<std::uint8_t*>(const_cast<void*>(in.plane[k].data)) +
               static_cast<std::ptrdiff_t>(i & in.plane[k].mask) * in.plane[k].stride;
    }
    const void* outRow(int k, unsigned i) const {
        return static_cast<const std::uint8_t*>(out.plane[k].data) +
               static_cast<std::ptrdiff_t>(i & out.plane[k].mask) * out.plane[k].stride;
    }

    void unpackBytes(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                     unsigned right) {
        const PixelLayout& l = d->image->layout();
        const int c0 = l.colorOffset(), a = l.alphaOffset(), planes = d->planes;
        const bool alpha = d->alpha;
        std::uint8_t* dst[4] = {static_cast<std::uint8_t*>(inRow(0, i)),
                                planes == 3 ? static_cast<std::uint8_t*>(inRow(1, i)) : nullptr,
                                planes == 3 ? static_cast<std::uint8_t*>(inRow(2, i)) : nullptr,
                                alpha ? static_cast<std::uint8_t*>(inRow(3, i)) : nullptr};
        if (!alpha && planes == 3 && step == 4 && c0 <= 1) {
            // An upright opaque RGB source: the common photograph.
            splitPixels(px, c0, dst[0] + left, dst[1] + left, dst[2] + left, right - left);
            return;
        }
        const bool straight = alpha && !l.isPremultiplied();
        for (unsigned p = left; p < right; ++p, px += step) {
            unsigned av = alpha ? px[a] : 255;
            for (int k = 0; k < planes; ++k) {
                unsigned c = px[c0 + k];
                dst[k][p] = static_cast<std::uint8_t>(straight ? (c * av + 127) / 255 : c);
            }
            if (alpha) dst[3][p] = static_cast<std::uint8_t>(av);
        }
    }

    void unpackWords(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                     unsigned right) {
        const PixelLayout& l = d->image->layout();
        const int c0 = 2 * l.colorOffset(), a = 2 * l.alphaOffset(), planes = d->planes;
        const bool alpha = d->alpha;
        const bool straight = alpha && !l.isPremultiplied();
        std::uint16_t* dst[4];
        for (int k = 0; k < 4; ++k)
            dst[k] = (k < planes || (k == 3 && alpha)) ? static_cast<std::uint16_t*>(inRow(k, i))
                                                       : nullptr;
        for (unsigned p = left; p < right; ++p, px += step) {
            std::uint32_t av = alpha ? load16(px + a) : 65535;
            for (int k = 0; k < planes; ++k) {
                std::uint32_t c = load16(px + c0 + 2 * k);
                dst[k][p] = static_cast<std::uint16_t>(straight ? (c * av + 32767) / 65535 : c);
            }
            if (alpha) dst[3][p] = static_cast<std::uint16_t>(av);
        }
    }

    void unpackConverted(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                         unsigned right) {
        const SourceReader& reader = d->reader;
        std::size_t count = right - left;
        scratch.resize(count * 4);
        for (std::size_t n = 0; n < count; ++n, px += step) reader.read(px, &scratch[n * 4]);
        if (reader.transform)
            cmsDoTransform(reader.transform, scratch.data(), scratch.data(),
                           static_cast<cmsUInt32Number>(count));
        const int planes = d->planes;
        const bool alpha = d->alpha;
        std::uint16_t* dst[4];
        for (int k = 0; k < 4; ++k)
            dst[k] = (k < planes || (k == 3 && alpha)) ? static_cast<std::uint16_t*>(inRow(k, i))
                                                       : nullptr;
        for (std::size_t n = 0; n < count; ++n) {
            const std::uint16_t* s = &scratch[n * 4];
            std::uint32_t av = alpha ? s[3] : 65535;
            auto pm = [&](std::uint32_t c) {
                return static_cast<std::uint16_t>((c * av + 32767) / 65535);
            };
            std::size_t p = left + n;
            if (planes == 3) {
                dst[0][p] = pm(s[0]), dst[1][p] = pm(s[1]), dst[2][p] = pm(s[2]);
            } else {
                std::uint32_t luma = (s[0] * 2126u + s[1] * 7152u + s[2] * 722u + 5000) / 10000;
                dst[0][p] = pm(luma);
            }
            if (alpha) dst[3][p] = static_cast<std::uint16_t>(av);
        }
    }

    int unpack(unsigned i, unsigned left, unsigned right) {
        std::ptrdiff_t step = 0;
        const std::uint8_t* px = d->pixel(left + window.left, i + window.top, step);
        switch (d->input) {
            case AlignedDraw::Input::Bytes:
                unpackBytes(px, step, i, left, right);
                break;
            case AlignedDraw::Input::Words:
                unpackWords(px, step, i, left, right);
                break;
            case AlignedDraw::Input::Converted:
                unpackConverted(px, step, i, left, right);
                break;
        }
        return 0;
    }

    // Interior pixels of a fully covered row of an opaque source replace the destination.
    template <class Sample>
    void replaceRgb(std::uint8_t* row, const Sample* r, const Sample* g, const Sample* b,
                    unsigned left, unsigned right) const {
        const DestAccess& dest = d->dest;
        const int extra = dest.a >= 0 ? dest.a : dest.skip;
        if constexpr (sizeof(Sample) == 1) {
            if (dest.bpp == 4 && extra == (dest.c0 == 0 ? 3 : 0)) {
                joinPixels(r + left, g + left, b + left, dest.c0, row + (d->X0 + left) * 4,
                           right - left);
                return;
            }
        }
        for (unsigned p = left; p < right; ++p) {
            std::uint8_t* px = row + (d->X0 + p) * dest.bpp;
            if constexpr (sizeof(Sample) == 1) {
                px[dest.c0] = r[p], px[dest.c0 + 1] = g[p], px[dest.c0 + 2] = b[p];
                if (extra >= 0) px[extra] = 255;
            } else {
                dest.put(px, dest.c0, r[p]);
                dest.put(px, dest.c0 + 1, g[p]);
                dest.put(px, dest.c0 + 2, b[p]);
                if (extra >= 0) dest.put(px, extra, 65535);
            }
        }
    }

    template <class Sample>
    void packRow(unsigned i, unsigned left, unsigned right) {
        const AlignedDraw& draw = *d;
        const DestAccess& dest = draw.dest;
        std::size_t y = Y0 + i;
        double wy = coverage(static_cast<double>(y), draw.cover.y0, draw.cover.y1);
        std::uint8_t* row = dest.row(y);
        const auto* r = static_cast<const Sample*>(outRow(0, i));
        const auto* g = draw.planes == 3 ? static_cast<const Sample*>(outRow(1, i)) : r;
        const auto* b = draw.planes == 3 ? static_cast<const Sample*>(outRow(2, i)) : r;
        const auto* a = draw.alpha ? static_cast<const Sample*>(outRow(3, i)) : nullptr;
        constexpr std::uint32_t widen = sizeof(Sample) == 1 ? 257 : 1;
        const unsigned last = static_cast<unsigned>(draw.X1 - draw.X0 - 1);
        if (wy >= 1 && !a && dest.layout.colorComponents == 3) {
            // The first and last columns may be covered in part; the others are whole.
            unsigned lo = std::max(left, 1u), hi = std::min(right, last);
            if (lo < hi) {
                replaceRgb(row, r, g, b, lo, hi);
                if (left < lo) blendRun(row, wy, r, g, b, a, left, lo, widen);
                if (hi < right) blendRun(row, wy, r, g, b, a, hi, right, widen);
                return;
            }
        }
        blendRun(row, wy, r, g, b, a, left, right, widen);
    }

    // Source-over of output pixels [left, right) of one row, each scaled by its coverage.
    template <class Sample>
    void blendRun(std::uint8_t* row, double wy, const Sample* r, const Sample* g, const Sample* b,
                  const Sample* a, unsigned left, unsigned right, std::uint32_t widen) const {
        const AlignedDraw& draw = *d;
        const DestAccess& dest = draw.dest;
        for (unsigned p = left; p < right; ++p) {
            std::size_t x = draw.X0 + p;
            bool edge = x == draw.X0 || x + 1 == draw.X1;
            double w =
                wy * (edge ? coverage(static_cast<double>(x), draw.cover.x0, draw.cover.x1) : 1.0);
            if (w <= 0) continue;
            std::uint32_t sa = a ? a[p] * widen : 65535;
            std::uint32_t sr = std::min<std::uint32_t>(r[p] * widen, sa);
            std::uint32_t sg = std::min<std::uint32_t>(g[p] * widen, sa);
            std::uint32_t sb = std::min<std::uint32_t>(b[p] * widen, sa);
            if (w < 1) {
                auto k = [&](std::uint32_t v) {
                    return static_cast<std::uint32_t>(std::lround(v * w));
                };
                sr = k(sr), sg = k(sg), sb = k(sb), sa = k(sa);
            }
            dest.blend(row + x * dest.bpp, sr, sg, sb, sa);
        }
    }

    int pack(unsigned i, unsigned left, unsigned right) {
        if (d->byteOutput)
            packRow<std::uint8_t>(i, left, right);
        else
            packRow<std::uint16_t>(i, left, right);
        return 0;
    }

    bool run(std::string& why) noexcept;

    // zimg buffers its input from the first row of its source, so a band whose rows begin
    // halfway down would hold half the picture. Its source is cut to the rows and columns
    // that its filter taps reach, with a margin: taps still read real neighbours everywhere
    // but at the picture's own edges, and the result is that of the whole source.
    void sourceWindow() {
        const AlignedDraw& draw = *d;
        double reach = draw.quality == kCGInterpolationNone   ? 1
                       : draw.quality == kCGInterpolationLow  ? 1
                       : draw.quality == kCGInterpolationHigh ? 3
                                                              : 2;
        auto cut = [&](double first, double last, double k, std::size_t size, std::size_t& from,
                       std::size_t& count) {
            double margin = std::ceil(reach * std::max(1.0, 1.0 / k)) + 2;
            double lo = std::clamp(std::floor(first - margin), 0.0, static_cast<double>(size));
            double hi = std::clamp(std::ceil(last + margin), lo, static_cast<double>(size));
            from = static_cast<std::size_t>(lo);
            count = std::max<std::size_t>(1, static_cast<std::size_t>(hi - lo));
            if (from + count > size) from = size - count;
        };
        cut((static_cast<double>(draw.X0) - draw.ox) / draw.kx,
            (static_cast<double>(draw.X1) - draw.ox) / draw.kx, draw.kx, draw.oWidth, window.left,
            window.width);
        cut((static_cast<double>(Y0) - draw.oy) / draw.ky,
            (static_cast<double>(Y1) - draw.oy) / draw.ky, draw.ky, draw.oHeight, window.top,
            window.height);
    }
};

zimg_resample_filter_e filterFor(CGInterpolationQuality quality, double& a, double& b) {
    a = b = NAN;
    switch (quality) {
        case kCGInterpolationNone:
            return ZIMG_RESIZE_POINT;
        case kCGInterpolationLow:
            return ZIMG_RESIZE_BILINEAR;
        case kCGInterpolationHigh:
            a = 3;
            return ZIMG_RESIZE_LANCZOS;
        default:
            a = 0, b = 0.5;  // Catmull-Rom
            return ZIMG_RESIZE_BICUBIC;
    }
}

bool Band::run(std::string& why) noexcept try {
    const AlignedDraw& draw = *d;
    const bool byteInput = draw.input == AlignedDraw::Input::Bytes;
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    sourceWindow();
    src.width = static_cast<unsigned>(window.width);
    src.height = static_cast<unsigned>(window.height);
    src.pixel_type = byteInput ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    src.depth = byteInput ? 8 : 16;
    dst.width = static_cast<unsigned>(draw.X1 - draw.X0);
    dst.height = static_cast<unsigned>(Y1 - Y0);
    dst.pixel_type = draw.byteOutput ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    dst.depth = draw.byteOutput ? 8 : 16;
    for (zimg_image_format* f : {&src, &dst}) {
        f->color_family = draw.planes == 3 ? ZIMG_COLOR_RGB : ZIMG_COLOR_GREY;
        f->matrix_coefficients = draw.planes == 3 ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_UNSPECIFIED;
        f->pixel_range = ZIMG_RANGE_FULL;
        f->alpha = draw.alpha ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;
    }
    src.active_region.left =
        (static_cast<double>(draw.X0) - draw.ox) / draw.kx - static_cast<double>(window.left);
    src.active_region.top =
        (static_cast<double>(Y0) - draw.oy) / draw.ky - static_cast<double>(window.top);
    src.active_region.width = static_cast<double>(draw.X1 - draw.X0) / draw.kx;
    src.active_region.height = static_cast<double>(Y1 - Y0) / draw.ky;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = filterFor(draw.quality, params.filter_param_a, params.filter_param_b);
    params.dither_type = ZIMG_DITHER_NONE;
    const GraphKey key{src.width,
                       src.height,
                       dst.width,
                       dst.height,
                       src.pixel_type,
                       dst.pixel_type,
                       draw.planes,
                       draw.alpha,
                       src.active_region.left,
                       src.active_region.top,
                       src.active_region.width,
                       src.active_region.height,
                       params.resample_filter,
                       params.filter_param_a,
                       params.filter_param_b};
    std::shared_ptr<const Graph> graph = draw.graphs ? draw.graphs->find(key) : nullptr;
    if (!graph) {
        graph = buildGraph(src, dst, params, byteInput, draw.byteOutput, why);
        if (!graph) return false;
        if (draw.graphs) draw.graphs->keep(key, graph);
    }
    Graph::Buffers buffers = graph->take();
    if (!buffers.tmp || !buffers.in || !buffers.out) return why = "out of memory", false;
    in.version = ZIMG_API_VERSION;
    out.version = ZIMG_API_VERSION;
    for (int k = 0; k < 4; ++k) {
        in.plane[k].data = buffers.in.get() + k * graph->inStride * graph->inLines;
        in.plane[k].stride = static_cast<std::ptrdiff_t>(graph->inStride);
        in.plane[k].mask = graph->inMask;
        out.plane[k].data = buffers.out.get() + k * graph->outStride * graph->outLines;
        out.plane[k].stride = static_cast<std::ptrdiff_t>(graph->outStride);
        out.plane[k].mask = graph->outMask;
    }
    auto unpack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<Band*>(user)->unpack(i, left, right);
    };
    auto pack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<Band*>(user)->pack(i, left, right);
    };
    if (zimg_filter_graph_process(graph->graph.get(), &in, &out, buffers.tmp.get(), unpack, this,
                                  pack, this) != ZIMG_ERROR_SUCCESS) {
        char message[256] = {0};
        zimg_get_last_error(message, sizeof message);
        why = message;
        return false;
    }
    // Only a kept graph has another run to lend its buffers to.
    if (draw.graphs) graph->giveBack(std::move(buffers));
    return true;
} catch (const std::exception& e) {
    why = e.what();
    return false;
}

std::atomic<std::size_t> bandsSetting{0};

// How many bands a draw of `rows` x `columns` runs as: a set number, or one per core for
// draws large enough to repay a thread. Each band keeps a few rows of its own.
std::size_t bandCount(std::size_t rows, std::size_t columns) {
    constexpr std::size_t kMinimumSplitPixels = 1u << 18, kMinimumBandRows = 32;
    std::size_t bands = bandsSetting.load(std::memory_order_relaxed);
    if (bands == 0) {
        if (rows * columns < kMinimumSplitPixels) return 1;
        bands = std::max(1u, std::thread::hardware_concurrency());
        bands = std::min(bands, std::max<std::size_t>(1, rows / kMinimumBandRows));
    }
    return std::clamp<std::size_t>(bands, 1, rows);
}

}  // namespace

void setDrawingBands(std::size_t bands) {
    bandsSetting.store(bands, std::memory_order_relaxed);
}

// Each band of output rows is drawn by a zimg graph of its own; their filters sample the source
// at the same positions as one graph over all rows would, so the result does not depend on the
// number of bands. The calling thread draws the first band and one thread each the others.
bool drawAligned(const AlignedDraw& d, std::string& why) {
    const std::size_t rows = d.Y1 - d.Y0, count = bandCount(rows, d.X1 - d.X0);
    if (count == 1) return Band(d, d.Y0, d.Y1).run(why);
    std::vector<Band> bands;
    bands.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        bands.emplace_back(d, d.Y0 + rows * i / count, d.Y0 + rows * (i + 1) / count);
    std::vector<std::string> whys(count);
    std::unique_ptr<bool[]> done(new bool[count]());
    std::vector<std::thread> workers;
    workers.reserve(count - 1);
    for (std::size_t i = 1; i < count; ++i) {
        try {
            workers.emplace_back([&, i] { done[i] = bands[i].run(whys[i]); });
        } catch (const std::system_error&) {
            done[i] = bands[i].run(whys[i]);  // no thread to be had: draw it here
        }
    }
    done[0] = bands[0].run(whys[0]);
    for (auto& worker : workers) worker.join();
    for (std::size_t i = 0; i < count; ++i)
        if (!done[i]) return why = whys[i], false;
    return true;
}

void fillPixels(std::uint8_t* dst, const std::uint8_t* pixel, int bpp, std::size_t count) {
    if (count == 0) return;
    const auto size = static_cast<std::size_t>(bpp);
    std::memcpy(dst, pixel, size);
    // Copies of what is already filled, twice as long each time: a few long copies run at
    // memcpy's speed where pixel-sized stores would not.
    for (std::size_t done = 1; done < count;) {
        const std::size_t n = std::min(done, count - done);
        std::memcpy(dst + done * size, dst, n * size);
        done += n;
    }
}

}  // namespace platform::bitmap_pixels
