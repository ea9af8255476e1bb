#include "photo/VRPhotoJob.h"

#include "model/ImageRendering.h"
#include "model/VROrientation.h"
#include "model/VRSizeResolver.h"
#include "photo/ImageFileWriting.h"
#include "photo/ShrinkOnLoad.h"
#include "photo/StreamedPhotoWriting.h"
#include "photo/VRImage.h"
#include "photo/VRImageProcessor.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"
#include "storage/VXHelperFiles.h"

namespace {

using platform::PlistDictionary;

// The properties of image 0, read without decoding pixels.
std::optional<PlistDictionary> metadataOfData(const std::vector<std::uint8_t>& data) {
    auto source = platform::ImageSource::createWithData(data);
    if (!source) return std::nullopt;
    return source->copyPropertiesAtIndex(0);
}

VRResolveRequest requestFor(const VRPhotoJob& job, const VRImage* image,
                            const std::string& typeIdentifier) {
    VRResolveRequest request;
    request.mediaType = VRFormatMediaTypePhoto;
    request.sizeEntry =
        job.tpl->sizeEntryForMediaType(VRFormatMediaTypePhoto).value_or(VRSizeEntry());
    request.options =
        job.tpl->optionsForMediaType(VRFormatMediaTypePhoto).value_or(VRSizeOptions{});
    request.format = job.tpl->formatForMediaType(VRFormatMediaTypePhoto);
    request.sourceSize = image ? image->pixelSize() : CGSizeZero;
    request.sourceOrientation = VROrientation::orientationWithImageOrientation(
        image ? image->imageOrientation() : VROrientation::up);
    request.adjustState = job.adjustState;
    if (job.hasExplicitSize) request.explicitSize = job.size;
    request.photoCompression = static_cast<float>(job.settings.compression);
    request.sourceTypeIdentifier = typeIdentifier;
    request.defaultPhotoColor = job.settings.defaultPhotoColor;
    request.limits = VRDeviceLimits::currentDevice();
    return request;
}

// How far a large reduction is decoded at a fraction of its size where the source allows; the
// drawing then scales the smaller bitmap to the same frame, with the same filter.
std::uint32_t shrinkDenominator(const VRImage& image, const VRResolvedOutput& output) {
    const auto turned = [](CGSize s, bool odd) { return odd ? CGSize{s.height, s.width} : s; };
    const CGSize stored = turned(
        image.pixelSize(),
        VROrientation::orientationWithImageOrientation(image.imageOrientation()).isRotated());
    const CGSize drawn = turned(output.pictureSize, output.drawingOrientation.isRotated());
    return VRShrinkOnLoadDenominator(stored, drawn);
}

// A photo that could not be written: logged, and the writer's own error goes along, so that the
// words can name the cause.
VRErrorRef writeFailure(const std::string& path, const platform::ErrorRef& error) {
    platform::logf("~~ PHOTO: writing %s failed: %s", path.c_str(),
                   error ? error->description().c_str() : "no image");
    return error ? VRError::errorWithCodeUnderlyingErrors(VRErrorCode::saveFailed, {error})
                 : VRError::errorWithCode(VRErrorCode::saveFailed);
}

}  // namespace

