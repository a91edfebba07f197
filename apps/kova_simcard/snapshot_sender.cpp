#include "kova_simcard/snapshot_sender.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kova::app {

namespace {

// How often the card is looked at: for forwarding and a reader, and for room in the ring.
constexpr std::int64_t kOpeningInterval = 5'000'000;
constexpr std::int64_t kRoomInterval = 20'000;
// Frames come in bursts at most this often, so that on a machine of few cores their reader gets to run.
constexpr std::int64_t kPause = 1'000'000;
// Frames of one step, sent or passed over: quotes wait for no longer than that.
constexpr std::uint64_t kBurst = 64;

// Whether what becomes due in a pause can be sent at once.
bool allows_pauses(sim::Rate rate) {
    constexpr std::uint64_t kPausesPerSecond = 1000;
    return rate && *rate / kPausesPerSecond < kBurst;
}

}  // namespace

SnapshotSender::SnapshotSender(sim::Card& card, const sim::Market& market, const SnapshotPlan& plan)
    : card_(card),
      market_(market),
      rate_(plan.rate),
      stream_(market, plan.snapshot),
      impairments_(stream_, plan.impairments),
      pacer_(plan.rate, kBurst) {}

void SnapshotSender::step(std::int64_t now) {
    next_ = now + kOpeningInterval;
    if (!must_send()) {
        return;
    }
    if (!has_reached_start()) {
        next_ = now;
        return;
    }
    if (card_.has_frame_reader()) {
        send(now);
    }
}

std::vector<News> SnapshotSender::take_news() {
    return std::exchange(news_, {});
}

bool SnapshotSender::must_send() {
    if (!card_.is_forwarding()) {
        close();
        return false;
    }
    if (card_.forwarding_openings() != opening_) {
        close();
        open();
    }
    return true;
}

void SnapshotSender::open() {
    opening_ = card_.forwarding_openings();
    is_sending_ = true;
    is_seeking_ = true;
    sent_ = 0;
    owed_ = 0;
    pacer_ = sim::Pacer(rate_, kBurst);
    impairments_.forget_frames();
    news_.push_back({.is_error = false, .text = "snapshot forwarding is open"});
}

void SnapshotSender::close() {
    if (is_sending_) {
        is_sending_ = false;
        news_.push_back(
            {.is_error = false, .text = fmt::format("snapshot forwarding is closed after {} frames", sent_)});
    }
}

bool SnapshotSender::has_reached_start() {
    for (std::uint64_t frames = 0; is_seeking_; ++frames) {
        is_seeking_ = !stream_.at_cycle_start();
        if (is_seeking_ && frames == kBurst) {
            return false;
        }
        if (is_seeking_) {
            static_cast<void>(stream_.next());
        }
    }
    return true;
}

void SnapshotSender::send(std::int64_t now) {
    owed_ = std::min(owed_ + pacer_.due(now), kBurst);
    while (owed_ != 0 && card_.has_room_for_frame(sim::kMostFrameBytes)) {
        send_one();
        --owed_;
    }
    report_cycles();
    const std::int64_t pace = allows_pauses(rate_) ? std::max(pacer_.next_ns(), now + kPause) : now;
    next_ = std::min(owed_ != 0 ? now + kRoomInterval : pace, now + kOpeningInterval);
}

void SnapshotSender::send_one() {
    note_packet_no();
    const std::span<const std::byte> frame = impairments_.next();
    if (!frame.empty() && card_.forward_frame(frame) == sim::Forwarded::kSent) {
        ++sent_;
    }
}

// A snapshot belongs to the quotes that were out when it began.
void SnapshotSender::note_packet_no() {
    if (stream_.at_cycle_start()) {
        const EMDQPDataType feed = stream_.next_feed();
        stream_.set_packet_no(feed, static_cast<std::int32_t>(market_.quotes(feed)));
    }
}

void SnapshotSender::report_cycles() {
    for (std::int32_t feed = 0; feed < MDQP_FEED_COUNT; ++feed) {
        const auto known = static_cast<EMDQPDataType>(feed);
        card_.set_cycles(known, stream_.cycles(known));
    }
}

}  // namespace kova::app
