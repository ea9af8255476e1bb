// The program's side of the movie classes, the camera and the HEIF codec entry: each function
// calls its namesake in unwarp-media.so through the module's table. The factories load the
// module on first use and fail as their headers say when it is missing (a null object with
// the loader's error, an asset whose every load fails with it); member functions run on
// objects that only the module makes, so the module is loaded by then.
#include <cstdlib>
#include <utility>

#include "platform/ImageFormats.h"

#include "platform/linux/MediaModule.h"

using platform::ErrorRef;
using platform::media::loadedModule;
using platform::media::loadModule;
using platform::media::ModuleApi;

namespace platform::media {

const ModuleApi* loadModule(ErrorRef* error) {
    return modules::openModuleOnce<ModuleApi>(kModuleFileName, kModuleEntryName, kModuleVersion,
                                              "Movies and HEIC pictures", error);
}

const ModuleApi& loadedModule() {
    const ModuleApi* api = loadModule(nullptr);
    // Only the module makes the objects whose calls come here, so it cannot be missing.
    if (!api) std::abort();
    return *api;
}

}  // namespace platform::media

namespace {

template <auto Field, class Self, class... Args>
decltype(auto) call(Self* self, Args&&... args) {
    return (self->*(loadedModule().*Field))(std::forward<Args>(args)...);
}

// The asset handed out when the module is missing: every load fails with the loader's error,
// so a movie job ends through its usual failure path.
class UnavailableAsset final : public AVAsset {
  public:
    UnavailableAsset(std::string path, ErrorRef error)
        : _path(std::move(path)), _error(std::move(error)) {}
    const std::string& URL() const override { return _path; }
    AVLoadResult<std::vector<AVAssetTrackRef>> loadTracks() const override { return _error; }
    AVLoadResult<CMTime> loadDuration() const override { return _error; }
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override { return _error; }

  private:
    std::string _path;
    ErrorRef _error;
};

}  // namespace

std::shared_ptr<AVAsset> AVAsset::assetWithURL(const std::string& path) {
    ErrorRef error;
    if (const ModuleApi* api = loadModule(&error)) return api->assetWithURL(path);
    return std::make_shared<UnavailableAsset>(path, std::move(error));
}

// Reader.

std::optional<platform::Bitmap> platform::media::pictureOfYCbCrFrame(const CVPixelBuffer& frame) {
    // Frames come from the module's reader, so the module is loaded.
    return loadedModule().framePicture(frame);
}

std::optional<CMTime> platform::media::firstSyncFrameBetween(const std::string& path,
                                                             std::int32_t trackID, double from,
                                                             double to) {
    // Asked about a track of an asset the module opened, so the module is loaded.
    return loadedModule().syncFrame(path, trackID, from, to);
}

std::shared_ptr<AVAssetReader> AVAssetReader::assetReaderWithAsset(AVAssetRef asset,
                                                                   ErrorRef* error) {
    const ModuleApi* api = loadModule(error);
    return api ? api->readerWithAsset(std::move(asset), error) : nullptr;
}
const AVAssetRef& AVAssetReader::asset() const {
    return call<&ModuleApi::readerAsset>(this);
}
std::vector<AVAssetReaderOutputRef> AVAssetReader::outputs() const {
    return call<&ModuleApi::readerOutputs>(this);
}
bool AVAssetReader::canAddOutput(const AVAssetReaderOutputRef& output) const {
    return call<&ModuleApi::readerCanAddOutput>(this, output);
}
void AVAssetReader::addOutput(const AVAssetReaderOutputRef& output) {
    call<&ModuleApi::readerAddOutput>(this, output);
}
void AVAssetReader::setTimeRange(CMTimeRange range) {
    call<&ModuleApi::readerSetTimeRange>(this, range);
}
CMTimeRange AVAssetReader::timeRange() const {
    return call<&ModuleApi::readerTimeRange>(this);
}
bool AVAssetReader::startReading() {
    return call<&ModuleApi::readerStartReading>(this);
}
void AVAssetReader::cancelReading() {
    call<&ModuleApi::readerCancelReading>(this);
}
AVAssetReaderStatus AVAssetReader::status() const {
    return call<&ModuleApi::readerStatus>(this);
}
ErrorRef AVAssetReader::error() const {
    return call<&ModuleApi::readerError>(this);
}

