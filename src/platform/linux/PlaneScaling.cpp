// Plane scaling through zimg. One greyscale resampling graph serves every channel: interleaved
// formats are read and written through zimg's line callbacks one channel at a time, and so are
// views whose address or stride zimg's SIMD code cannot take directly.
#include "platform/PlaneScaling.h"

#include <zimg.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <tuple>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr std::size_t kAlign = 64;
constexpr std::size_t kMaxSide = 1u << 16;

std::size_t alignUp(std::size_t v) {
    return (v + kAlign - 1) / kAlign * kAlign;
}
bool isAligned(const void* p, std::size_t stride) {
    return reinterpret_cast<std::uintptr_t>(p) % 32 == 0 && stride % 32 == 0;
}

// The interleaved sample layout of one form.
struct Form {
    std::size_t bytesPerSample;  // 1 or 2
    std::size_t channels;        // samples per pixel
};

constexpr Form kPlanar8{1, 1}, kPlanar16{2, 1}, kCbCr8{1, 2}, kCbCr16{2, 2}, kARGB8{1, 4},
    kARGB16{2, 4};

struct GraphKey {
    std::size_t sw, sh, dw, dh, bytes;
    bool highQuality;
    bool operator==(const GraphKey& o) const {
        return std::tie(sw, sh, dw, dh, bytes, highQuality) ==
               std::tie(o.sw, o.sh, o.dw, o.dh, o.bytes, o.highQuality);
    }
};

struct Graph {
    GraphKey key;
    zimg_filter_graph* graph = nullptr;
    std::size_t tmpSize = 0;
    unsigned inputLines = 0, outputLines = 0;
    ~Graph() { zimg_filter_graph_free(graph); }
};

// Building a Lanczos graph costs far more than running it on a small plane, and frames come
// at one size after another, so each thread keeps its last few graphs.
std::shared_ptr<Graph> graphFor(const GraphKey& key) {
    thread_local std::list<std::shared_ptr<Graph>> cache;
    for (auto it = cache.begin(); it != cache.end(); ++it) {
        if ((*it)->key == key) {
            cache.splice(cache.begin(), cache, it);
            return cache.front();
        }
    }
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    src.width = static_cast<unsigned>(key.sw);
    src.height = static_cast<unsigned>(key.sh);
    dst.width = static_cast<unsigned>(key.dw);
    dst.height = static_cast<unsigned>(key.dh);
    for (zimg_image_format* f : {&src, &dst}) {
        f->pixel_type = key.bytes == 1 ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
        f->depth = key.bytes == 1 ? 8 : 16;
        f->color_family = ZIMG_COLOR_GREY;
        f->pixel_range = ZIMG_RANGE_FULL;
    }
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = key.highQuality ? ZIMG_RESIZE_LANCZOS : ZIMG_RESIZE_BILINEAR;
    params.filter_param_a = 3;
    params.dither_type = ZIMG_DITHER_NONE;
    params.cpu_type = ZIMG_CPU_AUTO;
    auto graph = std::make_shared<Graph>();
    graph->key = key;
    graph->graph = zimg_filter_graph_build(&src, &dst, &params);
    if (!graph->graph) return nullptr;
    if (zimg_filter_graph_get_tmp_size(graph->graph, &graph->tmpSize) ||
        zimg_filter_graph_get_input_buffering(graph->graph, &graph->inputLines) ||
        zimg_filter_graph_get_output_buffering(graph->graph, &graph->outputLines)) {
        return nullptr;
    }
    cache.push_front(graph);
    if (cache.size() > 6) cache.pop_back();
    return graph;
}

struct Ring {
    std::uint8_t* data = nullptr;
    std::size_t stride = 0;
    unsigned mask = 0;
    std::size_t rows = 0;
    std::size_t bytes() const { return stride * rows; }
};

// A ring of the lines zimg asks for; all of them when it needs the whole plane.
Ring ringFor(unsigned lines, std::size_t width, std::size_t height, std::size_t bytesPerSample) {
    Ring r;
    r.mask = zimg_select_buffer_mask(lines);
    r.rows = r.mask == ZIMG_BUFFER_MAX ? height
                                       : std::min<std::size_t>(static_cast<std::size_t>(r.mask) + 1,
                                                               (std::size_t{1} << 31));
    r.stride = alignUp(width * bytesPerSample);
    return r;
}

