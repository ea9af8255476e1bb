#include "video/VRVideoResizerVideoTrackProvider.h"

#include <cmath>

#include "platform/AVVideoSettings.h"
#include "platform/CVPixelBuffer.h"
#include "platform/Log.h"
#include "video/PresetConstructor.h"
#include "video/VRFrameScaler.h"

using platform::PlistArray;
using platform::PlistDictionary;

const std::vector<PixelDetails>& PixelDetails::supportedFormats() {
    static const std::vector<PixelDetails> formats = {
        {kCVPixelFormatType_32BGRA, 8, false},
        {kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, 8, true},
        {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 8, false},
        {kCVPixelFormatType_420YpCbCr10BiPlanarFullRange, 10, true},
        {kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, 10, false},
        {kCVPixelFormatType_64ARGB, 16, false},
    };
    return formats;
}

PixelDetails PixelDetails::defaultDetails() {
    return {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 8, false};
}

namespace {

// The track's first format description of its own media type, if it can be loaded.
CMFormatDescriptionRef sourceFormatOf(const AVAssetTrack& track) {
    auto descriptions = track.loadFormatDescriptions();
    if (!descriptions) return nullptr;
    for (const CMFormatDescriptionRef& d : descriptions.value()) {
        if (d && d->mediaType == track.mediaType()) return d;
    }
    return nullptr;
}

}  // namespace

using Constructor = VRVideoResizerVideoTrackProvider::Constructor;

Constructor::Constructor(AVAssetTrackRef track) : _track(std::move(track)) {}

std::shared_ptr<AVAssetReaderTrackOutput> Constructor::pixelFormatReaderOutput() {
    PlistArray codes;
    for (const PixelDetails& row : PixelDetails::supportedFormats()) {
        codes.emplace_back(static_cast<std::int64_t>(row.pixelFormat));
    }
    PlistDictionary settings = {
        {kCVPixelBufferPixelFormatTypeKey, codes},
        {kCVPixelBufferIOSurfacePropertiesKey, PlistDictionary{}},
        {AVVideoAllowWideColorKey, true},
    };
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(_track, settings);
    _pixelFormatReaderOutput = output;
    return output;
}

void Constructor::readPixelDetails() {
    auto output = _pixelFormatReaderOutput.lock();
    CMSampleBufferRef sample = output ? output->copyNextSampleBuffer() : nullptr;
    CMFormatDescriptionRef format = CMSampleBufferGetFormatDescription(sample);
    if (!format) return;
    const FourCharCode subtype = CMFormatDescriptionGetMediaSubType(format);
    for (const PixelDetails& row : PixelDetails::supportedFormats()) {
        if (row.pixelFormat == subtype) {
            _pixelDetails = row;
            break;
        }
    }
    if (auto description = CVPixelFormatDescriptionCreateWithPixelFormatType(subtype)) {
        _containsAlpha = description->containsAlpha;
    }
    _pixelFormatReaderOutput.reset();
}

std::shared_ptr<AVAssetReaderTrackOutput> Constructor::readerOutput() const {
    PlistDictionary settings = {
        {kCVPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(_pixelDetails.pixelFormat)},
        {kCVPixelBufferIOSurfacePropertiesKey, PlistDictionary{}},
    };
    auto output = AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(_track, settings);
    output->setAlwaysCopiesSampleData(true);
    return output;
}