// Null without the module; a track to read exists only when the module is loaded.
std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(
    AVAssetTrackRef track, std::optional<platform::PlistDictionary> outputSettings) {
    const ModuleApi* api = loadModule(nullptr);
    return api ? api->trackOutputWithTrack(std::move(track), std::move(outputSettings)) : nullptr;
}
const AVAssetTrackRef& AVAssetReaderTrackOutput::track() const {
    return call<&ModuleApi::trackOutputTrack>(this);
}
const std::optional<platform::PlistDictionary>& AVAssetReaderTrackOutput::outputSettings() const {
    return call<&ModuleApi::trackOutputSettings>(this);
}

// Writer.

std::shared_ptr<AVAssetWriter> AVAssetWriter::assetWriterWithURL(const std::string& path,
                                                                 const std::string& fileType,
                                                                 ErrorRef* error) {
    const ModuleApi* api = loadModule(error);
    return api ? api->writerWithURL(path, fileType, error) : nullptr;
}
// Without the module no encoder is at hand, so no container takes any codec.
bool AVAssetWriter::fileTypeAcceptsVideoCodec(const std::string& fileType,
                                              const std::string& codec) {
    const ModuleApi* api = loadModule(nullptr);
    return api && api->writerAcceptsCodecType(fileType, codec);
}
bool AVAssetWriter::fileTypeAcceptsVideoCodec(const std::string& fileType, AVVideoCodec codec) {
    const ModuleApi* api = loadModule(nullptr);
    return api && api->writerAcceptsCodec(fileType, codec);
}
const std::string& AVAssetWriter::outputURL() const {
    return call<&ModuleApi::writerOutputURL>(this);
}
const std::string& AVAssetWriter::outputFileType() const {
    return call<&ModuleApi::writerOutputFileType>(this);
}
bool AVAssetWriter::canAddInput(const AVAssetWriterInputRef& input) const {
    return call<&ModuleApi::writerCanAddInput>(this, input);
}
void AVAssetWriter::addInput(const AVAssetWriterInputRef& input) {
    call<&ModuleApi::writerAddInput>(this, input);
}
const std::vector<AVAssetWriterInputRef>& AVAssetWriter::inputs() const {
    return call<&ModuleApi::writerInputs>(this);
}
void AVAssetWriter::setMetadata(std::vector<AVMetadataItem> items) {
    call<&ModuleApi::writerSetMetadata>(this, std::move(items));
}
const std::vector<AVMetadataItem>& AVAssetWriter::metadata() const {
    return call<&ModuleApi::writerMetadata>(this);
}
bool AVAssetWriter::startWriting() {
    return call<&ModuleApi::writerStartWriting>(this);
}
void AVAssetWriter::startSessionAtSourceTime(CMTime time) {
    call<&ModuleApi::writerStartSession>(this, time);
}
void AVAssetWriter::finishWritingWithCompletionHandler(std::function<void()> handler) {
    call<&ModuleApi::writerFinish>(this, std::move(handler));
}
void AVAssetWriter::cancelWriting() {
    call<&ModuleApi::writerCancel>(this);
}
AVAssetWriterStatus AVAssetWriter::status() const {
    return call<&ModuleApi::writerStatus>(this);
}
ErrorRef AVAssetWriter::error() const {
    return call<&ModuleApi::writerError>(this);
}

// Writer input. Null without the module; a writer to take it exists only with the module.

