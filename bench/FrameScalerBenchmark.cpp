// The frame scaler per frame against libswscale's Lanczos on the same planes: for each job of
// the video benchmark, one biplanar source frame drawn into a destination from a pixel buffer
// pool as the frame loop draws it (views of each plane, placement, luma and CbCr scales with
// the temporary buffer kept across frames), and sws_scale with SWS_LANCZOS on the same planes
// and pixel formats (NV12 for 420v, P010 for x420). libswscale on three planes (yuv420p,
// yuv420p10) is shown as well: that is what the ffmpeg command line scales, since its decoders
// give planar frames. bench/video-bench.py reads the JSON output.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include "platform/CVPixelBuffer.h"
#include "platform/PlaneScaling.h"
#include "video/VRFrameScaler.h"

namespace {

struct Job {
    const char* name;
    OSType format;
    std::size_t width, height;
    std::size_t targetWidth, targetHeight;
    VRImageArrangement arrangement;
};

// V1 through uw-133 (stretch), V2 through yt-1080p (fill, same ratio); the 16-bit form of the
// V1 geometry for the 10-bit plane figure.
const Job kJobs[] = {
    {"V1-8bit-1920x1080-2554x1080", kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 1920, 1080,
     2554, 1080, VRImageArrangement::stretch},
    {"V1-16bit-1920x1080-2554x1080", kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, 1920, 1080,
     2554, 1080, VRImageArrangement::stretch},
    {"V2-16bit-3840x2160-1920x1080", kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, 3840, 2160,
     1920, 1080, VRImageArrangement::fill},
};

bool isDeep(OSType format) {
    return format == kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
}

// A frame with detail at several scales and some noise, so that the filters do real work.
// 10-bit samples sit in the high bits, as the reader delivers them.
CVPixelBufferRef texturedFrame(const Job& job) {
    CVPixelBufferRef frame = CVPixelBuffer::create(job.format, job.width, job.height);
    if (!frame) return nullptr;
    const bool deep = isDeep(job.format);
    std::uint32_t seed = 12345;
    auto sample = [&](double x, double y, int k) {
        seed = seed * 1664525u + 1013904223u;
        const double noise = static_cast<double>(seed >> 24) / 255.0 - 0.5;
        const double v = 0.5 + 0.25 * std::sin(x * (0.011 + 0.004 * k) + y * 0.007) +
                         0.15 * std::sin((x + y) * 0.09 * (k + 1)) + 0.08 * noise;
        return std::clamp(v, 0.0, 1.0);
    };
    for (std::size_t p = 0; p < 2; ++p) {
        const CVPixelBuffer::Plane& plane = frame->plane(p);
        const std::size_t channels = p == 0 ? 1 : 2;
        for (std::size_t y = 0; y < plane.height; ++y) {
            std::uint8_t* row = plane.data + y * plane.rowBytes;
            for (std::size_t x = 0; x < plane.width * channels; ++x) {
                const double v = sample(static_cast<double>(x / channels), static_cast<double>(y),
                                        static_cast<int>(p + x % channels));
                if (deep) {
                    const auto s = static_cast<std::uint16_t>(std::lround(v * 1023) << 6);
                    std::memcpy(row + 2 * x, &s, 2);
                } else {
                    row[x] = static_cast<std::uint8_t>(std::lround(v * 255));
                }
            }
        }
    }
    return frame;
}

vImage_Buffer planeView(const CVPixelBufferRef& buffer, std::size_t plane) {
    return {CVPixelBufferGetBaseAddressOfPlane(buffer, plane),
            CVPixelBufferGetHeightOfPlane(buffer, plane),
            CVPixelBufferGetWidthOfPlane(buffer, plane),
            CVPixelBufferGetBytesPerRowOfPlane(buffer, plane)};
}

// The frame loop's drawing of one biplanar frame with no displacement: both planes placed and
// scaled with one temporary buffer, sized on the first frame and kept.
class FrameDraw {
  public:
    explicit FrameDraw(const Job& job) : _job(job), _deep(isDeep(job.format)) {}

