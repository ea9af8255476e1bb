#include "platform/CMTime.h"

#include <cmath>
#include <limits>

namespace {

// Products of a 64-bit value and a 32-bit scale need more than 64 bits.
__extension__ typedef __int128 Wide;

// Rounds value * newScale / oldScale to the nearest, halves away from zero.
CMTimeValue rescale(CMTimeValue value, CMTimeScale oldScale, CMTimeScale newScale) {
    Wide n = static_cast<Wide>(value) * newScale;
    Wide q = n / oldScale;
    Wide r = n % oldScale;
    if (r < 0) r = -r;
    if (2 * r >= oldScale) q += (n < 0 ? -1 : 1);
    return static_cast<CMTimeValue>(q);
}

}  // namespace

CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale) {
    if (timescale <= 0) return kCMTimeInvalid;
    return CMTime{value, timescale, kCMTimeFlags_Valid, 0};
}

CMTime CMTimeMakeWithSeconds(double seconds, CMTimeScale preferredTimescale) {
    if (preferredTimescale <= 0 || std::isnan(seconds)) return kCMTimeInvalid;
    if (std::isinf(seconds)) {
        return CMTime{0, 0,
                      kCMTimeFlags_Valid | (seconds > 0 ? kCMTimeFlags_PositiveInfinity
                                                        : kCMTimeFlags_NegativeInfinity),
                      0};
    }
    double units = std::round(seconds * preferredTimescale);
    if (std::fabs(units) > 9.2e18) return kCMTimeInvalid;
    return CMTimeMake(static_cast<CMTimeValue>(units), preferredTimescale);
}

double CMTimeGetSeconds(CMTime time) {
    if (!CMTIME_IS_VALID(time) || (time.flags & kCMTimeFlags_Indefinite)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (time.flags & kCMTimeFlags_PositiveInfinity) return std::numeric_limits<double>::infinity();
    if (time.flags & kCMTimeFlags_NegativeInfinity) return -std::numeric_limits<double>::infinity();
    if (time.timescale <= 0) return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(time.value) / time.timescale;
}

int CMTimeCompare(CMTime a, CMTime b) {
    bool av = CMTIME_IS_NUMERIC(a), bv = CMTIME_IS_NUMERIC(b);
    if (!av || !bv) {
        double x = CMTimeGetSeconds(a), y = CMTimeGetSeconds(b);
        if (std::isnan(x) || std::isnan(y)) return std::isnan(x) ? (std::isnan(y) ? 0 : -1) : 1;
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    Wide l = static_cast<Wide>(a.value) * b.timescale;
    Wide r = static_cast<Wide>(b.value) * a.timescale;
    return l < r ? -1 : (l > r ? 1 : 0);
}

CMTime CMTimeConvertScale(CMTime time, CMTimeScale newTimescale) {
    if (!CMTIME_IS_NUMERIC(time) || newTimescale <= 0) return time;
    CMTime out = CMTimeMake(rescale(time.value, time.timescale, newTimescale), newTimescale);
    if (CMTimeCompare(out, time) != 0) out.flags |= kCMTimeFlags_HasBeenRounded;
    return out;
}

CMTime CMTimeAdd(CMTime a, CMTime b) {
    if (!CMTIME_IS_NUMERIC(a) || !CMTIME_IS_NUMERIC(b)) return kCMTimeInvalid;
    CMTimeScale scale = a.timescale >= b.timescale ? a.timescale : b.timescale;
    CMTime x = CMTimeConvertScale(a, scale), y = CMTimeConvertScale(b, scale);
    return CMTimeMake(x.value + y.value, scale);
}

CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration) {
    return CMTimeRange{start, duration};
}
