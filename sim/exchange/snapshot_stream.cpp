#include "sim/exchange/snapshot_stream.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "sim/exchange/mdqp_writer.h"
#include "sim/exchange/random.h"

namespace kova::sim {

namespace {

/** Faults by index in Listing::instruments(), so that looking one up costs nothing. */
std::vector<PriceFault> faults_by_index(const Listing& listing, const std::vector<BadPrice>& bad_prices) {
    std::vector<PriceFault> faults(listing.instruments().size(), PriceFault::none);
    for (const BadPrice& bad : bad_prices) {
        if (!listing.has(bad.ref)) {
            throw std::invalid_argument("bad prices of an instrument that is not listed");
        }
        faults[listing.index(bad.ref)] = bad.fault;
    }
    return faults;
}

void check_long_message(std::size_t bytes) {
    if (bytes < kLeastLongMessage || bytes > kMostLongMessage) {
        throw std::invalid_argument("long messages must have from 60001 to 65535 bytes");
    }
}

void check(const SnapshotOptions& options) {
    check_long_message(options.long_message_bytes);
    if (options.message_bytes < kLeastMessageBytes || options.message_bytes > kMostMessageBytes) {
        throw std::invalid_argument("messages must have from 524 to 60000 bytes");
    }
    if (options.middle_flag == MDQP_FLAG_LAST) {
        throw std::invalid_argument("a message with the last one's flag would end the snapshot");
    }
    if (options.feeds.empty()) {
        throw std::invalid_argument("no feed to send snapshots of");
    }
    for (auto feed = options.feeds.begin(); feed != options.feeds.end(); ++feed) {
        const auto is_same = [&](const SnapshotFeed& other) { return other.feed == feed->feed; };
        if (std::any_of(options.feeds.begin(), feed, is_same)) {
            throw std::invalid_argument("a feed twice");
        }
    }
}

}  // namespace

SnapshotFeed SnapshotFeed::of(EMDQPDataType feed) {
    constexpr std::array<std::int16_t, MDQP_FEED_COUNT> topic_ids = {1000, 1101, 5000, 5101};
    constexpr std::array<std::uint16_t, MDQP_FEED_COUNT> client_ports = {33022, 22000, 33022, 22000};
    constexpr std::uint32_t servers = 0xC0000200;  // 192.0.2.0, addresses for examples
    constexpr std::uint32_t client = 0xC6336402;   // 198.51.100.2, likewise
    constexpr std::uint16_t server_port = 31000;
    const auto number = static_cast<std::uint8_t>(feed + 11);
    return {
        .feed = feed,
        .topic_id = topic_ids[static_cast<std::size_t>(feed)],
        .server = {.mac = {0x02, 0, 0, 0, 1, number}, .address = servers + number, .port = server_port},
        .client = {.mac = {0x02, 0, 0, 0, 2, 1},
                   .address = client,
                   .port = client_ports[static_cast<std::size_t>(feed)]},
    };
}

/** One feed's messages, their way into segments, and the connection's state. */
class SnapshotStream::Connection {
 public:
    Connection(const Market& market, const SnapshotFeed& feed, const SnapshotOptions& options,
               const std::vector<PriceFault>& faults)
        : market_(market),
          feed_(feed),
          message_bytes_(options.message_bytes),
          long_messages_(feed.long_messages),
          long_message_bytes_(options.long_message_bytes),
          middle_flag_(options.middle_flag),
          faults_(faults),
          random_(options.seed ^ static_cast<std::uint64_t>(feed.topic_id) << 32U),
          cutter_(options.segments, random_.bits()),
          seq_(options.first_seq.value_or(random_.below(kLowerHalf))),
          ack_(random_.below(kLowerHalf)) {}

    [[nodiscard]] EMDQPDataType feed() const { return feed_.feed; }
    [[nodiscard]] bool is_at_start() const { return cutter_.is_at_start(); }
    [[nodiscard]] std::uint64_t cycles() const { return cycles_; }
    void set_packet_no(std::int32_t packet_no) { packet_no_ = packet_no; }
    void set_quirky_cuts(double rate) { cutter_.set_quirky_cuts(rate); }
    void send_long_messages(std::uint64_t count, std::size_t bytes) {
        long_messages_ = count;
        long_message_bytes_ = bytes;
    }

    /** Writes the next frame. */
    std::size_t next(std::span<std::byte> frame) {
        while (cutter_.is_hungry()) {
            write_message();
        }
        const std::span<const std::byte> payload = cutter_.take();
        const bool is_last = cutter_.is_at_start();
        const TcpSegment segment{
            .source = feed_.server,
            .destination = feed_.client,
            .ip_id = ip_id_++,
            .seq = seq_,
            .ack = ack_,
            .flags = static_cast<std::uint8_t>(is_last ? kTcpAck | kTcpPsh : kTcpAck),
            .payload = payload,
        };
        seq_ += static_cast<std::uint32_t>(payload.size());
        cycles_ += is_last ? 1 : 0;
        return write_tcp_frame(segment, frame);
    }

 private:
    static constexpr std::uint32_t kLowerHalf = 0x80000000;

    /** What the next message is. */
    enum class Stage : std::uint8_t { opening, long_message, instruments };

    void write_message() {
        if (stage_ == Stage::opening) {
            return write_first();
        }
        const std::span<const Instrument> instruments = market_.listing().of(feed_.feed);
        if (stage_ == Stage::long_message) {
            write_long_message(instruments);
            stage_ = Stage::instruments;
            return cutter_.end_message();
        }
        if (stage_ == Stage::instruments && next_ < instruments.size()) {
            write_instruments(instruments);
            return cutter_.end_message();
        }
        write_closing(cutter_.buffer(), cycle_packet_no_);
        cutter_.end_cycle();
        stage_ = Stage::opening;
    }