// One channel of an interleaved view, moved between the view and a ring buffer line by line.
struct ChannelAccess {
    const vImage_Buffer* view;
    Form form;
    std::size_t channel;
    Ring ring;
};

// Interleaved CbCr is the hot case of the line callbacks (every chroma plane of every frame,
// each channel read and written once per pass), so pairs are moved sixteen bytes at a time.
#if defined(__SSE2__)
template <class T>
__m128i loadBlock(const T* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
template <class T>
void storeBlock(T* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
#endif

// Channel c (0 or 1) of `count` pairs into a plain row.
template <class T>
void splitPairs(const T* in, T* out, std::size_t count, std::size_t c) {
    std::size_t x = 0;
#if defined(__SSE2__)
    constexpr std::size_t step = 16 / sizeof(T);
    for (; x + step <= count; x += step) {
        __m128i a = loadBlock(in + 2 * x), b = loadBlock(in + 2 * x + step);
        if constexpr (sizeof(T) == 1) {
            const __m128i low = _mm_set1_epi16(0x00FF);
            a = c ? _mm_srli_epi16(a, 8) : _mm_and_si128(a, low);
            b = c ? _mm_srli_epi16(b, 8) : _mm_and_si128(b, low);
            storeBlock(out + x, _mm_packus_epi16(a, b));
        } else {
            // Sign-extended words survive the signed saturation of the pack unchanged.
            a = c ? _mm_srai_epi32(a, 16) : _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
            b = c ? _mm_srai_epi32(b, 16) : _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
            storeBlock(out + x, _mm_packs_epi32(a, b));
        }
    }
#endif
    for (; x < count; ++x) out[x] = in[2 * x + c];
}

// A plain row into channel c of `count` pairs, leaving the other channel as it is.
template <class T>
void mergePairs(const T* in, T* out, std::size_t count, std::size_t c) {
    std::size_t x = 0;
#if defined(__SSE2__)
    constexpr std::size_t step = 16 / sizeof(T);
    const __m128i zero = _mm_setzero_si128();
    for (; x + step <= count; x += step) {
        const __m128i v = loadBlock(in + x);
        __m128i lo, hi, keep;
        if constexpr (sizeof(T) == 1) {
            lo = _mm_unpacklo_epi8(v, zero);
            hi = _mm_unpackhi_epi8(v, zero);
            if (c) {
                lo = _mm_slli_epi16(lo, 8);
                hi = _mm_slli_epi16(hi, 8);
            }
            keep = _mm_set1_epi16(c ? 0x00FF : static_cast<short>(0xFF00));
        } else {
            lo = _mm_unpacklo_epi16(v, zero);
            hi = _mm_unpackhi_epi16(v, zero);
            if (c) {
                lo = _mm_slli_epi32(lo, 16);
                hi = _mm_slli_epi32(hi, 16);
            }
            keep = _mm_set1_epi32(c ? 0x0000FFFF : static_cast<int>(0xFFFF0000u));
        }
        T* o = out + 2 * x;
        storeBlock(o, _mm_or_si128(_mm_and_si128(loadBlock(o), keep), lo));
        storeBlock(o + step, _mm_or_si128(_mm_and_si128(loadBlock(o + step), keep), hi));
    }
#endif
    for (; x < count; ++x) out[2 * x + c] = in[x];
}

template <class T>
int unpackLine(void* user, unsigned i, unsigned left, unsigned right) {
    auto* a = static_cast<ChannelAccess*>(user);
    const T* in = reinterpret_cast<const T*>(static_cast<const std::uint8_t*>(a->view->data) +
                                             i * a->view->rowBytes);
    T* out = reinterpret_cast<T*>(a->ring.data + (i & a->ring.mask) * a->ring.stride);
    const std::size_t n = a->form.channels, c = a->channel;
    if (n == 1) {
        std::memcpy(out + left, in + left, (right - left) * sizeof(T));
    } else if (n == 2) {
        splitPairs(in + 2 * left, out + left, right - left, c);
    } else {
        for (unsigned x = left; x < right; ++x) out[x] = in[x * n + c];
    }
    return 0;
}

template <class T>
int packLine(void* user, unsigned i, unsigned left, unsigned right) {
    auto* a = static_cast<ChannelAccess*>(user);
    T* out =
        reinterpret_cast<T*>(static_cast<std::uint8_t*>(a->view->data) + i * a->view->rowBytes);
    const T* in = reinterpret_cast<const T*>(a->ring.data + (i & a->ring.mask) * a->ring.stride);
    const std::size_t n = a->form.channels, c = a->channel;
    if (n == 1) {
        std::memcpy(out + left, in + left, (right - left) * sizeof(T));
    } else if (n == 2) {
        mergePairs(in + left, out + 2 * left, right - left, c);
    } else {
        for (unsigned x = left; x < right; ++x) out[x * n + c] = in[x];
    }
    return 0;
}

vImage_Error checkView(const vImage_Buffer* v, Form form) {
    if (!v || !v->data) return kvImageNullPointerArgument;
    if (v->width == 0 || v->height == 0 || v->width > kMaxSide || v->height > kMaxSide) {
        return kvImageInvalidParameter;
    }
    if (v->rowBytes < v->width * form.bytesPerSample * form.channels) {
        return kvImageRoiLargerThanInputBuffer;
    }
    return kvImageNoError;
}

// Bytes of the caller's temporary buffer: zimg's own, and the two rings, 64-byte aligned
// inside a buffer that may itself be unaligned.
std::size_t tempSize(const Graph& g, const vImage_Buffer* src, const vImage_Buffer* dest,
                     Form form) {
    Ring in = ringFor(g.inputLines, src->width, src->height, form.bytesPerSample);
    Ring out = ringFor(g.outputLines, dest->width, dest->height, form.bytesPerSample);
    return kAlign + alignUp(g.tmpSize) + alignUp(in.bytes()) + alignUp(out.bytes());
}

void copyRows(const vImage_Buffer* src, const vImage_Buffer* dest, std::size_t rowLength) {
    for (std::size_t y = 0; y < src->height; ++y) {
        std::memcpy(static_cast<std::uint8_t*>(dest->data) + y * dest->rowBytes,
                    static_cast<const std::uint8_t*>(src->data) + y * src->rowBytes, rowLength);
    }
}

vImage_Error scale(const vImage_Buffer* src, const vImage_Buffer* dest, void* tempBuffer,
                   vImage_Flags flags, Form form) {
    if (vImage_Error e = checkView(src, form)) return e;
    if (vImage_Error e = checkView(dest, form)) return e;
    const bool sameSize = src->width == dest->width && src->height == dest->height;
    if (sameSize && !(flags & kvImageGetTempBufferSize)) {
        copyRows(src, dest, src->width * form.bytesPerSample * form.channels);
        return kvImageNoError;
    }
    GraphKey key{src->width,   src->height,         dest->width,
                 dest->height, form.bytesPerSample, (flags & kvImageHighQualityResampling) != 0};
    std::shared_ptr<Graph> graph = sameSize ? nullptr : graphFor(key);
    if (flags & kvImageGetTempBufferSize) {
        if (sameSize) return 0;
        if (!graph) return kvImageInternalError;
        return static_cast<vImage_Error>(tempSize(*graph, src, dest, form));
    }
    if (!graph) return kvImageInternalError;

    std::unique_ptr<void, void (*)(void*)> owned(nullptr, std::free);
    std::size_t needed = tempSize(*graph, src, dest, form);
    if (!tempBuffer) {
        owned.reset(std::malloc(needed));
        if (!owned) return kvImageMemoryAllocationError;
        tempBuffer = owned.get();
    }
    auto* base =
        reinterpret_cast<std::uint8_t*>(alignUp(reinterpret_cast<std::uintptr_t>(tempBuffer)));
    std::uint8_t* zimgTmp = base;
    ChannelAccess in{src, form, 0,
                     ringFor(graph->inputLines, src->width, src->height, form.bytesPerSample)};
    ChannelAccess out{dest, form, 0,
                      ringFor(graph->outputLines, dest->width, dest->height, form.bytesPerSample)};
    in.ring.data = zimgTmp + alignUp(graph->tmpSize);
    out.ring.data = in.ring.data + alignUp(in.ring.bytes());

    const bool directIn = form.channels == 1 && isAligned(src->data, src->rowBytes);
    const bool directOut = form.channels == 1 && isAligned(dest->data, dest->rowBytes);
    auto unpack = form.bytesPerSample == 1 ? unpackLine<std::uint8_t> : unpackLine<std::uint16_t>;
    auto pack = form.bytesPerSample == 1 ? packLine<std::uint8_t> : packLine<std::uint16_t>;

    for (std::size_t c = 0; c < form.channels; ++c) {
        in.channel = out.channel = c;
        zimg_image_buffer_const srcBuf{};
        srcBuf.version = ZIMG_API_VERSION;
        zimg_image_buffer dstBuf{};
        dstBuf.version = ZIMG_API_VERSION;
        if (directIn) {
            srcBuf.plane[0] = {src->data, static_cast<ptrdiff_t>(src->rowBytes), ZIMG_BUFFER_MAX};
        } else {
            srcBuf.plane[0] = {in.ring.data, static_cast<ptrdiff_t>(in.ring.stride), in.ring.mask};
        }
        if (directOut) {
            dstBuf.plane[0] = {dest->data, static_cast<ptrdiff_t>(dest->rowBytes), ZIMG_BUFFER_MAX};
        } else {
            dstBuf.plane[0] = {out.ring.data, static_cast<ptrdiff_t>(out.ring.stride),
                               out.ring.mask};
        }
        if (zimg_filter_graph_process(graph->graph, &srcBuf, &dstBuf, zimgTmp,
                                      directIn ? nullptr : unpack, &in, directOut ? nullptr : pack,
                                      &out)) {
            return kvImageInternalError;
        }
    }
    return kvImageNoError;
}

template <class T, std::size_t N>
vImage_Error fill(const vImage_Buffer* dest, const T (&color)[N]) {
    if (!dest || !dest->data) return kvImageNullPointerArgument;
    if (dest->rowBytes < dest->width * N * sizeof(T)) return kvImageRoiLargerThanInputBuffer;
    for (std::size_t y = 0; y < dest->height; ++y) {
        T* row = reinterpret_cast<T*>(static_cast<std::uint8_t*>(dest->data) + y * dest->rowBytes);
        if constexpr (N == 1 && sizeof(T) == 1) {
            std::memset(row, color[0], dest->width);
        } else {
            for (std::size_t x = 0; x < dest->width; ++x) {
                for (std::size_t c = 0; c < N; ++c) row[x * N + c] = color[c];
            }
        }
    }
    return kvImageNoError;
}

}  // namespace

vImage_Error vImageScale_Planar8(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kPlanar8);
}
vImage_Error vImageScale_Planar16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                   void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kPlanar16);
}
vImage_Error vImageScale_CbCr8(const vImage_Buffer* src, const vImage_Buffer* dest,
                               void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kCbCr8);
}
vImage_Error vImageScale_CbCr16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kCbCr16);
}
vImage_Error vImageScale_ARGB8888(const vImage_Buffer* src, const vImage_Buffer* dest,
                                  void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kARGB8);
}
vImage_Error vImageScale_ARGB16U(const vImage_Buffer* src, const vImage_Buffer* dest,
                                 void* tempBuffer, vImage_Flags flags) {
    return scale(src, dest, tempBuffer, flags, kARGB16);
}

