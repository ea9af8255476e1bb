// Media times as rational numbers (a value over a time scale) and time ranges, as the media
// framework counts them. Used by the asset, reader, writer and the video logic.
#pragma once

#include <cstdint>

using CMTimeValue = std::int64_t;
using CMTimeScale = std::int32_t;

enum CMTimeFlags : std::uint32_t {
    kCMTimeFlags_Valid = 1u << 0,
    kCMTimeFlags_HasBeenRounded = 1u << 1,
    kCMTimeFlags_PositiveInfinity = 1u << 2,
    kCMTimeFlags_NegativeInfinity = 1u << 3,
    kCMTimeFlags_Indefinite = 1u << 4,
};

struct CMTime {
    CMTimeValue value = 0;
    CMTimeScale timescale = 0;
    std::uint32_t flags = 0;
    std::int64_t epoch = 0;
};

struct CMTimeRange {
    CMTime start;
    CMTime duration;
};

inline constexpr CMTime kCMTimeInvalid{};
inline constexpr CMTime kCMTimeZero{0, 1, kCMTimeFlags_Valid, 0};
inline constexpr CMTime kCMTimePositiveInfinity{
    0, 0, kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity, 0};

// Valid when the time scale is above 0.
CMTime CMTimeMake(CMTimeValue value, CMTimeScale timescale);
// Rounds to the nearest unit of the time scale, halves away from zero.
CMTime CMTimeMakeWithSeconds(double seconds, CMTimeScale preferredTimescale);
// NaN for an invalid time, +/- infinity for the infinite ones.
double CMTimeGetSeconds(CMTime time);
// Exact comparison of the rational values; an invalid time is smaller than every valid one.
int CMTimeCompare(CMTime a, CMTime b);
// Sum in the larger of the two time scales (rounded); invalid when either is invalid.
CMTime CMTimeAdd(CMTime a, CMTime b);
// The same instant in another time scale, rounded to the nearest, halves away from zero.
CMTime CMTimeConvertScale(CMTime time, CMTimeScale newTimescale);
CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration);

inline bool CMTIME_IS_VALID(CMTime time) {
    return (time.flags & kCMTimeFlags_Valid) != 0;
}
inline bool CMTIME_IS_NUMERIC(CMTime time) {
    return (time.flags & (kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity |
                          kCMTimeFlags_NegativeInfinity | kCMTimeFlags_Indefinite)) ==
           kCMTimeFlags_Valid;
}