std::shared_ptr<AVAssetWriterInput> AVAssetWriterInput::assetWriterInputWithMediaType(
    const std::string& mediaType, std::optional<platform::PlistDictionary> outputSettings,
    CMFormatDescriptionRef sourceFormatHint) {
    const ModuleApi* api = loadModule(nullptr);
    return api ? api->inputWithMediaType(mediaType, std::move(outputSettings),
                                         std::move(sourceFormatHint))
               : nullptr;
}
const std::string& AVAssetWriterInput::mediaType() const {
    return call<&ModuleApi::inputMediaType>(this);
}
const std::optional<platform::PlistDictionary>& AVAssetWriterInput::outputSettings() const {
    return call<&ModuleApi::inputOutputSettings>(this);
}
ErrorRef AVAssetWriterInput::outputSettingsError() const {
    return call<&ModuleApi::inputOutputSettingsError>(this);
}
const CMFormatDescriptionRef& AVAssetWriterInput::sourceFormatHint() const {
    return call<&ModuleApi::inputSourceFormatHint>(this);
}
void AVAssetWriterInput::setExpectsMediaDataInRealTime(bool value) {
    call<&ModuleApi::inputSetRealTime>(this, value);
}
bool AVAssetWriterInput::expectsMediaDataInRealTime() const {
    return call<&ModuleApi::inputRealTime>(this);
}
void AVAssetWriterInput::setTransform(CGAffineTransform transform) {
    call<&ModuleApi::inputSetTransform>(this, transform);
}
CGAffineTransform AVAssetWriterInput::transform() const {
    return call<&ModuleApi::inputTransform>(this);
}
void AVAssetWriterInput::setMetadata(std::vector<AVMetadataItem> items) {
    call<&ModuleApi::inputSetMetadata>(this, std::move(items));
}
const std::vector<AVMetadataItem>& AVAssetWriterInput::metadata() const {
    return call<&ModuleApi::inputMetadata>(this);
}
bool AVAssetWriterInput::isReadyForMoreMediaData() const {
    return call<&ModuleApi::inputIsReady>(this);
}
void AVAssetWriterInput::requestMediaDataWhenReadyOnQueue(
    std::shared_ptr<platform::DispatchQueue> queue, std::function<void()> block) {
    call<&ModuleApi::inputRequestMediaData>(this, std::move(queue), std::move(block));
}
bool AVAssetWriterInput::appendSampleBuffer(const CMSampleBufferRef& sample) {
    return call<&ModuleApi::inputAppendSample>(this, sample);
}
void AVAssetWriterInput::markAsFinished() {
    call<&ModuleApi::inputMarkAsFinished>(this);
}

std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>
AVAssetWriterInputPixelBufferAdaptor::assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
    AVAssetWriterInputRef input, std::optional<platform::PlistDictionary> attributes) {
    const ModuleApi* api = loadModule(nullptr);
    return api ? api->adaptorWithInput(std::move(input), std::move(attributes)) : nullptr;
}
std::shared_ptr<CVPixelBufferPool> AVAssetWriterInputPixelBufferAdaptor::pixelBufferPool() const {
    return call<&ModuleApi::adaptorPool>(this);
}
bool AVAssetWriterInputPixelBufferAdaptor::appendPixelBuffer(const CVPixelBufferRef& pixelBuffer,
                                                             CMTime presentationTime) {
    return call<&ModuleApi::adaptorAppend>(this, pixelBuffer, presentationTime);
}

// Camera: a value the program makes itself; its captures need the module.

namespace platform {

Camera::Camera(std::string device) : _device(std::move(device)) {}

std::string Camera::movieExtension() {
    return "mov";
}

std::optional<CameraStill> Camera::captureStill(ErrorRef* error) const {
    const media::ModuleApi* api = media::loadModule(error);
    return api ? (this->*(api->cameraCaptureStill))(error) : std::nullopt;
}

bool Camera::recordMovie(double seconds, const std::string& path, ErrorRef* error) const {
    const media::ModuleApi* api = media::loadModule(error);
    return api && (this->*(api->cameraRecordMovie))(seconds, path, error);
}

}  // namespace platform

// HEIF in the image codec table. Sniffing needs no codec, so a folder of JPEGs never loads the
// module.

namespace platform::codecs {
namespace {

const media::ModuleApi* heifModule(std::string& why) {
    ErrorRef error;
    const media::ModuleApi* api = media::loadModule(&error);
    if (!api) why = error->localizedDescription();
    return api;
}

}  // namespace

// The ftyp brands decide between the two rows: the major brand first, as for the movies of
// the same family.
bool heicSniff(Bytes data, std::size_t size) {
    return isoMediaTypeForData(data, size) == "public.heic";
}

bool heifSniff(Bytes data, std::size_t size) {
    return isoMediaTypeForData(data, size) == "public.heif";
}

bool heifReadInfo(Bytes data, std::size_t size, ImageInfo& info, std::string& why) {
    const media::ModuleApi* api = heifModule(why);
    return api && api->heifReadInfo(data, size, info, why);
}

std::optional<Bitmap> heifDecode(Bytes data, std::size_t size, std::string& why) {
    const media::ModuleApi* api = heifModule(why);
    return api ? api->heifDecode(data, size, why) : std::nullopt;
}

bool heifEncode(const Bitmap& image, const EncodeOptions& options, std::FILE* file,
                std::string& why) {
    const media::ModuleApi* api = heifModule(why);
    return api && api->heifEncode(image, options, file, why);
}

bool heifCanEncode() {
    const media::ModuleApi* api = media::loadModule(nullptr);
    return api && api->heifCanEncode();
}

}  // namespace platform::codecs
