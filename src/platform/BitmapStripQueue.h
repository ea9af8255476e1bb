// Hands the strips of a picture from one thread to the next, in order and a few at a time, so
// that the stages overlap while the picture is never whole in memory: the row reader's decoder
// feeds the drawing through one, and the drawing its encoder through another.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

#include "platform/Bitmap.h"

namespace platform {

class BitmapStripQueue {
  public:
    // At most `capacity` strips wait for the encoder; push() blocks beyond that.
    explicit BitmapStripQueue(std::size_t capacity = 2) : _capacity(capacity ? capacity : 1) {}

    // Producer: the next strip, its rows following the last strip's. False once the consumer
    // has stopped (close()), so that the producer stops drawing.
    bool push(Bitmap strip);
    // Producer: no more strips come. With `complete` false the rows stopped short, and the
    // consumer's next rowsFor() of a missing row gives null.
    void finish(bool complete);

    // Consumer: the strip holding row `y`, waiting for it; rows are asked for top to bottom,
    // and strips above `y` are let go. Null when the rows stopped before `y`. The strip stays
    // valid until a later row is asked for.
    const Bitmap* rowsFor(std::size_t y);
    // Consumer: stops taking strips; a blocked or later push() returns false.
    void close();

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Bitmap> _strips;
    std::size_t _capacity;
    bool _finished = false, _closed = false;
};

}  // namespace platform
