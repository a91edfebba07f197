// The segments of one connection into reassembly, without an engine.
//
//     byte 0   bits 0 and 1 the first sequence number, bit 2 the last message of a snapshot closes the session,
//              bit 3 bursts are 16 times as long, which fills the list and takes time
//     then     steps: what (bits 0 to 2) and its frame (bits 3 to 5), then what the step takes

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "fuzz/engine_under_fuzz.h"
#include "fuzz/exact_copy.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "fuzz/session_state.h"
#include "snapshot/TcpReassembly.h"
#include "support/snapshot_frame.h"

namespace kova::fuzz {
namespace {

using test::ByteString;

constexpr std::uint16_t kPort = 33022;
constexpr std::array<std::uint32_t, 4> kFirstSeqs{1000, 0, 0x7FFFFF00, 0xFFFFFF00};
/** What a frame has to itself in the handler's buffer. */
constexpr std::size_t kFrameRoom = 2048 - 12;
constexpr std::size_t kLongestPayload = kFrameRoom - 14 - 20 - 20 - 40;
constexpr int kMostSegments = 700;
constexpr std::size_t kMostBytes = 400'000;

enum Step : unsigned {
    kInOrder = 0,   // size (1), bytes
    kEarly = 1,     // distance (2), size (1), bytes
    kOutdated = 2,  // distance (1), size (1), bytes
    kMessage = 3,   // flag (1), length (2), bytes that are there (1 x 8): a header and a body of zeros
    kBurst = 4,     // distance (2), count (1, by 8 or times 2), stride (1): early segments, of a byte or wide
    kAgain = 5,     // the segment before once more
    kBulk = 6,      // count (1, at most 63), byte (1): as many longest segments
    kReset = 7,
};

constexpr unsigned kIpOptions = 0x08;
constexpr unsigned kPadding = 0x10;
/** The message ends before its segment does; zeros follow. */
constexpr unsigned kCutOff = 0x20;
/** The segments of a burst are of 8 times the stride and follow each other without a gap. */
constexpr unsigned kWide = 0x40;
constexpr std::size_t kWidest = 1480;

class Connection {
 public:
    Connection(std::uint32_t first_seq, bool is_closed_by_last) : is_closed_by_last_(is_closed_by_last) {
        open(first_seq);
    }
    ~Connection() {
        ResetSession(session_);
        require_closed(session_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] std::uint32_t expected() const { return session_.next_expt_seq; }

    void send(unsigned options, std::uint32_t seq, ByteString payload) {
        test::Segment segment{.seq = seq, .payload = std::move(payload), .tcp_checksum = 0};
        if ((options & kIpOptions) != 0) {
            segment.ip_options = ByteString(40, 1);
        }
        segment.padding = (options & kPadding) != 0 ? 7 : 0;
        ByteString frame = test::ethernet_frame(segment);
        if ((options & kCutOff) != 0) {
            frame.resize(frame.size() - segment.payload.size() / 2);
        }
        last_frame_ = std::move(frame);
        is_last_cut_ = (options & kCutOff) != 0;
        send_again();
    }

    void send_again() {
        bytes_ += last_frame_.size();
        if (last_frame_.empty() || ++segments_ > kMostSegments || bytes_ > kMostBytes) {
            return;
        }
        const std::size_t room =
            is_last_cut_ ? kFrameRoom : std::max<std::size_t>(last_frame_.size(), MIN_FRAME_ROOM);
        const ExactBytes frame = exact_copy(last_frame_, room);
        const STcpSegment segment = ReadTcpSegment(frame.get(), room);
        require(segment.isSound, "the segments sent here are sound");
        take(segment, frame.get(), static_cast<std::uint32_t>(last_frame_.size()));
    }

    void check() const { require_sound(session_); }

    void reset() {
        const std::uint32_t seq = expected();
        ResetSession(session_);
        require_closed(session_);
        open(seq);
    }

 private:
    void open(std::uint32_t seq) {
        require(EngineAccess::init_tcp_session(session_, kPort) == 0, "there is memory");
        session_.next_expt_seq = seq;
        session_.init = 1;
    }

    void take(const STcpSegment& segment, const std::uint8_t* frame, std::uint32_t length) {
        const SMdqpSink sink = {look_at, this};
        if (session_.init == 0) {
            // Closed by a snapshot's end, or given up.
            open(segment.nSeq + segment.nPayloadSize);
            DeliverInOrder(session_, segment, sink);
            return;
        }
        if (!TakeSegment(session_, segment, frame, length, sink)) {
            require(session_.lost_buf_size == kMostEarlyFrames, "only a full list refuses a frame");
            reset();
        }
    }

    static void look_at(const mdqp_t* message, void* connection) {
        auto& self = *static_cast<Connection*>(connection);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(message);
        const std::size_t size = 8U + bytes[2] + 256U * bytes[3];
        // All of it can be read.
        for (std::size_t i = 0; i < size; ++i) {
            self.sum_ = self.sum_ + bytes[i];
        }
        if (self.is_closed_by_last_ && bytes[0] == 0x01) {
            self.session_.init = 0;
        }
    }

    tcp_session_t session_{};
    bool is_closed_by_last_;
    ByteString last_frame_;
    bool is_last_cut_ = false;
    int segments_ = 0;
    std::size_t bytes_ = 0;
    volatile std::uint32_t sum_ = 0;
};

ByteString payload_of(Input& input) {
    const auto bytes = input.bytes(input.byte());
    return {bytes.begin(), bytes.end()};
}

ByteString message_of(Input& input) {
    const std::uint8_t flag = input.byte();
    const std::uint16_t length = input.word();
    ByteString message{flag, 0x32};
    test::put_little16(message, length);
    message.resize(std::min<std::size_t>(8U + 8U * input.byte(), kLongestPayload));
    return message;
}

void send_burst(Connection& connection, Input& input, unsigned options, bool is_long) {
    std::uint32_t seq = connection.expected() + input.word();
    const unsigned count = is_long ? 2U * input.byte() : input.byte() / 8U;
    const std::uint32_t stride = input.byte();
    const bool is_wide = (options & kWide) != 0;
    const std::size_t size = is_wide ? std::min<std::size_t>(8U * stride, kWidest) : 1;
    for (unsigned i = 0; i < count; ++i) {
        connection.send(options, seq, ByteString(size, 0x01));
        seq += is_wide ? static_cast<std::uint32_t>(size) : stride;
    }
}

void send_bulk(Connection& connection, Input& input, unsigned options) {
    const unsigned count = input.byte() & 63U;
    const ByteString payload(kLongestPayload, input.byte());
    for (unsigned i = 0; i < count; ++i) {
        connection.send(options, connection.expected(), payload);
    }
}

void step(Connection& connection, Input& input, bool is_long) {
    const unsigned code = input.byte();
    switch (code & 7U) {
        case kInOrder:
            connection.send(code, connection.expected(), payload_of(input));
            break;
        case kEarly: {
            const std::uint32_t seq = connection.expected() + input.word();
            connection.send(code, seq, payload_of(input));
            break;
        }
        case kOutdated: {
            const std::uint32_t seq = connection.expected() - input.byte();
            connection.send(code, seq, payload_of(input));
            break;
        }
        case kMessage:
            connection.send(code, connection.expected(), message_of(input));
            break;
        case kBurst:
            send_burst(connection, input, code, is_long);
            break;
        case kAgain:
            connection.send_again();
            break;
        case kBulk:
            send_bulk(connection, input, code);
            break;
        default:
            connection.reset();
            break;
    }
}

void run(Input input) {
    CCommonLog::GetInstance()->SetLogLevel(kSilent);
    const unsigned options = input.byte();
    Connection connection(kFirstSeqs.at(options & 3U), (options & 4U) != 0);
    while (!input.empty()) {
        step(connection, input, (options & 8U) != 0);
        connection.check();
    }
}

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::run({data, size});
    return 0;
}
