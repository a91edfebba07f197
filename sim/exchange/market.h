/**
 * The simulated market: a book for every instrument of a listing, and the stream of quotes they yield.
 */
#ifndef KOVA_SIM_EXCHANGE_MARKET_H
#define KOVA_SIM_EXCHANGE_MARKET_H

#include <array>
#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

#include "KovaShfeMdApi.h"
#include "sim/exchange/book.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/random.h"
#include "sim/exchange/weighted_choice.h"
#include "wire/Feed.h"
#include "wire/InstRow.h"

namespace kova::sim {

struct MarketOptions {
    std::uint64_t seed = 1;
    /** Instruments that move; empty means all of the listing. */
    std::vector<InstrumentRef> moving{};
    /** Instruments that get `hot_share` (0 to 1) of all quotes between them; those that do not move are
     * ignored. */
    std::vector<InstrumentRef> hot{};
    double hot_share = 0;
    /** Pull of the prices, -1 (down to the limit) to 1 (up to the limit). */
    double trend = 0;
    /** The exchange's time when the market opens, since midnight. */
    std::chrono::milliseconds open_time = std::chrono::hours{9};
};

/** One quote and where it belongs. The record lives in the market and holds until its next call. */
struct Quote {
    EMDQPDataType feed;  // SHFE_2PS or INE_2PS
    const KovaShfeMdType& record;
};

/**
 * Books that move.
 *
 * The same listing and options yield the same quotes; next() neither allocates nor makes a system call. One
 * thread at a time.
 */
class Market {
 public:
    /** @param listing must outlive the market. Throws std::invalid_argument when nothing in it moves. */
    explicit Market(const Listing& listing, const MarketOptions& options = {});

    /** Moves one book by one change and gives its quote. */
    Quote next();

    /**
     * Sets the exchange's time of the following quotes, since midnight. It never goes back: an earlier time is
     * ignored. Hours count on past 23.
     */
    void advance_to(std::chrono::milliseconds time);
    [[nodiscard]] std::chrono::milliseconds time() const { return time_; }

    /** The state of an instrument as its last quote, or the opening, left it. */
    [[nodiscard]] const KovaShfeMdType& state(InstrumentRef ref) const;

    /** The instrument's contract-table row as of now; `config` is 0. */
    [[nodiscard]] SInstTableType fill_row(const Instrument& instrument) const;

    /** Quotes of a feed so far; each is a packet of its incremental stream. The 4PS feeds have none. */
    [[nodiscard]] std::uint64_t quotes(EMDQPDataType feed) const {
        return quotes_[static_cast<std::size_t>(feed)];
    }

    /** Highest instrument number of a feed, 0 when it has none. */
    [[nodiscard]] std::uint32_t max_inst_no(EMDQPDataType feed) const;

    [[nodiscard]] const Listing& listing() const { return listing_; }

 private:
    const Listing& listing_;
    std::uint32_t shfe_count_;
    std::vector<std::uint32_t> moving_;  // indices in Listing::instruments()
    WeightedChoice choice_;              // of one of those
    std::vector<Book> books_;            // as in Listing::instruments()
    Random random_;
    BookPull pull_;
    std::array<std::uint64_t, MDQP_FEED_COUNT> quotes_{};
    std::uint32_t upcoming_ = 0;  // chosen one call ahead, so that its book is in the cache by then
    std::chrono::milliseconds time_{};
    ExchangeTime stamp_{};
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_MARKET_H
