#include "sim/exchange/calendar.h"

#include <algorithm>

namespace kova::sim {

namespace {

using std::chrono::days;
using std::chrono::months;
using std::chrono::sys_days;
using std::chrono::year_month;

sys_days weekday_from(sys_days day) {
    while (is_weekend(day)) {
        day += days{1};
    }
    return day;
}

sys_days weekday_up_to(sys_days day) {
    while (is_weekend(day)) {
        day -= days{1};
    }
    return day;
}

sys_days last_weekday_before(year_month month) {
    return weekday_up_to(sys_days{month / std::chrono::day{1}} - days{1});
}

bool is_later_month(const Product& product, year_month month) {
    return std::ranges::find(product.later_months, static_cast<unsigned>(month.month())) !=
           product.later_months.end();
}

}  // namespace

bool is_weekend(sys_days day) {
    const std::chrono::weekday weekday{day};
    return weekday == std::chrono::Saturday || weekday == std::chrono::Sunday;
}

sys_days last_trading_day(const Product& product, year_month month) {
    switch (product.last_day) {
        case LastDay::month_before:
            return last_weekday_before(month);
        case LastDay::last_monday:
            return sys_days{month / std::chrono::Monday[std::chrono::last]};
        case LastDay::day_15:
            break;
    }
    return weekday_from(sys_days{month / std::chrono::day{15}});
}

sys_days last_option_day(const OptionRule& rule, year_month month) {
    sys_days day = last_weekday_before(month);
    for (std::uint32_t back = 1; back < rule.days_before; ++back) {
        day = weekday_up_to(day - days{1});
    }
    return day;
}

std::vector<year_month> listed_months(const Product& product, sys_days day) {
    const std::chrono::year_month_day date{day};
    year_month month{date.year(), date.month()};
    while (last_trading_day(product, month) < day) {
        month += months{1};
    }
    std::vector<year_month> listed;
    for (std::uint32_t ahead = 0; ahead < std::max(product.consecutive, product.within); ++ahead) {
        if (ahead < product.consecutive || is_later_month(product, month)) {
            listed.push_back(month);
        }
        month += months{1};
    }
    return listed;
}

}  // namespace kova::sim
