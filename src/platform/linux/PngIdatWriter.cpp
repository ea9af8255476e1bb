// Parallel compression of a PNG's rows: groups filtered (and deflated) by a pool of threads,
// joined in order by the calling thread.
#include "platform/linux/PngIdatWriter.h"

#include <zlib.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace platform::codecs {
namespace {

// Raw bytes per group: large enough that the per-group restart costs nothing measurable in
// size, small enough that a picture gives every core several groups.
constexpr std::size_t kGroupBytes = 512 * 1024;
constexpr std::uint8_t kPaeth = 4;

// One group of rows and, once compressed, its piece of the stream.
struct Group {
    // The raw row before the group (the first row's prior; none for the first group), then
    // its own `rows`.
    std::vector<std::uint8_t> raw;
    std::size_t context = 0;
    std::size_t rows = 0;
    bool first = false, last = false;
    std::vector<std::uint8_t> out;  // the deflated piece
    uLong adler = 1;
    std::size_t length = 0;  // filtered bytes the piece stands for
    bool done = false;
    std::string error;
};

void paethRow(const std::uint8_t* row, const std::uint8_t* prior, std::size_t rowBytes,
              std::size_t pixelBytes, std::uint8_t* out) {
    *out++ = kPaeth;
    // Left of the first pixel, a and c are zero and the predictor is the byte above.
    const std::size_t head = std::min(pixelBytes, rowBytes);
    for (std::size_t i = 0; i < head; ++i) out[i] = static_cast<std::uint8_t>(row[i] - prior[i]);
    for (std::size_t i = head; i < rowBytes; ++i) {
        const int a = row[i - pixelBytes], b = prior[i], c = prior[i - pixelBytes];
        const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
        const int predicted = (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
        out[i] = static_cast<std::uint8_t>(row[i] - predicted);
    }
}

// Deflates `data` onto the end of `out` until zlib has taken it all and flushed.
bool deflateAll(z_stream& z, const std::uint8_t* data, std::size_t size, int flush,
                std::vector<std::uint8_t>& out) {
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = static_cast<uInt>(size);
    std::size_t at = out.size();
    out.resize(at + deflateBound(&z, static_cast<uLong>(size)) + 16);
    for (;;) {
        z.next_out = out.data() + at;
        z.avail_out = static_cast<uInt>(out.size() - at);
        const int result = deflate(&z, flush);
        at = out.size() - z.avail_out;
        if (result == Z_STREAM_END || (result == Z_OK && z.avail_out > 0 && z.avail_in == 0)) {
            out.resize(at);
            return true;
        }
        if (result != Z_OK && result != Z_BUF_ERROR) return false;
        out.resize(out.size() + 65536);
    }
}

}  // namespace

struct PngIdatWriter::State {
    std::size_t rowBytes, pixelBytes, height;
    Matching matching;
    int level;
    Sink sink;
    unsigned threadCount;
    std::size_t rowsPerGroup;   // own rows of every group but the last
    std::size_t committed = 0;  // rows handed over
    std::size_t filled = 0;     // of them, in the group being filled
    std::shared_ptr<Group> filling;
    uLong adler = 1;
    bool failed = false;
    std::string why;

    std::mutex mutex;
    std::condition_variable work, finished;
    std::deque<std::shared_ptr<Group>> queued;   // waiting for a thread
    std::deque<std::shared_ptr<Group>> inOrder;  // not yet given to the sink
    std::vector<std::thread> threads;
    bool stopping = false;

    State(std::size_t rowBytes_, std::size_t pixelBytes_, std::size_t height_, Matching matching_,
          int level_, Sink sink_, unsigned threads_)
        : rowBytes(rowBytes_),
          pixelBytes(pixelBytes_),
          height(height_),
          matching(matching_),
          level(level_),
          sink(std::move(sink_)),
          threadCount(threads_ ? threads_ : std::max(1u, std::thread::hardware_concurrency())) {
        rowsPerGroup = std::max<std::size_t>(1, kGroupBytes / std::max<std::size_t>(rowBytes, 1));
    }

