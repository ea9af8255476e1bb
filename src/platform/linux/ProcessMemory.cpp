#include "platform/ProcessMemory.h"

#include <malloc.h>

namespace platform {

void returnLargeBlocksToSystem() {
    // Setting the bound at all also stops the allocator from moving it (and the trim bound
    // with it), so once is enough however many movies are opened; 128 KiB is its own
    // starting value.
    static const bool set = mallopt(M_MMAP_THRESHOLD, 128 * 1024) == 1;
    (void)set;
}

}  // namespace platform
