#include "bench/snapshot_stream.h"

#include <algorithm>
#include <string>

#include "sim/exchange/listing.h"
#include "support/mdqp_message.h"
#include "support/snapshot_frame.h"

namespace kova::bench {

namespace {

using test::ByteString;
using test::MdqpMessage;

constexpr std::size_t kSegment = 1460;
constexpr std::size_t kMessageHeader = 8;
constexpr std::size_t kCacheLine = 64;
constexpr int kLevels = 5;
constexpr std::uint32_t kFirstSeq = 0x10000;

void put_instrument(MdqpMessage& message, std::int32_t inst_no, const sim::Instrument& listed) {
    const double tick = listed.tick / 100.0;
    const double middle = listed.pre_settlement / 100.0 + tick * (inst_no % 7);
    message
        .inst_info({.inst_id = listed.id(),
                    .volume_multiple = static_cast<std::int32_t>(listed.multiplier),
                    .price_tick = tick,
                    .codec_price = listed.codec_price / 100.0,
                    .inst_no = inst_no})
        .deal_info({.inst_no = inst_no,
                    .last_price = middle,
                    .volume = 100 + inst_no,
                    .turnover = 1e6 * middle,
                    .open_interest = 1000.0 + inst_no,
                    .highest_price = middle + 20 * tick,
                    .lowest_price = middle - 20 * tick,
                    .upper_limit_price = listed.upper_limit / 100.0,
                    .lower_limit_price = listed.lower_limit / 100.0,
                    .action_day = "20241118",
                    .update_mill_sec = inst_no % 1000,
                    .change_no = inst_no * 3});
    for (int level = 1; level <= kLevels; ++level) {
        message.bid(inst_no, middle - level * tick, 10 * level + inst_no % 10);
    }
    for (int level = 1; level <= kLevels; ++level) {
        message.ask(inst_no, middle + level * tick, 12 * level + inst_no % 9);
    }
    message.order_statistics({.inst_no = inst_no,
                              .bid_volume = 300 + inst_no % 100,
                              .bid_amount = 300 * middle,
                              .ask_volume = 310 + inst_no % 100,
                              .ask_amount = 310 * middle});
}

// Between four and eight instruments: two to four kilobytes.
std::int32_t instruments_of_message(std::size_t message) {
    return 4 + static_cast<std::int32_t>(message % 5);
}

// The bytes of the connection, and where in them each message ends.
struct Connection {
    ByteString bytes;
    std::vector<std::size_t> message_ends;
};

Connection make_connection(std::int32_t instruments) {
    const sim::Listing listing = sim::Listing::make({});
    const auto listed = listing.of(SHFE_2PS);
    Connection connection;
    for (std::int32_t inst_no = 0; inst_no < instruments;) {
        const std::size_t number = connection.message_ends.size();
        const std::int32_t end = std::min(instruments, inst_no + instruments_of_message(number));
        MdqpMessage message(end == instruments ? 0x01 : 0x11);
        if (number == 0) {
            message.snap(kSnapshotTopic, 1);
        }
        for (; inst_no < end; ++inst_no) {
            put_instrument(message, inst_no, listed[static_cast<std::size_t>(inst_no) % listed.size()]);
        }
        const test::Bytes bytes = message.bytes();
        connection.bytes.append(bytes.begin(), bytes.end());
        connection.message_ends.push_back(connection.bytes.size());
    }
    return connection;
}

// Where a segment that should end here ends: not where the next message's header would be cut, and not right
// behind a message, so that every message goes on from one segment to the next.
std::size_t segment_end(const Connection& connection, std::size_t wanted) {
    if (wanted >= connection.bytes.size()) {
        return connection.bytes.size();
    }
    const auto behind = std::ranges::upper_bound(connection.message_ends, wanted);
    if (behind == connection.message_ends.begin()) {
        return wanted;
    }
    const std::size_t boundary = *std::prev(behind);
    return wanted - boundary < kMessageHeader ? boundary - kMessageHeader : wanted;
}

void append(SnapshotStream& stream, const ByteString& message) {
    const std::size_t offset = stream.memory.size();
    stream.messages.push_back({.offset = offset, .size = static_cast<std::uint32_t>(message.size())});
    stream.memory.insert(stream.memory.end(), message.begin(), message.end());
    stream.memory.resize((stream.memory.size() + kCacheLine - 1) / kCacheLine * kCacheLine);
}

}  // namespace

SnapshotStream make_snapshot_stream(std::int32_t instruments) {
    const Connection connection = make_connection(instruments);
    SnapshotStream stream;
    stream.payload_bytes = connection.bytes.size();
    for (std::size_t begin = 0; begin < connection.bytes.size();) {
        const std::size_t end = segment_end(connection, begin + kSegment);
        append(stream, test::dma_tcp_message({.seq = kFirstSeq + static_cast<std::uint32_t>(begin),
                                              .payload = connection.bytes.substr(begin, end - begin),
                                              .dst_port = kSnapshotPort}));
        begin = end;
    }
    return stream;
}

}  // namespace kova::bench
