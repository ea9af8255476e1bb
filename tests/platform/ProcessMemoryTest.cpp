#include "platform/ProcessMemory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

// The process's resident anonymous memory (heap, mappings, stacks) in KiB.
long residentAnonymousKiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "RssAnon:") {
            status >> value;
            return value;
        }
        std::getline(status, key);
    }
    return -1;
}

void* touched(std::size_t bytes) {
    void* block = std::malloc(bytes);
    if (block) std::memset(block, 1, bytes);
    // Seen as used, so that the compiler keeps the allocation and the writing.
    asm volatile("" : : "r"(block) : "memory");
    return block;
}

}  // namespace

// A run that freed a large frame and then works with smaller ones, as a movie's decoder and
// encoder do: the smaller frames must go back to the system when they are freed, not stay
// resident as free heap.
TEST(ProcessMemoryTest, FreedFramesLeaveTheProcessAfterALargerOneWasFreed) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's allocator stands in for the system's";
#endif
    platform::returnLargeBlocksToSystem();
    // A 16 MB block freed: the allocator's own rule would now keep blocks below it in the heap.
    std::free(touched(16u << 20));

    constexpr std::size_t kFrames = 12, kFrameBytes = 2u << 20;
    // Each frame followed by a small block, as the pipeline's bookkeeping lies between its
    // frames: freed frames in the heap could then neither merge nor be trimmed from its top.
    std::vector<void*> frames, bookkeeping;
    frames.reserve(kFrames);
    bookkeeping.reserve(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        frames.push_back(touched(kFrameBytes));
        bookkeeping.push_back(touched(4096));
        ASSERT_NE(frames.back(), nullptr);
    }
    const long held = residentAnonymousKiB();
    ASSERT_GT(held, 0);
    for (void* frame : frames) std::free(frame);
    const long after = residentAnonymousKiB();
    for (void* block : bookkeeping) std::free(block);

    // Measured as what the freeing gave back, since pages freed earlier in the process may
    // have been taken again by the frames without growing it.
    const long frameKiB = static_cast<long>(kFrames * kFrameBytes / 1024);
    EXPECT_GE(held - after, frameKiB * 3 / 4) << "freed frames stayed resident: " << held - after
                                              << " KiB of " << frameKiB << " KiB went back";
}
