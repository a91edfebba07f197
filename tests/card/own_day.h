/**
 * A day that belongs to one process: the files that bring-ups write into a folder of everybody's are named by
 * the date alone, and tests run side by side.
 */
#ifndef KOVA_TESTS_CARD_OWN_DAY_H
#define KOVA_TESTS_CARD_OWN_DAY_H

#include <time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>

#include "card/clock.h"

namespace kova::test {

/** The clock is set to ten o'clock in Shanghai; the files of the day go before and afterwards. */
class OwnDay {
 public:
    OwnDay() {
        remove_files();
        set_time(10, 0);
    }
    ~OwnDay() { remove_files(); }
    OwnDay(const OwnDay&) = delete;
    OwnDay& operator=(const OwnDay&) = delete;

    /** Sets the clock, in local time of Shanghai. */
    void set_time(int hour, int minute) const {
        std::tm utc{};
        utc.tm_year = year_ - 1900;
        utc.tm_mon = month_ - 1;
        utc.tm_mday = day_;
        utc.tm_hour = hour - 8;
        utc.tm_min = minute;
        Clock::set(std::chrono::seconds(timegm(&utc)));
    }

    [[nodiscard]] std::string morning_file() const { return file("am"); }
    [[nodiscard]] std::string evening_file() const { return file("pm"); }

 private:
    [[nodiscard]] std::string file(const char* half) const {
        std::array<char, 64> name{};
        std::snprintf(name.data(), name.size(), "/tmp/.shfe_%d%02d%02d_%s", year_, month_, day_, half);
        return name.data();
    }

    void remove_files() const {
        std::error_code ignored;
        std::filesystem::remove(morning_file(), ignored);
        std::filesystem::remove(evening_file(), ignored);
    }

    // As many days as there usually are processes.
    const int process_ = ::getpid();
    const int year_ = 2100 + process_ % 100;
    const int month_ = 1 + process_ / 100 % 12;
    const int day_ = 1 + process_ / 1200 % 28;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_OWN_DAY_H
