// The metadata reader and writer (exiv2, with expat) and the shrunk JPEG decode of the
// thumbnails live in the module unwarp-metadata.so beside the program, loaded by the first
// photo that has metadata to read or write, so that commands without photos start without
// them. The table of entry points the module hands over (MetadataModuleEntry.cpp); the
// program's functions of the same names call through it (MetadataModuleCalls.cpp).
#pragma once

#include "platform/Error.h"
#include "platform/linux/ImageCodecs.h"
#include "platform/linux/LoadableModule.h"
#include "platform/linux/Thumbnail.h"

namespace platform::metadata_module {

// Raised whenever the table changes, so that a module left from another build is refused.
inline constexpr int kModuleVersion = 1;
inline constexpr const char* kModuleFileName = "unwarp-metadata.so";
inline constexpr const char* kModuleEntryName = "unwarp_metadata_module";

struct ModuleApi {
    modules::ModuleHeader header;
    decltype(&codecs::readMetadataFromFile) readMetadataFromFile;
    decltype(&codecs::readExifBlock) readExifBlock;
    decltype(&codecs::readXmpPacket) readXmpPacket;
    decltype(&codecs::writeMetadataToFile) writeMetadataToFile;
    decltype(&codecs::encodeExifBlock) encodeExifBlock;
    decltype(&codecs::encodeXmpPacket) encodeXmpPacket;
    decltype(&thumbnails::decodeJpegShrunk) decodeJpegShrunk;
};

// The module's table, loaded once per process on the first call; null with the reason.
const ModuleApi* loadModule(ErrorRef* error);

}  // namespace platform::metadata_module
