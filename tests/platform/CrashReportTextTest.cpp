#include "platform/linux/CrashReportText.h"

#include <gtest/gtest.h>

#include <string>

using platform::crash_text::Buffer;

TEST(CrashReportText, UtcTimesAndReportNamesAcrossCalendarEdges) {
    const struct {
        std::int64_t unixSeconds;
        const char* time;
        const char* name;
    } cases[] = {
        {0, "1970-01-01 00:00:00 UTC", "crash-19700101T000000Z-7.txt"},
        {951782400, "2000-02-29 00:00:00 UTC", "crash-20000229T000000Z-7.txt"},
        {1709251199, "2024-02-29 23:59:59 UTC", "crash-20240229T235959Z-7.txt"},
        {1798761599, "2026-12-31 23:59:59 UTC", "crash-20261231T235959Z-7.txt"},
        {4102444800, "2100-01-01 00:00:00 UTC", "crash-21000101T000000Z-7.txt"},
        {-1, "1969-12-31 23:59:59 UTC", "crash-19691231T235959Z-7.txt"},
    };
    for (const auto& c : cases) {
        Buffer time;
        platform::crash_text::appendUtcTime(time, c.unixSeconds);
        EXPECT_STREQ(time.data(), c.time) << c.unixSeconds;
        Buffer name;
        platform::crash_text::appendReportName(name, "crash", c.unixSeconds, 7, 0);
        EXPECT_STREQ(name.data(), c.name) << c.unixSeconds;
    }
    Buffer sequenced;
    platform::crash_text::appendReportName(sequenced, "hang", 0, 4242, 3);
    EXPECT_STREQ(sequenced.data(), "hang-19700101T000000Z-4242-3.txt");
}

TEST(CrashReportText, NumbersAndTheCapacityLimit) {
    const struct {
        std::int64_t value;
        const char* text;
    } signedCases[] = {{0, "0"},
                       {-6, "-6"},
                       {INT64_MIN, "-9223372036854775808"},
                       {INT64_MAX, "9223372036854775807"}};
    for (const auto& c : signedCases) {
        Buffer buffer;
        buffer.appendSigned(c.value);
        EXPECT_STREQ(buffer.data(), c.text);
    }
    const struct {
        std::uintptr_t value;
        const char* text;
    } hexCases[] = {{0, "0x0"}, {0x10e8, "0x10e8"}, {UINTPTR_MAX, "0xffffffffffffffff"}};
    for (const auto& c : hexCases) {
        Buffer buffer;
        buffer.appendHex(c.value);
        EXPECT_STREQ(buffer.data(), c.text);
    }
    Buffer padded;
    padded.appendNumber(5, 2).append(":").appendNumber(123, 2);
    EXPECT_STREQ(padded.data(), "05:123");

    // A path longer than the buffer is cut, and the buffer stays terminated.
    Buffer full;
    const std::string longText(Buffer::kCapacity + 100, 'x');
    full.append(longText.c_str()).append("more");
    EXPECT_EQ(full.size(), Buffer::kCapacity - 1);
    EXPECT_EQ(std::string(full.data()), longText.substr(0, Buffer::kCapacity - 1));
}
