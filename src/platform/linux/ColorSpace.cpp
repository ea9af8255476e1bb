#include "platform/ColorSpace.h"

#include <lcms2.h>

#include <memory>

#include "platform/Log.h"
#include "platform/linux/ImageCodecs.h"

namespace platform {

int ColorSpace::numberOfComponents() const {
    switch (_model) {
        case Model::Gray:
            return 1;
        case Model::RGB:
            return 3;
        case Model::CMYK:
            return 4;
    }
    return 3;
}

std::string ColorSpace::name() const {
    if (_icc.empty()) return {};
    std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(
        cmsOpenProfileFromMem(_icc.data(), static_cast<cmsUInt32Number>(_icc.size())),
        &cmsCloseProfile);
    if (!profile) return {};
    char text[256] = {0};
    cmsUInt32Number n =
        cmsGetProfileInfoASCII(profile.get(), cmsInfoDescription, "en", "US", text, sizeof text);
    if (n == 0) return {};
    return std::string(text);
}

std::string ColorSpace::colorModelName() const {
    switch (_model) {
        case Model::Gray:
            return "Gray";
        case Model::RGB:
            return "RGB";
        case Model::CMYK:
            return "CMYK";
    }
    return "RGB";
}

std::string ColorSpace::description() const {
    std::string n = name();
    return "<" + colorModelName() + " " + (n.empty() ? std::string("device") : n) + ">";
}

namespace codecs {

void dropUnusableProfile(std::vector<std::uint8_t>& icc, ColorSpace::Model model) {
    if (icc.empty()) return;
    std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(
        cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())),
        &cmsCloseProfile);
    const cmsColorSpaceSignature expected = model == ColorSpace::Model::Gray   ? cmsSigGrayData
                                            : model == ColorSpace::Model::CMYK ? cmsSigCmykData
                                                                               : cmsSigRgbData;
    const char* problem = !profile                                      ? "unreadable"
                          : cmsGetColorSpace(profile.get()) != expected ? "for another colour model"
                                                                        : nullptr;
    if (!problem) return;
    logf(
        "~~ IMAGE: the embedded ICC profile (%zu bytes) is %s and is dropped; the picture is "
        "read as sRGB",
        icc.size(), problem);
    icc.clear();
}

}  // namespace codecs
}  // namespace platform
