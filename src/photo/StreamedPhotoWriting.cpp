#include "photo/StreamedPhotoWriting.h"

#include <thread>

#include "model/VROrientation.h"
#include "photo/ImageFileWriting.h"
#include "platform/BitmapStripQueue.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/Log.h"

using namespace platform;

std::unique_ptr<VRStreamedPhoto> VRStreamedPhoto::make(
    const VRImage& image, std::int64_t orientation, const std::optional<VRColor>& fillColor,
    VRImageArrangementBits arrangement, CGSize target, CGPoint displacement,
    std::uint32_t denominator, const VRFormat& format) {
    const VROrientation drawing = VROrientation::orientationWithImageOrientation(orientation);
    if (drawing.rotation() != 0 || !ImageDestination::canWriteRows(format.UTI())) return nullptr;
    std::unique_ptr<VRStreamedPhoto> photo(new VRStreamedPhoto());
    photo->_reader = image.rowReader(denominator);
    if (!photo->_reader) return nullptr;
    photo->_rendering = VRStripRendering::make(photo->_reader->shape(), orientation,
                                               kCGInterpolationHigh, fillColor, arrangement,
                                               image.scale(), CGRect{}, target, displacement);
    if (!photo->_rendering) return nullptr;
    photo->_format = format;
    return photo;
}

VRStreamedPhoto::~VRStreamedPhoto() = default;

CGSize VRStreamedPhoto::pixelSize() const {
    return {double(_rendering->width()), double(_rendering->height())};
}

const Bitmap* VRStreamedPhoto::sourceRows(std::pair<std::size_t, std::size_t> rows,
                                          ErrorRef* error) {
    // Rows of margin only draw none of the source.
    if (rows.first >= rows.second) return &_reader->shape();
    return _reader->rows(rows.first, rows.second, error);
}

VRStreamedPhoto::Outcome VRStreamedPhoto::write(const std::string& path,
                                                const std::optional<PlistDictionary>& metadata,
                                                const std::function<bool()>& isCancelled,
                                                ErrorRef* error) {
    if (!_rendering) return Outcome::failed;
    const std::size_t height = _rendering->height();
    // The first strip decides the output's layout, which the encoder needs before any row.
    auto first = _rendering->beginRows(0, std::min(kStripRows, height));
    const Bitmap* source = sourceRows(first, error);
    std::optional<Bitmap> strip = source ? _rendering->drawRows(*source, error) : std::nullopt;
    if (!strip) return Outcome::failed;

    if (FileManager::fileExistsAtPath(path)) FileManager::removeItemAtPath(path);
    auto destination = ImageDestination::createWithURL(path, _format.UTI(), 1, error);
    if (!destination) return Outcome::failed;
    BitmapStripQueue queue;
    destination->addImageRows(
        *strip, [&queue](std::size_t y) { return queue.rowsFor(y); },
        VRImageFileProperties(*strip, VROrientation::up, _format, metadata));
    bool encoded = false;
    ErrorRef encodeError;
    std::thread encoder([&] {
        encoded = destination->finalize(&encodeError);
        queue.close();  // a failed encoder stops the drawing
    });

    Outcome outcome = Outcome::written;
    ErrorRef drawError;
    bool more = queue.push(std::move(*strip));
    for (std::size_t y0 = kStripRows; more && y0 < height; y0 += kStripRows) {
        if (isCancelled && isCancelled()) {
            outcome = Outcome::cancelled;
            break;
        }
        const auto rows = _rendering->beginRows(y0, std::min(y0 + kStripRows, height));
        source = sourceRows(rows, &drawError);
        strip = source ? _rendering->drawRows(*source, &drawError) : std::nullopt;
        if (!strip) {
            outcome = Outcome::failed;
            break;
        }
        more = queue.push(std::move(*strip));
    }
    queue.finish(outcome == Outcome::written);
    encoder.join();
    if (outcome == Outcome::cancelled) return outcome;
    if (outcome == Outcome::failed) {
        if (error) *error = drawError;
        return outcome;
    }
    if (!encoded) {
        logf("~~ PHOTO: writing %s row by row failed", path.c_str());
        if (error) *error = encodeError;
        return Outcome::failed;
    }
    return Outcome::written;
}
