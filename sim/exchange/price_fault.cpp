#include "sim/exchange/price_fault.h"

#include <algorithm>
#include <limits>

namespace kova::sim {

namespace {

/** Puts new values in place of all prices and amounts that move; identity, tick and volumes stay. */
template <typename Change>
void change_all(InstrumentFields& fields, const Change& change) {
    deal_info_t& deal = fields.deal;
    deal.last_price = change(deal.last_price);
    deal.turnover = change(deal.turnover);
    deal.highest_price = change(deal.highest_price);
    deal.lowest_price = change(deal.lowest_price);
    deal.upper_limit_price = change(deal.upper_limit_price);
    deal.lower_limit_price = change(deal.lower_limit_price);
    for (price_detail_t& level : fields.levels()) {
        level.price = change(level.price);
    }
    fields.orders.bid_amount = change(fields.orders.bid_amount);
    fields.orders.ask_amount = change(fields.orders.ask_amount);
}

void set_all(InstrumentFields& fields, double value) {
    change_all(fields, [value](double) { return value; });
}

void cross(InstrumentFields& fields) {
    const std::span<price_detail_t> levels = fields.levels();
    const auto is_ask = [](const price_detail_t& level) { return level.direction == MDQP_DIRECTION_ASK; };
    const auto best_ask = std::ranges::find_if(levels, is_ask);
    if (levels.empty()) {
        return;
    }
    const bool has_both = best_ask != levels.begin() && best_ask != levels.end();
    if (has_both) {
        levels.front().price = best_ask->price;
        return;
    }
    // At a limit: the side that has gone gets an order at the other side's best price.
    price_detail_t added = levels.front();
    const bool has_bids = best_ask == levels.end();
    added.direction = has_bids ? MDQP_DIRECTION_ASK : MDQP_DIRECTION_BID;
    const std::size_t at = has_bids ? fields.level_count : 0;
    std::copy_backward(fields.level_space.begin() + static_cast<std::ptrdiff_t>(at),
                       fields.level_space.begin() + static_cast<std::ptrdiff_t>(fields.level_count),
                       fields.level_space.begin() + static_cast<std::ptrdiff_t>(fields.level_count) + 1);
    fields.level_space[at] = added;
    ++fields.level_count;
}

void leave_limits(InstrumentFields& fields) {
    if (fields.level_count > 0) {
        // The last level is the highest ask, or the lowest bid of a book without asks.
        fields.levels().back().price = fields.deal.upper_limit_price + fields.info.price_tick;
    }
}

}  // namespace

void spoil(InstrumentFields& fields, PriceFault fault) {
    switch (fault) {
        case PriceFault::none:
            return;
        case PriceFault::crossed:
            return cross(fields);
        case PriceFault::beyond_limits:
            return leave_limits(fields);
        case PriceFault::no_value:
            return set_all(fields, kNoValue);
        case PriceFault::nan:
            return set_all(fields, std::numeric_limits<double>::quiet_NaN());
        case PriceFault::infinite:
            return set_all(fields, std::numeric_limits<double>::infinity());
        case PriceFault::negative:
            return change_all(fields, [](double value) { return -value; });
    }
}

}  // namespace kova::sim
