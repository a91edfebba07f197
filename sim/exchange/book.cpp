#include "sim/exchange/book.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace kova::sim {

namespace {

// What a change is, of 1024.
constexpr std::uint32_t kTrades = 280;
constexpr std::uint32_t kImprovements = 480;
constexpr std::uint32_t kWithdrawals = 540;

/** A book further open than this closes before anybody withdraws. */
constexpr std::uint32_t kWidestSpread = 6;

constexpr std::uint32_t kDeepFactor = 20;  // volume behind the levels, in typical orders
constexpr std::uint32_t kMostBehind = 1000;
/** Nobody trades any more before the count of lots would run over. */
constexpr std::uint32_t kMostLots = 4'000'000'000;

/** Takes bits off a draw, the next ones with each call. */
class Bits {
 public:
    explicit Bits(std::uint64_t bits) : bits_(bits) {}
    std::uint32_t take(unsigned count) {
        const auto taken = static_cast<std::uint32_t>(bits_ & ((std::uint64_t{1} << count) - 1));
        bits_ >>= count;
        return taken;
    }

 private:
    std::uint64_t bits_;
};

}  // namespace

ExchangeTime ExchangeTime::from(std::chrono::milliseconds since_midnight) {
    constexpr std::int64_t thousand = 1000;
    constexpr std::int64_t sixty = 60;
    const std::int64_t seconds = since_midnight.count() / thousand;
    const std::int64_t clock =
        seconds / (sixty * sixty) * 10000 + seconds / sixty % sixty * 100 + seconds % sixty;
    return {.update_time = static_cast<std::uint32_t>(clock),
            .milli_sec = static_cast<std::uint16_t>(since_midnight.count() % thousand)};
}

BookPull BookPull::from(double trend) {
    return {.upward = static_cast<std::uint32_t>(512 + 512 * std::clamp(trend, -1.0, 1.0))};
}

Book::Book(const Instrument& instrument, std::uint32_t max_inst_no, std::int32_t settlement, ExchangeTime time,
           Random& random)
    : tick_(instrument.tick),
      upper_(instrument.upper_limit),
      lower_(instrument.lower_limit),
      turnover_base_(settlement),
      multiplier_(instrument.multiplier),
      typical_volume_(static_cast<std::uint32_t>(
          std::clamp<std::uint64_t>(static_cast<std::uint64_t>(instrument.weight), 2, 200))) {
    record_.inst_no = instrument.ref.inst_no;
    std::memcpy(record_.inst_id, instrument.id_chars.data(), sizeof record_.inst_id);
    record_.max_inst_no = max_inst_no;
    record_.open_interest = static_cast<std::int64_t>(instrument.pre_open_interest);

    const auto open = static_cast<std::int32_t>(instrument.pre_settlement);
    record_.last_px = open;
    record_.high_price = open;
    record_.low_price = open;
    count_trade(order_volume(static_cast<std::uint32_t>(random.bits() >> 32U)), open, 0);

    bids_.away = -tick_;
    bids_.furthest = lower_;
    asks_.away = tick_;
    asks_.furthest = upper_;
    put_best(bids_, {.price = open, .volume = typical_volume_});
    if (open < upper_) {
        put_best(asks_, {.price = open + tick_, .volume = typical_volume_});
    }
    for (std::size_t level = 1; level < kLevels; ++level) {
        fill_up(bids_, random);
        fill_up(asks_, random);
    }
    publish(time);
}

void Book::move(Random& random, BookPull pull, ExchangeTime time) {
    Bits bits(random.bits());
    const std::uint32_t kind = bits.take(10);
    const bool is_upward = bits.take(10) < pull.upward;
    Side& ahead = is_upward ? asks_ : bids_;   // what an upward trade takes from
    Side& behind = is_upward ? bids_ : asks_;  // what an upward order joins
    fill_up(bids_, random);
    fill_up(asks_, random);

    bool is_done = false;
    if (kind < kTrades && ahead.filled > 0 && record_.volume < kMostLots) {
        trade(ahead, random);
        is_done = true;
    } else if (kind < kImprovements) {
        is_done = improve(behind, ahead, random);
    } else if (kind < kWithdrawals) {
        is_done = withdraw_best(ahead, behind, random);
    }
    if (!is_done) {
        change_volume(behind.filled > 0 ? behind : ahead, random);
    }
    publish(time);
}

void Book::trade(Side& resting, Random& random) {
    const std::uint64_t bits = random.bits();
    Level& best = resting.levels[0];
    const std::uint32_t wanted = order_volume(static_cast<std::uint32_t>(bits >> 32U));
    const std::uint32_t lots = std::min(wanted, best.volume);
    count_trade(lots, best.price, static_cast<std::uint32_t>(bits));
    best.volume -= lots;
    if (best.volume == 0) {
        remove_best(resting, random);
    }
}

void Book::change_volume(Side& side, Random& random) {
    const std::uint64_t bits = random.bits();
    if (side.filled == 0) {
        return;
    }
    const std::uint32_t level = Random::scale(static_cast<std::uint32_t>(bits), side.filled);
    side.levels[level].volume = order_volume(static_cast<std::uint32_t>(bits >> 32U));
}

