// Pixel buffers in the pixel formats of the video pipeline, a pool that recycles them, and the
// pixel format descriptions. Reader outputs deliver them, the frame scaler draws into them, the
// writer's adaptor encodes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/AVMediaFormat.h"

using CVReturn = std::int32_t;
inline constexpr CVReturn kCVReturnSuccess = 0;
inline constexpr CVReturn kCVReturnInvalidArgument = -6661;
inline constexpr CVReturn kCVReturnAllocationFailed = -6662;
inline constexpr CVReturn kCVReturnInvalidPixelFormat = -6680;
inline constexpr CVReturn kCVReturnInvalidSize = -6681;

// The six formats of the pipeline. Layouts:
// - 'BGRA': one plane, 4 bytes per pixel in the order B, G, R, A.
// - '420v'/'420f': plane 0 luma, 1 byte per pixel; plane 1 interleaved Cb, Cr, one pair per
//   2x2 luma pixels ((w+1)/2 pairs by (h+1)/2 rows). Video or full range.
// - 'x420'/'xf20': as above with 16-bit little-endian samples holding 10 bits in the high
//   bits (the low 6 bits zero when decoded).
// - 'b64a': one plane, 4 16-bit samples per pixel in the order A, R, G, B, in the machine's
//   byte order (little-endian here, where the platform's buffers are big-endian).
// A '420v'/'420f' buffer may instead keep its chroma as two planes, Cb then Cr, one sample
// per 2x2 luma pixels: the layout the decoders give and the encoders take, so that frames
// pass from one to the other without being interleaved and split again on the way.
inline constexpr OSType kCVPixelFormatType_32BGRA = FourCC("BGRA");
inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarFullRange = FourCC("420f");
inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange = FourCC("420v");
inline constexpr OSType kCVPixelFormatType_420YpCbCr10BiPlanarFullRange = FourCC("xf20");
inline constexpr OSType kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange = FourCC("x420");
inline constexpr OSType kCVPixelFormatType_64ARGB = FourCC("b64a");

enum class CVPixelFormatComponentRange { videoRange, fullRange, wideRange };

struct CVPixelFormatDescription {
    OSType pixelFormat = 0;
    bool containsAlpha = false;
    bool planar = false;
    int planeCount = 1;
    int bitsPerComponent = 8;
    CVPixelFormatComponentRange componentRange = CVPixelFormatComponentRange::fullRange;
};

// Absent for a code outside the six.
std::optional<CVPixelFormatDescription> CVPixelFormatDescriptionCreateWithPixelFormatType(
    OSType pixelFormat);
// "420v" for a code of four printable characters, else "0x%08x".
std::string NSStringFromFourCharCode(FourCharCode code);

class CVPixelBuffer {
  public:
    struct Plane {
        std::uint8_t* data = nullptr;
        std::size_t width = 0;  // in pixels (pairs for an interleaved chroma plane)
        std::size_t height = 0;
        std::size_t rowBytes = 0;
    };

    // A new buffer with rows aligned to 64 bytes, contents undefined. Null for a format
    // outside the six or a zero or oversized (above 16384 on a side) size. `separateChroma`
    // asks for three planes where the format allows them ('420v', '420f'), else is ignored.
    static std::shared_ptr<CVPixelBuffer> create(OSType pixelFormat, std::size_t width,
                                                 std::size_t height, bool separateChroma = false);
    // Over memory that `owner` keeps alive; planes as the format's layout says (three for
    // separate chroma).
    static std::shared_ptr<CVPixelBuffer> createWithPlanes(OSType pixelFormat, std::size_t width,
                                                           std::size_t height,
                                                           std::vector<Plane> planes,
                                                           std::shared_ptr<void> owner);

    OSType pixelFormatType() const { return _format; }
    std::size_t width() const { return _width; }
    std::size_t height() const { return _height; }
    bool isPlanar() const { return _planes.size() > 1; }
    // Cb and Cr in planes 1 and 2 rather than interleaved in plane 1.
    bool hasSeparateChroma() const { return _planes.size() == 3; }
    // 0 for a non-planar buffer, as the platform counts.
    std::size_t planeCount() const { return isPlanar() ? _planes.size() : 0; }
    // Plane 0 for a non-planar buffer.
    void* baseAddress() const { return _planes[0].data; }
    std::size_t bytesPerRow() const { return _planes[0].rowBytes; }
    // Planes by index; an index out of range gives an empty plane.
    const Plane& plane(std::size_t index) const;
    void* baseAddressOfPlane(std::size_t index) const { return plane(index).data; }
    std::size_t widthOfPlane(std::size_t index) const { return plane(index).width; }
    std::size_t heightOfPlane(std::size_t index) const { return plane(index).height; }
    std::size_t bytesPerRowOfPlane(std::size_t index) const { return plane(index).rowBytes; }

