#include "platform/ImageTypes.h"

#include <libheif/heif.h>

namespace platform {

namespace {

// libheif asks its plugins on first use; initialising is reference counted and cheap.
bool haveHEVCEncoder() {
#if LIBHEIF_HAVE_VERSION(1, 13, 0)
    heif_init(nullptr);
    const bool have = heif_have_encoder_for_format(heif_compression_HEVC) != 0;
    heif_deinit();
    return have;
#else
    return heif_have_encoder_for_format(heif_compression_HEVC) != 0;
#endif
}

}  // namespace

std::vector<std::string> imageDestinationTypeIdentifiers() {
    std::vector<std::string> types{"public.jpeg", "public.png", "public.tiff",
                                   "com.compuserve.gif"};
    if (haveHEVCEncoder()) types.emplace_back("public.heic");
    return types;
}

}  // namespace platform