vImage_Error vImageOverwriteChannelsWithScalar_Planar8(std::uint8_t scalar,
                                                       const vImage_Buffer* dest, vImage_Flags) {
    const std::uint8_t color[1] = {scalar};
    return fill(dest, color);
}
vImage_Error vImageOverwriteChannelsWithScalar_Planar16U(std::uint16_t scalar,
                                                         const vImage_Buffer* dest, vImage_Flags) {
    const std::uint16_t color[1] = {scalar};
    return fill(dest, color);
}
vImage_Error vImageBufferFill_CbCr8(const vImage_Buffer* dest, const std::uint8_t color[2],
                                    vImage_Flags) {
    const std::uint8_t c[2] = {color[0], color[1]};
    return fill(dest, c);
}
vImage_Error vImageBufferFill_CbCr16U(const vImage_Buffer* dest, const std::uint16_t color[2],
                                      vImage_Flags) {
    const std::uint16_t c[2] = {color[0], color[1]};
    return fill(dest, c);
}
vImage_Error vImageBufferFill_ARGB8888(const vImage_Buffer* dest, const std::uint8_t color[4],
                                       vImage_Flags) {
    const std::uint8_t c[4] = {color[0], color[1], color[2], color[3]};
    return fill(dest, c);
}
vImage_Error vImageBufferFill_ARGB16U(const vImage_Buffer* dest, const std::uint16_t color[4],
                                      vImage_Flags) {
    const std::uint16_t c[4] = {color[0], color[1], color[2], color[3]};
    return fill(dest, c);
}
