// The zimg graphs of the high-quality scaler: each with the buffers that running it takes, and
// a strip context's cache of them, so that strips of one geometry build their filter taps once.
#pragma once

#include <zimg.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace platform::bitmap_pixels {

struct AlignedFree {
    void operator()(void* p) const { std::free(p); }
};
using AlignedBuffer = std::unique_ptr<std::uint8_t, AlignedFree>;

inline AlignedBuffer alignedAlloc(std::size_t size) {
    size = (size + 63) / 64 * 64;
    return AlignedBuffer(static_cast<std::uint8_t*>(std::aligned_alloc(64, size ? size : 64)));
}

// A zimg graph with the sizes of the buffers that running it takes, and buffers that earlier
// runs gave back.
struct Graph {
    std::unique_ptr<zimg_filter_graph, void (*)(zimg_filter_graph*)> graph{nullptr,
                                                                           zimg_filter_graph_free};
    std::size_t tmpSize = 0, inStride = 0, outStride = 0, inLines = 0, outLines = 0;
    unsigned inMask = 0, outMask = 0;

    struct Buffers {
        AlignedBuffer tmp, in, out;
    };
    Buffers take() const {
        {
            std::lock_guard lock(mutex);
            if (!spare.empty()) {
                Buffers b = std::move(spare.back());
                spare.pop_back();
                return b;
            }
        }
        return {alignedAlloc(tmpSize), alignedAlloc(inStride * inLines * 4),
                alignedAlloc(outStride * outLines * 4)};
    }
    void giveBack(Buffers b) const {
        std::lock_guard lock(mutex);
        spare.push_back(std::move(b));
    }

  private:
    mutable std::mutex mutex;
    mutable std::vector<Buffers> spare;
};

// Everything a graph is built from.
struct GraphKey {
    unsigned srcWidth, srcHeight, dstWidth, dstHeight;
    int srcType, dstType, planes;
    bool alpha;
    double left, top, width, height;
    int filter;
    double a, b;
    bool operator==(const GraphKey& o) const {
        auto same = [](double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); };
        return srcWidth == o.srcWidth && srcHeight == o.srcHeight && dstWidth == o.dstWidth &&
               dstHeight == o.dstHeight && srcType == o.srcType && dstType == o.dstType &&
               planes == o.planes && alpha == o.alpha && left == o.left && top == o.top &&
               width == o.width && height == o.height && filter == o.filter && same(a, o.a) &&
               same(b, o.b);
    }
};

class ResizeGraphs {
  public:
    std::shared_ptr<const Graph> find(const GraphKey& key);
    void keep(const GraphKey& key, std::shared_ptr<const Graph> graph);

  private:
    std::mutex _mutex;
    std::vector<std::pair<GraphKey, std::shared_ptr<const Graph>>> _kept;
};

// A graph from `src` to `dst`, or null with zimg's reason in `why`.
std::shared_ptr<const Graph> buildGraph(const zimg_image_format& src, const zimg_image_format& dst,
                                        const zimg_graph_builder_params& params, bool byteInput,
                                        bool byteOutput, std::string& why);

}  // namespace platform::bitmap_pixels