    bool draw(const CVPixelBufferRef& source, const CVPixelBufferRef& destination) {
        bool ok = true;
        for (std::size_t p = 0; p < 2; ++p) {
            vImage_Buffer s = planeView(source, p);
            vImage_Buffer d = planeView(destination, p);
            const bool luma = p == 0;
            const std::size_t sampleBytes = _deep ? 2 : 1;
            VRFrameScaler::placeViews(s, d, _job.arrangement, luma, 0, 0,
                                      (luma ? 1 : 2) * sampleBytes);
            auto scale = luma ? (_deep ? vImageScale_Planar16U : vImageScale_Planar8)
                              : (_deep ? vImageScale_CbCr16U : vImageScale_CbCr8);
            if (_sized <= p) {
                const vImage_Error size =
                    scale(&s, &d, nullptr, kvImageHighQualityResampling | kvImageGetTempBufferSize);
                if (size > 0 && static_cast<std::size_t>(size) > _temp.size()) {
                    _temp.resize(static_cast<std::size_t>(size));
                }
                _sized = p + 1;
            }
            ok = scale(&s, &d, _temp.empty() ? nullptr : _temp.data(),
                       kvImageHighQualityResampling) == kvImageNoError &&
                 ok;
        }
        return ok;
    }

  private:
    const Job& _job;
    bool _deep;
    std::vector<std::uint8_t> _temp;
    std::size_t _sized = 0;
};

// The source region that the placement maps onto the whole output (fill crops the middle).
struct Region {
    std::size_t left = 0, top = 0, width = 0, height = 0;
};

Region regionOf(const Job& job) {
    // A luma plane's worth of memory, so that the narrowed view points inside it.
    std::vector<std::uint8_t> luma(job.width * job.height);
    std::vector<std::uint8_t> out(job.targetWidth * job.targetHeight);
    vImage_Buffer s{luma.data(), job.height, job.width, job.width};
    vImage_Buffer d{out.data(), job.targetHeight, job.targetWidth, job.targetWidth};
    VRFrameScaler::placeViews(s, d, job.arrangement, true, 0, 0, 1);
    const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(s.data) - luma.data());
    return {offset % job.width, offset / job.width, s.width, s.height};
}

void setCounters(benchmark::State& state, const Job& job) {
    state.counters["src_MP"] = static_cast<double>(job.width * job.height) / 1e6;
    state.counters["out_MP"] = static_cast<double>(job.targetWidth * job.targetHeight) / 1e6;
}

void BM_FrameScaler(benchmark::State& state, const Job& job) {
    CVPixelBufferRef source = texturedFrame(job);
    auto pool = CVPixelBufferPool::create(job.format, job.targetWidth, job.targetHeight);
    if (!source || !pool) return state.SkipWithError("no pixel buffers");
    FrameDraw frameDraw(job);
    for (auto _ : state) {
        CVPixelBufferRef destination;
        if (CVPixelBufferPoolCreatePixelBuffer(pool, &destination) != kCVReturnSuccess) {
            return state.SkipWithError("pool failed");
        }
        if (!frameDraw.draw(source, destination)) return state.SkipWithError("scale failed");
        benchmark::DoNotOptimize(destination->baseAddressOfPlane(0));
    }
    setCounters(state, job);
}

