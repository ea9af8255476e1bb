#include "app/ProcessReport.h"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRURLAsset.h"
#include "core/ErrorMessages.h"
#include "model/VXHelperSize.h"
#include "model/VXHelperText.h"

namespace app {
namespace {

using nlohmann::json;

json jsonFromPlist(const platform::PlistValue& value) {
    using Type = platform::PlistValue::Type;
    switch (value.type()) {
        case Type::Boolean:
            return value.boolValue();
        case Type::Integer:
            return value.integerValue();
        case Type::Real: {
            // Sizes are whole pixels: printed as integers, as the results' sizes are.
            const double number = value.doubleValue();
            if (std::isfinite(number) && std::trunc(number) == number && std::fabs(number) < 1e15)
                return static_cast<std::int64_t>(number);
            return number;
        }
        case Type::String:
            return *value.string();
        case Type::Array: {
            json array = json::array();
            for (const auto& v : *value.array()) array.push_back(jsonFromPlist(v));
            return array;
        }
        case Type::Dictionary: {
            json object = json::object();
            for (const auto& [k, v] : *value.dictionary()) object[k] = jsonFromPlist(v);
            return object;
        }
        default:
            return value.debugDescription();
    }
}

struct LimitOffer {
    CGSize exceeding;
    CGSize correction;
};

std::optional<LimitOffer> limitOffer(const VRError& error) {
    if (!error.hasCode(VRErrorCode::sizeLimitExceeded)) return std::nullopt;
    const auto& info = error.userInfo();
    auto corrections = info.find(VRErrorUserInfoCorrectingSizesKey);
    auto exceeding = info.find(VRErrorUserInfoExceedingSizeKey);
    if (corrections == info.end() || !corrections->second.array() ||
        corrections->second.array()->empty() || !corrections->second.array()->front().array())
        return std::nullopt;
    LimitOffer offer;
    offer.correction = VXHelper::sizeWithSizeArray(*corrections->second.array()->front().array());
    if (exceeding != info.end() && exceeding->second.array())
        offer.exceeding = VXHelper::sizeWithSizeArray(*exceeding->second.array());
    return offer;
}

const std::string* userInfoString(const VRError& error, const char* key) {
    auto it = error.userInfo().find(key);
    return it == error.userInfo().end() ? nullptr : it->second.string();
}

// The source's own problem first (missing, unreadable, a folder, not a picture), since the
// code's words may blame the saving; then what the error itself names.
std::optional<std::string> reasonOf(const ProcessInput& input, const VRError& error) {
    if (const auto* set = userInfoString(error, VRErrorUserInfoReasonKey)) return *set;
    std::optional<std::string> path;
    std::error_code ec;
    if (input.path) path = std::filesystem::absolute(*input.path, ec).lexically_normal().string();
    // A library asset is named by its identifier: its own file is the one to look at.
    if (auto* library = dynamic_cast<const VRLibraryAsset*>(input.asset->object().get()))
        path = library->primaryPath();
    if (path) {
        const bool isPhoto = VRURLAsset::mediaTypeForPath(*path) != VRFormatMediaTypeVideo;
        if (auto problem = VRSourceProblem(*path, isPhoto)) return problem;
    }
    return VRErrorReason(error);
}

}  // namespace

void printResult(const std::string& source, const BatchRunResult& item, const std::string& output,
                 const std::string& format, bool json) {
    const VRAsset& result = *item.result;
    const CGSize size = result.pixelSize();
    const auto width = std::llround(size.width);
    const auto height = std::llround(size.height);
    if (json) {
        nlohmann::json line = {
            {"source", source},       {"output", output}, {"mediaType", result.mediaType()},
            {"width", width},         {"height", height}, {"format", format},
            {"seconds", item.seconds}};
        std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
    } else {
        std::cout << source << " -> " << output << "  " << VXHelper::stringFromSize(size) << " "
                  << format << std::endl;
    }
}

int printFailure(const ProcessInput& input, const VRError& error, bool json) {
    const std::string& file = input.name;
    const auto offer = limitOffer(error);
    std::string message = offer ? VRExceedingMaxSizeMessage(offer->exceeding, offer->correction)
                                : VRErrorMessageForCode(error.code()).message;
    const auto& info = error.userInfo();
    auto root = info.find(VRErrorUserInfoRootKey);
    const std::optional<std::string> reason = offer ? std::nullopt : reasonOf(input, error);
    if (json) {
        nlohmann::json userInfo = jsonFromPlist(platform::PlistValue(info));
        if (reason) userInfo[VRErrorUserInfoReasonKey] = *reason;
        nlohmann::json line = {{"source", file},
                               {"error",
                                {{"code", error.code()},
                                 {"domain", error.domain()},
                                 {"message", message},
                                 {"userInfo", userInfo}}}};
        std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
        return kExitProcessingFailure;
    }
    for (char& c : message)
        if (c == '\n') c = ' ';
    if (offer) message += " (--yes takes the smaller size)";
    if (root != info.end() && root->second.string()) message += " (" + *root->second.string() + ")";
    // The cause goes on a line of its own under the words of the code.
    if (reason) message += "\n  " + *reason;
    return reportFailure(file + ": " + message);
}

}  // namespace app
