/**
 * The book of one instrument: five visible levels a side, what lies behind them, and how they move.
 */
#ifndef KOVA_SIM_EXCHANGE_BOOK_H
#define KOVA_SIM_EXCHANGE_BOOK_H

#include <array>
#include <chrono>
#include <cstdint>

#include "KovaShfeMdApi.h"
#include "sim/exchange/instrument.h"
#include "sim/exchange/random.h"

namespace kova::sim {

/**
 * The exchange's time as a record carries it.
 *
 * `update_time` is the time of day as a decimal number, hours, minutes and seconds: 93015 is 9:30:15. Hours
 * count on past 23, so that it never goes back on a day that lasts longer.
 */
struct ExchangeTime {
    std::uint32_t update_time = 0;
    std::uint16_t milli_sec = 0;

    /** @param since_midnight 0 or more. */
    static ExchangeTime from(std::chrono::milliseconds since_midnight);
};

/** Which way the prices are pulled: of 1024 decisions, so many go upward. */
struct BookPull {
    std::uint32_t upward = 512;

    /** @param trend -1 (down) to 1 (up), 0 for neither. */
    static BookPull from(double trend);
};

/**
 * One instrument's book and the record of its state.
 *
 * What holds after every move, whatever the seed: bid1 is below ask1, levels are ordered and filled from the
 * first on, prices lie on the tick and within the limits, the totals are the levels' and what lies behind them,
 * high and low embrace the last price, volume and turnover never fall, open interest is never below 0, and the
 * change number has risen by one. A level without orders has price 0 and volume 0; at a limit one side may have
 * none. The price of a TAS instrument may be 0 with a volume.
 */
class Book {
 public:
    /** Opens the book at its previous settlement price, with an opening trade as change 1. */
    Book(const Instrument& instrument, std::uint32_t max_inst_no, std::int32_t settlement, ExchangeTime time,
         Random& random);

    /** One change: a trade, an order in front of the others, one withdrawn, or another volume somewhere. */
    void move(Random& random, BookPull pull, ExchangeTime time);

    [[nodiscard]] const KovaShfeMdType& record() const { return record_; }

 private:
    static constexpr std::size_t kLevels = 5;

    struct Level {
        std::int32_t price = 0;
        std::uint32_t volume = 0;  // 0 when there is none
    };

    struct Side {
        std::array<Level, kLevels> levels{};
        std::uint32_t filled = 0;   // levels, from the first on
        std::uint32_t behind = 0;   // volume behind the last level
        std::int32_t away = 0;      // one tick away from the other side
        std::int32_t furthest = 0;  // the limit price on this side
    };

    void trade(Side& resting, Random& random);
    void change_volume(Side& side, Random& random);
    bool improve(Side& side, const Side& other, Random& random);
    bool withdraw_best(Side& side, const Side& other, Random& random);
    void remove_best(Side& side, Random& random);
    void put_best(Side& side, Level level);
    void fill_up(Side& side, Random& random);
    [[nodiscard]] std::uint32_t order_volume(std::uint32_t bits) const;
    [[nodiscard]] std::uint32_t spread_ticks() const;
    void count_trade(std::uint32_t lots, std::int32_t price, std::uint32_t bits);
    void publish(ExchangeTime time);

    KovaShfeMdType record_{};
    Side bids_;
    Side asks_;
    std::int32_t tick_;
    std::int32_t upper_;
    std::int32_t lower_;
    std::int32_t turnover_base_;  // what a price is a distance from: the settlement price of TAS, else 0
    std::uint32_t multiplier_;
    std::uint32_t typical_volume_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_BOOK_H
