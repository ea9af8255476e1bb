// One stored result of the result store: its folder's name, its kind and when it was stored.
// The folder tree is the only record; nothing is serialised from this value.
#pragma once

#include <string>

#include "platform/PlistValue.h"

enum class ResultType {
    photoAsset,  // a reference to an item of the photo library
    localAsset,  // a file owned by the store
};

struct VRResult {
    // The folder name: "A" and a UUID for a photo result, "B" and a UUID for a local one.
    std::string identifier;
    ResultType resultType = ResultType::localAsset;
    // The folder's creation date, or the moment of adding.
    platform::PlistDate creationDate;
};
