#include "platform/CVPixelBuffer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kMaxSide = 16384;
constexpr std::size_t kRowAlignment = 64;

std::size_t alignUp(std::size_t v) {
    return (v + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
}

// Plane geometry of a format at a size: width in pixels (pairs for chroma), height, bytes per
// pixel.
struct PlaneShape {
    std::size_t width, height, bytesPerPixel;
};

std::vector<PlaneShape> shapesOf(OSType format, std::size_t w, std::size_t h,
                                 bool separateChroma = false) {
    if (separateChroma && CVPixelFormatAllowsSeparateChroma(format)) {
        return {{w, h, 1}, {(w + 1) / 2, (h + 1) / 2, 1}, {(w + 1) / 2, (h + 1) / 2, 1}};
    }
    switch (format) {
        case kCVPixelFormatType_32BGRA:
            return {{w, h, 4}};
        case kCVPixelFormatType_64ARGB:
            return {{w, h, 8}};
        case kCVPixelFormatType_420YpCbCr8BiPlanarFullRange:
        case kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange:
            return {{w, h, 1}, {(w + 1) / 2, (h + 1) / 2, 2}};
        case kCVPixelFormatType_420YpCbCr10BiPlanarFullRange:
        case kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange:
            return {{w, h, 2}, {(w + 1) / 2, (h + 1) / 2, 4}};
        default:
            return {};
    }
}

}  // namespace

bool CVPixelFormatAllowsSeparateChroma(OSType pixelFormat) {
    return pixelFormat == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange ||
           pixelFormat == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
}

std::optional<CVPixelFormatDescription> CVPixelFormatDescriptionCreateWithPixelFormatType(
    OSType pixelFormat) {
    using R = CVPixelFormatComponentRange;
    switch (pixelFormat) {
        case kCVPixelFormatType_32BGRA:
            return CVPixelFormatDescription{pixelFormat, true, false, 1, 8, R::fullRange};
        case kCVPixelFormatType_64ARGB:
            return CVPixelFormatDescription{pixelFormat, true, false, 1, 16, R::fullRange};
        case kCVPixelFormatType_420YpCbCr8BiPlanarFullRange:
            return CVPixelFormatDescription{pixelFormat, false, true, 2, 8, R::fullRange};
        case kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange:
            return CVPixelFormatDescription{pixelFormat, false, true, 2, 8, R::videoRange};
        case kCVPixelFormatType_420YpCbCr10BiPlanarFullRange:
            return CVPixelFormatDescription{pixelFormat, false, true, 2, 10, R::fullRange};
        case kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange:
            return CVPixelFormatDescription{pixelFormat, false, true, 2, 10, R::videoRange};
        default:
            return std::nullopt;
    }
}

std::string NSStringFromFourCharCode(FourCharCode code) {
    char text[11];
    bool printable = true;
    for (int shift = 24, i = 0; shift >= 0; shift -= 8, ++i) {
        char c = static_cast<char>((code >> shift) & 0xff);
        if (c < 32 || c > 126) printable = false;
        text[i] = c;
    }
    if (printable) return std::string(text, 4);
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

std::shared_ptr<CVPixelBuffer> CVPixelBuffer::create(OSType pixelFormat, std::size_t width,
                                                     std::size_t height, bool separateChroma) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return nullptr;
    std::vector<PlaneShape> shapes = shapesOf(pixelFormat, width, height, separateChroma);
    if (shapes.empty()) return nullptr;
    std::size_t total = 0;
    std::vector<Plane> planes;
    for (const PlaneShape& s : shapes) {
        Plane p;
        p.width = s.width;
        p.height = s.height;
        p.rowBytes = alignUp(s.width * s.bytesPerPixel);
        planes.push_back(p);
        total += p.rowBytes * p.height;
    }
    void* memory = std::aligned_alloc(kRowAlignment, alignUp(total));
    if (!memory) return nullptr;
    std::shared_ptr<void> owner(memory, [](void* m) { std::free(m); });
    std::size_t offset = 0;
    for (Plane& p : planes) {
        p.data = static_cast<std::uint8_t*>(memory) + offset;
        offset += p.rowBytes * p.height;
    }
    return createWithPlanes(pixelFormat, width, height, std::move(planes), std::move(owner));
}

std::shared_ptr<CVPixelBuffer> CVPixelBuffer::createWithPlanes(OSType pixelFormat,
                                                               std::size_t width,
                                                               std::size_t height,
                                                               std::vector<Plane> planes,
                                                               std::shared_ptr<void> owner) {
    std::vector<PlaneShape> shapes = shapesOf(pixelFormat, width, height, planes.size() == 3);
    if (shapes.empty() || shapes.size() != planes.size()) return nullptr;
    for (std::size_t i = 0; i < planes.size(); ++i) {
        if (!planes[i].data || planes[i].width != shapes[i].width ||
            planes[i].height != shapes[i].height ||
            planes[i].rowBytes < shapes[i].width * shapes[i].bytesPerPixel) {
            return nullptr;
        }
    }
    std::shared_ptr<CVPixelBuffer> buffer(new CVPixelBuffer());
    buffer->_format = pixelFormat;
    buffer->_width = width;
    buffer->_height = height;
    buffer->_planes = std::move(planes);
    buffer->_owner = std::move(owner);
    return buffer;
}

