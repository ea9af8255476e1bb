// The one symbol unwarp-metadata.so exports: the table of its metadata and thumbnail entry
// points. Everything else in the module is hidden, so that its calls stay inside it.
#include "platform/linux/MetadataModule.h"

namespace platform::metadata_module {
namespace {

const ModuleApi kApi{
    .header = {kModuleVersion, sizeof(ModuleApi)},
    .readMetadataFromFile = &codecs::readMetadataFromFile,
    .readExifBlock = &codecs::readExifBlock,
    .readXmpPacket = &codecs::readXmpPacket,
    .writeMetadataToFile = &codecs::writeMetadataToFile,
    .encodeExifBlock = &codecs::encodeExifBlock,
    .encodeXmpPacket = &codecs::encodeXmpPacket,
    .decodeJpegShrunk = &thumbnails::decodeJpegShrunk,
};

}  // namespace
}  // namespace platform::metadata_module

extern "C" __attribute__((visibility("default"))) const platform::modules::ModuleHeader*
unwarp_metadata_module() {
    return &platform::metadata_module::kApi.header;
}
