/**
 * One instrument of the simulated exchange's listing: what does not change during a trading day.
 */
#ifndef KOVA_SIM_EXCHANGE_INSTRUMENT_H
#define KOVA_SIM_EXCHANGE_INSTRUMENT_H

#include <array>
#include <cstdint>
#include <string_view>

#include "wire/Feed.h"

namespace kova::sim {

struct Product;

enum class InstrumentKind : std::uint8_t {
    future,
    option,
    tas,  // trade at settlement: its prices are distances from the day's settlement price, zero and below
          // included
};

/** An instrument's place in the feeds: what a row of a contract table is addressed by. */
struct InstrumentRef {
    EMDQPDataType feed;  // SHFE_2PS or INE_2PS; the 4PS feed of the exchange has the same numbers
    std::uint32_t inst_no;

    friend bool operator==(const InstrumentRef&, const InstrumentRef&) = default;
};

/** All prices in hundredths of the exchange's price. */
struct Instrument {
    InstrumentRef ref{};
    std::array<char, 16> id_chars{};  // NUL-padded, at most 15 characters
    InstrumentKind kind = InstrumentKind::future;
    bool is_call = false;              // of an option
    const Product* product = nullptr;  // lives as long as the program
    std::uint32_t delivery = 0;        // year and month of the future, 202501
    std::uint32_t underlying = 0;      // index of the future in Listing::instruments(); its own for a future
    std::uint32_t months_ahead = 0;    // 0 for the nearest month that still trades
    std::int32_t tick = 0;
    std::uint32_t multiplier = 0;
    std::int32_t pre_settlement = 0;
    std::int32_t upper_limit = 0;
    std::int32_t lower_limit = 0;
    std::int32_t codec_price = 0;  // base price of the exchange's incremental encoding
    std::int32_t strike = 0;       // of an option
    std::uint64_t pre_open_interest = 0;
    double weight = 0;  // share of the traffic, against other instruments of the listing

    [[nodiscard]] std::string_view id() const { return {id_chars.data()}; }
};

/**
 * The `config` word of an instrument's table row when `channels` (bit c for channel c) receive it; 0 when none
 * does.
 */
std::uint32_t subscription_word(const Instrument& instrument, std::uint32_t channels);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_INSTRUMENT_H
