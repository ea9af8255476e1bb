#include "core/VXHelperRate.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/Log.h"
#include "storage/VXHelperState.h"

namespace {

std::string rateKey(int index) {
    return "ratekey" + std::to_string(index);
}

// Reads the four counters, lets `change` alter them, and stores them back when it answers
// true. Nothing changes once the prompt has been completed.
bool modifyRateInfo(const std::function<bool(std::array<std::int64_t, 4>&)>& change) {
    if (VXHelper::isRateComplete()) {
        return false;
    }
    platform::PlistDictionary info = VXHelper::rateInfo();
    std::array<std::int64_t, 4> counters{};
    for (int i = 0; i < 4; ++i) {
        counters[static_cast<std::size_t>(i)] = info[rateKey(i)].integerValue();
    }
    bool changed = change(counters);
    if (changed) {
        for (int i = 0; i < 4; ++i) {
            info[rateKey(i)] = counters[static_cast<std::size_t>(i)];
        }
        VXHelper::setRateInfo(info);
    }
    return changed;
}

}  // namespace

namespace VXHelper {

void incrementRateInfoStarted() {
    modifyRateInfo([](auto& c) {
        c[0] += 1;
        c[1] += 1;
        return true;
    });
}

void incrementRateInfoProcessed() {
    modifyRateInfo([](auto& c) {
        c[2] += 1;
        c[3] += 1;
        return true;
    });
}

void updateReteInfoWithError() {
    modifyRateInfo([](auto& c) {
        c[1] = 0;
        c[3] = 0;
        return true;
    });
}

bool checkAndCommitRateInfo() {
    if (!isRateComplete()) {
        platform::log("~~ ~~rate " + platform::PlistValue(rateInfo()).debugDescription());
    }
    return modifyRateInfo([](auto& c) {
        if (c[0] >= 10 && c[1] >= 3 && c[2] >= 20 && c[3] >= 5) {
            c[1] = 0;
            c[3] = 0;
            return true;
        }
        return false;
    });
}

}  // namespace VXHelper
