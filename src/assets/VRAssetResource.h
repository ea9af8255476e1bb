// The hand-over record of a finished result: the file, the paired movie of a Live Photo when
// there is one, and the media type. The processor builds it for the saving step.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/VRFormatMediaType.h"

struct VRAssetResource {
    std::string url;
    std::optional<std::string> pairedURL;
    VRFormatMediaType mediaType = VRFormatMediaTypeNone;

    static VRAssetResource resourceWithURL(std::string url, VRFormatMediaType mediaType) {
        return {std::move(url), std::nullopt, mediaType};
    }
    static VRAssetResource resourceWithURL(std::string url, std::string pairedURL,
                                           VRFormatMediaType mediaType) {
        return {std::move(url), std::move(pairedURL), mediaType};
    }
};