    ~State() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
            queued.clear();
        }
        work.notify_all();
        for (auto& t : threads) t.join();
    }

    void startGroup() {
        auto g = std::make_shared<Group>();
        g->first = committed == 0;
        g->context = g->first ? 0 : 1;
        g->rows = std::min(rowsPerGroup, height - committed);
        g->last = committed + g->rows == height;
        g->raw.resize((g->context + g->rows) * rowBytes);
        if (filling) {
            // The previous group's last row, which the filter of this one's first row reads.
            const auto& previous = filling->raw;
            std::memcpy(g->raw.data(), previous.data() + previous.size() - rowBytes, rowBytes);
        }
        filling = std::move(g);
        filled = 0;
    }

    static void compress(Group& g, std::size_t rowBytes, std::size_t pixelBytes, int level,
                         Matching matching) try {
        const std::size_t stride = rowBytes + 1;
        std::vector<std::uint8_t> filtered(g.rows * stride);
        std::uint8_t* into = filtered.data();
        const std::vector<std::uint8_t> zeros(g.first ? rowBytes : 0);
        for (std::size_t r = 0; r < g.rows; ++r) {
            const std::size_t row = g.context + r;  // index into raw
            const std::uint8_t* prior =
                row == 0 ? zeros.data() : g.raw.data() + (row - 1) * rowBytes;
            paethRow(g.raw.data() + row * rowBytes, prior, rowBytes, pixelBytes, into + r * stride);
        }
        z_stream z{};
        // The memory level libpng gives filtered rows.
        const int strategy = matching == Matching::runs ? Z_RLE : Z_FILTERED;
        if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, strategy) != Z_OK) {
            g.error = "out of memory";
            return;
        }
        if (g.first) {
            // The zlib header: deflate, a 32 KB window, the "fast" level flag of levels 2-5.
            const std::uint8_t cmf = 0x78;
            const int flevel = level < 2 ? 0 : level < 6 ? 1 : level == 6 ? 2 : 3;
            std::uint8_t flg = static_cast<std::uint8_t>(flevel << 6);
            flg = static_cast<std::uint8_t>(flg + 31 - ((cmf << 8) + flg) % 31);
            g.out = {cmf, flg};
        }
        const bool ok = deflateAll(z, filtered.data(), filtered.size(),
                                   g.last ? Z_FINISH : Z_SYNC_FLUSH, g.out);
        deflateEnd(&z);
        if (!ok) g.error = "compressing the pixels failed";
        g.adler = adler32_z(1, filtered.data(), filtered.size());
        g.length = filtered.size();
        g.raw = {};  // the next group took its prior row before this one was queued
    } catch (const std::bad_alloc&) {
        g.error = "out of memory";
    }

    void runThread() {
        std::unique_lock lock(mutex);
        for (;;) {
            work.wait(lock, [&] { return stopping || !queued.empty(); });
            if (stopping) return;
            auto g = std::move(queued.front());
            queued.pop_front();
            lock.unlock();
            compress(*g, rowBytes, pixelBytes, level, matching);
            lock.lock();
            g->done = true;
            finished.notify_all();
        }
    }

    // Gives the finished groups at the front to the sink, in order.
    void drain(std::unique_lock<std::mutex>& lock) {
        while (!failed && !inOrder.empty() && inOrder.front()->done) {
            auto g = std::move(inOrder.front());
            inOrder.pop_front();
            lock.unlock();
            pass(*g);
            lock.lock();
        }
    }

    void pass(Group& g) {
        if (!g.error.empty()) return fail(g.error);
        adler = adler32_combine(adler, g.adler, static_cast<z_off_t>(g.length));
        if (g.last) {
            for (int shift = 24; shift >= 0; shift -= 8)
                g.out.push_back(static_cast<std::uint8_t>(adler >> shift));
        }
        if (!g.out.empty() && !sink(g.out.data(), g.out.size())) fail("writing failed");
        g.out = {};
    }

    void fail(const std::string& reason) {
        if (!failed) why = reason;
        failed = true;
    }

    void submit(std::shared_ptr<Group> g) {
        if (g->first && g->last) {
            // One group: no thread is worth starting.
            compress(*g, rowBytes, pixelBytes, level, matching);
            return pass(*g);
        }
        startThreads();
        std::unique_lock lock(mutex);
        if (threads.empty()) {
            lock.unlock();
            compress(*g, rowBytes, pixelBytes, level, matching);
            return pass(*g);
        }
        inOrder.push_back(g);
        queued.push_back(std::move(g));
        work.notify_one();
        // A few groups per thread in flight keep every thread busy with bounded memory.
        const std::size_t limit = 2 * threads.size() + 1;
        drain(lock);
        while (!failed && inOrder.size() > limit) {
            finished.wait(lock, [&] { return inOrder.front()->done; });
            drain(lock);
        }
    }

    void startThreads() {
        if (!threads.empty() || threadCount == 0) return;
        for (unsigned i = 0; i < threadCount; ++i) {
            try {
                threads.emplace_back([this] { runThread(); });
            } catch (const std::system_error&) {
                break;  // fewer threads, or none: the caller compresses then
            }
        }
        if (threads.empty()) threadCount = 0;
    }
};

PngIdatWriter::PngIdatWriter(std::size_t rowBytes, std::size_t pixelBytes, std::size_t height,
                             Matching matching, int level, Sink sink, unsigned threads)
    : _state(std::make_unique<State>(rowBytes, pixelBytes, height, matching, level, std::move(sink),
                                     threads)) {}

PngIdatWriter::~PngIdatWriter() = default;

std::uint8_t* PngIdatWriter::nextRow() {
    State& s = *_state;
    if (s.committed >= s.height) return nullptr;
    if (!s.filling) {
        s.startGroup();
    } else if (s.filled == s.filling->rows) {
        auto full = s.filling;
        s.startGroup();  // copies its context from the full group first
        s.submit(std::move(full));
    }
    return s.filling->raw.data() + (s.filling->context + s.filled) * s.rowBytes;
}

bool PngIdatWriter::commitRow() {
    State& s = *_state;
    if (s.filling && s.filled < s.filling->rows) ++s.committed, ++s.filled;
    return !s.failed;
}

bool PngIdatWriter::finish(std::string& why) {
    State& s = *_state;
    if (s.committed < s.height) s.fail("the picture ended early");
    if (s.filling && !s.failed) s.submit(std::move(s.filling));
    {
        std::unique_lock lock(s.mutex);
        while (!s.failed && !s.inOrder.empty()) {
            s.finished.wait(lock, [&] { return s.inOrder.front()->done; });
            s.drain(lock);
        }
    }
    if (s.failed) why = s.why;
    return !s.failed;
}

}  // namespace platform::codecs
