// Decoding ahead: a producer thread fills batches of rows, the reader copies them out in order.
#include "platform/linux/RowReadAhead.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace platform::codecs {
namespace {

struct Batch {
    std::vector<std::uint8_t> rows;
    std::size_t count = 0;
    std::string error;  // set on the batch that ends the decoding early
};

class ReadAhead final : public RowDecoder {
  public:
    ReadAhead(std::unique_ptr<RowDecoder> decoder, std::size_t aheadBytes)
        : _decoder(std::move(decoder)), _stride(_decoder->shape().bytesPerRow()) {
        // Batches of a few hundred KB: few hand-overs, and four of them in flight.
        constexpr std::size_t kBatches = 4;
        _batchRows =
            std::clamp<std::size_t>(aheadBytes / kBatches / std::max<std::size_t>(_stride, 1), 1,
                                    std::max<std::size_t>(_decoder->shape().height(), 1));
        _limit = kBatches;
    }

    ~ReadAhead() override {
        {
            std::lock_guard lock(_mutex);
            _stopping = true;
        }
        _changed.notify_all();
        if (_thread.joinable()) _thread.join();
    }

    const Bitmap& shape() const override { return _decoder->shape(); }

    bool readRow(std::uint8_t* out, std::string& why) override {
        if (!_started) start();
        if (!_thread.joinable()) return _decoder->readRow(out, why);  // no thread to be had
        if (_taken == _current.count) {
            // A failure, or the end, stays: each later call reports it again.
            if (!_current.error.empty()) return why = _current.error, false;
            std::unique_lock lock(_mutex);
            _changed.wait(lock, [&] { return !_ready.empty(); });
            _current = std::move(_ready.front());
            _ready.pop_front();
            _taken = 0;
            lock.unlock();
            _changed.notify_all();
            if (_current.count == 0) return why = _current.error, false;
        }
        std::memcpy(out, _current.rows.data() + _taken * _stride, _stride);
        ++_taken;
        return true;
    }

  private:
    void start() {
        _started = true;
        try {
            _thread = std::thread([this] { produce(); });
        } catch (const std::system_error&) {
            // Decoded on the caller's thread then.
        }
    }

    void produce() {
        const std::size_t height = _decoder->shape().height();
        for (std::size_t done = 0; done < height;) {
            Batch batch;
            try {
                batch.rows.resize(std::min(_batchRows, height - done) * _stride);
            } catch (const std::bad_alloc&) {
                batch.error = "out of memory";
            }
            const std::size_t rows = batch.rows.size() / std::max<std::size_t>(_stride, 1);
            while (batch.error.empty() && batch.count < rows) {
                if (!_decoder->readRow(batch.rows.data() + batch.count * _stride, batch.error))
                    break;
                ++batch.count;
            }
            done += batch.count;
            const bool failed = !batch.error.empty();
            std::unique_lock lock(_mutex);
            _changed.wait(lock, [&] { return _stopping || _ready.size() < _limit; });
            if (_stopping) return;
            _ready.push_back(std::move(batch));
            lock.unlock();
            _changed.notify_all();
            if (failed) return;
        }
        // Past the last row: what a plain decoder says when asked for more.
        Batch end;
        end.error = "no more rows";
        std::lock_guard lock(_mutex);
        _ready.push_back(std::move(end));
        _changed.notify_all();
    }

    std::unique_ptr<RowDecoder> _decoder;
    std::size_t _stride;
    std::size_t _batchRows = 1, _limit = 4;
    bool _started = false;
    std::thread _thread;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Batch> _ready;
    bool _stopping = false;
    Batch _current;  // the reader's own
    std::size_t _taken = 0;
};

}  // namespace

std::unique_ptr<RowDecoder> readAhead(std::unique_ptr<RowDecoder> decoder, std::size_t aheadBytes) {
    if (!decoder) return decoder;
    return std::make_unique<ReadAhead>(std::move(decoder), aheadBytes);
}

}  // namespace platform::codecs
