/**
 * Date and time of day without the C library's time zone rules, whose lock a signal handler must not wait for.
 */
#ifndef KOVA_PUBLIC_LOG_CALENDAR_TIME_H
#define KOVA_PUBLIC_LOG_CALENDAR_TIME_H

#include <chrono>
#include <ctime>

/**
 * Breaks nTime (seconds since 1970) down at a fixed distance nUtcOffset (seconds east of UTC).
 *
 * Fills in the date and the time of day alone. Takes no lock and allocates nothing.
 */
inline std::tm CalendarTime(time_t nTime, long nUtcOffset) {
    const std::chrono::sys_seconds localTime{std::chrono::seconds(nTime + nUtcOffset)};
    const auto day = std::chrono::floor<std::chrono::days>(localTime);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss timeOfDay(localTime - day);

    std::tm calendarTime{};
    calendarTime.tm_year = static_cast<int>(date.year()) - 1900;
    calendarTime.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    calendarTime.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    calendarTime.tm_hour = static_cast<int>(timeOfDay.hours().count());
    calendarTime.tm_min = static_cast<int>(timeOfDay.minutes().count());
    calendarTime.tm_sec = static_cast<int>(timeOfDay.seconds().count());
    return calendarTime;
}

#endif  // KOVA_PUBLIC_LOG_CALENDAR_TIME_H
