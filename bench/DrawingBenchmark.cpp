// Kernel timings of the photo jobs P1-P4, each step alone: decode, draw (as the photo pipeline
// draws: one context, a fill or clear, the transform and clip, one draw), encode, and zimg's own
// resize of the same planes as the floor under the draw. Inputs come from the folder in
// UNWARP_BENCH_INPUTS (p1.jpg, p2.jpg, p3.png, p4.heic, as bench/photo-bench.py makes them);
// without it, synthetic ones are written to a temporary folder first. The encode step writes
// beside the inputs, as kernel-P1.jpg and so on.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "PlaneResizeFloor.h"
#include "platform/BitmapContext.h"
#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"

using namespace platform;
using bench::PlaneResizeFloor;
namespace fs = std::filesystem;

namespace {

enum class Arrangement { Stretch, Clip, Fit };

struct Job {
    const char* name;
    const char* file;
    const char* outputType;
    std::size_t width, height;  // the source, for the synthetic input
    bool alpha16;               // 16-bit RGBA source
    std::size_t targetWidth, targetHeight;
    Arrangement arrangement;
};

const Job kJobs[] = {
    {"P1", "p1.jpg", "public.jpeg", 4032, 3024, false, 5363, 3024, Arrangement::Stretch},
    {"P2", "p2.jpg", "public.jpeg", 6000, 4000, false, 1080, 1080, Arrangement::Clip},
    {"P3", "p3.png", "public.png", 3000, 2000, true, 1080, 1920, Arrangement::Fit},
    {"P4", "p4.heic", "public.heic", 4032, 3024, false, 5363, 3024, Arrangement::Stretch},
};

// A picture with detail at several scales, so that codecs and filters do real work.
Bitmap texture(std::size_t w, std::size_t h, bool alpha16) {
    PixelLayout layout{alpha16 ? 16 : 8, 3,
                       alpha16 ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
    std::vector<std::uint8_t> px(w * h * static_cast<std::size_t>(layout.bytesPerPixel()));
    std::uint32_t seed = 12345;
    for (std::size_t y = 0; y < h; ++y)
        for (std::size_t x = 0; x < w; ++x) {
            seed = seed * 1664525u + 1013904223u;
            double noise = static_cast<double>(seed >> 24) / 255.0 - 0.5;
            double v[4];
            for (int k = 0; k < 3; ++k)
                v[k] = 0.5 + 0.25 * std::sin(x * (0.011 + 0.004 * k) + y * 0.007) +
                       0.15 * std::sin((x + y) * 0.09 * (k + 1)) + 0.08 * noise;
            v[3] = 0.5 + 0.5 * std::sin(x * 0.003) * std::cos(y * 0.004);
            for (int k = 0; k < layout.samplesPerPixel(); ++k) {
                double c = std::clamp(k == 3 && !alpha16 ? 1.0 : v[k], 0.0, 1.0);
                std::size_t i = (y * w + x) * layout.samplesPerPixel() + k;
                if (alpha16) {
                    auto s = static_cast<std::uint16_t>(std::lround(c * 65535));
                    std::memcpy(&px[i * 2], &s, 2);
                } else {
                    px[i] = static_cast<std::uint8_t>(std::lround(c * 255));
                }
            }
        }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), std::move(px));
}

bool write(const Bitmap& image, const std::string& path, const std::string& type) {
    auto destination = ImageDestination::createWithURL(path, type, 1);
    if (!destination) return false;
    destination->addImage(image, {{kCGImageDestinationLossyCompressionQuality, 0.85}});
    return destination->finalize();
}

const std::string& inputFolder() {
    static const std::string folder = [] {
        if (const char* given = std::getenv("UNWARP_BENCH_INPUTS")) return std::string(given);
        std::string made =
            (fs::temp_directory_path() / ("unwarp-bench-" + std::to_string(::getpid()))).string();
        fs::create_directories(made);
        std::fprintf(stderr, "making synthetic inputs in %s (P2 is baseline, not progressive)\n",
                     made.c_str());
        for (const Job& job : kJobs) {
            std::string type = fs::path(job.file).extension() == ".png"    ? "public.png"
                               : fs::path(job.file).extension() == ".heic" ? "public.heic"
                                                                           : "public.jpeg";
            write(texture(job.width, job.height, job.alpha16), made + "/" + job.file, type);
        }
        return made;
    }();
    return folder;
}

