/**
 * Delivery months and last trading days. Weekends are the only holidays it knows.
 */
#ifndef KOVA_SIM_EXCHANGE_CALENDAR_H
#define KOVA_SIM_EXCHANGE_CALENDAR_H

#include <chrono>
#include <vector>

#include "sim/exchange/product.h"

namespace kova::sim {

bool is_weekend(std::chrono::sys_days day);

/** Last trading day of a product's future for delivery in `month`. */
std::chrono::sys_days last_trading_day(const Product& product, std::chrono::year_month month);

/** Last trading day of the options on that future. */
std::chrono::sys_days last_option_day(const OptionRule& rule, std::chrono::year_month month);

/** Delivery months of the futures that are listed on a day, nearest first. */
std::vector<std::chrono::year_month> listed_months(const Product& product, std::chrono::sys_days day);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_CALENDAR_H
