#include "platform/Error.h"

#include <cstring>

namespace platform {

ErrorRef Error::errorWithDomain(std::string domain, std::int64_t code, PlistDictionary userInfo) {
    return std::make_shared<Error>(std::move(domain), code, std::move(userInfo));
}

ErrorRef Error::posixError(int errnum, const std::string& operation, const std::string& path) {
    PlistDictionary info;
    info[NSLocalizedDescriptionKey] = operation + ": " + std::strerror(errnum);
    if (!path.empty()) info[NSFilePathErrorKey] = path;
    return errorWithDomain(NSPOSIXErrorDomain, errnum, std::move(info));
}

const std::vector<ErrorRef>& Error::errorsForKey(const std::string& key) const {
    static const std::vector<ErrorRef> none;
    auto it = _errorInfo.find(key);
    return it == _errorInfo.end() ? none : it->second;
}

std::string Error::localizedDescription() const {
    auto it = _userInfo.find(NSLocalizedDescriptionKey);
    if (it != _userInfo.end() && it->second.string()) return *it->second.string();
    return "The operation couldn\u2019t be completed. (" + _domain + " error " +
           std::to_string(_code) + ".)";
}

std::string Error::description() const {
    std::string text = "Error Domain=" + _domain + " Code=" + std::to_string(_code) + " \"" +
                       localizedDescription() + "\"";
    if (_userInfo.empty() && _errorInfo.empty()) return text;
    text += " UserInfo={";
    bool first = true;
    for (const auto& [key, value] : _userInfo) {
        text += (first ? "" : ", ") + key + "=" + value.debugDescription();
        first = false;
    }
    for (const auto& [key, errors] : _errorInfo) {
        text += (first ? "" : ", ") + key + "=(";
        for (std::size_t i = 0; i < errors.size(); ++i) {
            text += (i ? ", " : "") + (errors[i] ? errors[i]->description() : std::string("nil"));
        }
        text += ")";
        first = false;
    }
    return text + "}";
}

}  // namespace platform
