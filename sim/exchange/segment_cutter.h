/**
 * How a run of messages is cut into the payloads of TCP segments.
 */
#ifndef KOVA_SIM_EXCHANGE_SEGMENT_CUTTER_H
#define KOVA_SIM_EXCHANGE_SEGMENT_CUTTER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/exchange/chance.h"
#include "sim/exchange/random.h"
#include "sim/exchange/tcp_frame.h"

namespace kova::sim {

enum class SegmentRule : std::uint8_t {
    /**
     * Full segments wherever messages begin, as TCP cuts a stream that is written faster than it is sent. No
     * segment ends at the end of a message or within 7 bytes behind it, except the cycle's last.
     */
    bulk,
    message,  // every message begins a segment of its own
    packed,   // as many whole messages as a segment holds; those that are longer begin one of their own
};

struct SegmentOptions {
    SegmentRule rule = SegmentRule::bulk;
    /** Most bytes of a payload, kLeastSegmentBytes to kMostSegmentBytes. */
    std::size_t bytes = kMostSegmentBytes;
    /** One more cut, so many bytes behind the beginning of each cycle, whatever the rule says. */
    std::optional<std::uint64_t> split_at{};
    /** Share of the messages, 0 to 1, whose end has a cut 0 to 7 bytes behind it: in the next one's header. */
    double quirky_cuts = 0;
};

/** Room for the opening message's snapshot field, and for a bulk cut that is moved out of a header. */
inline constexpr std::size_t kLeastSegmentBytes = 64;

/**
 * Cuts cycle after cycle. The owner appends messages while is_hungry(), and takes a payload when it is not.
 */
class SegmentCutter {
 public:
    /** Throws std::invalid_argument for an option out of its range. */
    SegmentCutter(const SegmentOptions& options, std::uint64_t seed);

    /** Whether the next payload could depend on messages that are not there yet. */
    [[nodiscard]] bool is_hungry() const { return !is_complete_ && pending() < options_.bytes; }
    /** Where a message is appended, whole. */
    std::vector<std::byte>& buffer();
    /** Call it behind each message but the cycle's last. */
    void end_message();
    /** Call it behind the cycle's last message. */
    void end_cycle() { is_complete_ = true; }

    /** The next payload; it holds until the next call of buffer(). The last of a cycle begins a new one. */
    std::span<const std::byte> take();

    /** Whether the payload to be taken is the first of a cycle. */
    [[nodiscard]] bool is_at_start() const { return position_ == 0; }

    /** Throws std::invalid_argument unless `rate` is from 0 to 1. Messages that are there already stay as they
     * are. */
    void set_quirky_cuts(double rate) { quirk_ = Chance(rate); }

 private:
    [[nodiscard]] std::size_t pending() const { return buffer_.size() - begin_; }
    [[nodiscard]] std::uint64_t end_by_rule(std::uint64_t furthest) const;
    [[nodiscard]] std::uint64_t end_of_bulk(std::uint64_t furthest) const;
    [[nodiscard]] std::uint64_t end_of_segment() const;

    SegmentOptions options_;
    Chance quirk_;
    Random random_;
    std::vector<std::byte> buffer_;
    std::size_t begin_ = 0;  // in the buffer, of what has not been taken
    bool is_complete_ = false;
    // From here on, places are counted from the beginning of the cycle.
    std::uint64_t position_ = 0;
    std::vector<std::uint64_t> message_ends_;  // behind position_
    std::vector<std::uint64_t> forced_cuts_;   // behind position_
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_SEGMENT_CUTTER_H
