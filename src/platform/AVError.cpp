#include "platform/AVError.h"

namespace platform {

ErrorRef avError(std::int64_t code, const std::string& description, ErrorRef underlying) {
    PlistDictionary info;
    info[NSLocalizedDescriptionKey] = description;
    std::map<std::string, std::vector<ErrorRef>> errorInfo;
    if (underlying) errorInfo[NSUnderlyingErrorKey] = {std::move(underlying)};
    return std::make_shared<Error>(AVFoundationErrorDomain, code, std::move(info),
                                   std::move(errorInfo));
}

}  // namespace platform
