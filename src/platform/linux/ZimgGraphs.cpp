#include "platform/linux/ZimgGraphs.h"

#include <algorithm>

#include "platform/linux/BitmapPixels.h"

namespace platform::bitmap_pixels {

std::shared_ptr<const Graph> ResizeGraphs::find(const GraphKey& key) {
    std::lock_guard lock(_mutex);
    for (std::size_t i = 0; i < _kept.size(); ++i)
        if (_kept[i].first == key) {
            // The most recent first: a miss evicts the least recently used.
            std::rotate(_kept.begin(), _kept.begin() + static_cast<std::ptrdiff_t>(i),
                        _kept.begin() + static_cast<std::ptrdiff_t>(i) + 1);
            return _kept.front().second;
        }
    return nullptr;
}

void ResizeGraphs::keep(const GraphKey& key, std::shared_ptr<const Graph> graph) {
    std::lock_guard lock(_mutex);
    _kept.insert(_kept.begin(), {key, std::move(graph)});
    // Bands above, inside and below the picture, each at a few phases, and no more.
    constexpr std::size_t kKept = 8;
    if (_kept.size() > kKept) _kept.resize(kKept);
}

std::shared_ptr<ResizeGraphs> makeResizeGraphs() {
    return std::make_shared<ResizeGraphs>();
}

std::shared_ptr<const Graph> buildGraph(const zimg_image_format& src, const zimg_image_format& dst,
                                        const zimg_graph_builder_params& params, bool byteInput,
                                        bool byteOutput, std::string& why) {
    auto g = std::make_shared<Graph>();
    g->graph.reset(zimg_filter_graph_build(&src, &dst, &params));
    if (!g->graph) {
        char message[256] = {0};
        zimg_get_last_error(message, sizeof message);
        why = message;
        return nullptr;
    }
    unsigned inRows = 0, outRows = 0;
    zimg_filter_graph_get_tmp_size(g->graph.get(), &g->tmpSize);
    zimg_filter_graph_get_input_buffering(g->graph.get(), &inRows);
    zimg_filter_graph_get_output_buffering(g->graph.get(), &outRows);
    g->inMask = zimg_select_buffer_mask(inRows);
    g->outMask = zimg_select_buffer_mask(outRows);
    g->inLines = g->inMask == ZIMG_BUFFER_MAX ? src.height : g->inMask + 1;
    g->outLines = g->outMask == ZIMG_BUFFER_MAX ? dst.height : g->outMask + 1;
    g->inStride = (src.width * (byteInput ? 1 : 2) + 63) / 64 * 64;
    g->outStride = (dst.width * (byteOutput ? 1 : 2) + 63) / 64 * 64;
    return g;
}

}  // namespace platform::bitmap_pixels
