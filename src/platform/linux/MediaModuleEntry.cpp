// The one symbol unwarp-media.so exports: the table of its movie, camera and HEIF entry points.
// Everything else in the module is hidden, so that its calls stay inside it and do not meet
// the program's forwarding functions of the same names.
#include "platform/linux/MediaModule.h"

namespace platform::media {
namespace {

const ModuleApi kApi{
    .header = {kModuleVersion, sizeof(ModuleApi)},
    .assetWithURL = &AVAsset::assetWithURL,
    .readerWithAsset = &AVAssetReader::assetReaderWithAsset,
    .readerAsset = &AVAssetReader::asset,
    .readerOutputs = &AVAssetReader::outputs,
    .readerCanAddOutput = &AVAssetReader::canAddOutput,
    .readerAddOutput = &AVAssetReader::addOutput,
    .readerSetTimeRange = &AVAssetReader::setTimeRange,
    .readerTimeRange = &AVAssetReader::timeRange,
    .readerStartReading = &AVAssetReader::startReading,
    .readerCancelReading = &AVAssetReader::cancelReading,
    .readerStatus = &AVAssetReader::status,
    .readerError = &AVAssetReader::error,
    .trackOutputWithTrack = &AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack,
    .trackOutputTrack = &AVAssetReaderTrackOutput::track,
    .trackOutputSettings = &AVAssetReaderTrackOutput::outputSettings,
    .writerWithURL = &AVAssetWriter::assetWriterWithURL,
    .writerAcceptsCodecType = &AVAssetWriter::fileTypeAcceptsVideoCodec,
    .writerAcceptsCodec = &AVAssetWriter::fileTypeAcceptsVideoCodec,
    .writerOutputURL = &AVAssetWriter::outputURL,
    .writerOutputFileType = &AVAssetWriter::outputFileType,
    .writerCanAddInput = &AVAssetWriter::canAddInput,
    .writerAddInput = &AVAssetWriter::addInput,
    .writerInputs = &AVAssetWriter::inputs,
    .writerSetMetadata = &AVAssetWriter::setMetadata,
    .writerMetadata = &AVAssetWriter::metadata,
    .writerStartWriting = &AVAssetWriter::startWriting,
    .writerStartSession = &AVAssetWriter::startSessionAtSourceTime,
    .writerFinish = &AVAssetWriter::finishWritingWithCompletionHandler,
    .writerCancel = &AVAssetWriter::cancelWriting,
    .writerStatus = &AVAssetWriter::status,
    .writerError = &AVAssetWriter::error,
    .inputWithMediaType = &AVAssetWriterInput::assetWriterInputWithMediaType,
    .inputMediaType = &AVAssetWriterInput::mediaType,
    .inputOutputSettings = &AVAssetWriterInput::outputSettings,
    .inputOutputSettingsError = &AVAssetWriterInput::outputSettingsError,
    .inputSourceFormatHint = &AVAssetWriterInput::sourceFormatHint,
    .inputSetRealTime = &AVAssetWriterInput::setExpectsMediaDataInRealTime,
    .inputRealTime = &AVAssetWriterInput::expectsMediaDataInRealTime,
    .inputSetTransform = &AVAssetWriterInput::setTransform,
    .inputTransform = &AVAssetWriterInput::transform,
    .inputSetMetadata = &AVAssetWriterInput::setMetadata,
    .inputMetadata = &AVAssetWriterInput::metadata,
    .inputIsReady = &AVAssetWriterInput::isReadyForMoreMediaData,
    .inputRequestMediaData = &AVAssetWriterInput::requestMediaDataWhenReadyOnQueue,
    .inputAppendSample = &AVAssetWriterInput::appendSampleBuffer,
    .inputMarkAsFinished = &AVAssetWriterInput::markAsFinished,
    .adaptorWithInput = &AVAssetWriterInputPixelBufferAdaptor::
                            assetWriterInputPixelBufferAdaptorWithAssetWriterInput,
    .adaptorPool = &AVAssetWriterInputPixelBufferAdaptor::pixelBufferPool,
    .adaptorAppend = &AVAssetWriterInputPixelBufferAdaptor::appendPixelBuffer,
    .cameraCaptureStill = &Camera::captureStill,
    .cameraRecordMovie = &Camera::recordMovie,
    .heifReadInfo = &codecs::heifReadInfo,
    .heifDecode = &codecs::heifDecode,
    .heifEncode = &codecs::heifEncode,
    .heifCanEncode = &codecs::heifCanEncode,
    .framePicture = &pictureOfYCbCrFrame,
    .syncFrame = &firstSyncFrameBetween,
};

}  // namespace
}  // namespace platform::media

extern "C" __attribute__((visibility("default"))) const platform::modules::ModuleHeader*
unwarp_media_module() {
    return &platform::media::kApi.header;
}