// sws_scale with Lanczos-3 (SWS_LANCZOS's default width) from the placed region of the source
// to the whole output. `planar`: three planes as the ffmpeg command line has them; otherwise
// the biplanar frame and destination themselves.
void BM_Swscale(benchmark::State& state, const Job& job, bool planar) {
    const bool deep = isDeep(job.format);
    const AVPixelFormat format = planar ? (deep ? AV_PIX_FMT_YUV420P10LE : AV_PIX_FMT_YUV420P)
                                        : (deep ? AV_PIX_FMT_P010LE : AV_PIX_FMT_NV12);
    const Region r = regionOf(job);
    SwsContext* context =
        sws_getContext(static_cast<int>(r.width), static_cast<int>(r.height), format,
                       static_cast<int>(job.targetWidth), static_cast<int>(job.targetHeight),
                       format, SWS_LANCZOS, nullptr, nullptr, nullptr);
    if (!context) return state.SkipWithError("swscale refused the formats");
    std::unique_ptr<SwsContext, void (*)(SwsContext*)> owned(context, sws_freeContext);

    const std::size_t bytes = deep ? 2 : 1;
    // Planes: Y, then CbCr interleaved or Cb and Cr apart, each 64-byte aligned rows.
    struct Planes {
        std::vector<std::vector<std::uint8_t>> memory;
        std::uint8_t* data[4] = {};
        int stride[4] = {};
    };
    auto makePlanes = [&](std::size_t w, std::size_t h) {
        Planes planes;
        const std::size_t count = planar ? 3 : 2;
        for (std::size_t p = 0; p < count; ++p) {
            const std::size_t pw = p == 0 ? w : (w + 1) / 2 * (planar ? 1 : 2);
            const std::size_t ph = p == 0 ? h : (h + 1) / 2;
            const std::size_t stride = (pw * bytes + 63) / 64 * 64;
            planes.memory.emplace_back(stride * ph + 64, std::uint8_t{0});
            planes.data[p] = planes.memory.back().data();
            planes.stride[p] = static_cast<int>(stride);
        }
        return planes;
    };
    Planes src = makePlanes(job.width, job.height);
    Planes dst = makePlanes(job.targetWidth, job.targetHeight);
    // The same picture as the frame scaler's source, split into three planes where asked.
    CVPixelBufferRef frame = texturedFrame(job);
    if (!frame) return state.SkipWithError("no pixel buffer");
    for (std::size_t p = 0; p < 2; ++p) {
        const CVPixelBuffer::Plane& plane = frame->plane(p);
        for (std::size_t y = 0; y < plane.height; ++y) {
            const std::uint8_t* in = plane.data + y * plane.rowBytes;
            if (p == 0 || !planar) {
                std::memcpy(src.data[p] + y * src.stride[p], in,
                            plane.width * bytes * (p == 0 ? 1 : 2));
                continue;
            }
            for (std::size_t x = 0; x < plane.width; ++x) {
                for (std::size_t c = 0; c < 2; ++c) {
                    std::uint8_t* out = src.data[1 + c] + y * src.stride[1 + c] + x * bytes;
                    std::memcpy(out, in + (2 * x + c) * bytes, bytes);
                    if (deep) {  // 10 bits in the low bits for yuv420p10
                        std::uint16_t v;
                        std::memcpy(&v, out, 2);
                        v = static_cast<std::uint16_t>(v >> 6);
                        std::memcpy(out, &v, 2);
                    }
                }
            }
        }
    }
    if (planar && deep) {
        for (std::size_t y = 0; y < job.height; ++y) {
            auto* row = reinterpret_cast<std::uint16_t*>(src.data[0] + y * src.stride[0]);
            for (std::size_t x = 0; x < job.width; ++x)
                row[x] = static_cast<std::uint16_t>(row[x] >> 6);
        }
    }
    // Point at the placed region: whole chroma pairs, whole luma pixels.
    const std::uint8_t* region[4] = {};
    const std::size_t planeCount = planar ? 3 : 2;
    for (std::size_t p = 0; p < planeCount; ++p) {
        const std::size_t sub = p == 0 ? 1 : 2;
        const std::size_t samplesPerPixel = p == 0 || planar ? 1 : 2;
        region[p] = src.data[p] + (r.top / sub) * static_cast<std::size_t>(src.stride[p]) +
                    (r.left / sub) * samplesPerPixel * bytes;
    }
    for (auto _ : state) {
        const int rows = sws_scale(context, region, src.stride, 0, static_cast<int>(r.height),
                                   dst.data, dst.stride);
        if (rows != static_cast<int>(job.targetHeight)) return state.SkipWithError("sws_scale");
        benchmark::DoNotOptimize(dst.data[0][0]);
    }
    setCounters(state, job);
}

void registerAll() {
    for (const Job& job : kJobs) {
        const std::string n = job.name;
        auto add = [&](const std::string& name, auto fn) {
            benchmark::RegisterBenchmark(name.c_str(), fn)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime()
                ->MeasureProcessCPUTime();
        };
        add("FrameScaler/" + n, [&job](benchmark::State& s) { BM_FrameScaler(s, job); });
        add("SwsLanczos/" + n, [&job](benchmark::State& s) { BM_Swscale(s, job, false); });
        add("SwsLanczosPlanar/" + n, [&job](benchmark::State& s) { BM_Swscale(s, job, true); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
