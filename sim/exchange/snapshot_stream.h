/**
 * The snapshots that the simulated exchange sends: for every feed a TCP connection on which its instruments'
 * state is told from the first to the last, again and again.
 */
#ifndef KOVA_SIM_EXCHANGE_SNAPSHOT_STREAM_H
#define KOVA_SIM_EXCHANGE_SNAPSHOT_STREAM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "sim/exchange/frame_source.h"
#include "sim/exchange/market.h"
#include "sim/exchange/mdqp_writer.h"
#include "sim/exchange/price_fault.h"
#include "sim/exchange/segment_cutter.h"
#include "sim/exchange/tcp_frame.h"
#include "wire/Feed.h"
#include "wire/Mdqp.h"

namespace kova::sim {

/** Names of the feeds in scenarios, by EMDQPDataType. */
inline constexpr std::array<std::string_view, MDQP_FEED_COUNT> kFeedNames = {"shfe2ps", "shfe4ps", "ine2ps",
                                                                             "ine4ps"};

/** One feed's snapshot connection. */
struct SnapshotFeed {
    EMDQPDataType feed = SHFE_2PS;
    std::int16_t topic_id = 0;
    TcpEnd server{};
    TcpEnd client{};                  // the card; its port is what readers tell connections apart by
    std::uint64_t long_messages = 0;  // so many of the first cycles have a message of `long_message_bytes`

    /**
     * A feed as it is unless somebody says otherwise: each has a server of its own, the 2PS feeds share the
     * client's port 33022 and the 4PS feeds its port 22000.
     */
    static SnapshotFeed of(EMDQPDataType feed);

    friend bool operator==(const SnapshotFeed&, const SnapshotFeed&) = default;
};

enum class SnapshotOrder : std::uint8_t {
    // A cycle of one feed, then a cycle of the next: readers that keep one connection a port see all.
    sequential,
    interleaved,  // a frame of each feed in turn
};

/** An instrument whose prices are sent wrong. */
struct BadPrice {
    InstrumentRef ref;
    PriceFault fault;
};

/** Least and most of `message_bytes`: room for one instrument; readers give a message 64 KiB at most. */
inline constexpr std::size_t kLeastMessageBytes = 524;
inline constexpr std::size_t kMostMessageBytes = 60000;

/** Least and most of `long_message_bytes`, a message's length field: more than `message_bytes` ever gives. */
inline constexpr std::size_t kLeastLongMessage = kMostMessageBytes + 1;
inline constexpr std::size_t kMostLongMessage = kMostMdqpBody;
/** Most cycles that are asked for one at once. */
inline constexpr std::uint64_t kMostLongMessages = 1'000'000;

struct SnapshotOptions {
    std::uint64_t seed = 1;
    /** In the order in which they are sent; each feed at most once. */
    std::vector<SnapshotFeed> feeds = {SnapshotFeed::of(SHFE_2PS), SnapshotFeed::of(INE_2PS)};
    SnapshotOrder order = SnapshotOrder::sequential;
    /** Most bytes of a message, from kLeastMessageBytes to kMostMessageBytes; as many instruments as fit. */
    std::size_t message_bytes = 4096;
    /** Of the long messages: see SnapshotStream::send_long_messages(). */
    std::size_t long_message_bytes = kMostLongMessage;
    SegmentOptions segments{};
    /**
     * Sequence number of each feed's first byte. Nothing: one at random from the lower half, so that it takes
     * hundreds of full cycles until it wraps around.
     */
    std::optional<std::uint32_t> first_seq{};
    /**
     * `flag` of the messages between first and last. Readers take up a message that continues in another
     * segment only with the flag of a first or a last message, and the last one's ends the snapshot.
     */
    std::uint8_t middle_flag = MDQP_FLAG_FIRST;
    /** The last entry counts for an instrument that occurs twice. Both feeds of the exchange send it. */
    std::vector<BadPrice> bad_prices{};
};

/**
 * An endless source of snapshots.
 *
 * A cycle of a feed is an opening message with the feed's topic and the number of the snapshot, one row of
 * messages with all instruments by their number, and a closing message with the packet number. A message shows
 * its instruments as the market has them when it is written, no earlier than the cycle's packet number was set.
 * The next cycle goes on with the sequence numbers where the last one ended.
 *
 * The same market and options give the same frames. In steady state next() allocates nothing.
 */
class SnapshotStream final : public FrameSource {
 public:
    /** @param market must outlive the stream. Throws std::invalid_argument for an option out of its range. */
    explicit SnapshotStream(const Market& market, const SnapshotOptions& options = {});
    ~SnapshotStream() override;

    std::span<const std::byte> next() override;

    [[nodiscard]] bool sends(EMDQPDataType feed) const { return find(feed) != nullptr; }
    [[nodiscard]] bool lists(std::string_view inst_id) const {
        return market_.listing().find(inst_id) != nullptr;
    }
    /** Whether the next frame is the first of a cycle of its feed. */
    [[nodiscard]] bool at_cycle_start() const;
    /** The feed of the next frame. */
    [[nodiscard]] EMDQPDataType next_feed() const;

    /** Packet of the feed's incremental stream that snapshots to come belong to; 0 until it is set. */
    void set_packet_no(EMDQPDataType feed, std::int32_t packet_no);
    /** Changes SegmentOptions::quirky_cuts from the next message on. Throws std::invalid_argument. */
    void set_quirky_cuts(double rate);
    /**
     * In the next `count` cycles of a feed, the first message behind the opening one has a length field of
     * `bytes`, from kLeastLongMessage to kMostLongMessage: instruments as far as they go, and a field that says
     * nothing. From kMostMdqpBody - 7 on the message with its header is 64 KiB and more, which readers give up.
     * Throws std::invalid_argument for a feed that is not sent and a length out of its range.
     */
    void send_long_messages(EMDQPDataType feed, std::uint64_t count, std::size_t bytes);
    /** How an instrument's prices are sent from the next message on. Throws std::invalid_argument. */
    void set_price_fault(std::string_view inst_id, PriceFault fault);

    /** Cycles of a feed that are finished. */
    [[nodiscard]] std::uint64_t cycles(EMDQPDataType feed) const;
    [[nodiscard]] std::uint64_t frames() const { return frames_; }
    /** Of all frames. */
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

 private:
    class Connection;

    [[nodiscard]] Connection* find(EMDQPDataType feed) const;

    const Market& market_;
    std::vector<PriceFault> faults_;  // as in Listing::instruments(); the connections look into it
    std::vector<std::unique_ptr<Connection>> connections_;
    SnapshotOrder order_;
    std::size_t turn_ = 0;  // index of the next frame's connection
    std::array<std::byte, kMostFrameBytes> frame_{};
    std::uint64_t frames_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_SNAPSHOT_STREAM_H
