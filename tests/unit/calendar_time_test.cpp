#include "log/CalendarTime.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

namespace {

std::string broken_down(time_t time, long utc_offset) {
    const std::tm calendar = CalendarTime(time, utc_offset);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", calendar.tm_year + 1900,
                  calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour, calendar.tm_min, calendar.tm_sec);
    return text.data();
}

TEST(CalendarTime, StartsWithTheYear1970) {
    EXPECT_EQ(broken_down(0, 0), "1970-01-01 00:00:00");
}

TEST(CalendarTime, LeapDaysStandWhereTheyBelong) {
    EXPECT_EQ(broken_down(951782399, 0), "2000-02-28 23:59:59");
    EXPECT_EQ(broken_down(951782400, 0), "2000-02-29 00:00:00");
    EXPECT_EQ(broken_down(951868800, 0), "2000-03-01 00:00:00");
    EXPECT_EQ(broken_down(1709164800, 0), "2024-02-29 00:00:00");
    EXPECT_EQ(broken_down(4107542399, 0), "2100-02-28 23:59:59");
    EXPECT_EQ(broken_down(4107542400, 0), "2100-03-01 00:00:00");
}

TEST(CalendarTime, YearEndsWithTheLastSecondOfDecember) {
    EXPECT_EQ(broken_down(1735689599, 0), "2024-12-31 23:59:59");
    EXPECT_EQ(broken_down(1735689600, 0), "2025-01-01 00:00:00");
}

TEST(CalendarTime, OffsetEastOfUtcMayReachTheNextDay) {
    EXPECT_EQ(broken_down(1735660799, 8 * 3600), "2024-12-31 23:59:59");
    EXPECT_EQ(broken_down(1735660800, 8 * 3600), "2025-01-01 00:00:00");
}

TEST(CalendarTime, OffsetWestOfUtcMayReachThePreviousDay) {
    EXPECT_EQ(broken_down(1735689600, -(3 * 3600 + 30 * 60)), "2024-12-31 20:30:00");
    EXPECT_EQ(broken_down(0, -1), "1969-12-31 23:59:59");
}

}  // namespace
