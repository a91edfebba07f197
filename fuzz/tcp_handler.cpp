// A run of the card's messages into the handler of the snapshot.
//
//     byte 0   bits 0 to 3 the enabled feeds; the snapshot may be completed when the rest is 0xC, which costs
//              a write of all tables
//     byte 1   bits 0 and 1 the snapshot ports, bit 2 all feeds have one topic, bit 3 price errors are
//              shielded, bit 4 faults are injected
//     byte 2   the fault: low half its case, high half its size
//     then     messages: mode (1), where its sequence number lies from the expected one (2), size (2), bytes
//
// Modes: see below. Numbers have their lowest byte first.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "fuzz/engine_under_fuzz.h"
#include "fuzz/exact_copy.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "fuzz/session_state.h"
#include "support/snapshot_frame.h"

namespace kova::fuzz {
namespace {

using test::ByteString;

// What the bytes are: 0 the card's message as it is, 1 the same with its TCP checksum put right, otherwise the
// payload of an ordinary segment.
constexpr unsigned kKindMask = 0x03;
constexpr unsigned kKindAsItIs = 0;
constexpr unsigned kKindPutRight = 1;
// For an ordinary segment.
constexpr unsigned kPortShift = 2;
constexpr unsigned kReset = 0x10;
constexpr unsigned kOtherPeer = 0x20;
constexpr unsigned kPadding = 0x40;
// The message ends before its segment does.
constexpr unsigned kCutOff = 0x80;

constexpr std::uint32_t kFirstSeq = 5000;
constexpr std::size_t kLongestPayload = 2000;
constexpr int kMostMessages = 1200;
constexpr int kLookEvery = 16;
// Each of them throws a snapshot away, and all of it is looked through.
constexpr int kMostResets = 4;

constexpr std::array<U50SnapTcpPort, 4> kPortLayouts{{
    {kPorts[0], kPorts[1], kPorts[0], kPorts[1]},
    {kPorts[0], kPorts[0], kPorts[0], kPorts[0]},
    {kPorts[0], kPorts[1], kPorts[2], kPorts[3]},
    {kPorts[3], kPorts[2], kPorts[1], kPorts[0]},
}};

void configure(Engine& engine, Input& input) {
    const unsigned feeds = input.byte();
    const unsigned options = input.byte();
    const unsigned fault = input.byte();
    U50ConfigInfo& config = EngineAccess::config(engine);
    config.log_level = kSilent;
    // No feed ever has the bit 0x10.
    config.enabled_mask.enabled_mask =
        static_cast<std::uint8_t>((feeds & 0x0FU) | (feeds >> 4U == 0xC ? 0U : 0x10U));
    config.snapTcpPort = kPortLayouts.at(options & 3U);
    config.topicID =
        (options & 4U) != 0 ? U50TopicID{1000, 1000, 1000, 1000} : U50TopicID{1000, 1101, 5000, 5101};
    config.shield_price_check = (options & 8U) != 0;
    config.debug_flag = (options & 0x10U) != 0;
    config.error_case = fault & 0x0FU;
    config.error_limit_parts = static_cast<std::uint16_t>(fault >> 4U);
    config.error_instno = 3;
}

/** Writes the right TCP checksum into a message, as far as its IP header makes sense. */
void put_checksum_right(ByteString& message) {
    constexpr std::size_t kIp = 26;
    constexpr std::size_t kRoom = 2048;
    if (message.size() < kIp + 20) {
        return;
    }
    const std::size_t ip_size = 4U * (message[kIp] & 0x0FU);
    const std::size_t ip_length = message[kIp + 2] * 256U + message[kIp + 3];
    const std::size_t tcp = kIp + ip_size;
    if (ip_length < ip_size || kIp + ip_length > kRoom || tcp + 18 > message.size()) {
        return;
    }
    message[tcp + 16] = 0;
    message[tcp + 17] = 0;
    ByteString summed = message.substr(kIp + 12, 8);
    test::put_big16(summed, message[kIp + 9]);
    test::put_big16(summed, static_cast<std::uint32_t>(ip_length - ip_size));
    ByteString segment = message.substr(tcp, ip_length - ip_size);
    segment.resize(ip_length - ip_size);  // what the message does not hold counts as zeros
    const std::uint16_t checksum = test::internet_checksum(summed + segment);
    message[tcp + 16] = static_cast<std::uint8_t>(checksum >> 8U);
    message[tcp + 17] = static_cast<std::uint8_t>(checksum);
}

class Run {
 public:
    explicit Run(Input input) : input_(input), engine_(fresh_engine()), ending_(ending_of(input, 16)) {
        configure(engine_, input_);
    }

    void play() {
        for (int i = 0; i < kMostMessages && !input_.empty() && !is_over(); ++i) {
            const ByteString message = next_message();
            const ExactBytes exact = exact_copy(message);
            const bool had_snapshot = EngineAccess::is_snapshot_dirty(engine_);
            EngineAccess::tcp_handler(exact.get(), static_cast<unsigned>(message.size()), &engine_);
            if (ending_ == Ending::kThrowAway && had_snapshot && !EngineAccess::is_snapshot_dirty(engine_)) {
                require_no_snapshot(engine_);
            }
            // With hundreds of early frames a look at the lists costs more than a message.
            if (i % kLookEvery == 0) {
                require_sound_state();
            }
        }
        require_sound_state();
        end_input(engine_, ending_);
    }

 private:
    /** Nobody polls with this handler any more once the snapshot is complete. */
    [[nodiscard]] bool is_over() const {
        return EngineAccess::is_tcp_init_finished(engine_) || resets_ > kMostResets;
    }

    ByteString next_message() {
        const unsigned mode = input_.byte();
        const auto distance = static_cast<std::int16_t>(input_.word());
        const auto bytes = input_.bytes(input_.word());
        ByteString message(bytes.begin(), bytes.end());
        if ((mode & kKindMask) == kKindPutRight) {
            put_checksum_right(message);
        } else if ((mode & kKindMask) != kKindAsItIs) {
            message = ordinary_message(mode, distance, message.substr(0, kLongestPayload));
        }
        if ((mode & kCutOff) != 0) {
            message.resize(message.size() - message.size() / 4);
        }
        return message;
    }

    ByteString ordinary_message(unsigned mode, std::int16_t distance, ByteString payload) {
        const std::uint16_t port = kPorts.at((mode >> kPortShift) & 3U);
        const tcp_session_t& session = EngineAccess::peek_session(engine_, port);
        const std::uint32_t expected = session.init == 1 ? session.next_expt_seq : kFirstSeq;
        test::Segment segment{.seq = expected + static_cast<std::uint32_t>(distance),
                              .payload = std::move(payload),
                              .dst_port = port};
        if ((mode & kReset) != 0) {
            segment.flags = test::kTcpRst | test::kTcpAck;
            ++resets_;
        }
        if ((mode & kOtherPeer) != 0) {
            segment.src_host += 1;
        }
        segment.padding = (mode & kPadding) != 0 ? 6 : 0;
        return test::dma_tcp_message(segment);
    }

    void require_sound_state() {
        for (const std::uint16_t port : kPorts) {
            require_sound(EngineAccess::peek_session(engine_, port));
        }
        require_sound_counts(engine_);
        require((EngineAccess::finished_mask(engine_).enabled_mask & 0xF0U) == 0, "there are four feeds");
        require(!EngineAccess::is_snapshot_failed(engine_), "memory does not run out");
    }

    Input input_;
    Engine& engine_;
    Ending ending_;
    int resets_ = 0;
};

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::Run({data, size}).play();
    return 0;
}