    void write_first() {
        cycle_packet_no_ = packet_no_;
        write_opening(cutter_.buffer(), feed_.topic_id, ++snap_no_);
        cutter_.end_message();
        next_ = 0;
        stage_ = long_messages_ != 0 ? Stage::long_message : Stage::instruments;
        long_messages_ -= long_messages_ != 0 ? 1 : 0;
    }

    /** As many instruments as its length holds, and a field that fills the rest. */
    void write_long_message(std::span<const Instrument> instruments) {
        // Readers do not see a field that begins in the last eight bytes.
        constexpr std::size_t least_filler = sizeof(field_t) + 8;
        const std::size_t whole = sizeof(mdqp_t) + long_message_bytes_;
        MdqpWriter message(cutter_.buffer());
        message.begin(middle_flag_);
        for (; next_ < instruments.size(); ++next_) {
            const InstrumentFields fields = spoiled_fields(instruments[next_]);
            if (message.bytes() + fields.bytes() + least_filler > whole) {
                break;
            }
            message.instrument(fields);
        }
        message.filler(MDQP_FIELD_1002, whole - message.bytes() - sizeof(field_t));
        message.end();
    }

    /** As many instruments as a message holds, at least one. */
    void write_instruments(std::span<const Instrument> instruments) {
        MdqpWriter message(cutter_.buffer());
        message.begin(middle_flag_);
        InstrumentFields fields = spoiled_fields(instruments[next_]);
        do {
            message.instrument(fields);
            ++next_;
            if (next_ == instruments.size()) {
                break;
            }
            fields = spoiled_fields(instruments[next_]);
        } while (message.bytes() + fields.bytes() <= message_bytes_);
        message.end();
    }

    InstrumentFields spoiled_fields(const Instrument& instrument) const {
        InstrumentFields fields = fields_of(market_.listing(), instrument, market_.state(instrument.ref));
        spoil(fields, faults_[market_.listing().index(instrument.ref)]);
        return fields;
    }

    const Market& market_;
    SnapshotFeed feed_;
    std::size_t message_bytes_;
    std::uint64_t long_messages_;  // still to come, one a cycle
    std::size_t long_message_bytes_;
    std::uint8_t middle_flag_;
    const std::vector<PriceFault>& faults_;  // as in Listing::instruments()
    Random random_;
    SegmentCutter cutter_;
    Stage stage_ = Stage::opening;
    std::size_t next_ = 0;  // of the feed's instruments
    std::int32_t snap_no_ = 0;
    std::int32_t packet_no_ = 0;
    std::int32_t cycle_packet_no_ = 0;  // of the cycle at hand
    std::uint32_t seq_;
    std::uint32_t ack_;
    std::uint16_t ip_id_ = 0;
    std::uint64_t cycles_ = 0;
};

SnapshotStream::SnapshotStream(const Market& market, const SnapshotOptions& options)
    : market_(market), faults_(faults_by_index(market.listing(), options.bad_prices)), order_(options.order) {
    check(options);
    for (const SnapshotFeed& feed : options.feeds) {
        connections_.push_back(std::make_unique<Connection>(market, feed, options, faults_));
    }
}

SnapshotStream::~SnapshotStream() = default;

std::span<const std::byte> SnapshotStream::next() {
    Connection& connection = *connections_[turn_];
    const std::size_t size = connection.next(frame_);
    ++frames_;
    bytes_ += size;
    if (order_ == SnapshotOrder::interleaved || connection.is_at_start()) {
        turn_ = (turn_ + 1) % connections_.size();
    }
    return std::span(frame_).first(size);
}

bool SnapshotStream::at_cycle_start() const {
    return connections_[turn_]->is_at_start();
}

EMDQPDataType SnapshotStream::next_feed() const {
    return connections_[turn_]->feed();
}

void SnapshotStream::set_packet_no(EMDQPDataType feed, std::int32_t packet_no) {
    for (const std::unique_ptr<Connection>& connection : connections_) {
        if (connection->feed() == feed) {
            connection->set_packet_no(packet_no);
        }
    }
}

void SnapshotStream::set_quirky_cuts(double rate) {
    for (const std::unique_ptr<Connection>& connection : connections_) {
        connection->set_quirky_cuts(rate);
    }
}

void SnapshotStream::send_long_messages(EMDQPDataType feed, std::uint64_t count, std::size_t bytes) {
    check_long_message(bytes);
    Connection* connection = find(feed);
    if (connection == nullptr) {
        throw std::invalid_argument("no snapshots of this feed are sent");
    }
    connection->send_long_messages(count, bytes);
}

void SnapshotStream::set_price_fault(std::string_view inst_id, PriceFault fault) {
    const Instrument* instrument = market_.listing().find(inst_id);
    if (instrument == nullptr) {
        throw std::invalid_argument("no such instrument: " + std::string(inst_id));
    }
    faults_[market_.listing().index(instrument->ref)] = fault;
}

std::uint64_t SnapshotStream::cycles(EMDQPDataType feed) const {
    const Connection* connection = find(feed);
    return connection == nullptr ? 0 : connection->cycles();
}

SnapshotStream::Connection* SnapshotStream::find(EMDQPDataType feed) const {
    const auto is_it = [feed](const auto& connection) { return connection->feed() == feed; };
    const auto found = std::ranges::find_if(connections_, is_it);
    return found == connections_.end() ? nullptr : found->get();
}

}  // namespace kova::sim
