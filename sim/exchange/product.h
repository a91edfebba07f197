/**
 * The products of the two exchanges and their contract rules, from products.toml, which is built into the
 * library.
 */
#ifndef KOVA_SIM_EXCHANGE_PRODUCT_H
#define KOVA_SIM_EXCHANGE_PRODUCT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kova::sim {

enum class Exchange : std::uint8_t { shfe, ine };

/** When a future trades for the last time. */
enum class LastDay : std::uint8_t {
    day_15,        // the 15th of the delivery month, or the first weekday behind it
    month_before,  // the last weekday of the month before
    last_monday,   // the last Monday of the delivery month
};

/** Strikes above this price stand this far apart; both in hundredths. */
struct StrikeStep {
    std::int32_t from;
    std::int32_t step;
};

/** The options on a product's futures. */
struct OptionRule {
    std::chrono::year_month_day since;  // first trading day
    std::int32_t tick = 0;              // hundredths
    std::uint32_t months = 0;           // how many delivery months have options
    std::uint32_t days_before = 0;   // last day: this many weekdays before the end of the month before delivery
    std::int32_t band_permille = 0;  // strikes reach this far to both sides of the future's price
    std::int32_t volatility_permille = 0;  // a year's
    std::vector<StrikeStep> strikes;       // ascending
};

struct Product {
    std::string code;  // as identifiers start: "cu"
    std::string name;
    Exchange exchange = Exchange::shfe;
    std::chrono::year_month_day since;  // first trading day
    std::int32_t tick = 0;              // hundredths
    std::uint32_t multiplier = 0;       // units of the price's quantity in one lot
    std::int32_t price = 0;             // hundredths; the level around which the simulated prices lie
    std::int32_t limit_permille = 0;    // daily limit, of the previous settlement price
    std::uint32_t activity = 0;         // share of the traffic, against other products
    LastDay last_day = LastDay::day_15;
    std::uint32_t consecutive = 0;       // the nearest months, all listed
    std::vector<unsigned> later_months;  // of the months behind, those listed: 1 to 12
    std::uint32_t within = 0;            // and how many months ahead
    std::uint32_t tas_months = 0;        // nearest months that also trade at settlement
    std::optional<OptionRule> options;
};

/** All products, in the order of their codes. Thread-safe; the first call reads the data. */
const std::vector<Product>& products();

/** The product with this code, or null. */
const Product* find_product(std::string_view code);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_PRODUCT_H