/** An order in front of the side's best, or on an empty side. False where there is no room for one. */
bool Book::improve(Side& side, const Side& other, Random& random) {
    std::int32_t price = record_.last_px;
    if (side.filled > 0) {
        price = side.levels[0].price - side.away;
    } else if (other.filled > 0) {
        price = other.levels[0].price + side.away;
    }
    const std::int32_t opposite = other.levels[0].price;
    const bool is_free = other.filled == 0 || (other.away > 0 ? price < opposite : price > opposite);
    if (price < lower_ || price > upper_ || !is_free) {
        return false;
    }
    put_best(side, {.price = price, .volume = order_volume(static_cast<std::uint32_t>(random.bits() >> 32U))});
    return true;
}

bool Book::withdraw_best(Side& side, const Side& other, Random& random) {
    if (side.filled < 2 || other.filled == 0 || spread_ticks() >= kWidestSpread) {
        return false;
    }
    remove_best(side, random);
    return true;
}

void Book::remove_best(Side& side, Random& random) {
    std::shift_left(side.levels.begin(), side.levels.end(), 1);
    side.levels[kLevels - 1] = {};
    --side.filled;
    fill_up(side, random);
}

void Book::put_best(Side& side, Level level) {
    if (side.filled == kLevels) {
        side.behind = std::min(side.behind + side.levels[kLevels - 1].volume, kMostBehind * typical_volume_);
    } else {
        ++side.filled;
    }
    std::shift_right(side.levels.begin(), side.levels.end(), 1);
    side.levels[0] = level;
}

/** Makes one of the orders behind the levels the last level, as far as the limit leaves room for one. */
void Book::fill_up(Side& side, Random& random) {
    if (side.filled == 0 || side.filled == kLevels) {
        return;
    }
    const Level& last = side.levels[side.filled - 1];
    if (last.price == side.furthest) {
        side.behind = 0;
        return;
    }
    const std::uint64_t bits = random.bits();
    // Seldom a tick is left out.
    const bool skips = (bits & 7U) == 0 && last.price + side.away != side.furthest;
    const std::int32_t price = last.price + (skips ? 2 : 1) * side.away;
    const std::uint32_t volume = order_volume(static_cast<std::uint32_t>(bits >> 32U));
    side.levels[side.filled] = {.price = price, .volume = volume};
    ++side.filled;
    side.behind = side.behind > volume ? side.behind - volume : kDeepFactor * typical_volume_;
}

/** 1 to twice the typical volume, now and then ten times that. */
std::uint32_t Book::order_volume(std::uint32_t bits) const {
    const std::uint32_t volume = 1 + Random::scale(bits, 2 * typical_volume_);
    return (bits & 0x1FU) == 0 ? 10 * volume : volume;
}

/** Ticks between the best prices; both sides have one. */
std::uint32_t Book::spread_ticks() const {
    return static_cast<std::uint32_t>((asks_.levels[0].price - bids_.levels[0].price) / tick_);
}

void Book::count_trade(std::uint32_t lots, std::int32_t price, std::uint32_t bits) {
    record_.last_px = price;
    record_.high_price = std::max<std::int32_t>(record_.high_price, price);
    record_.low_price = std::min<std::int32_t>(record_.low_price, price);
    record_.volume += lots;
    record_.turnover += (std::int64_t{turnover_base_} + price) * lots * multiplier_;
    // A third of the trades opens positions, a third closes some, the rest changes hands.
    const std::uint32_t kind = bits % 3;
    if (kind == 1) {
        record_.open_interest += lots;
    } else if (kind == 2) {
        record_.open_interest -= std::min<std::int64_t>(lots, record_.open_interest);
    }
}

void Book::publish(ExchangeTime time) {
    static_assert(sizeof bids_.levels == 40, "five pairs of price and volume, as the record has them");
    auto* bytes = reinterpret_cast<std::byte*>(&record_);
    std::memcpy(bytes + offsetof(KovaShfeMdType, bid1_px), bids_.levels.data(), sizeof bids_.levels);
    std::memcpy(bytes + offsetof(KovaShfeMdType, ask1_px), asks_.levels.data(), sizeof asks_.levels);

    const auto total = [](Side& side) {
        // Behind a level that is missing, or that stands at the limit, there is nothing.
        const Level& last = side.levels[kLevels - 1];
        if (side.filled < kLevels || last.price == side.furthest) {
            side.behind = 0;
        }
        std::uint32_t volume = side.behind;
        std::int64_t amount = std::int64_t{side.behind} * (last.price + side.away);
        for (const Level& level : side.levels) {
            volume += level.volume;
            amount += std::int64_t{level.price} * level.volume;
        }
        return std::pair{volume, amount};
    };
    const auto [bid_volume, bid_amount] = total(bids_);
    const auto [ask_volume, ask_amount] = total(asks_);
    record_.bid_volume = bid_volume;
    record_.bid_amount = bid_amount;
    record_.ask_volume = ask_volume;
    record_.ask_amount = ask_amount;
    record_.update_time = time.update_time;
    record_.update_milli_sec = time.milli_sec;
    ++record_.change_no;
}

}  // namespace kova::sim
