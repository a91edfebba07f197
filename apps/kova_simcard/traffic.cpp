#include "kova_simcard/traffic.h"

#include <algorithm>
#include <limits>

namespace kova::app {

namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kPause = 1'000'000;
constexpr std::uint64_t kPausesPerSecond = 1000;
// How long a reader without room is waited for, and how often it is looked at meanwhile. Longer than a machine
// with more programs than cores lets a reader wait for its turn.
constexpr std::int64_t kPatience = 100'000'000;
constexpr std::int64_t kLookInterval = 20'000;
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

std::string_view name_of(sim::TrafficState state) {
    switch (state) {
        case sim::TrafficState::kNone:
            return "none";
        case sim::TrafficState::kRunning:
            return "running";
        case sim::TrafficState::kEnded:
            return "ended";
    }
    return "unknown";
}

Traffic::Traffic(sim::Card& card, sim::Market& market, const TrafficPlan& plan)
    : card_(card),
      market_(market),
      plan_(plan),
      burst_(burst_of(card, plan.rate)),
      pacer_(plan.rate, burst_),
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

void Traffic::set_rate(sim::Rate rate) {
    plan_.rate = rate;
    burst_ = burst_of(card_, rate);
    pacer_ = sim::Pacer(rate, burst_);
    has_pauses_ = allows_pauses(card_, rate);
    if (state_ == sim::TrafficState::kRunning) {
        next_ = start_ + elapsed_;
    }
}

void Traffic::send(std::int64_t now) {
    elapsed_ = now - start_;
    pass_time();
    if (!plan_.rate && waits_for_readers(now)) {
        next_ = std::min(now + kLookInterval, end_);
        return;
    }
    for (std::uint64_t due = pacer_.due(now); due != 0; --due) {
        send_one();
    }
    const std::int64_t earliest = has_pauses_ ? start_ + (elapsed_ / kPause + 1) * kPause : now;
    next_ = std::min(std::max(pacer_.next_ns(), earliest), end_);
}

void Traffic::pass_time() {
    market_.advance_to(plan_.open_time +
                       std::chrono::floor<std::chrono::milliseconds>(std::chrono::nanoseconds(elapsed_)));
    if (plan_.midnight != 0) {
        card_.set_exchange_time(plan_.midnight +
                                std::chrono::floor<std::chrono::seconds>(market_.time()).count());
    }
}

// The market goes on behind a line that is cut, so what was quoted meanwhile is missing afterwards.
void Traffic::send_one() {
    const sim::Quote quote = market_.next();
    ++totals_.quotes;
    if (card_.is_line_cut(quote.feed)) {
        ++totals_.cut_off;
        return;
    }
    const sim::Routed routed = card_.route_quote(quote.feed, quote.record);
    totals_.sent += routed.sent;
    totals_.lost += routed.lost;
    totals_.unheard += routed.unheard;
}

bool Traffic::waits_for_readers(std::int64_t now) {
    bool waits = false;
    for (std::uint32_t channel = 0; channel < sim::kChannelCount; ++channel) {
        waits = waits_for(channel, now) || waits;
    }
    return waits;
}

// Whether a burst might not fit, and the reader is not known to stand still.
bool Traffic::waits_for(std::uint32_t channel, std::int64_t now) {
    const sim::RingControl& ring = card_.memory().channels[channel].card_to_host;
    const std::uint64_t waiting =
        ring.tail.load(std::memory_order_relaxed) - ring.consumed.load(std::memory_order_relaxed);
    const std::uint64_t slots = std::uint64_t{1} << ring.slot_count_log2;
    const bool is_heard = ring.reader.load(std::memory_order_relaxed) != 0;
    if (!is_heard || waiting + burst_ < slots) {
        full_since_[channel].reset();
        return false;
    }
    full_since_[channel] = full_since_[channel].value_or(now);
    return now - *full_since_[channel] < kPatience;
}

void Traffic::enter(sim::TrafficState state) {
    state_ = state;
    card_.set_traffic(state);
}

}  // namespace kova::app
