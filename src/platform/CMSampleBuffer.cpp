#include "platform/CMSampleBuffer.h"

std::shared_ptr<CMSampleBuffer> CMSampleBuffer::sampleWithImageBuffer(
    CVPixelBufferRef imageBuffer, CMTime presentationTime, CMTime duration,
    CMFormatDescriptionRef format) {
    auto sample = std::make_shared<CMSampleBuffer>();
    sample->_imageBuffer = std::move(imageBuffer);
    sample->_pts = presentationTime;
    sample->_dts = kCMTimeInvalid;
    sample->_duration = duration;
    sample->_format = std::move(format);
    return sample;
}

std::shared_ptr<CMSampleBuffer> CMSampleBuffer::sampleWithBacking(
    std::shared_ptr<Backing> backing, const std::uint8_t* data, std::size_t length, CMTime pts,
    CMTime dts, CMTime duration, bool isSync, CMFormatDescriptionRef format) {
    auto sample = std::make_shared<CMSampleBuffer>();
    sample->_backing = std::move(backing);
    sample->_data = data;
    sample->_length = length;
    sample->_pts = pts;
    sample->_dts = dts;
    sample->_duration = duration;
    sample->_isSync = isSync;
    sample->_format = std::move(format);
    return sample;
}
