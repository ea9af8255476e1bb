// How the process hands memory back to the system.
#pragma once

namespace platform {

// From now on every block of 128 KiB or more (a video frame, a codec's buffers) is mapped on
// its own and unmapped when it is freed. The allocator would otherwise raise that bound to the
// size of the largest block freed so far, after which freed frames stay in the heap as free
// space that the next frame of another size may not fit: a movie's peak memory grew by the
// frames of earlier steps. Called when a movie is opened, not at program start:
// photos allocate their bitmaps afresh each time, and mapping them anew cost a tenth more
// CPU time than reusing the heap's pages.
void returnLargeBlocksToSystem();

}  // namespace platform
