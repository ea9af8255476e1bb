// The program's side of the metadata functions and the shrunk JPEG decode: each calls its
// namesake in unwarp-metadata.so, loading the module on first use. Without the module the
// readers add nothing (as for a damaged block), the writers fail with the loader's words, and
// the block encoders give empty blocks; the missing module is logged once.
#include "platform/Log.h"
#include "platform/linux/MetadataModule.h"

namespace platform::metadata_module {

const ModuleApi* loadModule(ErrorRef* error) {
    return modules::openModuleOnce<ModuleApi>(
        kModuleFileName, kModuleEntryName, kModuleVersion, "Photo metadata", error,
        [](const ErrorRef& why) { log("~~ " + why->localizedDescription()); });
}

}  // namespace platform::metadata_module

namespace platform::codecs {

using metadata_module::loadModule;

void readMetadataFromFile(Bytes data, std::size_t size, PlistDictionary& properties) {
    if (const auto* api = loadModule(nullptr)) api->readMetadataFromFile(data, size, properties);
}

void readExifBlock(Bytes data, std::size_t size, PlistDictionary& properties) {
    if (const auto* api = loadModule(nullptr)) api->readExifBlock(data, size, properties);
}

void readXmpPacket(const std::string& packet, PlistDictionary& properties) {
    if (const auto* api = loadModule(nullptr)) api->readXmpPacket(packet, properties);
}

bool writeMetadataToFile(const std::string& path, const PlistDictionary& properties,
                         std::string& why) {
    ErrorRef error;
    const auto* api = loadModule(&error);
    if (!api) return why = error->localizedDescription(), false;
    return api->writeMetadataToFile(path, properties, why);
}

std::vector<std::uint8_t> encodeExifBlock(const PlistDictionary& properties) {
    const auto* api = loadModule(nullptr);
    return api ? api->encodeExifBlock(properties) : std::vector<std::uint8_t>{};
}

std::string encodeXmpPacket(const PlistDictionary& properties) {
    const auto* api = loadModule(nullptr);
    return api ? api->encodeXmpPacket(properties) : std::string{};
}

}  // namespace platform::codecs

namespace platform::thumbnails {

// Without the module the thumbnail falls back as for a JPEG it cannot shrink.
std::optional<ShrunkJpeg> decodeJpegShrunk(const std::string& path, std::uint32_t minSide) {
    const auto* api = metadata_module::loadModule(nullptr);
    return api ? api->decodeJpegShrunk(path, minSide) : std::nullopt;
}

}  // namespace platform::thumbnails
