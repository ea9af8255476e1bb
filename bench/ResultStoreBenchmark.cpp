// Kernel timings of the result store over a store of many results: loading the tree in a new
// process's store (the walk, the folder dates and the sort), and adding one result, a photo
// result (a reference to a library item) and a local result (a small JPEG moved in, with its
// thumbnail drawn), each until its disk step has ended. The store comes from
// UNWARP_BENCH_RESULTS (a "results" folder, as bench/results-bench.py makes it), the JPEG from
// UNWARP_BENCH_RESULT_JPEG. The results added are removed again afterwards.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "results/ResultManager.h"

namespace fs = std::filesystem;

namespace {

std::string inputOrSkip(benchmark::State& state, const char* variable) {
    const char* value = std::getenv(variable);
    if (!value || !*value) state.SkipWithError((std::string(variable) + " is not set").c_str());
    return value ? value : "";
}

void ResultStoreLoad(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_RESULTS");
    if (root.empty()) return;
    for (auto _ : state) {
        ResultManager store(root);
        const std::size_t count = store.numberOfAssets();
        benchmark::DoNotOptimize(count);
        state.counters["results"] = double(count);
    }
}

// Adds one result an iteration with `add`, which gets the iteration's number; then takes the
// added ones away again.
template <class Add>
void addEach(benchmark::State& state, const std::string& root, Add add) {
    ResultManager store(root);
    const std::size_t before = store.numberOfAssets();
    std::size_t n = 0;
    for (auto _ : state) {
        add(store, n++);
        store.waitUntilStored();
    }
    std::set<std::size_t> added;
    for (std::size_t i = before; i < store.numberOfAssets(); ++i) added.insert(i);
    store.removeAssetsAt(added);
    store.waitUntilStored();
}

void ResultStoreAddPhoto(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_RESULTS");
    if (root.empty()) return;
    addEach(state, root, [](ResultManager& store, std::size_t n) {
        store.addPhotoAssetResultWith("BENCH-" + std::to_string(n) + "/L0/001");
    });
}

void ResultStoreAddLocal(benchmark::State& state) {
    const std::string root = inputOrSkip(state, "UNWARP_BENCH_RESULTS");
    const std::string jpeg = inputOrSkip(state, "UNWARP_BENCH_RESULT_JPEG");
    if (root.empty() || jpeg.empty()) return;
    const fs::path staging = fs::path(root).parent_path() / "staging";
    fs::create_directories(staging);
    addEach(state, root, [&](ResultManager& store, std::size_t n) {
        state.PauseTiming();
        const fs::path copy = staging / ("bench-" + std::to_string(n) + ".jpg");
        fs::copy_file(jpeg, copy, fs::copy_options::overwrite_existing);
        state.ResumeTiming();
        store.addLocalAssetResultWith(copy.string());
    });
}

}  // namespace

BENCHMARK(ResultStoreLoad)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(ResultStoreAddPhoto)->Unit(benchmark::kMillisecond)->Iterations(50);
BENCHMARK(ResultStoreAddLocal)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK_MAIN();
