// The shrink-on-load quality table: for photo jobs on the benchmark's JPEGs (p1.jpg, p2.jpg,
// as bench/photo-bench.py makes them), each JPEG reduction the decoder offers, the scale the
// filter has left after it, whether the photo stage takes it, and the PSNR of the drawing from
// the reduced decode against the drawing from the whole decode (same frame, same filter).
//
//     ShrinkOnLoadTable [INPUT_FOLDER]     (default: $UNWARP_BENCH_INPUTS)
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "model/ImageRendering.h"
#include "photo/ShrinkOnLoad.h"
#include "platform/ImageSource.h"

using namespace platform;

namespace {

struct Job {
    const char* name;
    const char* file;
    double width, height;
    VRImageArrangementBits method;
};

constexpr VRImageArrangementBits kBase =
    VRImageArrangementOriented | VRImageArrangementSourceColorSpace;

// The benchmark's jobs, and the reductions of the same photos that photo templates ask for.
const Job kJobs[] = {
    {"P1 uw-133 stretch 5363x3024", "p1.jpg", 5363, 3024, kBase},
    {"P1 fit 1080x1080", "p1.jpg", 1080, 1080, kBase | VRImageArrangementFit},
    {"P1 fit 480x480", "p1.jpg", 480, 480, kBase | VRImageArrangementFit},
    {"P2 ig-square clip 1080x1080", "p2.jpg", 1080, 1080, kBase | VRImageArrangementFill},
    {"P2 clip 720x720", "p2.jpg", 720, 720, kBase | VRImageArrangementFill},
    {"P2 fit 1080x1080", "p2.jpg", 1080, 1080, kBase | VRImageArrangementFit},
    {"P2 clip 320x320", "p2.jpg", 320, 320, kBase | VRImageArrangementFill},
};

// PSNR over the colour samples, in 8-bit terms; infinity for identical pictures.
double psnr(const Bitmap& a, const Bitmap& b) {
    double sum = 0;
    for (std::size_t y = 0; y < a.height(); ++y)
        for (std::size_t x = 0; x < a.width(); ++x) {
            auto p = a.pixelAt(x, y), q = b.pixelAt(x, y);
            for (double d : {double(p.r) - q.r, double(p.g) - q.g, double(p.b) - q.b})
                sum += (d / 257) * (d / 257);
        }
    double mse = sum / (3.0 * double(a.width() * a.height()));
    return mse == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 / mse);
}

std::optional<Bitmap> draw(const Bitmap& source, const Job& job) {
    return VRRenderCGImage(source, 0, kCGInterpolationHigh, std::nullopt, job.method, 1, 0,
                           CGRect{}, {job.width, job.height}, {0, 0});
}

}  // namespace

int main(int argc, char** argv) {
    const char* env = std::getenv("UNWARP_BENCH_INPUTS");
    const std::string folder = argc > 1 ? argv[1] : env ? env : "";
    if (folder.empty()) {
        std::fprintf(stderr, "usage: ShrinkOnLoadTable INPUT_FOLDER (with p1.jpg, p2.jpg)\n");
        return 2;
    }
    std::printf("%-30s %9s %10s %6s %9s\n", "job", "reduction", "remaining", "taken", "PSNR dB");
    for (const Job& job : kJobs) {
        auto source = ImageSource::createWithURL(folder + "/" + job.file);
        auto whole = source ? source->createImageAtIndex(0) : std::nullopt;
        auto reference = whole ? draw(*whole, job) : std::nullopt;
        if (!reference) {
            std::fprintf(stderr, "%s: cannot read or draw %s\n", job.name, job.file);
            return 1;
        }
        const double sw = source->pixelWidth(), sh = source->pixelHeight();
        // The picture's drawn size: the frame for stretch, the source framed to its ratio.
        const double rx = job.width / sw, ry = job.height / sh;
        const double k = job.method & VRImageArrangementFit    ? std::min(rx, ry)
                         : job.method & VRImageArrangementFill ? std::max(rx, ry)
                                                               : 0;
        const CGSize drawn = k > 0 ? CGSize{sw * k, sh * k} : CGSize{job.width, job.height};
        const std::uint32_t chosen = VRShrinkOnLoadDenominator({sw, sh}, drawn);
        for (std::uint32_t d : {2u, 4u, 8u}) {
            const double remaining = std::min(sw / d / drawn.width, sh / d / drawn.height);
            auto reduced = source->createReducedImage(d);
            auto drawnReduced = reduced ? draw(*reduced, job) : std::nullopt;
            if (!drawnReduced) {
                std::printf("%-30s %9s %10.2f %6s %9s\n", job.name,
                            ("1/" + std::to_string(d)).c_str(), remaining, "-", "n/a");
                continue;
            }
            std::printf("%-30s %9s %10.2f %6s %9.2f\n", job.name,
                        ("1/" + std::to_string(d)).c_str(), remaining, d == chosen ? "yes" : "no",
                        psnr(*reference, *drawnReduced));
        }
    }
    return 0;
}
