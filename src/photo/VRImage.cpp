#include "photo/VRImage.h"

#include "model/VROrientation.h"
#include "photo/VRImageProcessor.h"
#include "platform/ImageRowReader.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"

std::shared_ptr<VRImage> VRImage::imageWithData(std::vector<std::uint8_t> bytes) {
    platform::ErrorRef error;
    auto source = platform::ImageSource::createWithData(std::move(bytes), &error);
    if (!source) {
        platform::logf("~~ IMAGE: no image from data: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
        return nullptr;
    }
    std::shared_ptr<VRImage> image(new VRImage());
    image->_storedSize = {double(source->pixelWidth()), double(source->pixelHeight())};
    if (auto properties = VRImageProcessor::propertiesOfImageSource(*source))
        image->_orientation = properties->orientation().value_or(0);
    image->_source = std::move(source);
    return image;
}

std::shared_ptr<VRImage> VRImage::imageWithCGImage(platform::Bitmap bitmap, double scale,
                                                   std::int64_t imageOrientation) {
    std::shared_ptr<VRImage> image(new VRImage());
    image->_storedSize = {double(bitmap.width()), double(bitmap.height())};
    image->_bitmap = std::move(bitmap);
    image->_scale = scale > 0 ? scale : 1;
    image->_orientation = imageOrientation >= 0 && imageOrientation <= 7 ? imageOrientation : 0;
    return image;
}

const platform::Bitmap& VRImage::cgImage() const {
    if (!_bitmap) {
        platform::ErrorRef error;
        _bitmap = _source ? _source->createImageAtIndex(0, &error) : std::nullopt;
        if (!_bitmap) {
            platform::logf("~~ IMAGE: decoding failed: %s",
                           error ? error->localizedDescription().c_str() : "no source");
            _bitmap = platform::Bitmap();
        }
        // The encoded bytes are not needed once the pixels are there.
        _source.reset();
    }
    return *_bitmap;
}

std::uint32_t VRImage::decodeReduced(std::uint32_t denominator) const {
    if (_bitmap || !_source) return 1;
    for (std::uint32_t d = denominator; d >= 2; d /= 2) {
        if (!_source->canDecodeReduced(d)) continue;
        platform::ErrorRef error;
        _bitmap = _source->createReducedImage(d, &error);
        if (!_bitmap) {
            // cgImage() tries the whole picture and says why that fails too.
            platform::logf("~~ IMAGE: decoding at 1/%u failed: %s", d,
                           error ? error->localizedDescription().c_str() : "unknown");
            return 1;
        }
        platform::logf("~~ IMAGE: decoded at 1/%u of its size", d);
        _source.reset();
        return d;
    }
    return 1;
}

std::unique_ptr<platform::ImageRowReader> VRImage::rowReader(std::uint32_t denominator,
                                                             std::uint32_t* taken) const {
    if (_bitmap || !_source) return nullptr;
    std::uint32_t d = denominator;
    while (d >= 2 && !_source->canDecodeReduced(d)) d /= 2;
    if (d < 2) d = 1;
    platform::ErrorRef error;
    auto reader = platform::ImageRowReader::create(_source, d, &error);
    if (!reader) {
        if (error)
            platform::logf("~~ IMAGE: no row reader: %s", error->localizedDescription().c_str());
        return nullptr;
    }
    if (d > 1) platform::logf("~~ IMAGE: decoding at 1/%u of its size", d);
    if (taken) *taken = d;
    _source.reset();
    return reader;
}

CGSize VRImage::size() const {
    const bool turned = VROrientation::orientationWithImageOrientation(_orientation).isRotated();
    const CGSize s = turned ? CGSize{_storedSize.height, _storedSize.width} : _storedSize;
    return {s.width / _scale, s.height / _scale};
}

CGSize VRImage::pixelSize() const {
    const CGSize s = size();
    return {s.width * _scale, s.height * _scale};
}
