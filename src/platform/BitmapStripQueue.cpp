#include "platform/BitmapStripQueue.h"

namespace platform {

bool BitmapStripQueue::push(Bitmap strip) {
    std::unique_lock lock(_mutex);
    // The strip the consumer reads stays at the front, so one more than the capacity is held.
    _changed.wait(lock, [&] { return _closed || _strips.size() <= _capacity; });
    if (_closed) return false;
    _strips.push_back(std::move(strip));
    _changed.notify_all();
    return true;
}

void BitmapStripQueue::finish(bool complete) {
    std::lock_guard lock(_mutex);
    _finished = true;
    (void)complete;  // a consumer short of rows finds out by the rows missing
    _changed.notify_all();
}

const Bitmap* BitmapStripQueue::rowsFor(std::size_t y) {
    std::unique_lock lock(_mutex);
    for (;;) {
        while (!_strips.empty() && _strips.front().firstRow() + _strips.front().rowCount() <= y) {
            _strips.pop_front();
            _changed.notify_all();
        }
        if (!_strips.empty()) return _strips.front().firstRow() <= y ? &_strips.front() : nullptr;
        if (_finished || _closed) return nullptr;
        _changed.wait(lock);
    }
}

void BitmapStripQueue::close() {
    std::lock_guard lock(_mutex);
    _closed = true;
    _strips.clear();
    _changed.notify_all();
}

}  // namespace platform
