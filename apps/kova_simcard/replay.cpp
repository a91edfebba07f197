#include "kova_simcard/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kova::app {

namespace {

// How often the card is looked at: for forwarding and a reader, and for room in the ring.
constexpr std::int64_t kOpeningInterval = 5'000'000;
constexpr std::int64_t kRoomInterval = 20'000;
// Records between two looks at the clock.
constexpr int kBurst = 256;

}  // namespace

Replay::Replay(sim::Card& card, std::unique_ptr<sim::CaptureFile> capture, ReplayPlan plan)
    : card_(card), capture_(std::move(capture)), plan_(std::move(plan)) {}

void Replay::step(std::int64_t now) {
    next_ = now + kOpeningInterval;
    try {
        if (must_play(now)) {
            play(now);
        }
    } catch (const sim::CaptureError& error) {
        is_playing_ = false;
        news_.push_back({.is_error = true, .text = error.what()});
    }
}

std::vector<News> Replay::take_news() {
    return std::exchange(news_, {});
}

bool Replay::must_play(std::int64_t now) {
    if (!card_.is_forwarding()) {
        is_playing_ = false;
        return false;
    }
    if (card_.forwarding_openings() != opening_) {
        begin(now);
    }
    return is_playing_;
}

void Replay::begin(std::int64_t now) {
    opening_ = card_.forwarding_openings();
    totals_ = {};
    record_.reset();
    due_ = now;
    capture_->rewind();
    is_playing_ = true;
    news_.push_back({.is_error = false, .text = fmt::format("replay of {} begins", plan_.name)});
}

void Replay::play(std::int64_t now) {
    for (int records = 0; records < kBurst; ++records) {
        if (!play_one(now)) {
            return;
        }
    }
    next_ = now;
}

bool Replay::play_one(std::int64_t now) {
    if (!record_ && !fetch(now)) {
        end();
        return false;
    }
    if (must_wait(now)) {
        return false;
    }
    forward();
    record_.reset();
    return true;
}

bool Replay::fetch(std::int64_t now) {
    record_ = capture_->next();
    if (!record_ && plan_.repeat) {
        capture_->rewind();
        record_ = capture_->next();
    }
    if (!record_) {
        return false;
    }
    const auto gap = static_cast<double>(record_->gap.count());
    due_ = plan_.speed ? due_ + static_cast<std::int64_t>(gap / *plan_.speed) : now;
    return true;
}

bool Replay::must_wait(std::int64_t now) {
    if (due_ > now) {
        // Forwarding may be closed long before.
        next_ = std::min(due_, now + kOpeningInterval);
        return true;
    }
    const bool is_heard = card_.has_frame_reader();
    if (is_heard && (is_too_long() || has_room())) {
        return false;
    }
    // What comes behind keeps its distance.
    due_ = now;
    next_ = now + (is_heard ? kRoomInterval : kOpeningInterval);
    return true;
}

bool Replay::is_too_long() const {
    return record_->kind == sim::CaptureRecord::Kind::kFrame && record_->bytes.size() > sim::kLongestFrame;
}

bool Replay::has_room() const {
    return record_->kind == sim::CaptureRecord::Kind::kFrame
               ? card_.has_room_for_frame(record_->bytes.size())
               : card_.has_room_for_message(record_->bytes.size());
}

void Replay::forward() {
    const sim::Forwarded forwarded = record_->kind == sim::CaptureRecord::Kind::kFrame
                                         ? card_.forward_frame(record_->bytes)
                                         : card_.forward_message(record_->bytes);
    totals_.sent += forwarded == sim::Forwarded::kSent ? 1U : 0U;
    totals_.too_long += forwarded == sim::Forwarded::kTooLong ? 1U : 0U;
}

void Replay::end() {
    is_playing_ = false;
    news_.push_back({.is_error = false,
                     .text = fmt::format("replay of {} is over: {} sent, {} too long, {} of another kind",
                                         plan_.name, totals_.sent, totals_.too_long, capture_->skipped())});
}

}  // namespace kova::app
