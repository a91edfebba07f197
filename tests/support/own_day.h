/**
 * A day that belongs to one test: the instrument files that bring-ups write into a folder of everybody's are
 * named by the date alone, and tests run side by side.
 */
#ifndef KOVA_TESTS_SUPPORT_OWN_DAY_H
#define KOVA_TESTS_SUPPORT_OWN_DAY_H

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace kova::test {

/** A Monday of the years 2030 to 2087, by China's time. Its instrument files go before and afterwards. */
class OwnDay {
 public:
    OwnDay() { remove_files(); }
    ~OwnDay() { remove_files(); }
    OwnDay(const OwnDay&) = delete;
    OwnDay& operator=(const OwnDay&) = delete;

    [[nodiscard]] std::chrono::year_month_day date() const { return date_; }

    /** The moment so long after its midnight. */
    [[nodiscard]] std::chrono::sys_seconds at(std::chrono::seconds since_midnight) const {
        return std::chrono::sys_days(date_) - std::chrono::hours(8) + since_midnight;
    }

    /** As 2031-03-03. */
    [[nodiscard]] std::string text() const { return text("-"); }

    [[nodiscard]] std::string morning_file() const { return "/tmp/.shfe_" + text("") + "_am"; }
    [[nodiscard]] std::string evening_file() const { return "/tmp/.shfe_" + text("") + "_pm"; }

 private:
    // As many days as there usually are processes.
    static std::chrono::year_month_day monday_of(pid_t process) {
        using namespace std::chrono;
        return sys_days(2030y / January / 7) + weeks(process % 3000);
    }

    [[nodiscard]] std::string text(const char* separator) const {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%d%s%02u%s%02u", static_cast<int>(date_.year()), separator,
                      static_cast<unsigned>(date_.month()), separator, static_cast<unsigned>(date_.day()));
        return text.data();
    }

    void remove_files() const {
        std::error_code ignored;
        std::filesystem::remove(morning_file(), ignored);
        std::filesystem::remove(evening_file(), ignored);
    }

    const std::chrono::year_month_day date_ = monday_of(::getpid());
};

/** The lines of a file; none when it is not there. */
inline std::vector<std::string> lines_of(const std::string& name) {
    std::ifstream file(name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_OWN_DAY_H
