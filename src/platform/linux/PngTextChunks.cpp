#include "platform/linux/PngTextChunks.h"

#include <cstring>

namespace platform::codecs {
namespace {

// The PNG text keywords that stand for keys of the "{PNG}" family, and the family's names.
struct TextKey {
    const char* png;
    const char* apple;
};
constexpr TextKey kTextKeys[] = {
    {"Title", "Title"},
    {"Author", "Author"},
    {"Description", "Description"},
    {"Copyright", "Copyright"},
    {"Creation Time", "CreationTime"},
    {"Software", "Software"},
    {"Disclaimer", "Disclaimer"},
    {"Warning", "Warning"},
    {"Source", "Source"},
    {"Comment", "Comment"},
};

}  // namespace

const char* appleTextKey(const char* key) {
    for (const auto& e : kTextKeys)
        if (std::strcmp(e.png, key) == 0) return e.apple;
    return nullptr;
}

const char* pngTextKey(const std::string& apple) {
    for (const auto& e : kTextKeys)
        if (apple == e.apple) return e.png;
    return nullptr;
}

void readTexts(png_structp png, png_infop info, PlistDictionary& family, std::string& xmp) {
    png_textp texts = nullptr;
    int count = png_get_text(png, info, &texts, nullptr);
    for (int i = 0; i < count; ++i) {
        const char* key = texts[i].key;
        std::string value(texts[i].text ? texts[i].text : "");
        if (std::strcmp(key, "XML:com.adobe.xmp") == 0) {
            xmp = value;
        } else if (const char* apple = appleTextKey(key)) {
            family[apple] = value;
        }
    }
}

void readTrailingTexts(const std::uint8_t* data, std::size_t size, PlistDictionary& family,
                       std::string& xmp) {
    std::size_t at = 8;
    bool afterPixels = false;
    for (int chunks = 0; chunks < 100000 && at + 12 <= size; ++chunks) {
        std::uint32_t length = png_get_uint_32(data + at);
        if (length > size - at - 12) break;
        std::string type(reinterpret_cast<const char*>(data + at + 4), 4);
        const std::uint8_t* body = data + at + 8;
        if (type == "IDAT") afterPixels = true;
        if (afterPixels && (type == "tEXt" || type == "iTXt")) {
            const char* begin = reinterpret_cast<const char*>(body);
            std::string chunk(begin, length);
            std::size_t zero = chunk.find('\0');
            if (zero != std::string::npos) {
                std::string key = chunk.substr(0, zero);
                std::string value;
                bool usable = true;
                if (type == "tEXt") {
                    value = chunk.substr(zero + 1);
                } else {
                    // keyword, flag, method, language\0, translated keyword\0, text
                    usable = zero + 2 < chunk.size() && chunk[zero + 1] == 0;
                    std::size_t language = chunk.find('\0', zero + 3);
                    std::size_t translated =
                        language == std::string::npos ? language : chunk.find('\0', language + 1);
                    if (translated == std::string::npos) usable = false;
                    if (usable) value = chunk.substr(translated + 1);
                }
                if (usable && key == "XML:com.adobe.xmp") {
                    xmp = value;
                } else if (const char* apple = appleTextKey(key.c_str()); usable && apple) {
                    family[apple] = value;
                }
            }
        }
        if (type == "IEND") break;
        at += 12 + std::size_t(length);
    }
}

}  // namespace platform::codecs
