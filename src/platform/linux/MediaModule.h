// The movie and HEIC backends (FFmpeg, libheif and their codecs) live in the loadable module
// unwarp-media.so beside the program, loaded on the first movie or HEIC operation, so that the
// commands that never meet one start without some thirty megabytes of libraries. This is the
// table of entry points the module hands over (MediaModuleEntry.cpp); the program's definitions
// of the movie classes' functions call through it (MediaModuleCalls.cpp).
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "platform/AVAsset.h"
#include "platform/AVAssetReader.h"
#include "platform/AVAssetWriter.h"
#include "platform/AVAssetWriterInput.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/Camera.h"
#include "platform/Error.h"
#include "platform/linux/FramePicture.h"
#include "platform/linux/ImageCodecs.h"
#include "platform/linux/LoadableModule.h"
#include "platform/linux/SyncFrames.h"

namespace platform::media {

// Raised whenever the table changes, so that a module left from another build is refused.
inline constexpr int kModuleVersion = 3;
inline constexpr const char* kModuleFileName = "unwarp-media.so";
// The module's one exported function: `const modules::ModuleHeader* unwarp_media_module()`,
// the header of its ModuleApi.
inline constexpr const char* kModuleEntryName = "unwarp_media_module";

struct ModuleApi {
    modules::ModuleHeader header;

    decltype(&AVAsset::assetWithURL) assetWithURL;

    decltype(&AVAssetReader::assetReaderWithAsset) readerWithAsset;
    decltype(&AVAssetReader::asset) readerAsset;
    decltype(&AVAssetReader::outputs) readerOutputs;
    decltype(&AVAssetReader::canAddOutput) readerCanAddOutput;
    decltype(&AVAssetReader::addOutput) readerAddOutput;
    decltype(&AVAssetReader::setTimeRange) readerSetTimeRange;
    decltype(&AVAssetReader::timeRange) readerTimeRange;
    decltype(&AVAssetReader::startReading) readerStartReading;
    decltype(&AVAssetReader::cancelReading) readerCancelReading;
    decltype(&AVAssetReader::status) readerStatus;
    decltype(&AVAssetReader::error) readerError;

    decltype(&AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack) trackOutputWithTrack;
    decltype(&AVAssetReaderTrackOutput::track) trackOutputTrack;
    decltype(&AVAssetReaderTrackOutput::outputSettings) trackOutputSettings;

    decltype(&AVAssetWriter::assetWriterWithURL) writerWithURL;
    bool (*writerAcceptsCodecType)(const std::string&, const std::string&);
    bool (*writerAcceptsCodec)(const std::string&, AVVideoCodec);
    decltype(&AVAssetWriter::outputURL) writerOutputURL;
    decltype(&AVAssetWriter::outputFileType) writerOutputFileType;
    decltype(&AVAssetWriter::canAddInput) writerCanAddInput;
    decltype(&AVAssetWriter::addInput) writerAddInput;
    decltype(&AVAssetWriter::inputs) writerInputs;
    decltype(&AVAssetWriter::setMetadata) writerSetMetadata;
    decltype(&AVAssetWriter::metadata) writerMetadata;
    decltype(&AVAssetWriter::startWriting) writerStartWriting;
    decltype(&AVAssetWriter::startSessionAtSourceTime) writerStartSession;
    decltype(&AVAssetWriter::finishWritingWithCompletionHandler) writerFinish;
    decltype(&AVAssetWriter::cancelWriting) writerCancel;
    decltype(&AVAssetWriter::status) writerStatus;
    decltype(&AVAssetWriter::error) writerError;

    decltype(&AVAssetWriterInput::assetWriterInputWithMediaType) inputWithMediaType;
    decltype(&AVAssetWriterInput::mediaType) inputMediaType;
    decltype(&AVAssetWriterInput::outputSettings) inputOutputSettings;
    decltype(&AVAssetWriterInput::outputSettingsError) inputOutputSettingsError;
    decltype(&AVAssetWriterInput::sourceFormatHint) inputSourceFormatHint;
    decltype(&AVAssetWriterInput::setExpectsMediaDataInRealTime) inputSetRealTime;
    decltype(&AVAssetWriterInput::expectsMediaDataInRealTime) inputRealTime;
    decltype(&AVAssetWriterInput::setTransform) inputSetTransform;
    decltype(&AVAssetWriterInput::transform) inputTransform;
    decltype(&AVAssetWriterInput::setMetadata) inputSetMetadata;
    decltype(&AVAssetWriterInput::metadata) inputMetadata;
    decltype(&AVAssetWriterInput::isReadyForMoreMediaData) inputIsReady;
    decltype(&AVAssetWriterInput::requestMediaDataWhenReadyOnQueue) inputRequestMediaData;
    decltype(&AVAssetWriterInput::appendSampleBuffer) inputAppendSample;
    decltype(&AVAssetWriterInput::markAsFinished) inputMarkAsFinished;

    decltype(&AVAssetWriterInputPixelBufferAdaptor::
                 assetWriterInputPixelBufferAdaptorWithAssetWriterInput) adaptorWithInput;
    decltype(&AVAssetWriterInputPixelBufferAdaptor::pixelBufferPool) adaptorPool;
    decltype(&AVAssetWriterInputPixelBufferAdaptor::appendPixelBuffer) adaptorAppend;

    decltype(&Camera::captureStill) cameraCaptureStill;
    decltype(&Camera::recordMovie) cameraRecordMovie;

    decltype(&codecs::heifReadInfo) heifReadInfo;
    decltype(&codecs::heifDecode) heifDecode;
    decltype(&codecs::heifEncode) heifEncode;
    decltype(&codecs::heifCanEncode) heifCanEncode;

    decltype(&pictureOfYCbCrFrame) framePicture;
    decltype(&firstSyncFrameBetween) syncFrame;
};

// The module's table, loading it on the first call (thread-safe, once per process). Null with
// the reason when the module is missing, cannot be loaded or is of another build
// (modules::openModule); later calls give the same answer.
const ModuleApi* loadModule(ErrorRef* error);

// The module's table for a call on an object that only the module makes, which therefore is
// loaded already.
const ModuleApi& loadedModule();

}  // namespace platform::media
