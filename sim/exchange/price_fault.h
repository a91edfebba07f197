/**
 * What can be wrong with the prices that the exchange sends for an instrument.
 */
#ifndef KOVA_SIM_EXCHANGE_PRICE_FAULT_H
#define KOVA_SIM_EXCHANGE_PRICE_FAULT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sim/exchange/mdqp_writer.h"

namespace kova::sim {

enum class PriceFault : std::uint8_t {
    none,
    crossed,        // the best bid stands at the price of the best ask
    beyond_limits,  // one level lies a tick above the upper limit
    no_value,       // every price and amount is the largest finite double
    nan,            // every price and amount is no number
    infinite,       // every price and amount is infinite
    negative,       // every price and amount has the other sign
};

/** Their names in scenarios, in the order of PriceFault from `crossed` on. */
inline constexpr std::array<std::string_view, 6> kPriceFaultNames = {"crossed", "beyond_limits", "no_value",
                                                                     "nan",     "infinite",      "negative"};

/** Index in kPriceFaultNames. */
constexpr std::size_t name_index(PriceFault fault) {
    return static_cast<std::size_t>(fault) - 1;
}

/** Spoils the prices of an instrument. A book without orders has nothing that could cross or lie beyond. */
void spoil(InstrumentFields& fields, PriceFault fault);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_PRICE_FAULT_H
