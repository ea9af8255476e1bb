// The main screen of the machine, as far as it can be known without a window system: the
// template of "this device" is sized after it.
#pragma once

#include <optional>

#include "platform/Geometry.h"

namespace platform {

class Screen {
  public:
    // The pixel size of the first connected display's preferred mode; absent on a machine
    // without one (a server, a container).
    static std::optional<CGSize> mainScreenPixelSize();
};

}  // namespace platform