void VRPhotoJob::processImageData(std::optional<std::vector<std::uint8_t>> data,
                                  const std::string& typeIdentifier) const {
    const auto mediaType = VRFormatMediaTypePhoto;
    const std::string filename = host->_filenameOfAsset(*asset);
    if (!data || data->empty())
        return completion(std::nullopt, mediaType, std::nullopt,
                          VRError::errorWithCode(VRErrorCode::loadFailed));

    std::optional<PlistDictionary> metadata = metadataOfData(*data);
    // The pixels come from a second, independent opening of the same bytes, which then own them.
    VRImageRef image = VRImage::imageWithData(std::move(*data));
    data.reset();

    const VRResolvedOutput output =
        VXHelper::resolveOutput(requestFor(*this, image.get(), typeIdentifier));
    if (output.limitExceeded)
        return completion(std::nullopt, mediaType, std::nullopt, output.limitExceeded->error());
    if (host->_isProcessingStartTimeInvalid(startTime))
        return completion(std::nullopt, mediaType, std::nullopt, nullptr);

    if (image) {
        // Where the drawing and the formats allow, the picture is drawn and written in strips.
        auto streamed = VRStreamedPhoto::make(*image, output.drawingOrientation.imageOrientation(),
                                              output.fillColor, output.drawingArrangement,
                                              output.imageFrame.size, output.imageFrame.origin,
                                              shrinkDenominator(*image, output), output.format);
        if (streamed) return writeStreamed(*streamed, std::move(metadata), filename, output);
    }

    VRImageRef drawn;
    {
        // The decoded source lives only in this scope.
        std::optional<platform::Bitmap> bitmap;
        platform::ErrorRef drawError;
        if (image) {
            const std::uint32_t denominator = shrinkDenominator(*image, output);
            if (denominator > 1) image->decodeReduced(denominator);
            const std::int64_t orientation = output.drawingOrientation.imageOrientation();
            bitmap = VRRenderCGImage(image->cgImage(), orientation, platform::kCGInterpolationHigh,
                                     output.fillColor, output.drawingArrangement, image->scale(), 0,
                                     CGRect{}, output.imageFrame.size, output.imageFrame.origin,
                                     &drawError);
        }
        // A picture that could not be drawn would be saved as nothing but the fill colour.
        if (drawError)
            return completion(
                std::nullopt, mediaType, std::nullopt,
                VRError::errorWithCodeUnderlyingErrors(VRErrorCode::saveFailed, {drawError}));
        if (bitmap)
            drawn =
                VRImage::imageWithCGImage(std::move(*bitmap), image->scale(), VROrientation::up);
        image.reset();
    }
    if (host->_isProcessingStartTimeInvalid(startTime))
        return completion(std::nullopt, mediaType, std::nullopt, nullptr);

    VRUpdatePhotoMetadata(metadata, output.format.type(), creationDate,
                          drawn ? drawn->pixelSize() : CGSizeZero, settings.metadata,
                          platform::PlistDate::now());
    const std::string path = VXHelper::pathWithFilename(filename, output.format.extension());
    platform::ErrorRef error;
    const platform::Bitmap none;
    if (!VRWriteImageFile(drawn ? drawn->cgImage() : none, VROrientation::up, output.format, path,
                          metadata, &error)) {
        return completion(std::nullopt, mediaType, std::nullopt, writeFailure(path, error));
    }
    VXHelper::excludeURLFromBackup(path);
    completion(path, mediaType, output.outputSize, nullptr);
}

void VRPhotoJob::writeStreamed(VRStreamedPhoto& streamed,
                               std::optional<platform::PlistDictionary> metadata,
                               const std::string& filename, const VRResolvedOutput& output) const {
    const auto mediaType = VRFormatMediaTypePhoto;
    VRUpdatePhotoMetadata(metadata, output.format.type(), creationDate, streamed.pixelSize(),
                          settings.metadata, platform::PlistDate::now());
    const std::string path = VXHelper::pathWithFilename(filename, output.format.extension());
    platform::ErrorRef error;
    const auto stale = [this] { return host->_isProcessingStartTimeInvalid(startTime); };
    const auto outcome = streamed.write(path, metadata, stale, &error);
    if (outcome == VRStreamedPhoto::Outcome::written && stale()) {
        // Cancelled while the last rows were written: the new file goes again.
        platform::FileManager::removeItemAtPath(path);
        return completion(std::nullopt, mediaType, std::nullopt, nullptr);
    }
    if (outcome == VRStreamedPhoto::Outcome::cancelled)
        return completion(std::nullopt, mediaType, std::nullopt, nullptr);
    if (outcome == VRStreamedPhoto::Outcome::failed) {
        return completion(std::nullopt, mediaType, std::nullopt, writeFailure(path, error));
    }
    VXHelper::excludeURLFromBackup(path);
    completion(path, mediaType, output.outputSize, nullptr);
}
