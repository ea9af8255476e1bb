// Draws a photo and writes it a strip of rows at a time: the decoder gives source rows as the
// drawing needs them, each band of output rows is drawn as soon as its source rows are there,
// and the encoder, on a thread of its own, takes finished rows. Neither the decoded source nor
// the drawn result is ever whole in memory, and the pixels are those of VRRenderCGImage and
// VRWriteImageFile. The photo stage takes this way wherever it can (see VRStreamedPhoto::make).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "model/ImageRendering.h"
#include "model/VRFormat.h"
#include "photo/VRImage.h"
#include "platform/Error.h"
#include "platform/ImageRowReader.h"
#include "platform/PlistValue.h"

class VRStreamedPhoto {
  public:
    // The one rule for streaming: the drawing has no quarter turn and isn't upside down (an
    // upright or side-to-side mirrored orientation), the image's pixels are still undecoded and
    // its decoder gives rows (JPEG other than CMYK, PNG without interlacing), and the format's
    // writer takes rows (JPEG, PNG). Null otherwise, and the image is left as it was: the caller
    // draws whole bitmaps. The arguments are VRRenderCGImage's for the photo stage, and the
    // reduction the source is decoded at, as VRImage::decodeReduced takes it.
    static std::unique_ptr<VRStreamedPhoto> make(const VRImage& image, std::int64_t orientation,
                                                 const std::optional<VRColor>& fillColor,
                                                 VRImageArrangementBits arrangement, CGSize target,
                                                 CGPoint displacement, std::uint32_t denominator,
                                                 const VRFormat& format);
    ~VRStreamedPhoto();

    // The size of the picture written, in pixels.
    CGSize pixelSize() const;

    enum class Outcome { written, failed, cancelled };
    // Decodes, draws and encodes into `path` (VRWriteImageFile's properties and file rules).
    // `isCancelled` is asked between strips; a cancelled or failed write leaves no file.
    // Runs once.
    Outcome write(const std::string& path, const std::optional<platform::PlistDictionary>& metadata,
                  const std::function<bool()>& isCancelled, platform::ErrorRef* error);

    // The output rows drawn at a time.
    static constexpr std::size_t kStripRows = 64;

  private:
    VRStreamedPhoto() = default;
    const platform::Bitmap* sourceRows(std::pair<std::size_t, std::size_t> rows,
                                       platform::ErrorRef* error);
    std::unique_ptr<platform::ImageRowReader> _reader;
    std::unique_ptr<VRStripRendering> _rendering;
    VRFormat _format;
};
