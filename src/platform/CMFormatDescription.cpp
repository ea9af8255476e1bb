#include "platform/CMFormatDescription.h"

#include "platform/AVMediaFormat.h"

std::string CMFormatDescription::debugDescription() const {
    std::string text = mediaType + "/" + NSStringFromFourCharCode(mediaSubType);
    if (!codecName.empty()) text += " (" + codecName + ")";
    if (mediaType == AVMediaTypeVideo) {
        text += " " + std::to_string(dimensions.width) + "x" + std::to_string(dimensions.height);
        text += " " + (pixelFormat ? NSStringFromFourCharCode(pixelFormat) : std::string("other"));
        text += " " + std::to_string(bitsPerComponent) + "-bit";
        text += fullRangeVideo ? " full" : " video";
        text += " " + colorPrimaries.value_or("-") + "/" + transferFunction.value_or("-") + "/" +
                yCbCrMatrix.value_or("-");
        if (containsAlpha) text += " alpha";
    } else if (mediaType == AVMediaTypeAudio) {
        text += " " + std::to_string(static_cast<long>(sampleRate)) + " Hz " +
                std::to_string(channelCount) + " ch";
    }
    return text;
}

CMFormatDescriptionRef CMVideoFormatDescriptionCreateForImageBuffer(
    const CVPixelBufferRef& buffer) {
    if (!buffer) return nullptr;
    auto description = CVPixelFormatDescriptionCreateWithPixelFormatType(buffer->pixelFormatType());
    if (!description) return nullptr;
    auto format = std::make_shared<CMFormatDescription>();
    format->mediaType = AVMediaTypeVideo;
    format->mediaSubType = buffer->pixelFormatType();
    format->dimensions = {static_cast<std::int32_t>(buffer->width()),
                          static_cast<std::int32_t>(buffer->height())};
    format->pixelFormat = buffer->pixelFormatType();
    format->bitsPerComponent = description->bitsPerComponent;
    format->containsAlpha = description->containsAlpha;
    format->fullRangeVideo = description->componentRange != CVPixelFormatComponentRange::videoRange;
    format->colorPrimaries = buffer->colorPrimaries();
    format->transferFunction = buffer->transferFunction();
    format->yCbCrMatrix = buffer->yCbCrMatrix();
    return format;
}