const CVPixelBuffer::Plane& CVPixelBuffer::plane(std::size_t index) const {
    static const Plane empty;
    return index < _planes.size() ? _planes[index] : empty;
}

void CVPixelBuffer::setColorAttachments(std::optional<std::string> primaries,
                                        std::optional<std::string> transfer,
                                        std::optional<std::string> matrix) {
    _primaries = std::move(primaries);
    _transfer = std::move(transfer);
    _matrix = std::move(matrix);
}

// Free buffers wait here; a buffer in use holds the shared part, so the pool object itself may
// go first.
struct CVPixelBufferPool::Shared {
    std::mutex mutex;
    std::vector<std::shared_ptr<CVPixelBuffer>> free;
};

std::shared_ptr<CVPixelBufferPool> CVPixelBufferPool::create(OSType pixelFormat, std::size_t width,
                                                             std::size_t height,
                                                             std::optional<std::string> primaries,
                                                             std::optional<std::string> transfer,
                                                             std::optional<std::string> matrix) {
    if (shapesOf(pixelFormat, width, height).empty() || width == 0 || height == 0 ||
        width > kMaxSide || height > kMaxSide) {
        return nullptr;
    }
    auto pool = std::shared_ptr<CVPixelBufferPool>(new CVPixelBufferPool());
    pool->_format = pixelFormat;
    pool->_width = width;
    pool->_height = height;
    pool->_primaries = std::move(primaries);
    pool->_transfer = std::move(transfer);
    pool->_matrix = std::move(matrix);
    pool->_shared = std::make_shared<Shared>();
    return pool;
}

CVReturn CVPixelBufferPool::createPixelBuffer(CVPixelBufferRef* out) {
    if (!out) return kCVReturnInvalidArgument;
    std::shared_ptr<CVPixelBuffer> buffer;
    {
        std::lock_guard<std::mutex> lock(_shared->mutex);
        // Buffers of the other layout, from before a change of layout, are let go.
        while (!_shared->free.empty() &&
               _shared->free.back()->hasSeparateChroma() != separateChroma()) {
            _shared->free.pop_back();
        }
        if (!_shared->free.empty()) {
            buffer = std::move(_shared->free.back());
            _shared->free.pop_back();
        }
    }
    if (!buffer) buffer = CVPixelBuffer::create(_format, _width, _height, _separateChroma);
    if (!buffer) return kCVReturnAllocationFailed;
    buffer->setColorAttachments(_primaries, _transfer, _matrix);
    std::weak_ptr<Shared> home = _shared;
    CVPixelBuffer* raw = buffer.get();
    // The handed-out reference shares ownership of the real buffer; when it is dropped the
    // buffer returns to the free list, at most a few held back.
    *out = std::shared_ptr<CVPixelBuffer>(raw, [buffer, home](CVPixelBuffer*) mutable {
        if (auto shared = home.lock()) {
            std::lock_guard<std::mutex> lock(shared->mutex);
            if (shared->free.size() < 8) shared->free.push_back(std::move(buffer));
        }
    });
    return kCVReturnSuccess;
}

bool CVPixelBufferPool::separateChroma() const {
    return _separateChroma && CVPixelFormatAllowsSeparateChroma(_format);
}

CVPixelBufferRef CVPixelBufferCopyWithChromaLayout(const CVPixelBufferRef& source,
                                                   bool separateChroma) {
    if (!source) return nullptr;
    if (!CVPixelFormatAllowsSeparateChroma(source->pixelFormatType()) ||
        source->hasSeparateChroma() == separateChroma) {
        return source;
    }
    CVPixelBufferRef copy = CVPixelBuffer::create(source->pixelFormatType(), source->width(),
                                                  source->height(), separateChroma);
    if (!copy) return nullptr;
    copy->setColorAttachments(source->colorPrimaries(), source->transferFunction(),
                              source->yCbCrMatrix());
    const CVPixelBuffer::Plane& y = source->plane(0);
    for (std::size_t r = 0; r < y.height; ++r) {
        std::memcpy(copy->plane(0).data + r * copy->plane(0).rowBytes, y.data + r * y.rowBytes,
                    y.width);
    }
    const CVPixelBuffer& split = separateChroma ? *copy : *source;
    const CVPixelBuffer& paired = separateChroma ? *source : *copy;
    const CVPixelBuffer::Plane &cb = split.plane(1), &cr = split.plane(2), &c = paired.plane(1);
    for (std::size_t r = 0; r < c.height; ++r) {
        std::uint8_t* pairs = c.data + r * c.rowBytes;
        std::uint8_t* b = cb.data + r * cb.rowBytes;
        std::uint8_t* d = cr.data + r * cr.rowBytes;
        for (std::size_t x = 0; x < c.width; ++x) {
            if (separateChroma) {
                b[x] = pairs[2 * x];
                d[x] = pairs[2 * x + 1];
            } else {
                pairs[2 * x] = b[x];
                pairs[2 * x + 1] = d[x];
            }
        }
    }
    return copy;
}
