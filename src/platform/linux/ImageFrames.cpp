#include "platform/ImageFrames.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace platform {
namespace {

struct Reader {
    const std::vector<std::uint8_t>* bytes;
    std::size_t offset = 0;
};

int readBytes(GifFileType* gif, GifByteType* out, int length) {
    auto* reader = static_cast<Reader*>(gif->UserData);
    if (length <= 0) return 0;
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(length),
                                                reader->bytes->size() - reader->offset);
    std::memcpy(out, reader->bytes->data() + reader->offset, n);
    reader->offset += n;
    return static_cast<int>(n);
}

bool isGif(const std::vector<std::uint8_t>& bytes) {
    return bytes.size() >= 6 && (std::memcmp(bytes.data(), "GIF87a", 6) == 0 ||
                                 std::memcmp(bytes.data(), "GIF89a", 6) == 0);
}

}  // namespace

std::size_t imageFrameCount(const std::vector<std::uint8_t>& bytes, std::size_t stopAt) {
    if (!isGif(bytes)) return 1;
    Reader reader{&bytes};
    int error = 0;
    std::unique_ptr<GifFileType, void (*)(GifFileType*)> gif(DGifOpen(&reader, readBytes, &error),
                                                             [](GifFileType* g) {
                                                                 int ignored = 0;
                                                                 DGifCloseFile(g, &ignored);
                                                             });
    if (!gif) return 0;
    std::size_t frames = 0;
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    while (frames < stopAt && type != TERMINATE_RECORD_TYPE) {
        if (DGifGetRecordType(gif.get(), &type) == GIF_ERROR) break;
        GifByteType* block = nullptr;
        int code = 0;
        if (type == EXTENSION_RECORD_TYPE) {
            if (DGifGetExtension(gif.get(), &code, &block) == GIF_ERROR) break;
            while (block && DGifGetExtensionNext(gif.get(), &block) != GIF_ERROR) {
            }
        } else if (type == IMAGE_DESC_RECORD_TYPE) {
            if (DGifGetImageDesc(gif.get()) == GIF_ERROR) break;
            ++frames;
            // Skip the frame's compressed data without decoding it.
            if (DGifGetCode(gif.get(), &code, &block) == GIF_ERROR) break;
            while (block && DGifGetCodeNext(gif.get(), &block) != GIF_ERROR) {
            }
        }
    }
    return frames;
}

}  // namespace platform
