#include "core/VRError.h"

VRErrorRef VRError::errorWithCode(VRErrorCode code, platform::PlistDictionary userInfo) {
    return std::make_shared<VRError>(VRErrorDomain, static_cast<std::int64_t>(code),
                                     std::move(userInfo));
}

VRErrorRef VRError::errorWithCodeUnderlyingErrors(VRErrorCode code,
                                                  std::vector<platform::ErrorRef> errors) {
    return std::make_shared<VRError>(VRErrorDomain, static_cast<std::int64_t>(code),
                                     platform::PlistDictionary{},
                                     std::map<std::string, std::vector<platform::ErrorRef>>{
                                         {VRErrorUnderlyingErrorsKey, std::move(errors)}});
}

std::string VRError::description() const {
    const auto& errors = underlyingErrors();
    if (errors.empty()) return platform::Error::description();
    std::string joined;
    for (std::size_t i = 0; i < errors.size(); ++i) {
        std::string text = errors[i] ? errors[i]->description() : std::string();
        joined += (i ? "]; [" : "") + (text.empty() ? std::string("None") : text);
    }
    return "Error Domain=" + domain() + " Code=" + std::to_string(code()) + " UnderlyingErrors=[" +
           joined + "]";
}

bool VRError::matchesDomain(const std::string& wanted, std::int64_t wantedCode) const {
    if (domain() == wanted && code() == wantedCode) return true;
    for (const auto& error : underlyingErrors()) {
        if (!error) continue;
        if (auto* inner = dynamic_cast<const VRError*>(error.get())) {
            if (inner->matchesDomain(wanted, wantedCode)) return true;
        } else if (error->domain() == wanted && error->code() == wantedCode) {
            return true;
        }
    }
    return false;
}
