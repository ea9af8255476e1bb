// Text for crash reports that a signal handler can make: a fixed buffer on the stack and
// number formatting without the C library's locale-aware (and allocating) functions.
#pragma once

#include <signal.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

namespace platform::crash_text {

class Buffer {
  public:
    static constexpr std::size_t kCapacity = 4096 + 256;

    const char* data() const { return _text; }
    std::size_t size() const { return _size; }
    void clear() {
        _size = 0;
        _text[0] = '\0';
    }

    // Text past the capacity is dropped; the buffer stays terminated.
    Buffer& append(const char* text) {
        while (*text && _size + 1 < kCapacity) _text[_size++] = *text++;
        _text[_size] = '\0';
        return *this;
    }
    Buffer& appendNumber(std::uint64_t value, int minimumDigits = 1) {
        char digits[24];
        int count = 0;
        do {
            digits[count++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value > 0 && count < 24);
        while (count < minimumDigits && count < 24) digits[count++] = '0';
        char text[25];
        for (int i = 0; i < count; ++i) text[i] = digits[count - 1 - i];
        text[count] = '\0';
        return append(text);
    }
    Buffer& appendSigned(std::int64_t value) {
        if (value < 0) {
            append("-");
            return appendNumber(static_cast<std::uint64_t>(-(value + 1)) + 1);
        }
        return appendNumber(static_cast<std::uint64_t>(value));
    }
    Buffer& appendHex(std::uintptr_t value) {
        char text[2 + 2 * sizeof value + 1] = "0x";
        int count = 2;
        bool started = false;
        for (int shift = 8 * static_cast<int>(sizeof value) - 4; shift >= 0; shift -= 4) {
            const unsigned nibble = (value >> shift) & 0xF;
            if (!nibble && !started && shift > 0) continue;
            started = true;
            text[count++] = "0123456789abcdef"[nibble];
        }
        text[count] = '\0';
        return append(text);
    }

  private:
    char _text[kCapacity] = {};
    std::size_t _size = 0;
};

inline std::int64_t unixTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

struct CivilTime {
    std::int64_t year;
    unsigned month, day, hour, minute, second;
};

// The proleptic Gregorian date of a Unix time, in UTC (Howard Hinnant's days-to-civil).
inline CivilTime civilTime(std::int64_t unixSeconds) {
    std::int64_t days = unixSeconds / 86400;
    std::int64_t seconds = unixSeconds % 86400;
    if (seconds < 0) {
        seconds += 86400;
        days -= 1;
    }
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t dayOfEra = days - era * 146097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    CivilTime time{};
    time.day = static_cast<unsigned>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    time.month = static_cast<unsigned>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    time.year = yearOfEra + era * 400 + (time.month <= 2 ? 1 : 0);
    time.hour = static_cast<unsigned>(seconds / 3600);
    time.minute = static_cast<unsigned>(seconds / 60 % 60);
    time.second = static_cast<unsigned>(seconds % 60);
    return time;
}

// "2026-11-24 02:30:05 UTC"
inline void appendUtcTime(Buffer& buffer, std::int64_t unixSeconds) {
    const CivilTime t = civilTime(unixSeconds);
    buffer.appendSigned(t.year).append("-").appendNumber(t.month, 2).append("-");
    buffer.appendNumber(t.day, 2).append(" ").appendNumber(t.hour, 2).append(":");
    buffer.appendNumber(t.minute, 2).append(":").appendNumber(t.second, 2).append(" UTC");
}

// "crash-20261124T023005Z-4242.txt"; a sequence above 0 is added before the extension
// ("hang-20261124T023005Z-4242-2.txt"). The names sort by time.
inline void appendReportName(Buffer& buffer, const char* kind, std::int64_t unixSeconds, int pid,
                             std::uint64_t sequence) {
    const CivilTime t = civilTime(unixSeconds);
    buffer.append(kind).append("-").appendSigned(t.year).appendNumber(t.month, 2);
    buffer.appendNumber(t.day, 2).append("T").appendNumber(t.hour, 2);
    buffer.appendNumber(t.minute, 2).appendNumber(t.second, 2).append("Z-");
    buffer.appendSigned(pid);
    if (sequence > 0) buffer.append("-").appendNumber(sequence);
    buffer.append(".txt");
}

inline const char* signalName(int signal) {
    switch (signal) {
        case SIGSEGV:
            return "SIGSEGV";
        case SIGBUS:
            return "SIGBUS";
        case SIGILL:
            return "SIGILL";
        case SIGFPE:
            return "SIGFPE";
        case SIGABRT:
            return "SIGABRT";
        default:
            return "signal";
    }
}

}  // namespace platform::crash_text
