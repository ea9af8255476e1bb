#include "core/ApplicationStart.h"

#include <mutex>

#include "platform/KeyedArchive.h"
#include "templates/VXTemplateCoding.h"

namespace ApplicationStart {

void prepareUnarchiver() {
    static std::once_flag once;
    std::call_once(once, [] {
        VXTemplateCoding::registerArchiveClasses();
        platform::KeyedUnarchiver::setClassForClassName("VXTemplate", "VRTemplate");
    });
}

}  // namespace ApplicationStart
