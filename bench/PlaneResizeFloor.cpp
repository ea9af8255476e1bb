#include "PlaneResizeFloor.h"

#include <zimg.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace bench {

struct PlaneResizeFloor::Impl {
    Job job;
    std::unique_ptr<zimg_filter_graph, void (*)(zimg_filter_graph*)> graph{nullptr,
                                                                           zimg_filter_graph_free};
    std::size_t inStride = 0, outStride = 0;
    std::vector<void*> blocks;
    zimg_image_buffer_const in{};
    zimg_image_buffer out{};
    void* tmp = nullptr;

    ~Impl() {
        for (void* b : blocks) std::free(b);
    }
    void* allocate(std::size_t size) {
        void* p = std::aligned_alloc(64, (size + 63) / 64 * 64);
        if (p) blocks.push_back(p);
        return p;
    }
};

std::unique_ptr<PlaneResizeFloor> PlaneResizeFloor::make(const Job& job, std::string& why) {
    std::unique_ptr<PlaneResizeFloor> floor(new PlaneResizeFloor());
    floor->_impl = std::make_unique<Impl>();
    Impl& d = *floor->_impl;
    d.job = job;
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    src.width = static_cast<unsigned>(job.srcWidth);
    src.height = static_cast<unsigned>(job.srcHeight);
    dst.width = static_cast<unsigned>(job.dstWidth);
    dst.height = static_cast<unsigned>(job.dstHeight);
    for (zimg_image_format* f : {&src, &dst}) {
        f->pixel_type = job.deep ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
        f->depth = job.deep ? 16 : 8;
        f->color_family = job.planes == 3 ? ZIMG_COLOR_RGB : ZIMG_COLOR_GREY;
        f->matrix_coefficients = job.planes == 3 ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_UNSPECIFIED;
        f->pixel_range = ZIMG_RANGE_FULL;
        f->alpha = job.alpha ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;
    }
    src.active_region.left = job.left;
    src.active_region.top = job.top;
    src.active_region.width = job.width;
    src.active_region.height = job.height;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = ZIMG_RESIZE_LANCZOS;
    params.filter_param_a = 3;
    params.dither_type = ZIMG_DITHER_NONE;
    d.graph.reset(zimg_filter_graph_build(&src, &dst, &params));
    if (!d.graph) {
        char message[256] = {0};
        zimg_get_last_error(message, sizeof message);
        why = message;
        return nullptr;
    }
    std::size_t sample = job.deep ? 2 : 1;
    d.inStride = (job.srcWidth * sample + 63) / 64 * 64;
    d.outStride = (job.dstWidth * sample + 63) / 64 * 64;
    std::size_t tmpSize = 0;
    zimg_filter_graph_get_tmp_size(d.graph.get(), &tmpSize);
    d.tmp = d.allocate(tmpSize ? tmpSize : 64);
    int count = job.planes + (job.alpha ? 1 : 0);
    d.in.version = d.out.version = ZIMG_API_VERSION;
    for (int k = 0; k < count; ++k) {
        int slot = job.alpha && k == count - 1 ? 3 : k;
        auto* plane = static_cast<std::uint8_t*>(d.allocate(d.inStride * job.srcHeight));
        auto* result = d.allocate(d.outStride * job.dstHeight);
        if (!plane || !result || !d.tmp) return why = "out of memory", nullptr;
        for (std::size_t y = 0; y < job.srcHeight; ++y)
            for (std::size_t x = 0; x < d.inStride; ++x)
                plane[y * d.inStride + x] = static_cast<std::uint8_t>((x * 7 + y * 13 + k) & 0xFF);
        d.in.plane[slot].data = plane;
        d.in.plane[slot].stride = static_cast<std::ptrdiff_t>(d.inStride);
        d.in.plane[slot].mask = ZIMG_BUFFER_MAX;
        d.out.plane[slot].data = result;
        d.out.plane[slot].stride = static_cast<std::ptrdiff_t>(d.outStride);
        d.out.plane[slot].mask = ZIMG_BUFFER_MAX;
    }
    return floor;
}

bool PlaneResizeFloor::run() {
    Impl& d = *_impl;
    return zimg_filter_graph_process(d.graph.get(), &d.in, &d.out, d.tmp, nullptr, nullptr, nullptr,
                                     nullptr) == ZIMG_ERROR_SUCCESS;
}

std::uint32_t PlaneResizeFloor::probe() const {
    const auto* p = static_cast<const std::uint8_t*>(_impl->out.plane[0].data);
    return p ? p[_impl->outStride * (_impl->job.dstHeight / 2) + 1] : 0;
}

PlaneResizeFloor::~PlaneResizeFloor() = default;

}  // namespace bench
