#include "sim/exchange/segment_cutter.h"

#include <algorithm>
#include <stdexcept>

#include "wire/Mdqp.h"

namespace kova::sim {

namespace {

void drop_up_to(std::vector<std::uint64_t>& places, std::uint64_t position) {
    std::erase_if(places, [=](std::uint64_t place) { return place <= position; });
}

}  // namespace

SegmentCutter::SegmentCutter(const SegmentOptions& options, std::uint64_t seed)
    : options_(options), quirk_(options.quirky_cuts), random_(seed) {
    if (options.bytes < kLeastSegmentBytes || options.bytes > kMostSegmentBytes) {
        throw std::invalid_argument("segments must have from 64 to 1460 bytes");
    }
}

std::vector<std::byte>& SegmentCutter::buffer() {
    // Only what is left of one segment has to move.
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
    return buffer_;
}

void SegmentCutter::end_message() {
    const std::uint64_t end = position_ + pending();
    message_ends_.push_back(end);
    const bool is_quirky = quirk_.strikes(random_);
    const std::uint64_t into_header = random_.below(sizeof(mdqp_t));
    if (is_quirky) {
        forced_cuts_.push_back(end + into_header);
    }
}

std::span<const std::byte> SegmentCutter::take() {
    const std::uint64_t end = end_of_segment();
    const std::size_t size = end - position_;
    const auto payload = std::span<const std::byte>(buffer_).subspan(begin_, size);
    begin_ += size;
    position_ = end;
    drop_up_to(message_ends_, position_);
    drop_up_to(forced_cuts_, position_);
    if (is_complete_ && pending() == 0) {
        is_complete_ = false;
        position_ = 0;
    }
    return payload;
}

std::uint64_t SegmentCutter::end_of_segment() const {
    const std::uint64_t furthest = position_ + std::min(pending(), options_.bytes);
    std::uint64_t end = forced_cuts_.empty() ? furthest : std::min(furthest, forced_cuts_.front());
    bool is_forced = !forced_cuts_.empty() && end == forced_cuts_.front();
    if (options_.split_at && *options_.split_at > position_ && *options_.split_at <= end) {
        end = *options_.split_at;
        is_forced = true;
    }
    return is_forced ? end : end_by_rule(end);
}

std::uint64_t SegmentCutter::end_by_rule(std::uint64_t furthest) const {
    if (options_.rule == SegmentRule::bulk) {
        return end_of_bulk(furthest);
    }
    if (message_ends_.empty() || message_ends_.front() > furthest) {
        return furthest;
    }
    if (options_.rule == SegmentRule::message) {
        return message_ends_.front();
    }
    const bool is_last = is_complete_ && furthest == position_ + pending();
    return is_last ? furthest : *(std::ranges::upper_bound(message_ends_, furthest) - 1);
}

std::uint64_t SegmentCutter::end_of_bulk(std::uint64_t furthest) const {
    if (is_complete_ && furthest == position_ + pending()) {
        return furthest;
    }
    for (const std::uint64_t message_end : message_ends_) {
        const bool is_in_header = furthest >= message_end && furthest < message_end + sizeof(mdqp_t);
        // A payload is never empty, even where a forced cut has left no more than a byte before the header.
        if (is_in_header && message_end - 1 > position_) {
            return message_end - 1;
        }
    }
    return furthest;
}

}  // namespace kova::sim
