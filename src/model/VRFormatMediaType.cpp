#include "model/VRFormatMediaType.h"

std::string titleForMediaType(std::uint64_t mediaType, bool shortTitle) {
    switch (mediaType) {
        case VRFormatMediaTypeVideo:
            return shortTitle ? "V" : "Video";
        case VRFormatMediaTypePhoto:
            return shortTitle ? "P" : "Photo";
        default:
            return "";
    }
}
