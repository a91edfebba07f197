#include "kova_simcard/traffic.h"

#include <algorithm>
#include <limits>

namespace kova::app {

namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kPause = 1'000'000;
constexpr std::uint64_t kPausesPerSecond = 1000;
// Quotes between two looks at the clock when nothing is paced.
constexpr std::uint64_t kSmallestBurst = 256;

// A receiver that runs beside the exchange must be able to take a burst whole.
std::uint64_t largest_burst(const sim::Card& card) {
    const std::uint64_t slots = std::uint64_t{1} << card.memory().identity.card_to_host_slots_log2;
    return std::max<std::uint64_t>(slots / 4, 1);
}

// Quotes that a late step may catch up: what the machine withholds a thread for at times, as far as fits.
std::uint64_t burst_of(const sim::Card& card, sim::Rate rate) {
    constexpr std::uint64_t kCatchUpPauses = 20;
    const std::uint64_t wanted = rate ? *rate / kPausesPerSecond * kCatchUpPauses : 0;
    return std::min(std::max(wanted, kSmallestBurst), largest_burst(card));
}

// Whether the quotes of one pause are few enough to be sent at once.
bool allows_pauses(const sim::Card& card, sim::Rate rate) {
    return rate && *rate / kPausesPerSecond <= largest_burst(card) / 2;
}

}  // namespace

Traffic::Traffic(sim::Card& card, sim::Market& market, const TrafficPlan& plan)
    : card_(card),
      market_(market),
      plan_(plan),
      pacer_(plan.rate, burst_of(card, plan.rate)),
      has_pauses_(allows_pauses(card, plan.rate)) {}

void Traffic::step(std::int64_t now) {
    if (!is_stepped_) {
        is_stepped_ = true;
        start_ = now + plan_.start_delay.count();
        end_ = plan_.duration.count() == 0 ? kNever : start_ + plan_.duration.count();
        next_ = start_;
    }
    if (now < start_ || state_ == sim::TrafficState::kEnded) {
        return;
    }
    if (state_ == sim::TrafficState::kNone) {
        enter(sim::TrafficState::kRunning);
        // However late this step is, the first quote is due at the start.
        send(start_);
    }
    // A quote that would be due at the very end is not part of the duration any more.
    send(std::min(now, end_ - 1));
    if (now >= end_) {
        elapsed_ = end_ - start_;
        next_ = kNever;
        enter(sim::TrafficState::kEnded);
    }
}

void Traffic::send(std::int64_t now) {
    elapsed_ = now - start_;
    market_.advance_to(plan_.open_time +
                       std::chrono::floor<std::chrono::milliseconds>(std::chrono::nanoseconds(elapsed_)));
    for (std::uint64_t due = pacer_.due(now); due != 0; --due) {
        send_one();
    }
    const std::int64_t earliest = has_pauses_ ? start_ + (elapsed_ / kPause + 1) * kPause : now;
    next_ = std::min(std::max(pacer_.next_ns(), earliest), end_);
}

void Traffic::send_one() {
    const sim::Quote quote = market_.next();
    const sim::Routed routed = card_.route_quote(quote.feed, quote.record);
    ++totals_.quotes;
    totals_.sent += routed.sent;
    totals_.lost += routed.lost;
    totals_.unheard += routed.unheard;
}

void Traffic::enter(sim::TrafficState state) {
    state_ = state;
    card_.set_traffic(state);
}

}  // namespace kova::app
