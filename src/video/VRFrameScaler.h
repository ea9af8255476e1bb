// The inner loop of a re-encoded video track: takes decoded frames from the reader output,
// draws each into a pool buffer of the output size in the frame's own pixel format (stretched,
// cropped or fitted inside bars, shifted by the displacement) and appends it. Called by
// VRVideoResizerVideoTrackProvider from the writer's request block; 8-bit and 16-bit forms.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "model/VRColor.h"
#include "model/VRImageArrangement.h"
#include "platform/AVAssetReader.h"
#include "platform/AVAssetWriterInput.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/CVPixelBuffer.h"
#include "platform/PlaneScaling.h"

// Luma weights and the range mapping of a Y'CbCr destination.
struct VRColorCoefficients {
    double Kr = 0, Kg = 0, Kb = 0;
    double cbDivisor = 0, crDivisor = 0;
    double lumaOffset = 0, lumaScale = 0;
    double chromaOffset = 0, chromaScale = 0;
};

struct VRYCbCrColor {
    std::uint16_t y = 0, cb = 0, cr = 0;
    friend bool operator==(const VRYCbCrColor&, const VRYCbCrColor&) = default;
};

class VRFrameScaler {
  public:
    // 8-bit: BGRA, 420v, 420f; 16-bit: b64a, x420, xf20 (needs16BitDepth).
    enum class Form { eightBit, sixteenBit };

    struct Arguments {
        AVAssetWriterInputRef writerInput;
        AVAssetReaderOutputRef readerOutput;
        std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor;
        std::optional<VRColor> fillColor;
        VRImageArrangement arrangement = VRImageArrangement::stretch;
        std::function<bool()> cancelled;
        std::function<void(double seconds)> progress;
        // The origin and width of the job's imageFrame: the displacement in output pixels and
        // the width it is measured against.
        double x = 0, y = 0, width = 0;
    };

    // Appends frames while the writer is ready. True: the reader is exhausted or a frame
    // failed (no buffer, a failed non-planar scale, a refused append; the writer's status
    // says which). False: the writer is not ready or the job was cancelled. Cancellation is
    // asked once per frame, after the append.
    static bool appendFrames(Form form, const Arguments& arguments);

    // Whether drawing `source` into a buffer of `pool` would only copy it: the same format and
    // size, and a placement (arrangement and displacement) that crops nothing, leaves no bars
    // and shifts nothing. Such a frame is appended as it is.
    static bool drawsUnchanged(const CVPixelBuffer& source, const CVPixelBufferPool& pool,
                               const Arguments& arguments);

    // By the destination's matrix name (601-4, SMPTE 240M, 2020, anything else 709) and
    // range. Full range: offsets 0 and 128*s, scales 1. Video range: luma 16*s and 219/r,
    // chroma 128*s and 224/r, with s 1 or 256 and r 255 or 255.99609375 by form.
    static VRColorCoefficients coefficients(const std::optional<std::string>& matrix,
                                            bool fullRange, Form form);
    // The fill colour on a biplanar destination, each value rounded half away from zero;
    // no colour gives black (the offsets). Alpha plays no part.
    static VRYCbCrColor biplanarFillColor(const std::optional<VRColor>& color,
                                          const VRColorCoefficients& coefficients, Form form);
    // The fill colour on a BGRA (blue, green, red, alpha) or b64a (alpha, red, green, blue)
    // destination; no colour gives opaque black.
    static std::array<std::uint16_t, 4> nonPlanarFillColor(const std::optional<VRColor>& color,
                                                           Form form);

    // Narrows one of the two views so that a plain scale of source into destination places
    // the picture: fill (1) crops the source to the destination's ratio, fit (2) shrinks the
    // destination to the source's ratio, anything else leaves both whole. Margins are halved
    // and rounded half away from zero; the displacement (output pixels of this plane) moves
    // the picture and stops at the container's edge, the crop window moving the opposite way.
    // With `lumaPlane` the work is done at half size so that luma and chroma stay on the same
    // 2-pixel grid. Pointer offsets cut fractions; the narrowed view never reaches beyond the
    // view it was cut from. The pixel size is given, because rows padded for alignment make
    // rowBytes / width wrong for narrow planes.
    static void placeViews(vImage_Buffer& source, vImage_Buffer& destination,
                           VRImageArrangement arrangement, bool lumaPlane, double dx, double dy,
                           std::size_t bytesPerPixel);
};