    // Memory is always accessible; locking only documents intent.
    CVReturn lockBaseAddress(std::uint64_t /*flags*/) const { return kCVReturnSuccess; }
    CVReturn unlockBaseAddress(std::uint64_t /*flags*/) const { return kCVReturnSuccess; }

    // Colour attachments (values of AVVideoSettings.h), absent when untagged.
    const std::optional<std::string>& yCbCrMatrix() const { return _matrix; }
    const std::optional<std::string>& colorPrimaries() const { return _primaries; }
    const std::optional<std::string>& transferFunction() const { return _transfer; }
    void setColorAttachments(std::optional<std::string> primaries,
                             std::optional<std::string> transfer,
                             std::optional<std::string> matrix);

  private:
    CVPixelBuffer() = default;
    OSType _format = 0;
    std::size_t _width = 0;
    std::size_t _height = 0;
    std::vector<Plane> _planes;
    std::shared_ptr<void> _owner;
    std::optional<std::string> _primaries, _transfer, _matrix;
};

using CVPixelBufferRef = std::shared_ptr<CVPixelBuffer>;

// Recycles buffers of one format and size: a buffer goes back to the pool when its last
// reference is dropped. The pool may be dropped before its buffers.
class CVPixelBufferPool : public std::enable_shared_from_this<CVPixelBufferPool> {
  public:
    // Null for a format outside the six or a bad size. Buffers carry the colour attachments.
    static std::shared_ptr<CVPixelBufferPool> create(OSType pixelFormat, std::size_t width,
                                                     std::size_t height,
                                                     std::optional<std::string> primaries = {},
                                                     std::optional<std::string> transfer = {},
                                                     std::optional<std::string> matrix = {});
    CVReturn createPixelBuffer(CVPixelBufferRef* out);
    // Buffers made after this call keep Cb and Cr apart where the format allows it.
    void setSeparateChroma(bool separate) { _separateChroma = separate; }
    // Whether the buffers handed out have three planes.
    bool separateChroma() const;
    OSType pixelFormatType() const { return _format; }
    std::size_t width() const { return _width; }
    std::size_t height() const { return _height; }

  private:
    struct Shared;
    OSType _format = 0;
    std::size_t _width = 0, _height = 0;
    bool _separateChroma = false;
    std::optional<std::string> _primaries, _transfer, _matrix;
    std::shared_ptr<Shared> _shared;
};

// The platform's C-style calls, for the code that is written against them.
inline std::size_t CVPixelBufferGetWidth(const CVPixelBufferRef& b) {
    return b->width();
}
inline std::size_t CVPixelBufferGetHeight(const CVPixelBufferRef& b) {
    return b->height();
}
inline void* CVPixelBufferGetBaseAddress(const CVPixelBufferRef& b) {
    return b->baseAddress();
}
inline std::size_t CVPixelBufferGetBytesPerRow(const CVPixelBufferRef& b) {
    return b->bytesPerRow();
}
inline bool CVPixelBufferIsPlanar(const CVPixelBufferRef& b) {
    return b->isPlanar();
}
inline std::size_t CVPixelBufferGetPlaneCount(const CVPixelBufferRef& b) {
    return b->planeCount();
}
inline void* CVPixelBufferGetBaseAddressOfPlane(const CVPixelBufferRef& b, std::size_t i) {
    return b->baseAddressOfPlane(i);
}
inline std::size_t CVPixelBufferGetWidthOfPlane(const CVPixelBufferRef& b, std::size_t i) {
    return b->widthOfPlane(i);
}
inline std::size_t CVPixelBufferGetHeightOfPlane(const CVPixelBufferRef& b, std::size_t i) {
    return b->heightOfPlane(i);
}
inline std::size_t CVPixelBufferGetBytesPerRowOfPlane(const CVPixelBufferRef& b, std::size_t i) {
    return b->bytesPerRowOfPlane(i);
}
inline OSType CVPixelBufferGetPixelFormatType(const CVPixelBufferRef& b) {
    return b->pixelFormatType();
}
// Whether the format may keep its chroma in two planes ('420v', '420f').
bool CVPixelFormatAllowsSeparateChroma(OSType pixelFormat);
// A copy of `source` with its chroma laid out as asked (the same buffer when it already is);
// null when out of memory.
CVPixelBufferRef CVPixelBufferCopyWithChromaLayout(const CVPixelBufferRef& source,
                                                   bool separateChroma);

inline CVReturn CVPixelBufferPoolCreatePixelBuffer(const std::shared_ptr<CVPixelBufferPool>& pool,
                                                   CVPixelBufferRef* out) {
    if (!pool) return kCVReturnInvalidArgument;
    return pool->createPixelBuffer(out);
}
