/** The market's quotes on their way through a card, at a rate and for a time. */
#ifndef KOVA_APPS_KOVA_SIMCARD_TRAFFIC_H
#define KOVA_APPS_KOVA_SIMCARD_TRAFFIC_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "sim/card/card.h"
#include "sim/exchange/market.h"
#include "sim/exchange/pacer.h"

namespace kova::app {

/** As the status calls it. */
[[nodiscard]] std::string_view name_of(sim::TrafficState state);

struct TrafficPlan {
    sim::Rate rate = 1000;                   // quotes a second; nothing: as fast as the streams take them
    std::chrono::nanoseconds start_delay{};  // from the first step
    std::chrono::nanoseconds duration{};     // 0 is endless
    std::chrono::milliseconds open_time{};   // the exchange's time at the start
    std::int64_t midnight = 0;               // of the trading day, seconds since the epoch; 0: untold
};

/** What has become of the quotes so far. One quote counts once for each channel it goes to. */
struct TrafficTotals {
    std::uint64_t quotes = 0;  // that the exchange made
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;
    std::uint64_t unheard = 0;
    std::uint64_t cut_off = 0;  // quotes of feeds whose line is cut
};

/**
 * Sends quotes through a card.
 *
 * At a rate it does not care who listens: a reader that is too slow loses quotes. Without one it waits for the
 * readers, but for none that stands still; that one loses quotes until it has caught up.
 *
 * It sends in bursts, one each millisecond where the rate asks for more than one quote in it, so that on a
 * machine of few cores the receivers get to run. It does not spread a burst: the card does not either.
 *
 * Has no clock: whoever drives it says what time it is, in nanoseconds of a clock that never goes back.
 */
class Traffic {
 public:
    /** `card` and `market` must outlive it. The card's traffic state is set along the way. */
    Traffic(sim::Card& card, sim::Market& market, const TrafficPlan& plan);

    /** Sends what is due. */
    void step(std::int64_t now);

    /** Goes on at another rate from the next step on, which is due at once. */
    void set_rate(sim::Rate rate);

    /** When the next step has something to do: the time of the last one if at once. Far away behind the end. */
    [[nodiscard]] std::int64_t next() const { return next_; }

    [[nodiscard]] const TrafficTotals& totals() const { return totals_; }
    [[nodiscard]] sim::TrafficState state() const { return state_; }
    /** Nanoseconds of traffic so far. */
    [[nodiscard]] std::int64_t elapsed() const { return elapsed_; }

 private:
    void send(std::int64_t now);
    void send_one();
    void pass_time();
    [[nodiscard]] bool waits_for_readers(std::int64_t now);
    [[nodiscard]] bool waits_for(std::uint32_t channel, std::int64_t now);
    void enter(sim::TrafficState state);

    sim::Card& card_;
    sim::Market& market_;
    TrafficPlan plan_;
    std::uint64_t burst_;  // most quotes at a time
    sim::Pacer pacer_;
    bool has_pauses_;
    std::array<std::optional<std::int64_t>, sim::kChannelCount>
        full_since_;  // of its clock; only of channels without room
    sim::TrafficState state_ = sim::TrafficState::kNone;
    bool is_stepped_ = false;
    std::int64_t start_ = 0;
    std::int64_t end_ = 0;
    std::int64_t next_ = 0;
    std::int64_t elapsed_ = 0;
    TrafficTotals totals_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_TRAFFIC_H