std::vector<std::uint8_t> bytesOf(const Job& job) {
    std::ifstream in(inputFolder() + "/" + job.file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::optional<Bitmap> decode(std::vector<std::uint8_t> bytes) {
    auto source = ImageSource::createWithData(std::move(bytes));
    return source ? source->createImageAtIndex(0) : std::nullopt;
}

// Decoded sources are kept once, since each is read by several benchmarks.
const Bitmap& sourceOf(const Job& job) {
    static std::map<std::string, Bitmap> cache;
    auto it = cache.find(job.name);
    if (it == cache.end())
        it = cache.emplace(job.name, decode(bytesOf(job)).value_or(Bitmap())).first;
    return it->second;
}

// The alpha part of the context the pipeline makes for a source layout: premultiplied when
// the source has alpha or the fill is translucent, the source's opaque part otherwise.
std::uint32_t contextInfo(const Bitmap& source, bool translucent) {
    CGImageAlphaInfo alpha = source.alphaInfo();
    CGImageAlphaInfo part = alpha;
    if (translucent || alpha == kCGImageAlphaNone || alpha == kCGImageAlphaLast)
        part = kCGImageAlphaPremultipliedLast;
    if (alpha == kCGImageAlphaFirst) part = kCGImageAlphaPremultipliedFirst;
    return (source.bitmapInfo() & kCGBitmapByteOrderMask) | part;
}

// The draw of one job, step by step as the photo pipeline's rendering does it.
Bitmap render(const Job& job, const Bitmap& source) {
    const double W = static_cast<double>(source.width()), H = static_cast<double>(source.height());
    const double tw = static_cast<double>(job.targetWidth),
                 th = static_cast<double>(job.targetHeight);
    const bool clear = job.arrangement == Arrangement::Fit && job.alpha16;
    auto context =
        BitmapContext::create(job.targetWidth, job.targetHeight, source.bitsPerComponent(),
                              source.colorSpace(), contextInfo(source, clear));
    if (!context) return {};
    context->saveGState();
    context->setInterpolationQuality(kCGInterpolationHigh);
    if (clear) {
        context->clearRect({{0, 0}, {tw, th}});
    } else {
        context->setFillColor({1, 1, 1, 1});
        context->fillRect({{0, 0}, {tw, th}});
    }
    double rx = tw / W, ry = th / H, s = ry, xs = rx / ry;
    if (job.arrangement == Arrangement::Fit) s = std::min(rx, ry), xs = 1;
    if (job.arrangement == Arrangement::Clip) s = std::max(rx, ry), xs = 1;
    context->translateCTM(tw / 2, th / 2);
    if (xs != 1) context->scaleCTM(xs, 1);
    context->clipToRect({{-W * s / 2, -H * s / 2}, {W * s, H * s}});
    context->scaleCTM(1, 1);
    context->rotateCTM(0);
    context->drawImage({{-W / 2 * s, -H / 2 * s}, {W * s, H * s}}, source);
    context->restoreGState();
    return context->createImage();
}

void setCounters(benchmark::State& state, const Job& job) {
    state.counters["src_MP"] = static_cast<double>(job.width * job.height) / 1e6;
    state.counters["out_MP"] = static_cast<double>(job.targetWidth * job.targetHeight) / 1e6;
}

void BM_Decode(benchmark::State& state, const Job& job) {
    std::vector<std::uint8_t> bytes = bytesOf(job);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::uint8_t> copy = bytes;
        state.ResumeTiming();
        auto image = decode(std::move(copy));
        if (!image) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(image);
    }
    setCounters(state, job);
}

void BM_Draw(benchmark::State& state, const Job& job) {
    const Bitmap& source = sourceOf(job);
    if (source.isNull()) return state.SkipWithError("decode failed");
    for (auto _ : state) {
        Bitmap out = render(job, source);
        if (out.isNull()) state.SkipWithError("no context");
        benchmark::DoNotOptimize(out.data());
    }
    setCounters(state, job);
}

void BM_Encode(benchmark::State& state, const Job& job) {
    const Bitmap& source = sourceOf(job);
    if (source.isNull()) return state.SkipWithError("decode failed");
    Bitmap out = render(job, source);
    std::string path =
        inputFolder() + "/kernel-" + job.name + fs::path(job.file).extension().string();
    for (auto _ : state) {
        if (!write(out, path, job.outputType)) state.SkipWithError("encode failed");
    }
    state.counters["bytes"] = static_cast<double>(fs::file_size(path));
    setCounters(state, job);
}

// zimg on planes already in memory: the same source region to the same output size.
void BM_ZimgFloor(benchmark::State& state, const Job& job) {
    const double W = static_cast<double>(job.width), H = static_cast<double>(job.height);
    const double tw = static_cast<double>(job.targetWidth),
                 th = static_cast<double>(job.targetHeight);
    PlaneResizeFloor::Job f;
    f.srcWidth = job.width, f.srcHeight = job.height;
    f.deep = job.alpha16, f.alpha = job.alpha16;
    double rx = tw / W, ry = th / H;
    f.left = 0, f.top = 0, f.width = W, f.height = H;
    f.dstWidth = job.targetWidth, f.dstHeight = job.targetHeight;
    if (job.arrangement == Arrangement::Clip) {
        double s = std::max(rx, ry);
        f.width = tw / s, f.height = th / s;
        f.left = (W - f.width) / 2, f.top = (H - f.height) / 2;
    } else if (job.arrangement == Arrangement::Fit) {
        double s = std::min(rx, ry);
        f.dstWidth = static_cast<std::size_t>(std::ceil(W * s));
        f.dstHeight = static_cast<std::size_t>(std::ceil(H * s));
    }
    std::string why;
    auto floor = PlaneResizeFloor::make(f, why);
    if (!floor) return state.SkipWithError(why.c_str());
    for (auto _ : state) {
        if (!floor->run()) state.SkipWithError("zimg failed");
        benchmark::DoNotOptimize(floor->probe());
    }
    setCounters(state, job);
}

void registerAll() {
    for (const Job& job : kJobs) {
        std::string n = job.name;
        for (auto [kind, fn] :
             {std::pair{"Decode", &BM_Decode}, std::pair{"Draw", &BM_Draw},
              std::pair{"Encode", &BM_Encode}, std::pair{"ZimgFloor", &BM_ZimgFloor}}) {
            benchmark::RegisterBenchmark((std::string(kind) + "/" + n).c_str(), fn, job)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime()
                ->MeasureProcessCPUTime();
        }
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
