// Kernel timings of the photo library: a first open of a library (the full scan into a new
// catalogue), a reopen with nothing changed, the listing of an album, and a 256-pixel
// thumbnail of a large JPEG made afresh (the cache entry removed before each run). Inputs
// come from UNWARP_BENCH_LIBRARY (a root whose "Camera" album holds the photos, as
// bench/library-bench.py makes it) and UNWARP_BENCH_THUMBNAIL (the JPEG); the catalogue and
// the thumbnail cache go to a temporary folder.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/PhotoLibrary.h"

using namespace platform;
namespace fs = std::filesystem;

namespace {

std::string inputOrSkip(benchmark::State& state, const char* variable) {
    const char* value = std::getenv(variable);
    if (!value || !*value) state.SkipWithError((std::string(variable) + " is not set").c_str());
    return value ? value : "";
}

std::string scratchFolder() {
    return (fs::temp_directory_path() / ("unwarp-library-bench-" + std::to_string(getpid())))
        .string();
}

PhotoLibraryLocations scratchLocations(const std::string& root, const std::string& name) {
    const std::string scratch = scratchFolder();
    fs::create_directories(scratch);
    return {root, scratch + "/" + name + ".sqlite", scratch + "/thumbnails"};
}

void removeCatalogue(const PhotoLibraryLocations& locations) {
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(locations.catalogPath + suffix);
}

void LibraryOpenFirst(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_LIBRARY");
    if (root.empty()) return;
    const auto locations = scratchLocations(root, "first");
    for (auto _ : state) {
        state.PauseTiming();
        removeCatalogue(locations);
        state.ResumeTiming();
        auto library = PhotoLibrary::open(locations);
        if (!library) state.SkipWithError("the library did not open");
        benchmark::DoNotOptimize(library);
    }
}

void LibraryReopen(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_LIBRARY");
    if (root.empty()) return;
    const auto locations = scratchLocations(root, "reopen");
    PhotoLibrary::open(locations);  // the first scan, not timed
    for (auto _ : state) {
        auto library = PhotoLibrary::open(locations);
        if (!library) state.SkipWithError("the library did not open");
        benchmark::DoNotOptimize(library);
    }
}

void LibraryAlbumList(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_LIBRARY");
    if (root.empty()) return;
    auto library = PhotoLibrary::open(scratchLocations(root, "list"));
    auto album = library ? library->albumWithTitle("Camera") : std::nullopt;
    if (!album) {
        state.SkipWithError("no Camera album");
        return;
    }
    for (auto _ : state) {
        auto assets = library->fetchAssetsInAssetCollection(album->localIdentifier, {});
        benchmark::DoNotOptimize(assets);
        state.counters["assets"] = double(assets.count());
    }
}

void LibraryThumbnail256(benchmark::State& state) {
    const std::string photo = inputOrSkip(state, "UNWARP_BENCH_THUMBNAIL");
    if (photo.empty()) return;
    const auto locations = scratchLocations(fs::path(photo).parent_path().string(), "thumbnail");
    auto library = PhotoLibrary::open(locations);
    auto assets = library ? library->fetchAssetsWithOptions({}) : PHFetchResult<PHAsset>();
    if (assets.count() != 1) {
        state.SkipWithError("the thumbnail folder must hold exactly the one photo");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove_all(locations.thumbnailsCache);
        state.ResumeTiming();
        ErrorRef error;
        auto image = library->requestThumbnail(assets.firstObject()->localIdentifier, 256, &error);
        if (!image) state.SkipWithError("no thumbnail");
        benchmark::DoNotOptimize(image);
    }
}

}  // namespace

BENCHMARK(LibraryOpenFirst)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(LibraryReopen)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(LibraryAlbumList)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();
BENCHMARK(LibraryThumbnail256)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    fs::remove_all(scratchFolder(), ignored);
    return 0;
}
