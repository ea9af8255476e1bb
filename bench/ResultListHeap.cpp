// The heap that the result list of a home takes in memory, as the results screen holds it: the
// store's records and the assets that VRResultController builds its list from
// (ResultManager::assets). bench/batch-bench.py sets the heap a batch run gains against it.
// Counts the bytes asked of operator new, as heaptrack counts the bytes asked of malloc, so the
// two figures are made alike. Prints one JSON line: {"results": N, "bytes": B}.
//
//   ResultListHeap HOME
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "results/ResultManager.h"
#include "storage/VXHelperFiles.h"

namespace {

std::atomic<long long> gHeldBytes{0};

// Each block starts with the size asked for, so that a delete without a size can take it off.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* counted(std::size_t size) {
    void* block = std::malloc(size + kHeader);
    if (!block) return nullptr;
    *static_cast<std::size_t*>(block) = size;
    gHeldBytes += static_cast<long long>(size);
    return static_cast<char*>(block) + kHeader;
}

void uncounted(void* pointer) {
    if (!pointer) return;
    char* block = static_cast<char*>(pointer) - kHeader;
    gHeldBytes -= static_cast<long long>(*reinterpret_cast<std::size_t*>(block));
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* pointer = counted(size)) return pointer;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return counted(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return counted(size);
}
void operator delete(void* pointer) noexcept {
    uncounted(pointer);
}
void operator delete[](void* pointer) noexcept {
    uncounted(pointer);
}
void operator delete(void* pointer, std::size_t) noexcept {
    uncounted(pointer);
}
void operator delete[](void* pointer, std::size_t) noexcept {
    uncounted(pointer);
}
void operator delete(void* pointer, const std::nothrow_t&) noexcept {
    uncounted(pointer);
}
void operator delete[](void* pointer, const std::nothrow_t&) noexcept {
    uncounted(pointer);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: ResultListHeap HOME\n");
        return 2;
    }
    platform::Environment::setHomeRoot(std::filesystem::absolute(argv[1]).string());
    const std::string results = platform::FileManager::stringByAppendingPathComponent(
        VXHelper::documentDirectory(), "results");
    // A first reading starts the store's queue and the asset manager, which a run has running
    // before its first result too; only the second reading is counted.
    { ResultManager(results).assets(); }
    ResultManager store(results);
    const long long before = gHeldBytes;
    std::vector<VRAssetRef> list = store.assets();
    const long long held = gHeldBytes - before;
    std::printf("{\"results\": %zu, \"bytes\": %lld}\n", list.size(), held);
    return 0;
}