AVAssetWriterInputRef Constructor::writerInput(const VRVideoResizeOptions& options,
                                               bool expectsMediaDataInRealTime) const {
    const CMFormatDescriptionRef sourceFormat = sourceFormatOf(*_track);
    const PresetConstructor presets(options.imageFrame.size,
                                    PresetConstructor::isCodecHevc(options.codecType, sourceFormat),
                                    _containsAlpha, options.fileFormat.UTI());
    PlistDictionary settings = presets.encoderSettings(options, *_track, sourceFormat);
    platform::log("~~ compression settings 2: " +
                  platform::PlistValue(settings).debugDescription());

    auto input = AVAssetWriterInput::assetWriterInputWithMediaType(_track->mediaType(), settings);
    input->setExpectsMediaDataInRealTime(expectsMediaDataInRealTime);
    if (auto metadata = _track->loadMetadata()) input->setMetadata(metadata.value());
    const CGAffineTransform transform =
        _track->loadPreferredTransform().valueOr(CGAffineTransformIdentity);
    if (options.orientation) {
        VROrientation orientation = VROrientation::orientationWithTransform(transform);
        orientation.appendOrientation(*options.orientation);
        orientation.simplify();
        input->setTransform(orientation.transform());
    } else {
        input->setTransform(transform);
    }
    return input;
}

std::shared_ptr<VRVideoResizerVideoTrackProvider> Constructor::provider(
    const VRVideoResizeOptions& options, AVAssetWriterInputRef writerInput,
    AVAssetReaderOutputRef readerOutput) const {
    PlistDictionary attributes = {
        {kCVPixelBufferWidthKey, static_cast<std::int64_t>(options.imageFrame.size.width)},
        {kCVPixelBufferHeightKey, static_cast<std::int64_t>(options.imageFrame.size.height)},
        {kCVPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(_pixelDetails.pixelFormat)},
        {kCVPixelBufferIOSurfacePropertiesKey, PlistDictionary{}},
    };
    std::shared_ptr<VRVideoResizerVideoTrackProvider> p(new VRVideoResizerVideoTrackProvider());
    p->_writerInputAdaptor = AVAssetWriterInputPixelBufferAdaptor::
        assetWriterInputPixelBufferAdaptorWithAssetWriterInput(writerInput, attributes);
    p->_track = _track;
    auto range = _track->loadTimeRange();
    const double seconds = range ? CMTimeGetSeconds(range.value().duration) : 0;
    p->_duration = std::isnan(seconds) ? 0 : seconds;
    p->_containsHDR = _track->hasMediaCharacteristic(AVMediaCharacteristicContainsHDRVideo);
    p->_needs16BitDepth = _pixelDetails.bitDepth > 8;
    p->_resizeOptions = options;
    p->_readerOutput = std::move(readerOutput);
    p->_writerInput = std::move(writerInput);
    return p;
}

bool VRVideoResizerVideoTrackProvider::process(
    const std::shared_ptr<platform::DispatchQueue>& queue, Cancelled cancelled, Progress progress) {
    VRFrameScaler::Arguments arguments;
    arguments.writerInput = _writerInput;
    arguments.readerOutput = _readerOutput;
    arguments.adaptor = _writerInputAdaptor;
    arguments.fillColor = _resizeOptions.fillColor;
    arguments.arrangement = _resizeOptions.imageArrangement;
    arguments.cancelled = cancelled;
    arguments.progress = std::move(progress);
    arguments.x = _resizeOptions.imageFrame.origin.x;
    arguments.y = _resizeOptions.imageFrame.origin.y;
    arguments.width = _resizeOptions.imageFrame.size.width;
    const auto form =
        _needs16BitDepth ? VRFrameScaler::Form::sixteenBit : VRFrameScaler::Form::eightBit;
    // The block holds the input weakly; it is the input that keeps the block.
    arguments.writerInput = nullptr;
    std::weak_ptr<AVAssetWriterInput> weakInput = _writerInput;
    return runTrack(_writerInput, queue,
                    [arguments = std::move(arguments), weakInput, form, cancelled](
                        VRCompletionHolder& holder, const std::function<void()>& resolve) mutable {
                        if (!holder.isEmpty()) return;
                        arguments.writerInput = weakInput.lock();
                        if (!arguments.writerInput) return;
                        const bool finished = VRFrameScaler::appendFrames(form, arguments);
                        arguments.writerInput = nullptr;
                        if (!cancelled() && !finished) return;
                        holder.setCompleted(!cancelled());
                        resolve();
                    });
}
