#include "video/VRVideoJob.h"

#include "video/VRVideoResizer2.h"

void VRVideoJob::cancel() const {
    if (_resizer) _resizer->cancel();
}
